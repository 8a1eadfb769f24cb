/* DXL import: reading a database design (and seed documents) written in the
 * platform's XML form, DXL, into a database.
 *
 * An importer is created with DXLCreateImporter, tuned with
 * DXLSetImporterProperty and run with DXLImport, which pulls the XML through
 * the caller's reader function until it returns 0. The whole input is
 * stored in one transaction: a file with an error (not well-formed XML, an
 * unknown element, a bad value, a formula that does not compile) is refused
 * with ERR_DXL_IMPORTER_FAILED and leaves the database as it was; the
 * result log (property iResultLog) then names the problem and its line.
 *
 * Elements understood (the root is <database>, any namespace):
 *   database   attributes title, templatename, fromtemplate, categories:
 *              the information string and the icon note's $TITLE, when
 *              iReplaceDbProperties is TRUE
 *   acl        <role> names and <aclentry name level type flags...> entries
 *              (iACLImportOption)
 *   form, subform, view, folder, agent, fileresource   design notes
 *              (iDesignImportOption; a design note matches an existing one
 *              of the same kind sharing a name or alias)
 *   document   seed data: <item name> holding <text>, <textlist>, <number>,
 *              <numberlist>, <datetime>, <datetimelist> (iDocumentsImportOption;
 *              a document matches an existing one by <noteinfo unid>)
 * How forms, views, agents and file resources are stored is described in
 * the runtime's design headers (form fields, view columns) and in agents.h.
 *
 * An importer handle belongs to the caller (DXLDeleteImporter frees it);
 * one importer must not run two imports at once. Distinct importers may run
 * on any threads. */
#ifndef TARNWICK_DXLIMPORT_H
#define TARNWICK_DXLIMPORT_H

#include "global.h"

TARNWICK_EXTERN_C_BEGIN

typedef DHANDLE DXLIMPORTHANDLE;

/* Reads up to length bytes of the input into pBuffer; returns how many it
 * placed there, 0 at the end of the input (or on failure). */
typedef DWORD(LNCALLBACK *XML_READ_FUNCTION)(BYTE *pBuffer, const DWORD length, void *pAction);

typedef enum {
  iACLImportOption = 1,                   /* WORD DXLIMPORTOPTION; default IGNORE */
  iDesignImportOption = 2,                /* WORD DXLIMPORTOPTION; default IGNORE */
  iDocumentsImportOption = 3,             /* WORD DXLIMPORTOPTION; default CREATE */
  iCreateFullTextIndex = 4,               /* BOOL; default FALSE (no index is kept) */
  iReplaceDbProperties = 5,               /* BOOL; default FALSE */
  iInputValidationOption = 6,             /* WORD Xml_Validation_Option; default Auto */
  iReplicaRequiredForReplaceOrUpdate = 7, /* BOOL; default TRUE */
  iExitOnFirstFatalError = 8,             /* BOOL; default TRUE */
  iUnknownTokenLogOption = 9,             /* WORD DXLLOGOPTION; default FATALERROR */
  iResultLogComment = 10,                 /* in: NUL-terminated text (copied); out: MEMHANDLE copy */
  iResultLog = 11,                        /* out only: MEMHANDLE of the log (XML text), caller frees */
  iImportedNoteList = 12                  /* not kept by this runtime */
} DXL_IMPORT_PROPERTY;

#define eACLImportOption iACLImportOption
#define eDesignImportOption iDesignImportOption
#define eDocumentsImportOption iDocumentsImportOption
#define eCreateFullTextIndex iCreateFullTextIndex
#define eReplaceDbProperties iReplaceDbProperties
#define eInputValidationOption iInputValidationOption
#define eReplicaRequiredForReplaceOrUpdate iReplicaRequiredForReplaceOrUpdate
#define eExitOnFirstFatalError iExitOnFirstFatalError
#define eUnknownTokenLogOption iUnknownTokenLogOption
#define eResultLogComment iResultLogComment
#define eResultLog iResultLog
#define eImportedNoteList iImportedNoteList

