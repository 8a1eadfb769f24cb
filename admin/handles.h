// Owning wrappers of the runtime's database and note handles for the tool,
// with the reads and writes the commands share. Every failing runtime call
// throws Failure naming what was being done.
#pragma once

#include "client.h"

#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "global.h"

namespace tarnwick::admin {

class Note;

class Database {
 public:
  // Opens an existing database (path relative to the data directory).
  static Database open(const std::string& path);
  // Creates an empty database and opens it; fails when the file exists.
  static Database create(const std::string& path);

  Database(Database&& other) noexcept;
  Database& operator=(Database&& other) noexcept;
  Database(const Database&) = delete;
  Database& operator=(const Database&) = delete;
  ~Database();

  DBHANDLE handle() const { return handle_; }
  const std::string& path() const { return path_; }

  std::string title() const;
  void set_title(const std::string& title);

  // Note IDs of the live notes whose class has a bit of class_mask, in
  // note-ID order (profile documents excluded).
  std::vector<NOTEID> note_ids(WORD class_mask) const;
  // Calls fn for every data document whose "Form" item equals form (without
  // regard to case); fn returns false to stop.
  void for_each_document(const std::string& form, const std::function<bool(Note&)>& fn) const;

 private:
  Database(DBHANDLE handle, std::string path) : handle_(handle), path_(std::move(path)) {}
  DBHANDLE handle_ = NULLHANDLE;
  std::string path_;
};

class Note {
 public:
  static Note create(const Database& db);
  static Note open(const Database& db, NOTEID id);
  static Note open_by_unid(const Database& db, const UNID& unid);
  // Takes ownership of an open note handle.
  explicit Note(NOTEHANDLE handle) : handle_(handle) {}

  Note(Note&& other) noexcept;
  Note& operator=(Note&& other) noexcept;
  Note(const Note&) = delete;
  Note& operator=(const Note&) = delete;
  ~Note();

  NOTEHANDLE handle() const { return handle_; }
  NOTEID id() const;
  OID oid() const;
  WORD note_class() const;

  bool has(const std::string& item) const;
  // Text of a text item (entries of a list joined with "; "), UTF-8.
  std::string text(const std::string& item) const;
  // Entries of a text or text-list item, UTF-8.
  std::vector<std::string> text_list(const std::string& item) const;
  void set_text(const std::string& item, const std::string& utf8);
  void set_text_list(const std::string& item, const std::vector<std::string>& utf8_entries);
  void set_number(const std::string& item, double value);
  void set_time(const std::string& item, const TIMEDATE& value);
  void remove(const std::string& item);

  void update();

 private:
  NOTEHANDLE handle_ = NULLHANDLE;
};

// "A1B2...": the 32 hex digits of a UNID as the platform shows them (file
// part, then note part, each date word before time word).
std::string unid_text(const UNID& unid);
// The inverse; nullopt when the text is not 32 hex digits.
std::optional<UNID> parse_unid(const std::string& text);

}  // namespace tarnwick::admin
