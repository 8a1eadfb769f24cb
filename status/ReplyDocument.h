// ReplyDocument: the OOOReadObject reply document of the status queries and
// the set flow, built as a Xerces DOM and written to the reply file.
//
// Front ends read a reply's attributes in the order in which they were set,
// but the XML toolkit's own serialiser writes them sorted by name. So every
// attribute goes through setAttribute, which sets it on the DOM element and
// remembers its place, and write() serialises the document itself: the
// declaration the toolkit writes, then the elements with their attributes in
// set order, in UTF-8.
//
// Lifetime: the reply file is the request's open RequestFile (the reply
// goes through its descriptor, never by path). Constructing one fails when
// the file cannot be written; write() puts the whole document over the old
// content in one write, and a document destroyed unwritten (a failed reply)
// leaves the file empty. Failures are the
// toolkit's XMLException (as its own file target raises them: the file
// cannot be opened or written) and DOMException.
// One object belongs to one thread; the XML toolkit must be initialised.
#ifndef TARNWICK_STATUS_REPLYDOCUMENT_H
#define TARNWICK_STATUS_REPLYDOCUMENT_H

#include <xercesc/dom/DOM.hpp>

#include <map>
#include <string>
#include <vector>

#include "request/RequestFile.h"

class ReplyDocument {
 public:
  // Creates the document with its root element OOOReadObject for a reply
  // file that can be written. The file must stay open until write() (or the
  // end of the object).
  explicit ReplyDocument(RequestFile& file);
  ~ReplyDocument();
  ReplyDocument(const ReplyDocument&) = delete;
  ReplyDocument& operator=(const ReplyDocument&) = delete;

  xercesc::DOMDocument* document() const { return document_; }
  xercesc::DOMElement* root() const { return document_->getDocumentElement(); }

  // A new User element, not yet placed in the document.
  xercesc::DOMElement* createUser();

  // Sets an attribute of element; a name set again keeps its first place.
  void setAttribute(xercesc::DOMElement* element, const XMLCh* name, const XMLCh* value);

  // Serialises the document into the reply file.
  void write();

 private:
  // The document's text as write() puts it into the file.
  std::string serialise() const;
  void serialiseNode(const xercesc::DOMNode* node, std::u16string& out) const;

  xercesc::DOMDocument* document_ = nullptr;
  RequestFile& file_;
  bool written_ = false;
  std::map<const xercesc::DOMElement*, std::vector<std::u16string>> attributeOrder_;
};

#endif  // TARNWICK_STATUS_REPLYDOCUMENT_H
