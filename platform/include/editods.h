/* Design records handed to callers: the CDFIELD description of a form field
 * that NSFNoteComputeWithForm passes to its error callback.
 *
 * The record is followed by its variable parts, in this order: the default
 * value formula (DVLength bytes), the input translation formula (ITLength),
 * the input validation formula (IVLength), each a compiled formula as
 * NSFFormulaCompile makes it (formula.h; NSFFormulaDecompile gives its
 * text), then the field name (NameLength bytes, not NUL-terminated). The
 * record belongs to the runtime and is valid during the callback only. */
#ifndef TARNWICK_EDITODS_H
#define TARNWICK_EDITODS_H

#include "global.h"
#include "ostime.h"

TARNWICK_EXTERN_C_BEGIN

typedef struct {
  WORD Signature;
  WORD Length; /* of the whole record, variable parts included */
} WSIG;

typedef struct {
  BYTE Digits;
  BYTE Format;
  BYTE Attributes;
  BYTE Unused;
} NFMT;

typedef DWORD FONTID;

#define SIG_CD_FIELD 0xFF8A

/* CDFIELD.Flags */
#define FREADWRITERS 0x0001
#define FEDITABLE 0x0002
#define FNAMES 0x0004
#define FREADERS 0x0010
#define FCOMPUTED 0x0100

typedef struct {
  WSIG Header;
  WORD Flags;
  WORD DataType; /* TYPE_TEXT, TYPE_NUMBER, TYPE_TIME, TYPE_COMPOSITE */
  WORD ListDelim;
  NFMT NumberFormat;
  TFMT TimeFormat;
  FONTID FontID;
  WORD DVLength;
  WORD ITLength;
  WORD TabOrder;
  WORD IVLength;
  WORD NameLength;
  WORD DescLength;
  WORD TextValueLength;
} CDFIELD;

TARNWICK_EXTERN_C_END

#endif /* TARNWICK_EDITODS_H */
