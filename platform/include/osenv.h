/* The runtime's environment: process and thread start and end, and the
 * variables of notes.ini.
 *
 * NotesInitExtended finds notes.ini from an argument "=path/notes.ini", else
 * the environment variable NOTES_INI, else ./notes.ini. The data directory is
 * notes.ini's "Directory" (default: the folder of notes.ini). notes.ini is
 * plain KEY=VALUE lines; keys match without case; every change is written to
 * the file at once and atomically (a new file renamed into place), so other
 * processes see it. Thread-safe. */
#ifndef TARNWICK_OSENV_H
#define TARNWICK_OSENV_H

#include "global.h"

TARNWICK_EXTERN_C_BEGIN

STATUS LNPUBLIC NotesInitExtended(int argc, char **argv);
void LNPUBLIC NotesTerm(void);
STATUS LNPUBLIC NotesInitThread(void);
void LNPUBLIC NotesTermThread(void);

/* TRUE if the variable exists; its value is copied NUL-terminated, cut to
 * BufferLength bytes (the buffer holds BufferLength+1). */
BOOL LNPUBLIC OSGetEnvironmentString(const char *VariableName, char *retValueBuffer, WORD BufferLength);
/* The variable's leading integer, 0 when missing or not a number. */
long LNPUBLIC OSGetEnvironmentLong(const char *VariableName);
#define OSGetEnvironmentInt(name) ((int)OSGetEnvironmentLong(name))
void LNPUBLIC OSSetEnvironmentVariable(const char *VariableName, const char *Value);
void LNPUBLIC OSSetEnvironmentInt(const char *VariableName, int Value);

/* The data directory (no trailing separator), NUL-terminated into retPath of
 * MAXPATH bytes; returns its length. */
WORD LNPUBLIC OSGetDataDirectory(char *retPath);

/* Additions of this runtime for its own tools. */

/* Like OSSetEnvironmentVariable, but says when notes.ini could not be
 * written (ERR_ACCESS). */
STATUS LNPUBLIC OSSetEnvironmentVariableChecked(const char *VariableName, const char *Value);
/* The notes.ini in use, NUL-terminated into retPath of MAXPATH bytes;
 * returns its length (0: none is in use). */
WORD LNPUBLIC OSGetNotesIniPath(char *retPath);

TARNWICK_EXTERN_C_END

#endif /* TARNWICK_OSENV_H */
