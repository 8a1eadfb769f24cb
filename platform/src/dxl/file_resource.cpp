// File resources as design notes (see file_resource.h and fileresource.h).
#include "dxl/file_resource.h"

#include <cstring>

#include "core/memory.h"
#include "fileresource.h"
#include "globerr.h"
#include "nsfdata.h"
#include "nsfdesign.h"
#include "nsfnote.h"
#include "core/api_guard.h"

namespace tarnwick::rt::dxl {

void write_file_resource(store::Note& note, std::string_view mime_type, std::string_view bytes) {
  note.set_text("$MimeType", mime_type, 0);
  note.set_number("$FileSize", static_cast<NUMBER>(bytes.size()), 0);
  std::string value;
  value.reserve(1 + kFileDataFormat.size() + bytes.size());
  value.push_back(static_cast<char>(kFileDataFormat.size()));
  value.append(kFileDataFormat);
  value.append(bytes);
  note.replace("$FileData", 0, TYPE_USERDATA, std::move(value));
}

bool read_file_resource(const store::Note& note, std::string* bytes, std::string* mime_type) {
  const store::Item* data = note.find("$FileData");
  if (data == nullptr || data->type != TYPE_USERDATA) return false;
  std::string_view value = note.value_of(*data);
  if (value.empty()) return false;
  const size_t format_length = static_cast<unsigned char>(value.front());
  if (value.size() < 1 + format_length || value.substr(1, format_length) != kFileDataFormat) return false;
  bytes->assign(value.substr(1 + format_length));
  *mime_type = note.text("$MimeType").value_or(std::string());
  return true;
}

STATUS find_file_resource(store::Database& database, std::string_view name, std::string* bytes,
                          std::string* mime_type) {
  NOTEID found = 0;
  const std::string pattern(1, kFileResourceFlag);
  STATUS status = database.design_notes(NOTE_CLASS_FORM, [&](NOTEID id, WORD, std::string_view title,
                                                             std::string_view flags) {
    if (!DesignFlagsMatch(std::string(flags).c_str(), ("+" + pattern).c_str())) return STATUS{NOERROR};
    while (true) {
      const size_t bar = title.find('|');
      if (store::names_equal(title.substr(0, bar), name)) {
        found = id;
        return STATUS{ERR_NO_MORE_MATCHES};
      }
      if (bar == std::string_view::npos) break;
      title.remove_prefix(bar + 1);
    }
    return STATUS{NOERROR};
  });
  if (status != NOERROR && status != ERR_NO_MORE_MATCHES) return status;
  if (found == 0) return ERR_NOT_FOUND;
  store::Note note;
  if (STATUS error = database.read_note(found, 0, &note)) return error;
  if (!read_file_resource(note, bytes, mime_type)) return ERR_INVALID_ITEMUNK;
  return NOERROR;
}

}  // namespace tarnwick::rt::dxl

extern "C" STATUS LNPUBLIC TarnwickFileResourceRead(DBHANDLE hDB, const char* Name, DHANDLE* rethData,
                                                    DWORD* retLength, char* retMimeType, WORD MimeTypeSize) {
  using namespace tarnwick::rt;
  return guarded([&]() -> STATUS {
    if (Name == nullptr || rethData == nullptr || retLength == nullptr) return ERR_BAD_PARAM;
    *rethData = NULLHANDLE;
    *retLength = 0;
    if (retMimeType != nullptr && MimeTypeSize > 0) retMimeType[0] = '\0';
    auto database = store::find_database(hDB);
    if (!database) return ERR_DB_NOT_OPEN;
    std::string bytes, mime;
    if (STATUS error = dxl::find_file_resource(*database, Name, &bytes, &mime)) return error;
    if (!bytes.empty()) {
      if (STATUS error = alloc_block_with(bytes, rethData)) return error;
    }
    *retLength = static_cast<DWORD>(bytes.size());
    if (retMimeType != nullptr && MimeTypeSize > 0) {
      const size_t length = std::min<size_t>(mime.size(), MimeTypeSize - 1u);
      std::memcpy(retMimeType, mime.data(), length);
      retMimeType[length] = '\0';
    }
    return NOERROR;
  });
}
