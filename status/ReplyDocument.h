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
// Lifetime: constructing one opens (and so empties) the reply file, as the
// toolkit's file target does; nothing of the document reaches the file
// before write(). Failures are the toolkit's XMLException and DOMException.
// One object belongs to one thread; the XML toolkit must be initialised.
#ifndef TARNWICK_STATUS_REPLYDOCUMENT_H
#define TARNWICK_STATUS_REPLYDOCUMENT_H

#include <xercesc/dom/DOM.hpp>
#include <xercesc/framework/LocalFileFormatTarget.hpp>

#include <map>
#include <memory>
#include <string>
#include <vector>

class ReplyDocument {
 public:
  // Opens the reply file at path and creates the document with its root
  // element OOOReadObject.
  explicit ReplyDocument(const std::string& path);
  ~ReplyDocument();
  ReplyDocument(const ReplyDocument&) = delete;
  ReplyDocument& operator=(const ReplyDocument&) = delete;

  xercesc::DOMDocument* document() const { return document_; }
  xercesc::DOMElement* root() const { return document_->getDocumentElement(); }

  // A new User element, not yet placed in the document.
  xercesc::DOMElement* createUser();

  // Sets an attribute of element; a name set again keeps its first place.
  void setAttribute(xercesc::DOMElement* element, const XMLCh* name, const XMLCh* value);

  // Serialises the document into the reply file and closes the file.
  void write();

 private:
  // The document's text as write() puts it into the file.
  std::string serialise() const;
  void serialiseNode(const xercesc::DOMNode* node, std::u16string& out) const;

  xercesc::DOMDocument* document_ = nullptr;
  std::unique_ptr<xercesc::LocalFileFormatTarget> target_;
  std::map<const xercesc::DOMElement*, std::vector<std::u16string>> attributeOrder_;
};

#endif  // TARNWICK_STATUS_REPLYDOCUMENT_H
