#include "reply_json.h"

#include <memory>

#include <xercesc/dom/DOM.hpp>
#include <xercesc/framework/MemBufInputSource.hpp>
#include <xercesc/parsers/XercesDOMParser.hpp>
#include <xercesc/sax/HandlerBase.hpp>
#include <xercesc/util/PlatformUtils.hpp>
#include <xercesc/util/TransService.hpp>
#include <xercesc/util/XMLString.hpp>

namespace tarnwick::gateway {
namespace {

namespace x = xercesc;

std::string utf8(const XMLCh* text) {
  if (text == nullptr) return {};
  x::TranscodeToStr transcoded(text, "UTF-8");
  return std::string(reinterpret_cast<const char*>(transcoded.str()), transcoded.length());
}

bool named(const x::DOMNode* node, const char* name) {
  return node->getNodeType() == x::DOMNode::ELEMENT_NODE && utf8(node->getNodeName()) == name;
}

nlohmann::ordered_json user_object(const x::DOMElement* user) {
  nlohmann::ordered_json object;
  object["User"] = utf8(user->getTextContent());
  const x::DOMNamedNodeMap* attributes = user->getAttributes();
  for (XMLSize_t i = 0; attributes != nullptr && i < attributes->getLength(); ++i) {
    const x::DOMNode* attribute = attributes->item(i);
    object[utf8(attribute->getNodeName())] = utf8(attribute->getNodeValue());
  }
  return object;
}

}  // namespace

XmlToolkit::XmlToolkit() { x::XMLPlatformUtils::Initialize(); }
XmlToolkit::~XmlToolkit() { x::XMLPlatformUtils::Terminate(); }

std::optional<nlohmann::ordered_json> reply_users(const std::string& document) {
  try {
    x::XercesDOMParser parser;
    parser.setValidationScheme(x::XercesDOMParser::Val_Never);
    parser.setDoNamespaces(false);
    parser.setDoSchema(false);
    parser.setLoadExternalDTD(false);
    parser.setCreateEntityReferenceNodes(false);
    parser.setDisableDefaultEntityResolution(true);  // no file or URL is ever read for an entity
    x::HandlerBase errors;  // throws on a fatal error
    parser.setErrorHandler(&errors);
    x::MemBufInputSource source(reinterpret_cast<const XMLByte*>(document.data()), document.size(), "reply");
    parser.parse(source);
    const x::DOMDocument* parsed = parser.getDocument();
    const x::DOMElement* root = parsed != nullptr ? parsed->getDocumentElement() : nullptr;
    if (root == nullptr || !named(root, "OOOReadObject")) return std::nullopt;
    nlohmann::ordered_json users = nlohmann::ordered_json::array();
    for (const x::DOMNode* child = root->getFirstChild(); child != nullptr; child = child->getNextSibling()) {
      if (named(child, "User")) users.push_back(user_object(static_cast<const x::DOMElement*>(child)));
    }
    return users;
  } catch (...) {
    return std::nullopt;
  }
}

}  // namespace tarnwick::gateway
