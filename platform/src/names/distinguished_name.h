// Hierarchical (distinguished) names: parsing into components and the
// canonical ("CN=Jane Doe/OU=Sales/O=Acme/C=US") and abbreviated
// ("Jane Doe/Sales/Acme/US") forms. Used by DNCanonicalize/DNAbbreviate/
// DNParse and by every runtime module that compares or shows names (ACL,
// directory lookups, @Name).
//
// Rules:
//  * Components are separated by '/'; '$' escapes the next character, so
//    "Sales$/Marketing" is one value. Escapes are kept as written.
//  * Text is LMBCS and is walked character by character: bytes of a
//    multi-byte character are never taken for delimiters.
//  * A name without '/' and without labels is a flat (common) name; so is an
//    Internet address ("Jane Doe <jdoe@acme.com>"). Flat names, and names
//    that do not fit the CN / OU (at most 4) / O / C scheme, are left
//    unchanged by canonicalize() and abbreviate().
//  * Abbreviated names: the first component is the CN, the last the O, those
//    between are OUs; when there are three or more components and the last is
//    exactly two letters, it is the country (C) and the one before it the O.
//  * "@Domain" after the last component is kept as a suffix.
//  * A wildcard CN ("*/Sales/Acme") is written without its label.
//
// All functions are pure and thread-safe; string_views in ParsedName point
// into the parsed text.
#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace tarnwick::rt::names {

inline constexpr size_t kMaxOrgUnits = 4;

enum class NameForm {
  kFlat,         // no hierarchy: "Jane Doe", "jdoe@acme.com", "Jane <jdoe@acme.com>"
  kAbbreviated,  // "Jane Doe/Sales/Acme/US"
  kCanonical,    // "CN=Jane Doe/OU=Sales/O=Acme/C=US"
  kNonstandard,  // hierarchical, but other labels, order, empty parts or > 4 OUs
  kLeadingSlash, // "/C=GB/O=CAM/CN=Jane Doe": labelled components, country first
};

struct LabelledValue {
  std::string_view label;  // as written, e.g. "dc"
  std::string_view value;
};

struct ParsedName {
  NameForm form = NameForm::kFlat;
  std::string_view cn;
  std::vector<std::string_view> org_units;  // in writing order: [0] is next to the CN
  std::string_view o;
  std::string_view c;
  std::string_view domain;     // after the final '@'
  std::string_view hierarchy;  // everything after the CN and its '/' ("Sales/Acme/US")
  // Internet address parts ("Phrase <local@domain>").
  std::string_view phrase;
  std::string_view local_part;
  std::string_view address821;
  // Every labelled component, including CN/OU/O/C, in writing order.
  std::vector<LabelledValue> labelled;
  // "Mary Tsen/": an abbreviated name whose hierarchy comes from a template.
  bool needs_template = false;
  // More OUs than kMaxOrgUnits (the name is kNonstandard then).
  bool too_many_org_units = false;

  bool is_hierarchical() const { return form == NameForm::kAbbreviated || form == NameForm::kCanonical; }
};

ParsedName parse_name(std::string_view name);
// Whether a component label equals `upper_label` ("OU", "DC") without case.
bool is_label(std::string_view label, std::string_view upper_label);

// Canonical form; `template_name` (canonical or abbreviated) completes a name
// written as "Common Name/". Names that are not standard hierarchical names
// come back unchanged.
std::string canonicalize(std::string_view name, std::string_view template_name = {});
// Abbreviated form (labels removed); non-standard names come back unchanged.
std::string abbreviate(std::string_view name);
// The common-name part ("Jane Doe" for all of "CN=Jane Doe/O=Acme",
// "Jane Doe/Acme", "Jane Doe" and "Jane Doe <jdoe@acme.com>").
std::string common_name(std::string_view name);
// True for abbreviated and canonical hierarchical names.
bool is_hierarchical(std::string_view name);
// Whether two names denote the same person: canonical forms compared without
// regard to case.
bool same_name(std::string_view a, std::string_view b);

}  // namespace tarnwick::rt::names
