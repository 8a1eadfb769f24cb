// Provisioning of the application database "OOO.nsf" and its templates.
#include "setup/DatabaseSetup.h"

#include <sys/stat.h>

#include <algorithm>
#include <cstring>
#include <string>

#include "designreplace.h"
#include "dxlimport.h"
#include "globerr.h"
#include "nsfdb.h"
#include "nsfnote.h"
#include "osenv.h"
#include "ostime.h"
#include "protocol/ProtocolNames.h"
#include "request/TaskLog.h"
#include "setup/AccessControl.h"

namespace {

constexpr const char* kSetupVariable = "OOOSetup";
constexpr long kRefreshDatabaseDesign = 2;
constexpr const char* kDatabaseFile = tarnwick::protocol::kApplicationDatabase;
constexpr const char* kTemplateFile = "OOO.ntf";
constexpr const char* kExtendedTemplateFile = "OOOEx.ntf";
constexpr const char* kDesignFile = "OOO.xml";
constexpr const char* kLogDatabase = "log.nsf";
constexpr const char* kExtendedTemplateMark = "OOOEx";
// Servers whose log is of this build or older get the older template.
constexpr WORD kLastBuildOfOlderTemplate = 399;
constexpr WORD kTemplateNameLimit = 127;
constexpr WORD kTemplateFileNameLimit = 512;
// Notes whose content is kept contracted and is expanded to be signed.
constexpr WORD kExpandedClasses = NOTE_CLASS_FORM | NOTE_CLASS_INFO | NOTE_CLASS_HELP | NOTE_CLASS_FIELD;

constexpr const char* kSigningTemplateLine = "Signing the Tarnwick Database Template with the server ID";
constexpr const char* kSigningExtendedTemplateLine = "Signing the Tarnwick Database Template(EX) with the server ID";
constexpr const char* kTemplateErrorLine = "Error signing the Tarnwick Database Template (OOO.ntf).";
constexpr const char* kReplacingLine = "Replacing the Tarnwick Database Design";
constexpr const char* kSettingUpLine = "Setting up the Tarnwick Database";
constexpr const char* kSetupErrorLine = "Error setting up the Tarnwick Database.";
constexpr const char* kFinishedLine = "Finished setting up the Tarnwick Database";

// A file of the application directory. The backslash joins on every
// platform, as the database paths of the server's own tools do.
std::string applicationPath(const char* directory, const char* name) {
  if (directory == nullptr || directory[0] == '\0') return name;
  std::string path = directory;
  path += '\\';
  path += name;
  return path;
}

void closeReader(DXLReaderContext& reader) {
  if (reader.stream != nullptr) std::fclose(reader.stream);
  reader.stream = nullptr;
  reader.fd = -1;
}

bool fileExists(const std::string& path) {
  struct stat status;
  return ::stat(path.c_str(), &status) == 0;
}

// Brings the database's ACL in from the design file, as the importer's ACL
// option says; the import's own status is not kept.
void importDesign(DBHANDLE db, const std::string& designPath) {
  DXLIMPORTHANDLE importer = NULLHANDLE;
  if (DXLCreateImporter(&importer) == NOERROR) {
    WORD aclOption = DXLIMPORTOPTION_REPLACE_ELSE_IGNORE;
    if (DXLSetImporterProperty(importer, iACLImportOption, &aclOption) == NOERROR) {
      DXLReaderContext reader;
      std::memset(&reader, 0, sizeof reader);
      std::strncpy(reader.path, designPath.c_str(), sizeof reader.path - 1);
      DXLImport(importer, DXLReaderFunc, db, &reader);
      closeReader(reader);
    }
  }
  DXLDeleteImporter(importer);
}

// Signs every design note of the database with the server's ID.
STATUS signDesign(DBHANDLE db) {
  TIMEDATE beginning;
  TimeConstant(TIMEDATE_MINIMUM, &beginning);
  return NSFSearch(db, NULLHANDLE, nullptr, SEARCH_SUMMARY, NOTE_CLASS_ALLNONDATA, &beginning,
                   SignIndividualDesignElement, &db, nullptr);
}

// Refreshes one template: its ACL from the design file (or the default
// policy when there is none), then its signatures. The status of the open
// or of the signing.
STATUS refreshTemplate(const std::string& templatePath, const char* signingLine, const std::string& designPath) {
  taskLog(signingLine);
  DBHANDLE db = NULLHANDLE;
  STATUS status = NSFDbOpen(templatePath.c_str(), &db);
  if (status != NOERROR) {
    taskLog(kTemplateErrorLine);
  } else {
    if (!fileExists(designPath)) {
      Set_Default_ACL(db);
    } else {
      importDesign(db, designPath);
      Upgrade_ACL(db);
    }
    status = signDesign(db);
  }
  NSFDbClose(db);
  return status;
}

// Whether the database was made from the extended template: its icon
// note's "$TemplateFileName" names it. False when that cannot be read.
bool madeFromExtendedTemplate(DBHANDLE db) {
  NOTEID iconID = 0;
  if (NSFDbGetSpecialNoteID(db, SPECIAL_ID_NOTE | NOTE_CLASS_ICON, &iconID) != NOERROR) return false;
  NOTEHANDLE icon = NULLHANDLE;
  if (NSFNoteOpen(db, iconID, 0, &icon) != NOERROR) return false;
  char templateFile[kTemplateFileNameLimit + 1] = {0};
  NSFItemGetText(icon, "$TemplateFileName", templateFile, kTemplateFileNameLimit);
  NSFNoteClose(icon);
  return std::strstr(templateFile, kExtendedTemplateMark) != nullptr;
}

// Gives the existing database the design of its template again, resets
// its anonymous entry, upgrades its ACL and signs it. A missing database is
// no error: it is made afterwards.
STATUS refreshDatabase(const char* directory) {
  const std::string dbPath = applicationPath(directory, kDatabaseFile);
  DBHANDLE db = NULLHANDLE;
  STATUS status = NSFDbOpen(dbPath.c_str(), &db);
  if (ERR(status) == ERR_NOEXIST) return NOERROR;
  if (status != NOERROR) return status;

  const char* templateFile = madeFromExtendedTemplate(db) ? kExtendedTemplateFile : kTemplateFile;
  taskLog(kReplacingLine);
  DBHANDLE templateDb = NULLHANDLE;
  if (NSFDbOpen(applicationPath(directory, templateFile).c_str(), &templateDb) == NOERROR) {
    DesignReplace(templateDb, db, DESIGNREPLACE_FORCE, DESIGNREPLACE_INHERIT, nullptr);
    NSFDbClose(templateDb);
  }
  Set_Default_ACL_ANONYMOUS(db);
  Upgrade_ACL(db);
  NSFDbClose(db);

  db = NULLHANDLE;
  status = NSFDbOpen(dbPath.c_str(), &db);
  if (status == NOERROR) status = signDesign(db);
  NSFDbClose(db);
  return status;
}

// The build version of the server's log database; 0 when it cannot be read.
WORD serverLogBuildVersion() {
  DBHANDLE log = NULLHANDLE;
  WORD version = 0;
  if (NSFDbOpen(kLogDatabase, &log) == NOERROR) {
    if (NSFDbGetBuildVersion(log, &version) != NOERROR) version = 0;
    NSFDbClose(log);
  }
  return version;
}

STATUS readBuildVersion(const std::string& dbPath, WORD* buildVersion) {
  DBHANDLE db = NULLHANDLE;
  STATUS status = NSFDbOpen(dbPath.c_str(), &db);
  if (status != NOERROR) return status;
  status = NSFDbGetBuildVersion(db, buildVersion);
  NSFDbClose(db);
  return status;
}

// Reads the database's build version, creating the database from the
// template that suits the server when it does not open.
STATUS ensureDatabase(const char* directory, WORD* buildVersion) {
  const std::string dbPath = applicationPath(directory, kDatabaseFile);
  DBHANDLE db = NULLHANDLE;
  if (NSFDbOpen(dbPath.c_str(), &db) == NOERROR) {
    STATUS status = NSFDbGetBuildVersion(db, buildVersion);
    NSFDbClose(db);
    return status;
  }
  const WORD logVersion = serverLogBuildVersion();
  taskLog(kSettingUpLine);
  const char* templateFile = logVersion <= kLastBuildOfOlderTemplate ? kTemplateFile : kExtendedTemplateFile;
  STATUS status = CreateFormTemplate(dbPath.c_str(), applicationPath(directory, templateFile).c_str());
  if (status != NOERROR) {
    taskLog(kSetupErrorLine);
    return status;
  }
  status = readBuildVersion(dbPath, buildVersion);
  taskLog(kFinishedLine);
  return status;
}

// The template name (information field 2) of an information string.
std::string templateNameOf(const char* info) {
  char name[kTemplateNameLimit + 1] = {0};
  NSFDbInfoParse(info, INFOPARSE_CLASS, name, kTemplateNameLimit);
  return name;
}

STATUS setTemplateName(DBHANDLE db, char* info, const std::string& name) {
  NSFDbInfoModify(info, INFOPARSE_CLASS, name.c_str());
  return NSFDbInfoSet(db, info);
}

// The new database inherits from the kept template name, and its icon
// shows its information.
STATUS describeNewDatabase(DBHANDLE db, const std::string& templateName) {
  char info[NSF_INFO_SIZE] = {0};
  STATUS status = NSFDbInfoGet(db, info);
  if (status != NOERROR) return status;
  NSFDbInfoModify(info, INFOPARSE_CLASS, "");
  NSFDbInfoModify(info, INFOPARSE_DESIGN_CLASS, templateName.c_str());
  status = NSFDbInfoSet(db, info);
  if (status != NOERROR) return status;
  NOTEHANDLE icon = NULLHANDLE;
  status = NSFNoteOpen(db, NOTE_ID_SPECIAL | NOTE_CLASS_ICON, 0, &icon);
  if (status != NOERROR) return status;
  status = NSFItemSetText(icon, "$TITLE", info, static_cast<WORD>(std::strlen(info)));
  if (status == NOERROR) status = NSFNoteUpdate(icon, 0);
  NSFNoteClose(icon);
  return status;
}

}  // namespace

