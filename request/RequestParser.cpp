// The request document and its parser.
//
// A request document has any root element; somewhere in its tree stands an
// element named Username. Its text content is the user name; every other
// request value is an attribute of that same element:
//
//   <Request><Username MQName="MQ$OOOServletList_7" Action="1"
//       MailServer="CN=Srv1/O=Org" MailBox="mail/jdoe.nsf">Jane Doe/Org</Username></Request>
//
// Names match without case and as prefixes, over exactly the keyword's length
// (an element UsernameX counts as Username, an attribute MailBoxes as
// MailBox). Attributes are tried against kAttributeRules in table order and
// the first match wins, which is why AppendSubjectDate stands before
// AppendSubject. Attributes of other elements and other elements' text are
// ignored; a later Username element overwrites what an earlier one stored.
//
// Hostile documents: the file is read through the request's RequestFile
// (size-limited), entity expansion is bounded by the toolkit's security
// manager (a document that expands more entities is a parse error), the tree
// is walked without recursion, and of several Username elements only the
// last one's text is converted, since it is the one that stays: a deep or
// long document costs time in proportion to its size.
#include <xercesc/dom/DOM.hpp>
#include <xercesc/framework/MemBufInputSource.hpp>
#include <xercesc/util/SecurityManager.hpp>
#include <xercesc/util/XMLException.hpp>

#include <strings.h>

#include <cstdlib>
#include <cstring>
#include <memory>

#include "ostime.h"
#include "request/IPOOO.h"
#include "request/TaskLog.h"

using namespace xercesc;

