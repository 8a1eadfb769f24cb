// The database information string (NSFDbInfoGet/Set/Parse/Modify).
#include <array>
#include <cstring>
#include <string>
#include <string_view>

#include "acl.h"
#include "globerr.h"
#include "nsfdb.h"
#include "core/api_guard.h"
#include "store/database.h"

using namespace tarnwick::rt;
using namespace tarnwick::rt::store;

namespace {

using Fields = std::array<std::string, 4>;  // indexed by INFOPARSE_*

Fields parse_info(std::string_view info) {
  Fields fields;
  bool first = true;
  bool categories_seen = false;
  while (true) {
    const size_t end = info.find_first_of("\r\n");
    std::string_view line = info.substr(0, end);
    if (first) {
      fields[INFOPARSE_TITLE] = line;
      first = false;
    } else if (line.rfind("#1", 0) == 0) {
      fields[INFOPARSE_CLASS] = line.substr(2);
    } else if (line.rfind("#2", 0) == 0) {
      fields[INFOPARSE_DESIGN_CLASS] = line.substr(2);
    } else if (!categories_seen) {
      fields[INFOPARSE_CATEGORIES] = line;
      categories_seen = true;
    }
    if (end == std::string_view::npos) break;
    info.remove_prefix(end + 1);
  }
  return fields;
}

std::string build_info(const Fields& fields) {
  std::string info = fields[INFOPARSE_TITLE];
  const bool has_class = !fields[INFOPARSE_CLASS].empty();
  const bool has_design = !fields[INFOPARSE_DESIGN_CLASS].empty();
  if (!fields[INFOPARSE_CATEGORIES].empty() || has_class || has_design) info += "\n" + fields[INFOPARSE_CATEGORIES];
  if (has_class || has_design) info += "\n#1" + fields[INFOPARSE_CLASS];
  if (has_design) info += "\n#2" + fields[INFOPARSE_DESIGN_CLASS];
  return info;
}

std::string_view bounded(const char* text) {
  if (text == nullptr) return {};
  return std::string_view(text, strnlen(text, NSF_INFO_SIZE));
}

}  // namespace

extern "C" {

STATUS LNPUBLIC NSFDbInfoGet(DBHANDLE hDB, char* retBuffer) {
  return guarded([&]() -> STATUS {
    if (retBuffer == nullptr) return ERR_BAD_PARAM;
    retBuffer[0] = '\0';
    auto database = find_database(hDB);
    if (!database) return ERR_DB_NOT_OPEN;
    std::string info;
    if (STATUS error = database->meta_bytes("info", &info)) return error;
    const size_t length = std::min(info.size(), static_cast<size_t>(NSF_INFO_SIZE - 1));
    std::memcpy(retBuffer, info.data(), length);
    retBuffer[length] = '\0';
    return NOERROR;
  });
}

STATUS LNPUBLIC NSFDbInfoSet(DBHANDLE hDB, const char* Buffer) {
  return guarded([&]() -> STATUS {
    if (Buffer == nullptr) return ERR_BAD_PARAM;
    auto database = find_database(hDB);
    if (!database) return ERR_DB_NOT_OPEN;
    const std::string_view info = bounded(Buffer);
    if (info.size() >= NSF_INFO_SIZE) return ERR_NSF_INFO_SIZE;
    if (database->access_level < ACL_LEVEL_DESIGNER) return ERR_NOACCESS;
    return database->put_meta_bytes("info", info);
  });
}

STATUS LNPUBLIC NSFDbInfoPut(DBHANDLE hDB, const char* Buffer) { return NSFDbInfoSet(hDB, Buffer); }

void LNPUBLIC NSFDbInfoParse(const char* Info, WORD What, char* Buffer, WORD Length) {
  if (Buffer == nullptr) return;
  Buffer[0] = '\0';
  if (Info == nullptr || What > INFOPARSE_DESIGN_CLASS) return;
  const std::string field = parse_info(bounded(Info))[What];
  const size_t length = std::min(field.size(), static_cast<size_t>(Length));
  std::memcpy(Buffer, field.data(), length);
  Buffer[length] = '\0';
}

void LNPUBLIC NSFDbInfoModify(char* Info, WORD What, const char* Buffer) {
  if (Info == nullptr || What > INFOPARSE_DESIGN_CLASS) return;
  guarded_void([&] {
    Fields fields = parse_info(bounded(Info));
    fields[What] = Buffer ? std::string(bounded(Buffer)) : std::string();
    const std::string info = build_info(fields);
    const size_t length = std::min(info.size(), static_cast<size_t>(NSF_INFO_SIZE - 1));
    std::memcpy(Info, info.data(), length);
    Info[length] = '\0';
  });
}

}  // extern "C"
