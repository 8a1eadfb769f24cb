// Reading XML into an XmlElement tree through Xerces-C's SAX2 reader (see
// xml_tree.h). Xerces exceptions are caught here and become XmlError.
#include "dxl/xml_tree.h"

#include <xercesc/framework/MemBufInputSource.hpp>
#include <xercesc/sax/Locator.hpp>
#include <xercesc/sax/SAXParseException.hpp>
#include <xercesc/sax2/Attributes.hpp>
#include <xercesc/sax2/DefaultHandler.hpp>
#include <xercesc/sax2/SAX2XMLReader.hpp>
#include <xercesc/sax2/XMLReaderFactory.hpp>
#include <xercesc/util/OutOfMemoryException.hpp>
#include <xercesc/util/PlatformUtils.hpp>
#include <xercesc/util/SecurityManager.hpp>
#include <xercesc/util/XMLString.hpp>
#include <xercesc/util/XMLUni.hpp>

#include <mutex>

#include "text/lmbcs.h"

namespace tarnwick::rt::dxl {

using namespace xercesc;

const std::string* XmlElement::attribute(std::string_view attribute_name) const {
  for (const auto& [key, value] : attributes) {
    if (key == attribute_name) return &value;
  }
  return nullptr;
}

const XmlElement* XmlElement::child(std::string_view child_name) const {
  for (const auto& element : children) {
    if (element->name == child_name) return element.get();
  }
  return nullptr;
}

namespace {

static_assert(sizeof(XMLCh) == sizeof(char16_t), "Xerces must use 16-bit characters");

std::string utf8_of(const XMLCh* text, size_t length) {
  if (text == nullptr) return {};
  std::string out;
  text::utf16_to_utf8(std::u16string_view(reinterpret_cast<const char16_t*>(text), length), out);
  return out;
}

std::string utf8_of(const XMLCh* text) { return utf8_of(text, text ? XMLString::stringLen(text) : 0); }

void initialise_xerces_once() {
  static std::once_flag once;
  // Xerces keeps a use count; the runtime's use lasts for the process.
  std::call_once(once, [] { XMLPlatformUtils::Initialize(); });
}

// Stops the parse at the first problem the builder finds itself.
struct BuildStop {};

class TreeBuilder : public DefaultHandler {
 public:
  void setDocumentLocator(const Locator* const locator) override { locator_ = locator; }

  void startElement(const XMLCh* const, const XMLCh* const localname, const XMLCh* const,
                    const Attributes& attrs) override {
    if (static_cast<int>(stack_.size()) >= kMaxXmlDepth) stop("elements are nested too deeply");
    auto element = std::make_unique<XmlElement>();
    element->name = utf8_of(localname);
    element->line = last_line_ = current_line();
    for (XMLSize_t i = 0; i < attrs.getLength(); ++i) {
      element->attributes.emplace_back(utf8_of(attrs.getLocalName(i)), utf8_of(attrs.getValue(i)));
    }
    XmlElement* raw = element.get();
    if (stack_.empty()) {
      root_ = std::move(element);
    } else {
      stack_.back()->children.push_back(std::move(element));
    }
    stack_.push_back(raw);
  }

  void endElement(const XMLCh* const, const XMLCh* const, const XMLCh* const) override {
    if (!stack_.empty()) stack_.pop_back();
  }

  void characters(const XMLCh* const chars, const XMLSize_t length) override {
    if (!stack_.empty()) stack_.back()->text += utf8_of(chars, length);
  }

  void warning(const SAXParseException&) override {}
  void error(const SAXParseException& e) override { throw e; }
  void fatalError(const SAXParseException& e) override { throw e; }

  std::unique_ptr<XmlElement> take_root() { return std::move(root_); }
  const std::string& stop_message() const { return stop_message_; }
  int current_line() const { return locator_ ? static_cast<int>(locator_->getLineNumber()) : 0; }
  // The line reached when the parse stopped; the locator belongs to the
  // reader, which is gone by the time a failure is reported.
  int last_line() const { return last_line_; }

 private:
  [[noreturn]] void stop(const char* message) {
    stop_message_ = message;
    last_line_ = current_line();
    throw BuildStop{};
  }

  const Locator* locator_ = nullptr;
  std::unique_ptr<XmlElement> root_;
  std::vector<XmlElement*> stack_;
  std::string stop_message_;
  int last_line_ = 0;
};

}  // namespace

std::unique_ptr<XmlElement> parse_xml(std::string_view bytes, XmlError& error) {
  error = XmlError{};
  if (bytes.size() > kMaxXmlBytes) {
    error.message = "the input is too large";
    return nullptr;
  }
  initialise_xerces_once();
  TreeBuilder builder;
  try {
    std::unique_ptr<SAX2XMLReader> reader(XMLReaderFactory::createXMLReader());
    reader->setFeature(XMLUni::fgSAX2CoreNameSpaces, true);
    reader->setFeature(XMLUni::fgSAX2CoreValidation, false);
    reader->setFeature(XMLUni::fgXercesSchema, false);
    reader->setFeature(XMLUni::fgXercesLoadExternalDTD, false);
    reader->setFeature(XMLUni::fgXercesDisableDefaultEntityResolution, true);
    SecurityManager security;
    security.setEntityExpansionLimit(1000);
    reader->setProperty(XMLUni::fgXercesSecurityManager, &security);
    reader->setContentHandler(&builder);
    reader->setErrorHandler(&builder);
    MemBufInputSource source(reinterpret_cast<const XMLByte*>(bytes.data()), bytes.size(), "dxl");
    reader->parse(source);
  } catch (const SAXParseException& e) {
    error.line = static_cast<int>(e.getLineNumber());
    error.message = utf8_of(e.getMessage());
    return nullptr;
  } catch (const BuildStop&) {
    error.line = builder.last_line();
    error.message = builder.stop_message();
    return nullptr;
  } catch (const XMLException& e) {
    error.line = builder.last_line();
    error.message = utf8_of(e.getMessage());
    return nullptr;
  } catch (const OutOfMemoryException&) {
    error.message = "out of memory";
    return nullptr;
  }
  auto root = builder.take_root();
  if (!root) error.message = "the input holds no element";
  return root;
}

}  // namespace tarnwick::rt::dxl
