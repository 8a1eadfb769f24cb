#include "status/ReplyDocument.h"

#include <xercesc/util/PlatformUtils.hpp>
#include <xercesc/util/TransService.hpp>
#include <xercesc/util/XMLChar.hpp>

#include <algorithm>

using namespace xercesc;

namespace {

constexpr char16_t kDeclaration[] = u"<?xml version=\"1.0\" encoding=\"UTF-8\" standalone=\"no\" ?>";
constexpr char16_t kReplacement = 0xFFFD;

bool isHighSurrogate(char16_t c) { return c >= 0xD800 && c <= 0xDBFF; }

// Appends text with the characters that would change its meaning escaped.
// In attribute values the white-space controls are written as references,
// because a parser turns them into blanks otherwise and a multi-line subject
// would come back as one line. Characters XML cannot carry at all (other
// controls, lone surrogates) become U+FFFD.
void appendEscaped(std::u16string& out, const XMLCh* text, bool attribute) {
  if (text == nullptr) return;
  for (const XMLCh* at = text; *at != 0; ++at) {
    const char16_t c = *at;
    if (isHighSurrogate(c) && XMLChar1_0::isXMLChar(c, at[1])) {
      out += c;
      out += *++at;
      continue;
    }
    switch (c) {
      case u'&':
        out += u"&amp;";
        continue;
      case u'<':
        out += u"&lt;";
        continue;
      case u'>':
        out += u"&gt;";
        continue;
      default:
        break;
    }
    if (attribute) {
      switch (c) {
        case u'"':
          out += u"&quot;";
          continue;
        case u'\t':
          out += u"&#x9;";
          continue;
        case u'\n':
          out += u"&#xA;";
          continue;
        case u'\r':
          out += u"&#xD;";
          continue;
        default:
          break;
      }
    }
    out += XMLChar1_0::isXMLChar(c) ? c : kReplacement;
  }
}

}  // namespace

ReplyDocument::ReplyDocument(RequestFile& file) : file_(file) {
  DOMImplementation* implementation = DOMImplementationRegistry::getDOMImplementation(u"LS");
  if (!file_.writable()) ThrowXML1(XMLPlatformUtilsException, XMLExcepts::File_CouldNotOpenFile, file_.path().c_str());
  document_ = implementation->createDocument(nullptr, u"OOOReadObject", nullptr);
  document_->setXmlStandalone(false);
}

// A reply that was never written leaves the file empty, as a front end
// that reads it after a failed reply expects.
ReplyDocument::~ReplyDocument() {
  if (!written_) file_.empty();
  if (document_ != nullptr) document_->release();
}

DOMElement* ReplyDocument::createUser() { return document_->createElement(u"User"); }

void ReplyDocument::setAttribute(DOMElement* element, const XMLCh* name, const XMLCh* value) {
  std::vector<std::u16string>& order = attributeOrder_[element];
  if (!element->hasAttribute(name)) order.emplace_back(name);
  element->setAttribute(name, value);
}

void ReplyDocument::serialiseNode(const DOMNode* node, std::u16string& out) const {
  if (node->getNodeType() == DOMNode::TEXT_NODE) {
    appendEscaped(out, node->getNodeValue(), false);
    return;
  }
  if (node->getNodeType() != DOMNode::ELEMENT_NODE) return;
  const auto* element = static_cast<const DOMElement*>(node);
  out += u'<';
  out += element->getTagName();
  auto writeAttribute = [&](const XMLCh* name, const XMLCh* value) {
    out += u' ';
    out += name;
    out += u"=\"";
    appendEscaped(out, value, true);
    out += u'"';
  };
  // Attributes set through setAttribute first, in their order; any other
  // attribute of the element after them, as the toolkit keeps them.
  const auto recorded = attributeOrder_.find(element);
  const std::vector<std::u16string> none;
  const std::vector<std::u16string>& order = recorded == attributeOrder_.end() ? none : recorded->second;
  for (const std::u16string& name : order) {
    if (element->hasAttribute(name.c_str())) writeAttribute(name.c_str(), element->getAttribute(name.c_str()));
  }
  const DOMNamedNodeMap* attributes = element->getAttributes();
  for (XMLSize_t i = 0; attributes != nullptr && i < attributes->getLength(); ++i) {
    const DOMNode* attribute = attributes->item(i);
    if (std::find(order.begin(), order.end(), attribute->getNodeName()) == order.end()) {
      writeAttribute(attribute->getNodeName(), attribute->getNodeValue());
    }
  }
  if (element->getFirstChild() == nullptr) {
    out += u"/>";
    return;
  }
  out += u'>';
  for (const DOMNode* child = element->getFirstChild(); child != nullptr; child = child->getNextSibling()) {
    serialiseNode(child, out);
  }
  out += u"</";
  out += element->getTagName();
  out += u'>';
}

std::string ReplyDocument::serialise() const {
  std::u16string text = kDeclaration;
  serialiseNode(document_->getDocumentElement(), text);
  TranscodeToStr utf8(text.c_str(), text.size(), "UTF-8");
  return std::string(reinterpret_cast<const char*>(utf8.str()), utf8.length());
}

void ReplyDocument::write() {
  const std::string text = serialise();
  if (!file_.replace(text)) ThrowXML(XMLPlatformUtilsException, XMLExcepts::File_CouldNotWriteToFile);
  written_ = true;
}