namespace {

// How an attribute's value is stored.
enum class Store {
  Lmbcs,      // the value in UTF-8, then converted to LMBCS
  Text,       // the value in UTF-8, as given
  Utf8,       // the value in UTF-8, through a translator of its own
  Flag,       // true when the value's first character is "1"
  LeavePart,  // decimal integer into the leaving time record
  ReturnPart, // decimal integer into the returning time record
  Action,     // "1", "2" or "3" by the first character, anything else 0
};

struct AttributeRule {
  const char* keyword;  // matched over its whole length, case ignored
  Store store;
  std::string IPOOO::*text = nullptr;
  bool IPOOO::*flag = nullptr;
  int TIME::*part = nullptr;
};

const AttributeRule kAttributeRules[] = {
    {"Message", Store::Lmbcs, &IPOOO::Message},
    {"MQName", Store::Lmbcs, &IPOOO::MQName},
    {"OOOEnable", Store::Flag, nullptr, &IPOOO::OOOEnable},
    {"MailServer", Store::Lmbcs, &IPOOO::MailServer},
    {"MailBox", Store::Lmbcs, &IPOOO::MailBox},
    {"Subject", Store::Lmbcs, &IPOOO::Subject},
    {"StartTimeYear", Store::LeavePart, nullptr, nullptr, &TIME::year},
    {"StartTimeMonth", Store::LeavePart, nullptr, nullptr, &TIME::month},
    {"StartTimeDay", Store::LeavePart, nullptr, nullptr, &TIME::day},
    {"StartTimeHour", Store::LeavePart, nullptr, nullptr, &TIME::hour},
    {"StartTimeMin", Store::LeavePart, nullptr, nullptr, &TIME::minute},
    {"StartTimeSec", Store::LeavePart, nullptr, nullptr, &TIME::second},
    {"EndTimeYear", Store::ReturnPart, nullptr, nullptr, &TIME::year},
    {"EndTimeMonth", Store::ReturnPart, nullptr, nullptr, &TIME::month},
    {"EndTimeDay", Store::ReturnPart, nullptr, nullptr, &TIME::day},
    {"EndTimeHour", Store::ReturnPart, nullptr, nullptr, &TIME::hour},
    {"EndTimeMin", Store::ReturnPart, nullptr, nullptr, &TIME::minute},
    {"EndTimeSec", Store::ReturnPart, nullptr, nullptr, &TIME::second},
    {"ShowHours", Store::Text, &IPOOO::ShowHours},
    {"Action", Store::Action},
    {"DaysOut", Store::Lmbcs, &IPOOO::DaysOut},
    {"AppendSubjectDate", Store::Lmbcs, &IPOOO::AppendSubjectDate},
    {"AppendSubject", Store::Flag, nullptr, &IPOOO::AppendSubject},
    {"ASDEnable", Store::Flag, nullptr, &IPOOO::ASDEnable},
    {"IsIphone", Store::Flag, nullptr, &IPOOO::IsIphone},
    {"IsAndroid", Store::Flag, nullptr, &IPOOO::IsAndroid},
    {"InternetAddress", Store::Flag, nullptr, &IPOOO::InternetAddress},
    {"LoginName", Store::Utf8, &IPOOO::LoginName},
    {"LoginServer", Store::Utf8, &IPOOO::LoginServer},
    {"QueryUser", Store::Utf8, &IPOOO::QueryUser},
};

constexpr const char* kUsernameKeyword = "Username";

// Requests use no entities of their own (the predefined ones such as &amp;
// do not count), so a few are plenty.
constexpr XMLSize_t kEntityExpansionLimit = 16;

SecurityManager* securityManager() {
  static SecurityManager* manager = [] {
    auto* made = new SecurityManager;  // never destroyed: parsers on any thread use it
    made->setEntityExpansionLimit(kEntityExpansionLimit);
    return made;
  }();
  return manager;
}

// The node after `node` in document order (first child, then next sibling,
// then an ancestor's next sibling), staying below `top`; null at the end.
DOMNode* nextBelow(DOMNode* node, const DOMNode* top) {
  if (DOMNode* child = node->getFirstChild()) return child;
  while (node != nullptr && node != top) {
    if (DOMNode* sibling = node->getNextSibling()) return sibling;
    node = node->getParentNode();
  }
  return nullptr;
}

bool matchesKeyword(const XMLCh* name, const char* keyword);

bool isUsernameElement(const DOMNode* node) {
  return node->getNodeType() == DOMNode::ELEMENT_NODE && matchesKeyword(node->getNodeName(), kUsernameKeyword);
}

// All text below element in document order, as the DOM's text content
// gives it (comments and processing instructions left out), without
// recursion.
std::u16string textContentOf(DOMNode* element) {
  std::u16string text;
  for (DOMNode* node = element->getFirstChild(); node != nullptr; node = nextBelow(node, element)) {
    const auto type = node->getNodeType();
    if (type == DOMNode::TEXT_NODE || type == DOMNode::CDATA_SECTION_NODE) text += node->getNodeValue();
  }
  return text;
}

// True when name begins with keyword, compared without case over the
// keyword's length (a shorter name never matches).
bool matchesKeyword(const XMLCh* name, const char* keyword) {
  if (name == nullptr) return false;
  for (size_t i = 0; keyword[i] != '\0'; ++i) {
    XMLCh c = name[i];
    if (c == 0) return false;
    if (c >= u'A' && c <= u'Z') c = static_cast<XMLCh>(c - u'A' + u'a');
    char k = keyword[i];
    if (k >= 'A' && k <= 'Z') k = static_cast<char>(k - 'A' + 'a');
    if (c != static_cast<XMLCh>(k)) return false;
  }
  return true;
}

std::string toolkitMessage(const XMLCh* message) {
  char* text = XMLString::transcode(message);
  std::string result = text ? text : "";
  XMLString::release(&text);
  return result;
}

// A mail file named without its ".nsf" (in any case) gets it.
void appendDatabaseSuffix(std::string& mailFile) {
  constexpr char kSuffix[] = ".nsf";
  constexpr size_t kLength = sizeof kSuffix - 1;
  if (mailFile.empty()) return;
  if (mailFile.size() >= kLength && strncasecmp(mailFile.c_str() + mailFile.size() - kLength, kSuffix, kLength) == 0) {
    return;
  }
  mailFile += kSuffix;
}

}  // namespace

int IPOOO::xmlParser(std::string& path) {
  try {
    parser->setValidationScheme(XercesDOMParser::Val_Auto);
    parser->setDoNamespaces(false);
    parser->setDoSchema(false);
    parser->setLoadExternalDTD(false);
    // Request files come from front ends that may pass on what a client
    // sent: external entities are never fetched.
    parser->setDisableDefaultEntityResolution(true);
    parser->setSecurityManager(securityManager());
    RequestFile& file = openRequestFile(path);
    std::string content;
    if (!file.isOpen()) return 0;
    if (!file.read(content)) {
      taskLog("Request file refused: " + path + ": " + file.refusalText());
      return 0;
    }
    MemBufInputSource source(reinterpret_cast<const XMLByte*>(content.data()), content.size(), path.c_str());
    parser->parse(source);
    DOMDocument* document = parser->getDocument();
    DOMElement* root = document != nullptr ? document->getDocumentElement() : nullptr;
    if (root == nullptr) throw IPException("xmlParser", "Empty XML document");
    receiveElements(root);
    return 1;
  } catch (const XMLException& e) {
    throw IPException("xmlParser", toolkitMessage(e.getMessage()).c_str());
  } catch (const DOMException& e) {
    throw IPException("xmlParser", toolkitMessage(e.getMessage()).c_str());
  } catch (const IPException&) {
    throw;
  } catch (...) {
    throw IPException("xmlParser", "Unexpected Exception\n");
  }
}

