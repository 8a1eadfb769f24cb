/* Helpers of the generic main program that starts an add-in task as an
 * ordinary process ("tarnwick =/path/to/notes.ini"):
 *
 *   int main(int argc, char *argv[]) {
 *     char text[256];
 *     STATUS error = NotesInitExtended(argc, argv);
 *     if (error) {
 *       if (!(NotesSDKMAINInitError(error, text, 255) & STS_DISPLAYED)) print text;
 *       return -1;
 *     }
 *     NotesSDKMAINCommandLineBegin();
 *     NotesSDKMAINInit(main, argc, argv);
 *     error = NotesMain(argc, argv);   -- AddInSDKInit, NotesInitModule, AddInMain, AddInSDKTerm
 *     if (error) { NotesSDKMAINError(error, text, 255); print text; }
 *     NotesSDKMAINCommandLineEnd();
 *     NotesTerm();
 *     return error ? -1 : 0;
 *   }
 *
 * Thread-safe; meant for the main thread. */
#ifndef TARNWICK_NOTESSDKMAIN_H
#define TARNWICK_NOTESSDKMAIN_H

#include "global.h"

TARNWICK_EXTERN_C_BEGIN

typedef int (*NOTESSDKMAIN_ENTRY)(int argc, char **argv);

/* The text of a start-up failure, NUL-terminated in retText (at most
 * textLength bytes before the NUL). Returns the status as given: its
 * STS_DISPLAYED bit says whether the text was already shown. */
STATUS LNPUBLIC NotesSDKMAINInitError(STATUS error, char *retText, WORD textLength);
/* The text of a failure of the program's own work, as above. */
STATUS LNPUBLIC NotesSDKMAINError(STATUS error, char *retText, WORD textLength);

/* Start of a console program: standard output becomes line-buffered, so
 * each console line shows at once. */
void LNPUBLIC NotesSDKMAINCommandLineBegin(void);
/* Records the program's entry and arguments (the program name names the
 * task's default status line). */
void LNPUBLIC NotesSDKMAINInit(NOTESSDKMAIN_ENTRY entry, int argc, char **argv);
/* End of a console program: flushes standard output and standard error. */
void LNPUBLIC NotesSDKMAINCommandLineEnd(void);

TARNWICK_EXTERN_C_END

#endif /* TARNWICK_NOTESSDKMAIN_H */
