#include "lmbcs_text.h"

#include "failure.h"
#include "osmisc.h"

namespace tarnwick::client {
namespace {

std::string translate(WORD mode, std::string_view in, size_t growth) {
  if (in.empty()) return {};
  if (in.size() > 0xFFFF / growth) throw Failure("text too long to convert (" + std::to_string(in.size()) + " bytes)");
  std::string out(in.size() * growth, '\0');
  const WORD written = OSTranslate(mode, in.data(), static_cast<WORD>(in.size()), out.data(),
                                   static_cast<WORD>(out.size()));
  out.resize(written);
  return out;
}

}  // namespace

// LMBCS needs at most 3 bytes for a UTF-8 character of at most 4; UTF-8
// needs at most 3 bytes for each LMBCS byte.
std::string to_lmbcs(std::string_view utf8) { return translate(OS_TRANSLATE_UTF8_TO_LMBCS, utf8, 2); }
std::string to_utf8(std::string_view lmbcs) { return translate(OS_TRANSLATE_LMBCS_TO_UTF8, lmbcs, 3); }

}  // namespace tarnwick::client
