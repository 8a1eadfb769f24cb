// The standard texts of the runtime's status codes, one entry per code of
// globerr.h. Texts are the platform's own wording ("%a" and similar are the
// platform's placeholders and stay as they are).
#include "core/status_table.h"

#include <algorithm>
#include <iterator>

#include "globerr.h"

namespace tarnwick::rt {
namespace {

constexpr StatusText kStatusTexts[] = {
    {ERR_UNKNOWN, "Unknown OS error"},
    {ERR_PROTECTED, "Cannot write or create file (file or disk is read-only)"},
    {ERR_NOEXIST, "File does not exist"},
    {ERR_EXISTS, "File already exists"},
    {ERR_MEMORY, "Insufficient memory."},
    {ERR_NO_MORE_FILES, "no more files to search"},
    {ERR_LOCK, "File is in use by another program"},
    {ERR_ACCESS, "Access to data denied."},
    {ERR_INV_SERVER_NAME, "Invalid server or network name syntax"},
    {ERR_INV_FILE_NAME, "File name too long or invalid file name syntax"},
    {ERR_SEGMENT_TOO_BIG, "Memory allocation request exceeded 65,000 bytes"},
    {ERR_NOT_SUPPORTED, "This function is not supported on this operating system."},
    {ERR_NOT_NSF, "File is not a database"},
    {ERR_CONFLICT, "Someone else modified this document at the same time"},
    {ERR_NO_MORE_MATCHES, "(Search status - no more to do)"},
    {ERR_NEW_NAME_KEY, "New name key being added"},
    {ERR_NSF_VERSION, "Invalid NSF version"},
    {ERR_DIRECTORY, "This function is inappropriate for file system directories."},
    {ERR_ITEM_NOT_FOUND, "Note item not found"},
    {ERR_NOTE_DELETED, "Document has been deleted"},
    {ERR_INVALID_NOTE, "Invalid or nonexistent document"},
    {ERR_NSF_INFO_SIZE, "Database title is too large; please use a shorter title."},
    {ERR_INVALID_NAME, "Remote pathnames must be relative to the Data directory"},
    {ERR_SUMMARY_TOO_BIG, "Field is too large (32K) or View's column & selection formulas are too large"},
    {ERR_NO_MODIFIED_NOTES, "No documents have been modified since specified time."},
    {ERR_BAD_PARAM, "(invalid usage - see NSF documentation)"},
    {ERR_SPECIAL_ID, "Special database object cannot be located"},
    {ERR_NOACCESS, "You are not authorized to perform that operation"},
    {ERR_UPDATE_CLASS, "(you cannot change the class of a note once stored)"},
    {ERR_NOT_AUTHOR, "You cannot update or delete the document(s) since you are not listed as an allowable Author for this document"},
    {ERR_DB_NOT_OPEN, "Specified database is not currently open"},
    {ERR_DATA_ONLY, "(only data notes may be deleted using this call)"},
    {ERR_INVALID_ITEMUNK, "Document is damaged or obsolete (unrecognized field)"},
    {ERR_CANNOT_OPEN_NSF, "File not found or not a Notes database"},
    {ERR_NO_SUCH_NAMESPACE, "Domino Directory does not contain a required view"},
    {ERR_NO_NAMES_FILE, "Domino Directory does not exist"},
    {ERR_NO_SUCH_NAMES_BOOK, "No more Domino Directory databases"},
    {ERR_NO_SUCH_ITEM, "Specified item is not present"},
    {ERR_NO_MORE_MEMBERS, "(No more members in list)"},
    {ERR_NO_MORE_MATCH, "(No more matches in table)"},
    {ERR_USER_NOT_FOUND, "User or server name not found in Domino Directory"},
    {ERR_NOT_FOUND, "Entry not found in index"},
    {ERR_IFMT, "Invalid International Format Specifier"},
    {ERR_TFMT, "Invalid Time/Date Format Specifier"},
    {ERR_TDO_CONV, "Invalid Time or Date Encountered"},
    {ERR_TREQ, "TIME must be specified, not just DATE"},
    {ERR_ACL_FULL, "The access control list is full.  If you need to add new users, place existing users into groups on the list."},
    {ERR_ACL_NOENTRY, "The name is not in the list."},
    {ERR_DN_COMP_VERSION, "Invalid Name Parsing buffer size"},
    {ERR_ENTRY_OR_VIEW_NOT_FOUND, "Entry not found in index or view's index not built"},
    {ERR_MQ_POOLFULL, "Insufficient memory - Message Queue pool is full."},
    {ERR_MQ_TIMEOUT, "Timeout occurred waiting for message."},
    {ERR_MQSCAN_ABORT, "Message Queue scan was aborted."},
    {ERR_DUPLICATE_MQ, "Message Queue name already in use."},
    {ERR_NO_SUCH_MQ, "No Message Queue with that name."},
    {ERR_MQ_EXCEEDED_QUOTA, "Message Queue is full."},
    {ERR_MQ_EMPTY, "Message Queue is empty."},
    {ERR_MQ_BFR_TOO_SMALL, "Message is larger than the buffer provided."},
    {ERR_MQ_QUITTING, "Quit is pending on the Message Queue"},
    {ERR_MQSCAN_DEQUEUE, "Dequeue current message in enumeration"},
    {ERR_MQSCAN_DELETE, "Delete current message in enumeration"},
    {ERR_MQ_MSGSPENDING, "Message Queue has messages outstanding."},
    {ERR_FORMULA_COMPILATION, "Formula Error"},
    {ERR_ODS_NO_SUCH_ENTRY, "No such entry"},
    {ERR_AGENT_SEC_CONFIGURATION, "Error in agent security configuration. Please contact your administrator.  Server log contains additional details."},
    {ERR_SERVER_NOT_FOUND, "Unable to find path to server. Check that your network connection is working."},
    {ERR_SERVER_NOT_RESPONDING, "The server is not responding. The server may be down or you may be experiencing network problems. Contact your system administrator if this problem persists."},
    {ERR_SESSION_CLOSED, "Remote system no longer responding"},
    {ERR_TIMEOUT, "Network operation did not complete in a reasonable amount of time; please retry"},
    {ERR_NOT_RESPONDING, "Remote system not responding"},
    {ERR_DISCONNECTED, "Disconnected from Server"},
    {ERR_ROUTER_NOTUNIQUE, "Recipient user name %a not unique.  Several matches found in Domino Directory."},
    {ERR_ROUTER_NOSUCHUSER, "User %a not listed in Domino Directory"},
    {ERR_ROUTER_NOMAILFILE, "Recipient's Domino Directory entry does not specify a valid Notes mail file"},
    {ERR_ROUTER_LIST_LOOP, "Groups cannot be nested more than 20 levels deep."},
    {ERR_OOO_MISSING_PARAM, "OOOAPI: Manditory parameter is not set"},
    {ERR_OOO_NOACCESS, "OOOAPI: Insufficient access to turn on Out of office.  Minimum of Editor level access is required."},
    {ERR_OOO_MAILINFO_FAIL, "OOOAPI: Failed to obtain information about home mail server"},
    {ERR_OOO_DUPLICATE_NAME, "OOOAPI: Duplicate name found in Domino Directory "},
    {ERR_OOO_MISSING_MAILFILE, "OOOAPI: Unable to open user's mail file"},
    {ERR_ROUTER_OOO_PROFILE_ERROR, "OOOAPI: Unable to open out of office profile in database %p: %e"},
    {ERR_OOO_INVALID_TIMEPARM, "OOOAPI: Invalid time parameter"},
    {ERR_OOO_MISSING_INIT, "OOOAPI: Invalid Initialization. Most likely OOOInit was not called"},
    {ERR_OOO_MSGTOOLARGE, "OOOAPI: Body of the message is too large"},
    {ERR_OOO_NAMELOOKUP, "OOOAPI: Namelookup for user '%s' on server '%s' failed"},
    {ERR_OOO_NAMELOOKUPATTR, "OOOAPI: Extended directory '%a' on server '%a' does not have attributes 'MailServer' and 'MailFile'. This information is required for enabling Out of Office"},
    {ERR_AUTH_NAME_AMBIGUOUS_MATCH, "Multiple Notes name matches found in directory"},
    {ERR_DN_PARSE, "Error parsing Notes or LDAP Distinguished Name."},
};

}  // namespace

std::span<const StatusText> all_status_texts() { return kStatusTexts; }

const char* status_text(STATUS code) {
  const STATUS key = ERR(code);
  auto it = std::lower_bound(std::begin(kStatusTexts), std::end(kStatusTexts), key,
                             [](const StatusText& entry, STATUS value) { return entry.code < value; });
  if (it == std::end(kStatusTexts) || it->code != key) return nullptr;
  return it->text;
}

}  // namespace tarnwick::rt