void IPOOO::receiveElements(DOMNode* node) {
  DOMNode* lastUsername = nullptr;
  try {
    try {
      for (DOMNode* current = node; current != nullptr; current = nextBelow(current, node)) {
        if (!isUsernameElement(current)) continue;
        lastUsername = current;
        DOMNamedNodeMap* attributes = current->getAttributes();
        if (attributes == nullptr || attributes->getLength() == 0) continue;
        leaveParts = TIME{};
        returnParts = TIME{};
        hasDates = 0;
        for (XMLSize_t i = 0; i < attributes->getLength(); ++i) {
          DOMNode* attribute = attributes->item(i);
          storeAttribute(attribute->getNodeName(), attribute->getNodeValue());
        }
        if (hasDates) assembleDates();
      }
    } catch (...) {
      // The failing element's user name stands, as it would had it been
      // stored before the element's attributes.
      if (lastUsername != nullptr) {
        try {
          storeUsernameOf(lastUsername);
        } catch (...) {
        }
      }
      throw;
    }
    if (lastUsername != nullptr) storeUsernameOf(lastUsername);
  } catch (const XMLException& e) {
    throw IPException("receiveElements", toolkitMessage(e.getMessage()).c_str());
  } catch (const DOMException& e) {
    throw IPException("receiveElements", toolkitMessage(e.getMessage()).c_str());
  } catch (const IPException&) {
    throw;
  } catch (...) {
    throw IPException("receiveElements", "Unexpected Exception\n");
  }
}

void IPOOO::storeUsernameOf(DOMNode* element) {
  const std::u16string text = textContentOf(element);
  Username = utf8Of(text.c_str());
  translator->TranslatorUTF8ToLMBCS(Username);
}

void IPOOO::storeAttribute(const XMLCh* name, const XMLCh* value) {
  for (const AttributeRule& rule : kAttributeRules) {
    if (!matchesKeyword(name, rule.keyword)) continue;
    const XMLCh first = value != nullptr ? value[0] : 0;
    switch (rule.store) {
      case Store::Lmbcs:
        this->*rule.text = translator->translate(value);
        translator->TranslatorUTF8ToLMBCS(this->*rule.text);
        if (rule.text == &IPOOO::MailBox) appendDatabaseSuffix(MailBox);
        break;
      case Store::Text:
        this->*rule.text = translator->translate(value);
        break;
      case Store::Utf8:
        this->*rule.text = utf8Of(value);
        break;
      case Store::Flag:
        this->*rule.flag = first == u'1';
        break;
      case Store::LeavePart:
        leaveParts.*rule.part = std::atoi(translator->translate(value).c_str());
        hasDates = 1;
        break;
      case Store::ReturnPart:
        returnParts.*rule.part = std::atoi(translator->translate(value).c_str());
        hasDates = 1;
        break;
      case Store::Action:
        Action = (first == u'1' || first == u'2' || first == u'3') ? static_cast<WORD>(first - u'0') : 0;
        break;
    }
    return;
  }
}

// The date parts are local time in the server's zone.
void IPOOO::assembleDates() {
  int zone = 0;
  int dst = 0;
  OSCurrentTimeZone(&zone, &dst);
  leaveParts.zone = zone;
  leaveParts.dst = dst;
  if (TimeLocalToGM(&leaveParts)) throw IPException("receiveElements", "The leaving date is invalid..");
  leaveTime = leaveParts.GM;
  returnParts.zone = zone;
  returnParts.dst = dst;
  if (TimeLocalToGM(&returnParts)) throw IPException("receiveElements", "The returning date is invalid.");
  returnTime = returnParts.GM;
}
