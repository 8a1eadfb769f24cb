// The compiled form of a formula, as the caller's memory block holds it:
//   4 bytes "TWF1", WORD length of the text, the formula text.
// The parse tree itself never leaves the runtime: NSFComputeStart parses the
// text again, through a cache keyed by the text so that a formula compiled
// once is parsed once.
#pragma once

#include <memory>
#include <string>
#include <string_view>

#include "formula/syntax.h"

namespace tarnwick::rt::formula {

constexpr char kCompiledMagic[4] = {'T', 'W', 'F', '1'};
constexpr size_t kCompiledHeaderSize = 6;

std::string make_compiled(std::string_view source);
// The formula text of a compiled block; false when the bytes are not one.
bool compiled_source(const void* compiled, std::string_view& source);

// The parse of a formula text, shared and cached; nullptr with `error` set
// when the text does not compile.
std::shared_ptr<const Program> cached_parse(std::string_view source, CompileError& error);

}  // namespace tarnwick::rt::formula
