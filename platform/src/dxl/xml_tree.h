// A small element tree read from XML with Xerces-C (SAX2), keeping the line
// of every element so that the importer can name the line of a problem.
//
// Names are local names (namespace prefixes dropped); attribute values and
// text are UTF-8. No DTD or other external entity is ever loaded, entity
// expansion is bounded, and so are the input size and the nesting depth:
// hostile input gives an error, never unbounded work.
//
// Thread-safe: each parse uses its own parser.
#pragma once

#include <memory>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace tarnwick::rt::dxl {

struct XmlElement {
  std::string name;
  std::vector<std::pair<std::string, std::string>> attributes;  // in document order
  std::string text;  // character data directly inside this element, joined
  std::vector<std::unique_ptr<XmlElement>> children;
  int line = 0;

  // The attribute's value, or nullptr when absent.
  const std::string* attribute(std::string_view attribute_name) const;
  // The first child element of that name, or nullptr.
  const XmlElement* child(std::string_view child_name) const;
};

struct XmlError {
  int line = 0;
  std::string message;
};

constexpr size_t kMaxXmlBytes = 64u * 1024u * 1024u;
constexpr int kMaxXmlDepth = 200;

// Parses a whole document. On failure returns nullptr and fills `error`.
std::unique_ptr<XmlElement> parse_xml(std::string_view bytes, XmlError& error);

}  // namespace tarnwick::rt::dxl
