/* Notes and their items.
 *
 * A NOTEHANDLE is an in-memory copy of a note, owned by the caller and freed
 * with NSFNoteClose (closing NULLHANDLE is a no-op). Item calls change only
 * that copy; NSFNoteUpdate writes the whole note in one transaction, synced
 * to disk before it returns, and refuses with ERR_CONFLICT when the stored
 * note changed since this copy was opened (unless UPDATE_FORCE).
 *
 * Items keep their order; several items may share one name; names match
 * without regard to case. Values are the API's in-memory form (nsfdata.h);
 * values of types the runtime does not interpret are kept byte for byte.
 * Text is LMBCS, as given.
 *
 * A note handle may be used from any thread, but one note should not be
 * changed by two threads at once (each call is atomic; a sequence of calls is
 * not). BLOCKIDs of items and values stay valid until the item is deleted or
 * replaced or the note is closed. */
#ifndef TARNWICK_NSFNOTE_H
#define TARNWICK_NSFNOTE_H

#include "global.h"

TARNWICK_EXTERN_C_BEGIN

/* Note classes */
#define NOTE_CLASS_DOCUMENT 0x0001
#define NOTE_CLASS_DATA NOTE_CLASS_DOCUMENT
#define NOTE_CLASS_INFO 0x0002
#define NOTE_CLASS_FORM 0x0004
#define NOTE_CLASS_VIEW 0x0008
#define NOTE_CLASS_ICON 0x0010
#define NOTE_CLASS_DESIGN 0x0020
#define NOTE_CLASS_ACL 0x0040
#define NOTE_CLASS_HELP_INDEX 0x0080
#define NOTE_CLASS_HELP 0x0100
#define NOTE_CLASS_FILTER 0x0200
#define NOTE_CLASS_FIELD 0x0400
#define NOTE_CLASS_REPLFORMULA 0x0800
#define NOTE_CLASS_PRIVATE 0x1000
#define NOTE_CLASS_DEFAULT 0x8000
#define NOTE_CLASS_NOTIFYDELETION NOTE_CLASS_DEFAULT
#define NOTE_CLASS_ALL 0x7FFF
#define NOTE_CLASS_ALLNONDATA 0x7FFE
#define NOTE_CLASS_NONE 0x0000
#define NOTE_CLASS_SINGLE_INSTANCE \
  (NOTE_CLASS_DESIGN | NOTE_CLASS_ACL | NOTE_CLASS_INFO | NOTE_CLASS_ICON | NOTE_CLASS_HELP_INDEX)

/* Special note IDs: NOTE_ID_SPECIAL | NOTE_CLASS_x opens the special note of
 * that class (icon, about, using, design collection, default form/view). */
#define NOTE_ID_SPECIAL 0xFFFF0000u
#define SPECIAL_ID_NOTE 0x8000
#define NOTEID_RESERVED 0x80000000u
#define NOTEID_ADD 0u
#define NOTEID_ADD_OR_REPLACE 0x80000000u
#define NOTEID_ADD_UNID 0x80000001u
#define NOTEID_NO_PARENT 0u
#define RRV_DELETED NOTEID_RESERVED

/* NSFNoteGetInfo / NSFNoteSetInfo selectors */
#define _NOTE_DB 0
#define _NOTE_ID 1
#define _NOTE_OID 2
#define _NOTE_CLASS 3
#define _NOTE_MODIFIED 4
#define _NOTE_PRIVILEGES 5
#define _NOTE_FLAGS 7
#define _NOTE_ACCESSED 8
#define _NOTE_PARENT_NOTEID 10
#define _NOTE_RESPONSE_COUNT 11
#define _NOTE_RESPONSES 12
#define _NOTE_ADDED_TO_FILE 13
#define _NOTE_OBJSTORE_DB 14

/* Note flags (_NOTE_FLAGS) */
#define NOTE_FLAG_READONLY 0x0001
#define NOTE_FLAG_ABSTRACTED 0x0002
#define NOTE_FLAG_INCREMENTAL 0x0004
#define NOTE_FLAG_LINKED 0x0020
#define NOTE_FLAG_INCREMENTAL_FULL 0x0040
#define NOTE_FLAG_GHOST 0x0200
#define NOTE_FLAG_CANONICAL 0x4000

/* NSFNoteOpen flags. OPEN_SUMMARY loads only summary items; OPEN_EXPAND
 * turns TEXT into a one-entry TEXT_LIST, NUMBER into NUMBER_RANGE and TIME
 * into TIME_RANGE (NSFNoteContract turns them back). */
