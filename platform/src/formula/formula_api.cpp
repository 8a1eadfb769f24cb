// The formula C API (formula.h) over the parser and the evaluator. Nothing
// here throws: every exception stops at these functions and becomes a status.
#include <cstring>
#include <mutex>
#include <new>
#include <unordered_map>

#include "core/api_guard.h"
#include "core/handle_table.h"
#include "core/memory.h"
#include "formula.h"
#include "formula/compiled.h"
#include "formula/evaluator.h"
#include "formula/note_fields.h"
#include "globerr.h"
#include "osmem.h"

namespace tarnwick::rt::formula {
namespace {

// Parses are cached by text; the cache forgets everything when it grows past
// its bound (formulas in use are few; their trees stay alive through the
// compute handles that hold them).
constexpr size_t kParseCacheLimit = 512;

struct ParseCache {
  std::mutex mutex;
  std::unordered_map<std::string, std::shared_ptr<const Program>> programs;  // guarded by mutex
};

ParseCache& parse_cache() {
  static ParseCache cache;
  return cache;
}

struct Compute {
  std::shared_ptr<const Program> program;
};

void put_word(char* at, WORD w) {
  at[0] = static_cast<char>(w & 0xFF);
  at[1] = static_cast<char>(w >> 8);
}

template <class T>
void set_out(T* out, T value) {
  if (out != nullptr) *out = value;
}

}  // namespace

std::string make_compiled(std::string_view source) {
  std::string bytes(kCompiledMagic, sizeof kCompiledMagic);
  bytes.resize(kCompiledHeaderSize);
  put_word(bytes.data() + 4, static_cast<WORD>(source.size()));
  bytes += source;
  return bytes;
}

bool compiled_source(const void* compiled, std::string_view& source) {
  if (compiled == nullptr) return false;
  const char* bytes = static_cast<const char*>(compiled);
  if (std::memcmp(bytes, kCompiledMagic, sizeof kCompiledMagic) != 0) return false;
  const WORD length = static_cast<WORD>(static_cast<unsigned char>(bytes[4]) | (static_cast<unsigned char>(bytes[5]) << 8));
  source = std::string_view(bytes + kCompiledHeaderSize, length);
  return true;
}

std::shared_ptr<const Program> cached_parse(std::string_view source, CompileError& error) {
  ParseCache& cache = parse_cache();
  const std::string key(source);
  {
    std::lock_guard lock(cache.mutex);
    if (auto it = cache.programs.find(key); it != cache.programs.end()) {
      error = CompileError{};
      return it->second;
    }
  }
  auto program = parse_formula(source, error);
  if (!program) return nullptr;
  std::lock_guard lock(cache.mutex);
  if (cache.programs.size() >= kParseCacheLimit) cache.programs.clear();
  cache.programs.emplace(key, program);
  return program;
}

}  // namespace tarnwick::rt::formula

using namespace tarnwick::rt;
using namespace tarnwick::rt::formula;

