/* Data types of item values and their in-memory layouts.
 *
 * An item value in memory is its bytes in host form; where the platform hands
 * a value out with its type (item info, profile fields, lookups, formula
 * results) the bytes are preceded by the WORD data type, and lengths count
 * that word. Text is LMBCS without a terminator. */
#ifndef TARNWICK_NSFDATA_H
#define TARNWICK_NSFDATA_H

#include "global.h"

TARNWICK_EXTERN_C_BEGIN

#define CLASS_NOCOMPUTE 0x0000
#define CLASS_ERROR 0x0100
#define CLASS_UNAVAILABLE 0x0200
#define CLASS_NUMBER 0x0300
#define CLASS_TIME 0x0400
#define CLASS_TEXT 0x0500
#define CLASS_FORMULA 0x0600
#define CLASS_USERID 0x0700
#define CLASS_MASK 0xFF00

#define TYPE_INVALID_OR_UNKNOWN 0x0000
#define TYPE_COMPOSITE 0x0001
#define TYPE_COLLATION 0x0002
#define TYPE_OBJECT 0x0003
#define TYPE_NOTEREF_LIST 0x0004
#define TYPE_VIEW_FORMAT 0x0005
#define TYPE_ICON 0x0006
#define TYPE_NOTELINK_LIST 0x0007
#define TYPE_SIGNATURE 0x0008
#define TYPE_SEAL 0x0009
#define TYPE_SEALDATA 0x000A
#define TYPE_SEAL_LIST 0x000B
#define TYPE_HIGHLIGHTS 0x000C
#define TYPE_WORKSHEET_DATA 0x000D
#define TYPE_USERDATA 0x000E
#define TYPE_QUERY 0x000F
#define TYPE_ACTION 0x0010
#define TYPE_ASSISTANT_INFO 0x0011
#define TYPE_VIEWMAP_DATASET 0x0012
#define TYPE_VIEWMAP_LAYOUT 0x0013
#define TYPE_LSOBJECT 0x0014
#define TYPE_HTML 0x0015
#define TYPE_SCHED_LIST 0x0016
#define TYPE_CALENDAR_FORMAT 0x0018
#define TYPE_MIME_PART 0x0019
#define TYPE_SEAL2 0x001F
#define TYPE_ERROR (CLASS_ERROR + 0)
#define TYPE_UNAVAILABLE (CLASS_UNAVAILABLE + 0)
#define TYPE_NUMBER (CLASS_NUMBER + 0)
#define TYPE_NUMBER_RANGE (CLASS_NUMBER + 1)
#define TYPE_TIME (CLASS_TIME + 0)
#define TYPE_TIME_RANGE (CLASS_TIME + 1)
#define TYPE_TEXT (CLASS_TEXT + 0)
#define TYPE_TEXT_LIST (CLASS_TEXT + 1)
#define TYPE_RFC822_TEXT (CLASS_TEXT + 2)
#define TYPE_FORMULA (CLASS_FORMULA + 0)
#define TYPE_USERID (CLASS_USERID + 0)

/* Item flags */
#define ITEM_SIGN 0x0001
#define ITEM_SEAL 0x0002
#define ITEM_SUMMARY 0x0004
#define ITEM_READWRITERS 0x0020
#define ITEM_NAMES 0x0040
#define ITEM_NOUPDATE 0x0080
#define ITEM_PLACEHOLDER 0x0100
#define ITEM_PROTECTED 0x0200
#define ITEM_READERS 0x0400
#define ITEM_UNCHANGED 0x1000

/* Largest list value */
#define MAXLISTSIZE (15u * 1024u)

TARNWICK_EXTERN_C_END

#endif /* TARNWICK_NSFDATA_H */
