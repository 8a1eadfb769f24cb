// The per-server settings document of the application database "OOO.nsf"
// and the three values the task hands to every request from it: the server
// URL, the iOS installation text with its links, and the app parameters of
// the configure link.
//
// One settings document per server, found through the view "(Setup Doc)" by
// the server's name without regard to case. Every missing or empty setting
// gets its default when the document is read, and the document is saved
// only when something changed. Older documents keep their editors in
// "DocReader"; they are moved into a further "DocAuthor" Authors item.
//
// None of these functions throws or logs. Thread-safe as far as the
// platform's database calls are; the task calls them from its main loop.
#ifndef TARNWICK_SETUP_SERVERSETTINGS_H
#define TARNWICK_SETUP_SERVERSETTINGS_H

#include <string>

#include "global.h"

// The settings form's alias, the "Form" of a settings document.
inline constexpr const char* kSettingsFormName = "Setup";
inline constexpr const char* kSetupDocView = "(Setup Doc)";
inline constexpr const char* kApplicationDatabase = "OOO.nsf";

// The open settings document of serverName in db, found or created and
// completed with the defaults. The caller closes it (NSFNoteClose); db stays
// open. NULLHANDLE when db has no "(Setup Doc)" view or the document can be
// neither opened nor created.
NOTEHANDLE _get_setup_document(DBHANDLE db, const char* serverName);

// Writes value into the text item unless the item already holds exactly that
// text (an empty value over an empty item writes nothing). Sets *changed to 1
// whenever it wrote; never clears it.
STATUS update_field(NOTEHANDLE note, const char* itemName, const char* value, int* changed);

// Reads the settings of serverName from the application database in
// directory (below the data directory; empty: the data directory itself).
// On success all three outputs are assigned; when the database or the
// document cannot be had they are left as they were.
void _get_server_setting(const std::string& serverName, const char* directory, std::string& serverURL,
                         std::string& installIOSText, std::string& connectParams);

// _get_server_setting for a caller that reads the settings for every
// request: the settings document is read again only when the application
// database has changed since the last read (its data or design modified
// time differs; every change, by any process, gives it a later one), else
// the values of that read are given. The outputs are as those of
// _get_server_setting. One object belongs to one thread.
class ServerSettingsCache {
 public:
  void read(const std::string& serverName, const char* directory, std::string& serverURL,
            std::string& installIOSText, std::string& connectParams);

 private:
  struct Stamp {
    TIMEDATE data{};
    TIMEDATE nonData{};
    bool operator==(const Stamp& other) const;
  };
  bool valid_ = false;
  Stamp stamp_;
  std::string path_;
  std::string serverName_;
  std::string serverURL_;
  std::string installIOSText_;
  std::string connectParams_;
};

#endif  // TARNWICK_SETUP_SERVERSETTINGS_H
