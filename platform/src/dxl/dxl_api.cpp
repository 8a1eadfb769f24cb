// The DXL importer's C API (dxlimport.h): importer handles, their
// properties, and DXLImport reading the caller's input through the reader
// function.
#include <cstring>
#include <memory>
#include <mutex>
#include <string>

#include "core/handle_table.h"
#include "core/memory.h"
#include "dxl/importer.h"
#include "dxl/xml_tree.h"
#include "dxlimport.h"
#include "globerr.h"
#include "core/api_guard.h"
#include "store/database.h"

using namespace tarnwick::rt;

namespace {

struct Importer {
  std::mutex mutex;  // one import or property call at a time
  dxl::ImportOptions options;
  dxl::ImportLog log;
  std::string comment;
};

std::shared_ptr<Importer> find_importer(DXLIMPORTHANDLE handle) {
  return handles().find_as<Importer>(handle, HandleKind::kDxlImporter);
}

bool valid_import_option(WORD value) {
  switch (value) {
    case DXLIMPORTOPTION_IGNORE:
    case DXLIMPORTOPTION_CREATE:
    case DXLIMPORTOPTION_IGNORE_ELSE_CREATE:
    case DXLIMPORTOPTION_REPLACE_ELSE_IGNORE:
    case DXLIMPORTOPTION_REPLACE_ELSE_CREATE:
    case DXLIMPORTOPTION_UPDATE_ELSE_IGNORE:
    case DXLIMPORTOPTION_UPDATE_ELSE_CREATE:
      return true;
    default:
      return false;
  }
}

STATUS block_of_text(const std::string& text, MEMHANDLE* out) {
  *out = NULLHANDLE;
  if (text.empty()) return NOERROR;
  return alloc_block_with(text, out);
}

// Reads the whole input through the caller's reader.
STATUS read_input(XML_READ_FUNCTION reader, void* action, std::string* input) {
  constexpr DWORD kChunk = 64 * 1024;
  std::string chunk(kChunk, '\0');
  while (true) {
    const DWORD got = reader(reinterpret_cast<BYTE*>(chunk.data()), kChunk, action);
    if (got == 0) return NOERROR;
    if (got > kChunk) return ERR_DXL_INVALID_PARAMETER;  // the reader claims more than it was given room for
    input->append(chunk.data(), got);
    if (input->size() > dxl::kMaxXmlBytes) return ERR_DXL_IMPORTER_FAILED;
  }
}

}  // namespace

