// Provisioning of the task's application database "OOO.nsf" at start-up:
// the refresh and signing of its templates "OOO.ntf" and "OOOEx.ntf" from
// the design file "OOO.xml" when the notes.ini variable OOOSetup asks for
// it (2: the database's design as well), and the creation of the database
// from a template when it is missing.
//
// Files are named in the application directory (notes.ini OOODirectory):
// directory + '\' + name when the directory is set, the bare name (the
// data directory) otherwise. Database paths are resolved by the runtime;
// the design file is read with the C library from the working directory,
// which for a task is the data directory.
#ifndef TARNWICK_SETUP_DATABASESETUP_H
#define TARNWICK_SETUP_DATABASESETUP_H

#include <cstdio>

#include "global.h"
#include "nsfsearch.h"

// The state of one read of the design file by DXLReaderFunc, cleared to
// zero before the import. The stream is opened by the first read.
struct DXLReaderContext {
  FILE* stream;
  char path[1040];
  int fd;  // -1 once the stream has been closed: the input has ended
  long size;
  long remaining;
};

// Makes sure that "OOO.nsf" exists and, as OOOSetup says, that the
// templates (and the database) carry the current, signed design. On
// success buildVersion holds the build version of "OOO.nsf". Logs its
// progress and failures; a non-zero status means the database could not be
// provisioned.
STATUS FirstSetup(const char* directory, WORD* buildVersion);

// Creates the database dbPath as a copy of the design of templatePath,
// with the template's access control list and the template name of the
// template as the name the new database inherits its design from.
STATUS CreateFormTemplate(const char* dbPath, const char* templatePath);

// DXLImport's reader over the file named in the DXLReaderContext given as
// context: the number of bytes placed in buffer, 0 at the end of the input
// or on a failure (the stream is then closed).
DWORD LNCALLBACK DXLReaderFunc(BYTE* buffer, const DWORD length, void* context);

// NSFSearch callback: signs one matched note of the database whose handle
// the context points at with the server's ID and saves it.
STATUS LNCALLBACK SignIndividualDesignElement(void* context, SEARCH_MATCH* match, ITEM_TABLE* summary);

#endif  // TARNWICK_SETUP_DATABASESETUP_H
