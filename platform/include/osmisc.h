/* Status texts and character-set translation.
 *
 * OSLoadString gives the standard text of a status code. OSTranslate converts
 * text between the platform's character set LMBCS and UTF-8, Unicode (UTF-16)
 * or the native set (UTF-8 on this system). Both are thread-safe. */
#ifndef TARNWICK_OSMISC_H
#define TARNWICK_OSMISC_H

#include "global.h"

TARNWICK_EXTERN_C_BEGIN

/* Text of ERR(StringCode) copied into retBuffer (always NUL-terminated when
 * BufferLength > 0, cut to BufferLength-1 bytes); returns the length copied,
 * 0 when the code has no text. hModule is NULLHANDLE for the runtime's texts. */
WORD LNPUBLIC OSLoadString(HMODULE hModule, STATUS StringCode, char *retBuffer, WORD BufferLength);

/* Translation modes */
#define OS_TRANSLATE_NATIVE_TO_LMBCS 0
#define OS_TRANSLATE_LMBCS_TO_NATIVE 1
#define OS_TRANSLATE_LOWER_TO_UPPER 3
#define OS_TRANSLATE_UPPER_TO_LOWER 4
#define OS_TRANSLATE_UNACCENT 5
#define OS_TRANSLATE_LMBCS_TO_UNICODE 20
#define OS_TRANSLATE_LMBCS_TO_UTF8 22
#define OS_TRANSLATE_UNICODE_TO_LMBCS 23
#define OS_TRANSLATE_UTF8_TO_LMBCS 24

/* Translates InLength bytes of In into Out (at most OutLength bytes, never
 * more) and returns the number of bytes written. The output is not
 * NUL-terminated; a character that does not fit whole is left out. */
WORD LNPUBLIC OSTranslate(WORD TranslateMode, const char *In, WORD InLength, char *Out, WORD OutLength);

TARNWICK_EXTERN_C_END

#endif /* TARNWICK_OSMISC_H */