#define OPEN_SUMMARY 0x0001
#define OPEN_NOVERIFYDEFAULT 0x0002
#define OPEN_EXPAND 0x0004
#define OPEN_NOOBJECTS 0x0008
#define OPEN_SHARE 0x0020
#define OPEN_CANONICAL 0x0040
#define OPEN_MARK_READ 0x0100
#define OPEN_ABSTRACT 0x0200
#define OPEN_RESPONSE_ID_TABLE 0x1000

/* NSFNoteUpdate / NSFNoteDelete flags */
#define UPDATE_FORCE 0x0001
#define UPDATE_NAME_KEY_WARNING 0x0002
#define UPDATE_NOCOMMIT 0x0004
#define UPDATE_REPLICA 0x0008
#define UPDATE_NOREVISION 0x0100
#define UPDATE_NOSTUB 0x0200
#define UPDATE_RTR 0x0800
#define UPDATE_INCREMENTAL 0x4000
#define UPDATE_DELETED 0x8000
#define UPDATE_DUPLICATES 0

/* Limits: item names (longer: ERR_FIELDNAME_TOO_LONG), and the summary
 * items of one note together. */
#define MAXITEMNAME 250
#define MAXSUMMARYSIZE 32768u
/* Largest single item value the runtime accepts. */
#define MAXITEMVALUE (16u * 1024u * 1024u)

/* Notes */
STATUS LNPUBLIC NSFNoteCreate(DBHANDLE hDB, NOTEHANDLE *rethNote);
/* Unknown note ID: ERR_INVALID_NOTE; a deleted note: ERR_NOTE_DELETED;
 * NOTE_ID_SPECIAL | class without such a note: ERR_SPECIAL_ID. */
STATUS LNPUBLIC NSFNoteOpen(DBHANDLE hDB, NOTEID NoteID, WORD OpenFlags, NOTEHANDLE *rethNote);
STATUS LNPUBLIC NSFNoteOpenExt(DBHANDLE hDB, NOTEID NoteID, DWORD OpenFlags, NOTEHANDLE *rethNote);
/* Unknown UNID: ERR_NOT_FOUND. */
STATUS LNPUBLIC NSFNoteOpenByUNID(DBHANDLE hDB, const UNIVERSALNOTEID *pUNID, WORD OpenFlags, NOTEHANDLE *rethNote);
STATUS LNPUBLIC NSFNoteClose(NOTEHANDLE hNote);
/* Writes the note: a new note (note ID 0) is added (ERR_DUPLICATE_UNID when
 * its UNID is stored already, unless UPDATE_FORCE, which replaces that
 * note); otherwise the stored note is replaced. Bumps the sequence and sets sequence time and modified
 * time. ERR_SUMMARY_TOO_BIG when the summary items exceed MAXSUMMARYSIZE. */
STATUS LNPUBLIC NSFNoteUpdate(NOTEHANDLE hNote, WORD UpdateFlags);
STATUS LNPUBLIC NSFNoteUpdateExtended(NOTEHANDLE hNote, DWORD UpdateFlags);
/* Replaces the stored note by a deletion stub. */
STATUS LNPUBLIC NSFNoteDelete(DBHANDLE hDB, NOTEID NoteID, WORD UpdateFlags);
void LNPUBLIC NSFNoteGetInfo(NOTEHANDLE hNote, WORD Type, void *retValue);
void LNPUBLIC NSFNoteSetInfo(NOTEHANDLE hNote, WORD Type, const void *Value);
/* One-entry lists back to simple types (the reverse of OPEN_EXPAND). */
STATUS LNPUBLIC NSFNoteContract(NOTEHANDLE hNote);
STATUS LNPUBLIC NSFNoteExpand(NOTEHANDLE hNote);

/* Items. A length of MAXWORD for a text argument means "NUL-terminated". */

/* Replaces every item of that name by one TYPE_TEXT item (ITEM_SUMMARY). */
STATUS LNPUBLIC NSFItemSetText(NOTEHANDLE hNote, const char *ItemName, const char *ItemText, WORD TextLength);
STATUS LNPUBLIC NSFItemSetTextSummary(NOTEHANDLE hNote, const char *ItemName, const char *ItemText, WORD TextLength,
                                      BOOL Summary);
