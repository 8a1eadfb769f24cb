/* Formulas: compiling formula text and evaluating it, alone or against a
 * note.
 *
 * NSFFormulaCompile turns formula text into a compiled formula held in a
 * memory block (osmem.h) the caller owns and frees with OSMemFree. To run
 * it, lock the block (OSLockObject) and pass the address to
 * NSFComputeStart; the compute handle it returns may evaluate the formula
 * any number of times, against any note or none, until NSFComputeStop.
 * NSFComputeEvaluate hands back the result as a memory block the caller
 * frees: the WORD data type first, then the value (texts as TYPE_TEXT_LIST,
 * numbers as TYPE_NUMBER_RANGE, times as TYPE_TIME_RANGE, an error as
 * TYPE_ERROR plus the WORD status); the length counts the type word.
 * FIELD assignments change the note in memory only.
 *
 * A formula that runs too long (the runtime meters its work) or builds a
 * list or text beyond the language's limits stops with an error status.
 * All calls are thread-safe; a compute handle may be used by several
 * threads at once. */
#ifndef TARNWICK_FORMULA_H
#define TARNWICK_FORMULA_H

#include "global.h"

TARNWICK_EXTERN_C_BEGIN

typedef DHANDLE HCOMPUTE;

/* Compiles FormulaText (FormulaTextLength bytes; the name is ignored). On a
 * syntax error returns ERR_FORMULA_COMPILATION and sets *retCompileError to
 * the specific status and the error's place: line and column counted from
 * 1, offset from 0, and the length of the offending text. Every out
 * parameter may be NULL except rethFormula. */
STATUS LNPUBLIC NSFFormulaCompile(char *FormulaName, WORD FormulaNameLength, const char *FormulaText,
                                  WORD FormulaTextLength, FORMULAHANDLE *rethFormula, WORD *retFormulaLength,
                                  STATUS *retCompileError, WORD *retCompileErrorLine, WORD *retCompileErrorColumn,
                                  WORD *retCompileErrorOffset, WORD *retCompileErrorLength);

/* The text of a compiled formula (a new memory block, not NUL-terminated).
 * With fSelectionFormula a formula that does not begin with SELECT gets it. */
STATUS LNPUBLIC NSFFormulaDecompile(char *pFormulaBuffer, BOOL fSelectionFormula, DHANDLE *rethFormulaText,
                                    WORD *retFormulaTextLength);

/* Size in bytes of a compiled formula's block. */
STATUS LNPUBLIC NSFFormulaGetSize(FORMULAHANDLE hFormula, WORD *retFormulaLength);

/* Flags is reserved (0). */
STATUS LNPUBLIC NSFComputeStart(WORD Flags, void *lpCompiledFormula, HCOMPUTE *rethCompute);
STATUS LNPUBLIC NSFComputeStop(HCOMPUTE hCompute);

/* Evaluates against hNote (NULLHANDLE: no note). retNoteMatchesFormula:
 * the SELECT expression (or, without one, the result) is true;
 * retNoteShouldBeDeleted: @DeleteDocument ran or the result is
 * @Unavailable; retNoteModified: a FIELD assignment changed the note. Every
 * out parameter may be NULL; a NULL rethResult discards the result. */
STATUS LNPUBLIC NSFComputeEvaluate(HCOMPUTE hCompute, NOTEHANDLE hNote, DHANDLE *rethResult, WORD *retResultLength,
                                   BOOL *retNoteMatchesFormula, BOOL *retNoteShouldBeDeleted, BOOL *retNoteModified);

TARNWICK_EXTERN_C_END

#endif /* TARNWICK_FORMULA_H */
