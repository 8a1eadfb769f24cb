// Profile documents (nsfprofile.h): notes keyed by the lower-cased "$Name"
// item, kept unique by an index on that key.
#include <cstring>

#include "core/memory.h"
#include "acl.h"
#include "globerr.h"
#include "nsfnote.h"
#include "nsfprofile.h"
#include "core/api_guard.h"
#include "store/database.h"
#include "store/ids.h"
#include "store/value_check.h"

using namespace tarnwick::rt;
using namespace tarnwick::rt::store;

namespace {

constexpr int kSetFieldAttempts = 20;

std::string_view arg(const char* text, WORD length) {
  if (text == nullptr) return {};
  return std::string_view(text, length == MAXWORD ? std::strlen(text) : length);
}

// Reads the profile, creating and storing it first when it is missing.
STATUS open_or_create(const std::shared_ptr<Database>& database, std::string_view profile_name,
                      std::string_view user_name, Note* note) {
  const std::string key = profile_key(profile_name, user_name);
  STATUS status = database->read_profile_note(key, 0, note);
  if (status != ERR_NOT_FOUND) return status;
  if (database->access_level < ACL_LEVEL_AUTHOR) return ERR_NOACCESS;
  Note created;
  const UNIVERSALNOTEID unid = new_unid();
  created.oid.File = unid.File;
  created.oid.Note = unid.Note;
  created.flags = NOTE_FLAG_GHOST;  // profiles do not show in views
  created.set_text("$Name", profile_name_item(profile_name, user_name));
  NOTEID id = 0;
  if (STATUS error = database->insert_profile_if_missing(created, key, &id)) return error;
  return database->read_note(id, 0, note);
}

STATUS check_names(std::string_view profile_name, std::string_view user_name) {
  if (profile_name.empty() || profile_name.size() > 999 || user_name.size() > MAXUSERNAME) return ERR_BAD_PARAM;
  return NOERROR;
}

}  // namespace

