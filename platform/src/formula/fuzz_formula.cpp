// Fuzz entry point: compiles the input as a formula and, when it compiles,
// evaluates it with a couple of items present. Nothing may crash or hang.
#include <cstdint>
#include <cstring>

#include "formula.h"
#include "osmem.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  if (size > 4096) return 0;
  FORMULAHANDLE formula = NULLHANDLE;
  WORD length = 0;
  STATUS detail = NOERROR;
  WORD line, column, offset, error_length;
  if (NSFFormulaCompile(nullptr, 0, reinterpret_cast<const char*>(data), static_cast<WORD>(size), &formula, &length,
                        &detail, &line, &column, &offset, &error_length) != NOERROR)
    return 0;
  HCOMPUTE compute = NULLHANDLE;
  if (NSFComputeStart(0, OSLockObject(formula), &compute) == NOERROR) {
    DHANDLE result = NULLHANDLE;
    WORD result_length = 0;
    BOOL matches, should_delete, modified;
    if (NSFComputeEvaluate(compute, NULLHANDLE, &result, &result_length, &matches, &should_delete, &modified) ==
        NOERROR) {
      OSMemFree(result);
    }
    NSFComputeStop(compute);
  }
  OSUnlockObject(formula);
  OSMemFree(formula);
  return 0;
}
