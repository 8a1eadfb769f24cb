// ReplyDocument: the OOOReadObject reply document of the status queries and
// the set flow, written as UTF-8 XML into the reply file.
//
// Front ends read a reply's attributes in the order in which they were set,
// and the gateway and the tests read the file as it stands, so the document
// is written here directly rather than by the XML toolkit's serialiser:
// the declaration, the root OOOReadObject, and its User elements in the
// order they were added, each with its attributes in set order and its text.
//
// Texts come in as UTF-8 and are written as the toolkit would write them:
// markup characters escaped, in attribute values also the quote and the
// white-space controls (as references, so that a multi-line subject comes
// back with its lines), and characters XML cannot carry replaced by U+FFFD.
// A text that is not well-formed UTF-8, or too long for the text converter,
// goes through the converter (XMLStringTranslate), so it fails exactly as
// the converter fails such a text (the task stops, or the request is
// refused with an IPException from "translate").
//
// Lifetime: the reply file is the request's open RequestFile (the reply
// goes through its descriptor, never by path). Constructing one fails when
// the file cannot be written; write() puts the whole document over the old
// content in one write, and a document destroyed unwritten (a failed reply)
// leaves the file empty. Those failures are the toolkit's XMLException, as
// its own file target raises them.
// One object belongs to one thread; the XML toolkit must be initialised.
#ifndef TARNWICK_STATUS_REPLYDOCUMENT_H
#define TARNWICK_STATUS_REPLYDOCUMENT_H

#include <deque>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "request/RequestFile.h"
#include "request/XMLStringTranslate.h"

class ReplyDocument {
 public:
  // One User element: its attributes (names and escaped values) in set
  // order, and its escaped text when it has one.
  struct User {
    std::vector<std::pair<std::string, std::string>> attributes;
    bool hasText = false;
    std::string text;
  };

  // Creates the document with its root element OOOReadObject for a reply
  // file that can be written. The file must stay open until write() (or the
  // end of the object).
  explicit ReplyDocument(RequestFile& file);
  ~ReplyDocument();
  ReplyDocument(const ReplyDocument&) = delete;
  ReplyDocument& operator=(const ReplyDocument&) = delete;

  // A new User element, the last child of the root. The reference stays
  // valid as long as the document.
  User& addUser();

  // Sets an attribute of user to the UTF-8 text value (up to its first NUL);
  // a name set again keeps its first place. name is plain ASCII.
  void setAttribute(User& user, const char* name, const char* value);
  // Gives user its text (UTF-8, up to its first NUL), even an empty one.
  void setText(User& user, const char* value);

  // Serialises the document into the reply file.
  void write();

  // The document's text as write() puts it into the file.
  std::string serialise() const;

 private:
  // Appends text escaped for an attribute value or for element content.
  void appendEscaped(std::string& out, const char* text, bool attribute);
  XMLStringTranslate& converter();

  RequestFile& file_;
  bool written_ = false;
  std::deque<User> users_;
  std::unique_ptr<XMLStringTranslate> converter_;  // made for the first text that needs it
};

#endif  // TARNWICK_STATUS_REPLYDOCUMENT_H