/* Adds an item (duplicates allowed); Value excludes the type word. */
STATUS LNPUBLIC NSFItemAppend(NOTEHANDLE hNote, WORD ItemFlags, const char *ItemName, WORD NameLength, WORD DataType,
                              const void *Value, DWORD ValueLength);
/* As NSFItemAppend, from a memory block holding the type word and the value
 * (ValueLength counts the type word). The note takes ownership of the block
 * and frees it when closed. */
STATUS LNPUBLIC NSFItemAppendByBLOCKID(NOTEHANDLE hNote, WORD ItemFlags, const char *ItemName, WORD NameLength,
                                       BLOCKID bhValue, DWORD ValueLength, BLOCKID *retbhItem);

/* Copies the text of a TEXT item (the entries of a TEXT_LIST joined with
 * NUL) into retBuffer: at most BufferLength-1 bytes, then a NUL. Returns the
 * number of bytes copied; 0 for a missing, empty or non-text item. */
WORD LNPUBLIC NSFItemGetText(NOTEHANDLE hNote, const char *ItemName, char *retBuffer, WORD BufferLength);
/* Entry EntryPos (0-based) of a TEXT_LIST (a TEXT item has one entry): at
 * most BufferLength bytes, then a NUL (the buffer needs BufferLength+1). */
WORD LNPUBLIC NSFItemGetTextListEntry(NOTEHANDLE hNote, const char *ItemName, WORD EntryPos, char *retBuffer,
                                      WORD BufferLength);
WORD LNPUBLIC NSFItemGetTextListEntries(NOTEHANDLE hNote, const char *ItemName);
/* Replaces the item by a one-entry TEXT_LIST (ITEM_SUMMARY). */
STATUS LNPUBLIC NSFItemCreateTextList(NOTEHANDLE hNote, const char *ItemName, const char *Text, WORD TextLength);
/* Adds an entry to a TEXT_LIST (created with ITEM_SUMMARY when missing; a
 * TEXT item becomes a list). Without fAllowDuplicates an entry already there
 * is not added again. */
STATUS LNPUBLIC NSFItemAppendTextList(NOTEHANDLE hNote, const char *ItemName, const char *Text, WORD TextLength,
                                      BOOL fAllowDuplicates);
STATUS LNPUBLIC NSFItemSetNumber(NOTEHANDLE hNote, const char *ItemName, const NUMBER *Number);
/* TRUE when the item exists and holds a number (first entry of a range). */
BOOL LNPUBLIC NSFItemGetNumber(NOTEHANDLE hNote, const char *ItemName, NUMBER *retNumber);
long LNPUBLIC NSFItemGetLong(NOTEHANDLE hNote, const char *ItemName, long DefaultNumber);
STATUS LNPUBLIC NSFItemSetTime(NOTEHANDLE hNote, const char *ItemName, const TIMEDATE *Time);
BOOL LNPUBLIC NSFItemGetTime(NOTEHANDLE hNote, const char *ItemName, TIMEDATE *retTime);
BOOL LNPUBLIC NSFItemIsPresent(NOTEHANDLE hNote, const char *ItemName, WORD NameLength);
/* Deletes every item of that name; ERR_ITEM_NOT_FOUND when there is none. */
STATUS LNPUBLIC NSFItemDelete(NOTEHANDLE hNote, const char *ItemName, WORD NameLength);
STATUS LNPUBLIC NSFItemDeleteByBLOCKID(NOTEHANDLE hNote, BLOCKID bhItem);

/* The first item of that name (ItemName NULL: the first item). retbhValue
 * names a block holding the type word and the value; *retValueLength counts
 * the type word. Writing into the value block changes the item. Missing:
 * ERR_ITEM_NOT_FOUND and *retDataType = TYPE_INVALID_OR_UNKNOWN. Any
 * output pointer may be NULL. */
STATUS LNPUBLIC NSFItemInfo(NOTEHANDLE hNote, const char *ItemName, WORD NameLength, BLOCKID *retbhItem,
                            WORD *retDataType, BLOCKID *retbhValue, DWORD *retValueLength);
/* The next item after NextItem (which may have been deleted meanwhile) with
 * that name (NULL: any name). */
STATUS LNPUBLIC NSFItemInfoNext(NOTEHANDLE hNote, BLOCKID NextItem, const char *ItemName, WORD NameLength,
                                BLOCKID *retbhItem, WORD *retDataType, BLOCKID *retbhValue, DWORD *retValueLength);
/* Name (NUL-terminated, cut to ItemNameBufferLength-1), flags, type and
 * value of an item found with NSFItemInfo. */