DWORD LNCALLBACK DXLReaderFunc(BYTE* buffer, const DWORD length, void* context) {
  auto& reader = *static_cast<DXLReaderContext*>(context);
  if (reader.stream == nullptr) {
    if (reader.fd < 0) return 0;
    reader.stream = std::fopen(reader.path, "r+b");
    if (reader.stream == nullptr) return 0;
    reader.fd = fileno(reader.stream);
    struct stat status;
    if (::fstat(reader.fd, &status) != 0) {
      closeReader(reader);
      return 0;
    }
    reader.size = static_cast<long>(status.st_size);
    reader.remaining = reader.size;
  }
  if (reader.remaining <= 0) {
    closeReader(reader);
    return 0;
  }
  const size_t wanted = std::min(static_cast<size_t>(reader.remaining), static_cast<size_t>(length));
  const size_t read = std::fread(buffer, 1, wanted, reader.stream);
  if (std::ferror(reader.stream) || (read == 0 && std::feof(reader.stream)) ||
      (read < wanted && !std::feof(reader.stream))) {
    closeReader(reader);
    return 0;
  }
  reader.remaining -= static_cast<long>(read);
  return static_cast<DWORD>(read);
}

STATUS LNCALLBACK SignIndividualDesignElement(void* context, SEARCH_MATCH* match, ITEM_TABLE* /*summary*/) {
  SEARCH_MATCH found;
  std::memcpy(&found, match, sizeof found);
  if ((found.SERetFlags & SE_FMATCH) == 0) return NOERROR;
  const DBHANDLE db = *static_cast<DBHANDLE*>(context);
  const NOTEID noteID = found.ID.NoteID;

  NOTEHANDLE note = NULLHANDLE;
  STATUS status = NSFNoteOpen(db, noteID, 0, &note);
  if (status != NOERROR) return status;
  WORD noteClass = 0;
  NSFNoteGetInfo(note, _NOTE_CLASS, &noteClass);
  const bool expanded = (noteClass & kExpandedClasses) != 0;
  if (expanded) {
    NSFNoteClose(note);
    note = NULLHANDLE;
    status = NSFNoteOpen(db, noteID, OPEN_EXPAND, &note);
    if (status != NOERROR) return status;
  }
  if (NSFItemIsPresent(note, "$POID", static_cast<WORD>(std::strlen("$POID")))) {
    status = NSFItemDelete(note, "$POID", static_cast<WORD>(std::strlen("$POID")));
  }
  if (status == NOERROR) status = NSFNoteSign(note);
  if (status == NOERROR) {
    if (expanded) status = NSFNoteContract(note);
    if (status == NOERROR) status = NSFNoteUpdate(note, UPDATE_FORCE);
  }
  NSFNoteClose(note);
  return status;
}