extern "C" {

STATUS LNPUBLIC DXLCreateImporter(DXLIMPORTHANDLE* prethDXLImport) {
  return guarded([&]() -> STATUS {
    if (prethDXLImport == nullptr) return ERR_DXL_INVALID_PARAMETER;
    *prethDXLImport = handles().add(HandleKind::kDxlImporter, std::make_shared<Importer>());
    return NOERROR;
  });
}

STATUS LNPUBLIC DXLDeleteImporter(DXLIMPORTHANDLE hDXLImport) {
  return guarded([&]() -> STATUS {
    if (hDXLImport == NULLHANDLE) return NOERROR;
    return handles().remove(hDXLImport, HandleKind::kDxlImporter) ? NOERROR : ERR_DXL_INVALID_PARAMETER;
  });
}

STATUS LNPUBLIC DXLSetImporterProperty(DXLIMPORTHANDLE hDXLImport, DXL_IMPORT_PROPERTY prop, void* propValue) {
  return guarded([&]() -> STATUS {
    auto importer = find_importer(hDXLImport);
    if (!importer) return ERR_DXL_INVALID_PARAMETER;
    if (propValue == nullptr) return ERR_DXL_INVALID_PROPERTY_VALUE;
    std::lock_guard lock(importer->mutex);
    dxl::ImportOptions& options = importer->options;
    const WORD word = *static_cast<const WORD*>(propValue);
    switch (static_cast<int>(prop)) {
      case iACLImportOption:
      case iDesignImportOption:
      case iDocumentsImportOption: {
        if (!valid_import_option(word)) return ERR_DXL_INVALID_PROPERTY_VALUE;
        WORD& target = prop == iACLImportOption ? options.acl : prop == iDesignImportOption ? options.design
                                                                                            : options.documents;
        target = word;
        return NOERROR;
      }
      case iCreateFullTextIndex:
        options.create_full_text_index = *static_cast<const BOOL*>(propValue) != FALSE;
        return NOERROR;
      case iReplaceDbProperties:
        options.replace_db_properties = *static_cast<const BOOL*>(propValue) != FALSE;
        return NOERROR;
      case iReplicaRequiredForReplaceOrUpdate:
        options.replica_required = *static_cast<const BOOL*>(propValue) != FALSE;
        return NOERROR;
      case iExitOnFirstFatalError:
        options.exit_on_first_fatal_error = *static_cast<const BOOL*>(propValue) != FALSE;
        return NOERROR;
      case iInputValidationOption:
        if (word > Xml_Validate_Auto) return ERR_DXL_INVALID_PROPERTY_VALUE;
        options.validation = word;
        return NOERROR;
      case iUnknownTokenLogOption:
        if (word < DXLLOGOPTION_IGNORE || word > DXLLOGOPTION_FATALERROR) return ERR_DXL_INVALID_PROPERTY_VALUE;
        options.unknown_token = word;
        return NOERROR;
      case iResultLogComment:
        importer->comment.assign(static_cast<const char*>(propValue), strnlen(static_cast<const char*>(propValue), 4096));
        return NOERROR;
      case iResultLog:
      case iImportedNoteList:
        return ERR_XML_PROPERTY_IS_READONLY;
      default:
        return ERR_DXL_INVALID_PROPERTY;
    }
  });
}

STATUS LNPUBLIC DXLGetImporterProperty(DXLIMPORTHANDLE hDXLImport, DXL_IMPORT_PROPERTY prop, void* retPropValue) {
  return guarded([&]() -> STATUS {
    auto importer = find_importer(hDXLImport);
    if (!importer) return ERR_DXL_INVALID_PARAMETER;
    if (retPropValue == nullptr) return ERR_DXL_INVALID_PROPERTY_VALUE;
    std::lock_guard lock(importer->mutex);
    const dxl::ImportOptions& options = importer->options;
    auto put_word = [&](WORD value) {
      *static_cast<WORD*>(retPropValue) = value;
      return STATUS{NOERROR};
    };
    auto put_bool = [&](bool value) {
      *static_cast<BOOL*>(retPropValue) = value ? TRUE : FALSE;
      return STATUS{NOERROR};
    };
    switch (static_cast<int>(prop)) {
      case iACLImportOption:
        return put_word(options.acl);
      case iDesignImportOption:
        return put_word(options.design);
      case iDocumentsImportOption:
        return put_word(options.documents);
      case iCreateFullTextIndex:
        return put_bool(options.create_full_text_index);
      case iReplaceDbProperties:
        return put_bool(options.replace_db_properties);
      case iInputValidationOption:
        return put_word(options.validation);
      case iReplicaRequiredForReplaceOrUpdate:
        return put_bool(options.replica_required);
      case iExitOnFirstFatalError:
        return put_bool(options.exit_on_first_fatal_error);
      case iUnknownTokenLogOption:
        return put_word(options.unknown_token);
      case iResultLogComment:
        return block_of_text(importer->comment, static_cast<MEMHANDLE*>(retPropValue));
      case iResultLog:
        return block_of_text(importer->log.entries().empty() ? std::string() : importer->log.to_xml(importer->comment),
                             static_cast<MEMHANDLE*>(retPropValue));
      default:
        return ERR_DXL_INVALID_PROPERTY;
    }
  });
}

STATUS LNPUBLIC DXLImport(DXLIMPORTHANDLE hDXLImport, XML_READ_FUNCTION pDXLReaderFunc, DBHANDLE hDB,
                          void* pImAction) {
  return guarded([&]() -> STATUS {
    auto importer = find_importer(hDXLImport);
    if (!importer || pDXLReaderFunc == nullptr) return ERR_DXL_INVALID_PARAMETER;
    std::lock_guard lock(importer->mutex);
    importer->log.clear();
    auto database = store::find_database(hDB);
    if (!database) {
      importer->log.add(dxl::ImportLog::Severity::kFatalError, 0, "No database specified");
      return ERR_DB_NOT_OPEN;
    }
    std::string input;
    if (STATUS error = read_input(pDXLReaderFunc, pImAction, &input)) {
      importer->log.add(dxl::ImportLog::Severity::kFatalError, 0,
                        error == ERR_DXL_IMPORTER_FAILED ? "the input is too large" : "the reader function misbehaved");
      return error;
    }
    return dxl::import_dxl(input, database, importer->options, importer->log);
  });
}

BOOL LNPUBLIC DXLImportWasErrorLogged(DXLIMPORTHANDLE hDXLImport) {
  return guarded_value<BOOL>(FALSE, [&]() -> BOOL {
    auto importer = find_importer(hDXLImport);
    if (!importer) return FALSE;
    std::lock_guard lock(importer->mutex);
    return importer->log.has_error() ? TRUE : FALSE;
  });
}

}  // extern "C"