void LNPUBLIC NSFItemQuery(NOTEHANDLE hNote, BLOCKID bhItem, char *retItemName, WORD ItemNameBufferLength,
                           WORD *retItemNameLength, WORD *retItemFlags, WORD *retDataType, BLOCKID *retbhValue,
                           DWORD *retValueLength);

/* Signing. NSFNoteSign signs the items flagged ITEM_SIGN (in note order,
 * each in its contracted form, so a signature made on an expanded note holds
 * after NSFNoteContract) with the server's key (kfm.h) and stores the
 * signature as "$Signature" (TYPE_SIGNATURE, ITEM_SEAL), replacing an older
 * one. ERR_NOEXIST when the server has no ID file. */
STATUS LNPUBLIC NSFNoteSign(NOTEHANDLE hNote);
/* Checks the "$Signature" of the note (SignatureItemName must be NULL):
 * ERR_NOTE_NOT_SIGNED without one, ERR_NOTE_INVSIG5 for a damaged one,
 * ERR_NOTE_INVSIG2 when a signed item changed, ERR_NOTE_INVSIG3 when the
 * signer claims the server's name with another key. retWhenSigned,
 * retSigner (MAXUSERNAME bytes) and retCertifier (the organisation part of
 * the signer, MAXUSERNAME bytes) may be NULL. */
STATUS LNPUBLIC NSFNoteVerifySignature(NOTEHANDLE hNote, const char *SignatureItemName, TIMEDATE *retWhenSigned,
                                       char *retSigner, char *retCertifier);

/* Calls ActionRoutine for each item in order; a non-zero status stops the
 * scan and is returned. Value excludes the type word. */
typedef STATUS(LNCALLBACK *NSFITEMSCANPROC)(WORD Spare, WORD ItemFlags, char *Name, WORD NameLength, void *Value,
                                            DWORD ValueLength, void *RoutineParameter);
STATUS LNPUBLIC NSFItemScan(NOTEHANDLE hNote, NSFITEMSCANPROC ActionRoutine, void *RoutineParameter);

/* Compute with form. NSFNoteComputeWithForm runs the field formulas of a
 * form on the note: with hFormNote NULLHANDLE the form named by the note's
 * "Form" item (name or alias), else the database's default form. First for
 * every field in form order: computed fields get their value formula's
 * value, computed-when-composed fields only when the item is missing,
 * missing editable fields their default value. Then again in form order:
 * editable fields run input translation (the result replaces the item) and
 * input validation (@Failure("text") fails; ErrorText holds the text),
 * and their value is checked against the field type (text that reads as a
 * number or time is converted); computed fields are computed again;
 * computed-for-display items are removed. Fields of the form are described
 * by the form note (dxl/form_design.h in the runtime).
 * An error calls ErrorRoutine with the field (CDFIELD, editods.h), the
 * phase, the status and a memory block holding the error text as a
 * TYPE_TEXT_LIST value with its type word (freed after the call); the answer
 * CWF_NEXT_FIELD skips the rest of the field, CWF_RECHECK_FIELD repeats the
 * phase (at most a few times), anything else stops with that status. With
 * CWF_CONTINUE_ON_ERROR errors are passed over and the routine is not
 * called; without routine the first error stops. A form that cannot be
 * found gives ERR_NOT_FOUND. The note is changed in memory only. */
#define CWF_CONTINUE_ON_ERROR 0x0001

#define CWF_ABORT 1
#define CWF_NEXT_FIELD 2
#define CWF_RECHECK_FIELD 3

#define CWF_DV_FORMULA 1
#define CWF_IT_FORMULA 2
#define CWF_IV_FORMULA 3
#define CWF_COMPUTED_FORMULA 4
#define CWF_DATATYPE_CONVERSION 5
#define CWF_COMPUTED_FORMULA_LOAD CWF_COMPUTED_FORMULA
#define CWF_COMPUTED_FORMULA_SAVE 6

typedef WORD(LNCALLBACK *CWF_ERROR_PROC)(const void *pCDField, WORD phase, STATUS error, DHANDLE ErrorText,
                                         WORD wErrorTextSize, void *ctx);
STATUS LNPUBLIC NSFNoteComputeWithForm(NOTEHANDLE hNote, NOTEHANDLE hFormNote, DWORD dwFlags,
                                       CWF_ERROR_PROC ErrorRoutine, void *CallersContext);

TARNWICK_EXTERN_C_END

#endif /* TARNWICK_NSFNOTE_H */