STATUS CreateFormTemplate(const char* dbPath, const char* templatePath) {
  DBHANDLE first = NULLHANDLE;
  STATUS status = NSFDbOpen(templatePath, &first);
  if (status != NOERROR) return status;
  char info[NSF_INFO_SIZE] = {0};
  status = NSFDbInfoGet(first, info);
  const std::string templateName = status == NOERROR ? templateNameOf(info) : std::string();
  // The copy must not take the template name: it is cleared on the
  // template for the copy and put back afterwards.
  if (status == NOERROR) status = setTemplateName(first, info, "");
  DBHANDLE templateDb = NULLHANDLE;
  if (status == NOERROR) status = NSFDbOpen(templatePath, &templateDb);
  NSFDbClose(first);
  if (status != NOERROR) {
    NSFDbClose(templateDb);
    return status;
  }

  DBHANDLE db = NULLHANDLE;
  status = NSFDbCreateAndCopy(templatePath, dbPath, NOTE_CLASS_ALLNONDATA, 0, 0, &db);
  if (status == NOERROR) status = NSFDbCopyTemplateACL(templateDb, db, nullptr, ACL_LEVEL_NOACCESS);
  // The template gets its name back also when the copy failed, so that a
  // failed start does not leave it without one.
  const STATUS restored = setTemplateName(templateDb, info, templateName);
  NSFDbClose(templateDb);
  if (status == NOERROR) status = restored;
  if (status == NOERROR) status = describeNewDatabase(db, templateName);
  NSFDbClose(db);
  return status;
}

STATUS FirstSetup(const char* directory, WORD* buildVersion) {
  const long setup = OSGetEnvironmentLong(kSetupVariable);
  STATUS status = NOERROR;
  if (setup != 0) {
    const std::string designPath = applicationPath(directory, kDesignFile);
    refreshTemplate(applicationPath(directory, kTemplateFile), kSigningTemplateLine, designPath);
    status = refreshTemplate(applicationPath(directory, kExtendedTemplateFile), kSigningExtendedTemplateLine,
                             designPath);
    // A failed template phase keeps OOOSetup, so the next start tries again.
    if (status != NOERROR) return status;
    if (setup == kRefreshDatabaseDesign) status = refreshDatabase(directory);
    OSSetEnvironmentInt(kSetupVariable, 0);
  }
  if (status != NOERROR) return status;
  return ensureDatabase(directory, buildVersion);
}