extern "C" {

STATUS LNPUBLIC NSFFormulaCompile(char* /*FormulaName*/, WORD /*FormulaNameLength*/, const char* FormulaText,
                                  WORD FormulaTextLength, FORMULAHANDLE* rethFormula, WORD* retFormulaLength,
                                  STATUS* retCompileError, WORD* retCompileErrorLine, WORD* retCompileErrorColumn,
                                  WORD* retCompileErrorOffset, WORD* retCompileErrorLength) {
  if (rethFormula == nullptr || (FormulaText == nullptr && FormulaTextLength > 0)) return ERR_BAD_PARAM;
  *rethFormula = NULLHANDLE;
  set_out<WORD>(retFormulaLength, 0);
  set_out<STATUS>(retCompileError, NOERROR);
  set_out<WORD>(retCompileErrorLine, 0);
  set_out<WORD>(retCompileErrorColumn, 0);
  set_out<WORD>(retCompileErrorOffset, 0);
  set_out<WORD>(retCompileErrorLength, 0);
  return guarded([&]() -> STATUS {
    const std::string_view source(FormulaText == nullptr ? "" : FormulaText, FormulaTextLength);
    CompileError error;
    if (source.size() + kCompiledHeaderSize > MAXWORD) {
      error.status = ERR_COMPUTE_LENGTH_WORD;
      error.line = error.column = 1;
    } else {
      cached_parse(source, error);
    }
    if (error.status != NOERROR) {
      set_out(retCompileError, error.status);
      set_out(retCompileErrorLine, error.line);
      set_out(retCompileErrorColumn, error.column);
      set_out(retCompileErrorOffset, error.offset);
      set_out(retCompileErrorLength, error.length);
      return ERR_FORMULA_COMPILATION;
    }
    const std::string compiled = make_compiled(source);
    if (STATUS status = alloc_block_with(compiled, rethFormula)) return status;
    set_out(retFormulaLength, static_cast<WORD>(compiled.size()));
    return NOERROR;
  });
}

STATUS LNPUBLIC NSFFormulaDecompile(char* pFormulaBuffer, BOOL fSelectionFormula, DHANDLE* rethFormulaText,
                                    WORD* retFormulaTextLength) {
  if (rethFormulaText == nullptr) return ERR_BAD_PARAM;
  *rethFormulaText = NULLHANDLE;
  set_out<WORD>(retFormulaTextLength, 0);
  std::string_view source;
  if (!compiled_source(pFormulaBuffer, source)) return ERR_BAD_PARAM;
  return guarded([&]() -> STATUS {
    std::string text(source);
    if (fSelectionFormula) {
      const size_t first = text.find_first_not_of(" \t\r\n");
      const bool has_select = first != std::string::npos && text.size() - first >= 6 &&
                              equal_ignoring_case(std::string_view(text).substr(first, 6), "SELECT") &&
                              (text.size() - first == 6 || !std::isalnum(static_cast<unsigned char>(text[first + 6])));
      if (!has_select) text = "SELECT " + text;
    }
    if (text.size() > MAXWORD) return ERR_COMPUTE_LENGTH_WORD;
    if (STATUS status = alloc_block_with(text, rethFormulaText)) return status;
    set_out(retFormulaTextLength, static_cast<WORD>(text.size()));
    return NOERROR;
  });
}

STATUS LNPUBLIC NSFFormulaGetSize(FORMULAHANDLE hFormula, WORD* retFormulaLength) {
  if (retFormulaLength == nullptr) return ERR_BAD_PARAM;
  DWORD size = 0;
  if (STATUS status = OSMemGetSize(hFormula, &size)) return status;
  *retFormulaLength = static_cast<WORD>(std::min<DWORD>(size, MAXWORD));
  return NOERROR;
}

STATUS LNPUBLIC NSFComputeStart(WORD /*Flags*/, void* lpCompiledFormula, HCOMPUTE* rethCompute) {
  if (rethCompute == nullptr) return ERR_BAD_PARAM;
  *rethCompute = NULLHANDLE;
  std::string_view source;
  if (!compiled_source(lpCompiledFormula, source)) return ERR_BAD_PARAM;
  return guarded([&]() -> STATUS {
    CompileError error;
    auto program = cached_parse(source, error);
    if (!program) return ERR_FORMULA_COMPILATION;
    auto compute = std::make_shared<Compute>();
    compute->program = std::move(program);
    *rethCompute = handles().add(HandleKind::kCompute, std::move(compute));
    return NOERROR;
  });
}

STATUS LNPUBLIC NSFComputeStop(HCOMPUTE hCompute) {
  return handles().remove(hCompute, HandleKind::kCompute) ? NOERROR : ERR_BAD_PARAM;
}

STATUS LNPUBLIC NSFComputeEvaluate(HCOMPUTE hCompute, NOTEHANDLE hNote, DHANDLE* rethResult, WORD* retResultLength,
                                   BOOL* retNoteMatchesFormula, BOOL* retNoteShouldBeDeleted, BOOL* retNoteModified) {
  set_out<DHANDLE>(rethResult, NULLHANDLE);
  set_out<WORD>(retResultLength, 0);
  set_out<BOOL>(retNoteMatchesFormula, FALSE);
  set_out<BOOL>(retNoteShouldBeDeleted, FALSE);
  set_out<BOOL>(retNoteModified, FALSE);
  auto compute = handles().find_as<Compute>(hCompute, HandleKind::kCompute);
  if (!compute) return ERR_BAD_PARAM;
  return guarded([&]() -> STATUS {
    EvalResult result;
    if (hNote == NULLHANDLE) {
      MemoryFieldSource none;
      Evaluator evaluator(none);
      result = evaluator.run(*compute->program);
    } else {
      // FIELD assignments change the open note; no other call may change
      // it meanwhile.
      auto note = store::find_note(hNote);
      if (!note) return ERR_BAD_PARAM;
      std::lock_guard lock(note->mutex);
      NoteFields fields(*note);
      Evaluator evaluator(fields);
      result = evaluator.run(*compute->program);
    }
    if (result.status != NOERROR) return result.status;
    std::string bytes;
    if (STATUS status = encode_value(result.value, bytes)) return status;
    if (rethResult != nullptr) {
      if (STATUS status = alloc_block_with(bytes, rethResult)) return status;
    }
    set_out(retResultLength, static_cast<WORD>(bytes.size()));
    set_out<BOOL>(retNoteMatchesFormula, result.matches ? TRUE : FALSE);
    set_out<BOOL>(retNoteShouldBeDeleted, result.should_delete ? TRUE : FALSE);
    set_out<BOOL>(retNoteModified, result.modified ? TRUE : FALSE);
    return NOERROR;
  });
}

}  // extern "C"