extern "C" {

STATUS LNPUBLIC NSFProfileOpen(DBHANDLE hDB, const char* ProfileName, WORD ProfileNameLength, const char* UserName,
                               WORD UserNameLength, BOOL /*CopyProfile*/, NOTEHANDLE* rethProfileNote) {
  return guarded([&]() -> STATUS {
    if (rethProfileNote == nullptr) return ERR_BAD_PARAM;
    *rethProfileNote = NULLHANDLE;
    auto database = find_database(hDB);
    if (!database) return ERR_DB_NOT_OPEN;
    const std::string_view profile_name = arg(ProfileName, ProfileNameLength);
    const std::string_view user_name = arg(UserName, UserNameLength);
    if (STATUS error = check_names(profile_name, user_name)) return error;
    if (database->access_level < ACL_LEVEL_READER) return ERR_NOACCESS;
    auto note = std::make_shared<Note>();
    if (STATUS error = open_or_create(database, profile_name, user_name, note.get())) return error;
    note->db = database;
    note->db_handle = hDB;
    *rethProfileNote = add_note_handle(std::move(note));
    return NOERROR;
  });
}

STATUS LNPUBLIC NSFProfileUpdate(NOTEHANDLE hProfile, const char* /*ProfileName*/, WORD /*ProfileNameLength*/,
                                 const char* /*UserName*/, WORD /*UserNameLength*/) {
  return NSFNoteUpdate(hProfile, 0);
}

STATUS LNPUBLIC NSFProfileGetField(DBHANDLE hDB, const char* ProfileName, WORD ProfileNameLength,
                                   const char* UserName, WORD UserNameLength, const char* FieldName,
                                   WORD FieldNameLength, WORD* retDatatype, BLOCKID* retbhValue,
                                   DWORD* retValueLength) {
  return guarded([&]() -> STATUS {
    if (retDatatype != nullptr) *retDatatype = TYPE_INVALID_OR_UNKNOWN;
    if (retbhValue != nullptr) *retbhValue = BLOCKID{NULLHANDLE, 0};
    if (retValueLength != nullptr) *retValueLength = 0;
    auto database = find_database(hDB);
    if (!database) return ERR_DB_NOT_OPEN;
    const std::string_view profile_name = arg(ProfileName, ProfileNameLength);
    const std::string_view user_name = arg(UserName, UserNameLength);
    if (STATUS error = check_names(profile_name, user_name)) return error;
    if (FieldName == nullptr) return ERR_BAD_PARAM;
    if (database->access_level < ACL_LEVEL_READER) return ERR_NOACCESS;
    Note note;
    STATUS status = database->read_profile_note(profile_key(profile_name, user_name), 0, &note);
    if (status == ERR_NOT_FOUND || status == ERR_NOTE_DELETED) return ERR_ITEM_NOT_FOUND;
    if (status) return status;
    const Item* item = note.find(arg(FieldName, FieldNameLength));
    if (item == nullptr) return ERR_ITEM_NOT_FOUND;
    std::string bytes(sizeof(WORD), '\0');
    std::memcpy(bytes.data(), &item->type, sizeof(WORD));
    bytes += item->value;
    DHANDLE block = NULLHANDLE;
    if (STATUS error = alloc_block_with(bytes, &block)) return error;
    database->own_block(block);
    if (retDatatype != nullptr) *retDatatype = item->type;
    if (retbhValue != nullptr) *retbhValue = BLOCKID{block, 0};
    if (retValueLength != nullptr) *retValueLength = static_cast<DWORD>(bytes.size());
    return NOERROR;
  });
}

STATUS LNPUBLIC NSFProfileSetField(DBHANDLE hDB, const char* ProfileName, WORD ProfileNameLength,
                                   const char* UserName, WORD UserNameLength, const char* FieldName,
                                   WORD FieldNameLength, WORD Datatype, const void* Value, DWORD ValueLength) {
  return guarded([&]() -> STATUS {
    auto database = find_database(hDB);
    if (!database) return ERR_DB_NOT_OPEN;
    const std::string_view profile_name = arg(ProfileName, ProfileNameLength);
    const std::string_view user_name = arg(UserName, UserNameLength);
    const std::string_view field = arg(FieldName, FieldNameLength);
    if (STATUS error = check_names(profile_name, user_name)) return error;
    if (field.empty() || field.size() > MAXITEMNAME || ValueLength > MAXITEMVALUE) return ERR_BAD_PARAM;
    std::string value;
    if (Value != nullptr) {
      value.assign(static_cast<const char*>(Value), ValueLength);
      if (STATUS error = check_item_value(Datatype, value)) return error;
    }
    if (database->access_level < ACL_LEVEL_AUTHOR) return ERR_NOACCESS;
    // A read-change-write of one field: retried when another writer got in between.
    STATUS status = ERR_CONFLICT;
    for (int attempt = 0; attempt < kSetFieldAttempts && status == ERR_CONFLICT; ++attempt) {
      Note note;
      if (STATUS error = open_or_create(database, profile_name, user_name, &note)) return error;
      if (Value == nullptr) {
        note.remove_all(field);
      } else {
        note.replace(field, ITEM_SUMMARY, Datatype, value);
      }
      status = database->write_note(note, 0);
    }
    return status;
  });
}

STATUS LNPUBLIC NSFProfileDelete(DBHANDLE hDB, const char* ProfileName, WORD ProfileNameLength, const char* UserName,
                                 WORD UserNameLength) {
  return guarded([&]() -> STATUS {
    auto database = find_database(hDB);
    if (!database) return ERR_DB_NOT_OPEN;
    const std::string_view profile_name = arg(ProfileName, ProfileNameLength);
    const std::string_view user_name = arg(UserName, UserNameLength);
    if (STATUS error = check_names(profile_name, user_name)) return error;
    if (database->access_level < ACL_LEVEL_EDITOR) return ERR_NOACCESS;
    NOTEID id = 0;
    if (STATUS error = database->profile_note_id(profile_key(profile_name, user_name), &id)) return error;
    return database->delete_note(id, 0);
  });
}

STATUS LNPUBLIC NSFProfileEnum(DBHANDLE hDB, const char* ProfileName, WORD ProfileNameLength,
                               NSFPROFILEENUMPROC Callback, void* CallbackCtx, DWORD /*Flags*/) {
  return guarded([&]() -> STATUS {
    if (Callback == nullptr) return ERR_BAD_PARAM;
    auto database = find_database(hDB);
    if (!database) return ERR_DB_NOT_OPEN;
    if (database->access_level < ACL_LEVEL_READER) return ERR_NOACCESS;
    std::string wanted;
    if (ProfileName != nullptr) {
      const std::string full_key = profile_key(arg(ProfileName, ProfileNameLength), "");
      std::string ignored;
      parse_profile_name_item(full_key, &wanted, &ignored);
    }
    std::vector<std::pair<NOTEID, std::string>> profiles;
    if (STATUS error = database->profile_notes(&profiles)) return error;
    for (auto& [id, name_item] : profiles) {
      std::string profile_name;
      std::string user_name;
      if (!parse_profile_name_item(name_item, &profile_name, &user_name)) continue;
      if (ProfileName != nullptr && profile_name != wanted) continue;
      STATUS status = Callback(hDB, CallbackCtx, profile_name.data(), static_cast<WORD>(profile_name.size()),
                               user_name.data(), static_cast<WORD>(user_name.size()), id);
      if (status != NOERROR) return status;
    }
    return NOERROR;
  });
}

}  // extern "C"