/* What to do with the incoming ACL, design notes and documents.
 *   IGNORE               leave the database's as they are
 *   CREATE               add every incoming one as new
 *   IGNORE_ELSE_CREATE   add the incoming ones that match nothing
 *   REPLACE_ELSE_IGNORE  replace the matching ones, skip the rest (ACL:
 *                        the incoming ACL replaces the database's)
 *   REPLACE_ELSE_CREATE  replace the matching ones, add the rest
 *   UPDATE_ELSE_IGNORE   documents: replace matching items of matching
 *                        documents; ACL: replace matching entries
 *   UPDATE_ELSE_CREATE   as UPDATE_ELSE_IGNORE, and add the rest */
typedef WORD DXLIMPORTOPTION;
#define DXLIMPORTOPTION_IGNORE 1
#define DXLIMPORTOPTION_CREATE 2
#define DXLIMPORTOPTION_IGNORE_ELSE_CREATE 3
#define DXLIMPORTOPTION_REPLACE_ELSE_IGNORE 5
#define DXLIMPORTOPTION_REPLACE_ELSE_CREATE 6
#define DXLIMPORTOPTION_UPDATE_ELSE_IGNORE 9
#define DXLIMPORTOPTION_UPDATE_ELSE_CREATE 10

/* How unknown elements and attributes are treated: IGNORE and WARNING go
 * on (WARNING logs them), ERROR and FATALERROR refuse the input. */
typedef WORD DXLLOGOPTION;
#define DXLLOGOPTION_IGNORE 1
#define DXLLOGOPTION_WARNING 2
#define DXLLOGOPTION_ERROR 3
#define DXLLOGOPTION_FATALERROR 4

/* Validation against a DTD: none is ever loaded; the values are accepted. */
typedef WORD Xml_Validation_Option;
#define Xml_Validate_Never 0
#define Xml_Validate_Always 1
#define Xml_Validate_Auto 2

STATUS LNPUBLIC DXLCreateImporter(DXLIMPORTHANDLE *prethDXLImport);
/* Closing NULLHANDLE is a no-op. */
STATUS LNPUBLIC DXLDeleteImporter(DXLIMPORTHANDLE hDXLImport);
/* propValue points to a WORD (options), a BOOL, or for iResultLogComment
 * a NUL-terminated text. ERR_DXL_INVALID_PROPERTY for an unknown property,
 * ERR_DXL_INVALID_PROPERTY_VALUE for a value out of range,
 * ERR_XML_PROPERTY_IS_READONLY for iResultLog and iImportedNoteList. */
STATUS LNPUBLIC DXLSetImporterProperty(DXLIMPORTHANDLE hDXLImport, DXL_IMPORT_PROPERTY prop, void *propValue);
/* retPropValue receives a WORD, a BOOL or (iResultLog, iResultLogComment) a
 * MEMHANDLE the caller frees with OSMemFree (NULLHANDLE when empty). */
STATUS LNPUBLIC DXLGetImporterProperty(DXLIMPORTHANDLE hDXLImport, DXL_IMPORT_PROPERTY prop, void *retPropValue);
/* Imports the XML that pDXLReaderFunc delivers into hDB (needs Designer
 * access for design, Manager for the ACL). The log of an earlier run is
 * replaced. */
STATUS LNPUBLIC DXLImport(DXLIMPORTHANDLE hDXLImport, XML_READ_FUNCTION pDXLReaderFunc, DBHANDLE hDB, void *pImAction);
/* TRUE when the last DXLImport logged an error. */
BOOL LNPUBLIC DXLImportWasErrorLogged(DXLIMPORTHANDLE hDXLImport);

/* Runtime extension: builds a template from a DXL file. Creates
 * TemplatePath (a template whatever its extension; ERR_EXISTS when the file
 * exists) and imports DxlFilePath into it with design, ACL and documents
 * created and the database properties taken; TemplateName (may be NULL)
 * then becomes the template name of its information string. The icon note
 * records the template's own file name in "$TemplateFileName", which
 * databases made from it carry on (NSFDbCreateAndCopy copies the icon note).
 * Paths are relative to the data directory unless absolute. On failure no
 * template is left behind; rethLog (may be NULL) receives the importer log
 * (a memory block the caller frees) when there is one. */
STATUS LNPUBLIC TarnwickTemplateFromDXL(const char *DxlFilePath, const char *TemplatePath, const char *TemplateName,
                                        DHANDLE *rethLog);

TARNWICK_EXTERN_C_END

#endif /* TARNWICK_DXLIMPORT_H */
