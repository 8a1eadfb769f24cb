// Parsing and re-writing of distinguished names (see distinguished_name.h).
//
// parse_name() works in three steps: split off an Internet address or the
// "@Domain" suffix, cut the rest into components at unescaped '/', then
// classify the components (flat, abbreviated, canonical, ...) and assign them
// to CN / OU / O / C.
#include "names/distinguished_name.h"

#include <algorithm>

#include "text/lmbcs.h"

namespace tarnwick::rt::names {
namespace {

using text::lmbcs_char_length;

constexpr std::string_view::size_type npos = std::string_view::npos;

struct Component {
  std::string_view text;
  bool labelled = false;   // has an unescaped '=' (the label before it may be empty)
  std::string_view label;
  std::string_view value;
};

// Calls visit(position, byte) for every single-byte character outside an
// escape, in order; visit returns false to stop early.
template <typename Visit>
void for_each_delimiter_candidate(std::string_view name, Visit visit) {
  const auto* bytes = reinterpret_cast<const unsigned char*>(name.data());
  size_t position = 0;
  while (position < name.size()) {
    const size_t length = lmbcs_char_length(bytes + position, name.size() - position);
    if (length == 1 && bytes[position] == '$' && position + 1 < name.size()) {
      position += 1 + lmbcs_char_length(bytes + position + 1, name.size() - position - 1);
      continue;
    }
    if (length == 1 && !visit(position, static_cast<char>(bytes[position]))) return;
    position += length;
  }
}

size_t find_last_unescaped(std::string_view name, char wanted) {
  size_t found = npos;
  for_each_delimiter_candidate(name, [&](size_t position, char c) {
    if (c == wanted) found = position;
    return true;
  });
  return found;
}

size_t find_first_unescaped(std::string_view name, char wanted) {
  size_t found = npos;
  for_each_delimiter_candidate(name, [&](size_t position, char c) {
    if (c != wanted) return true;
    found = position;
    return false;
  });
  return found;
}

std::vector<Component> split_components(std::string_view body) {
  std::vector<Component> components;
  size_t start = 0;
  auto finish = [&](size_t end) {
    Component component;
    component.text = body.substr(start, end - start);
    const size_t equals = find_first_unescaped(component.text, '=');
    if (equals != npos) {
      component.labelled = true;
      component.label = component.text.substr(0, equals);
      component.value = component.text.substr(equals + 1);
    } else {
      component.value = component.text;
    }
    components.push_back(component);
  };
  for_each_delimiter_candidate(body, [&](size_t position, char c) {
    if (c == '/') {
      finish(position);
      start = position + 1;
    }
    return true;
  });
  finish(body.size());
  return components;
}

bool is_two_letters(std::string_view value) {
  auto letter = [](char c) { return (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z'); };
  return value.size() == 2 && letter(value[0]) && letter(value[1]);
}

std::string_view trim(std::string_view text) {
  while (!text.empty() && text.front() == ' ') text.remove_prefix(1);
  while (!text.empty() && text.back() == ' ') text.remove_suffix(1);
  return text;
}

// "Jane Doe <jdoe@acme.com>": true when `name` has that shape.
bool parse_internet_address(std::string_view name, ParsedName& parsed) {
  const std::string_view trimmed = trim(name);
  if (trimmed.empty() || trimmed.back() != '>') return false;
  const size_t open = find_first_unescaped(trimmed, '<');
  if (open == npos) return false;
  std::string_view phrase = trim(trimmed.substr(0, open));
  if (phrase.size() >= 2 && phrase.front() == '"' && phrase.back() == '"') phrase = phrase.substr(1, phrase.size() - 2);
  parsed.form = NameForm::kFlat;
  parsed.phrase = phrase;
  parsed.address821 = trimmed.substr(open + 1, trimmed.size() - open - 2);
  const size_t at = find_last_unescaped(parsed.address821, '@');
  parsed.local_part = parsed.address821.substr(0, at);
  if (at != npos) parsed.domain = parsed.address821.substr(at + 1);
  parsed.cn = phrase.empty() ? parsed.local_part : phrase;
  return true;
}

void classify_abbreviated(const std::vector<Component>& parts, ParsedName& parsed) {
  const size_t count = parts.size();
  parsed.form = NameForm::kAbbreviated;
  parsed.cn = parts.front().value;
  if (count == 2 && parts[1].value.empty()) {
    parsed.needs_template = true;
    return;
  }
  for (const Component& part : parts) {
    if (part.value.empty()) parsed.form = NameForm::kNonstandard;
  }
  size_t o_index = count - 1;
  if (count >= 3 && is_two_letters(parts.back().value)) {
    parsed.c = parts.back().value;
    o_index = count - 2;
  }
  parsed.o = parts[o_index].value;
  for (size_t i = 1; i < o_index; ++i) parsed.org_units.push_back(parts[i].value);
}

// Ranks of the standard labels in canonical order; 0 for any other label.
int standard_rank(std::string_view label) {
  if (is_label(label, "CN")) return 1;
  if (is_label(label, "OU")) return 2;
  if (is_label(label, "O")) return 3;
  if (is_label(label, "C")) return 4;
  return 0;
}

void classify_labelled(const std::vector<Component>& parts, bool leading_slash, ParsedName& parsed) {
  bool standard = !leading_slash;
  int previous_rank = 0;
  std::vector<std::string_view> org_units;
  for (size_t i = 0; i < parts.size(); ++i) {
    const Component& part = parts[i];
    if (!part.labelled) {
      // Only the CN may go without its label (as a wildcard "*" does).
      if (i != 0 || leading_slash) {
        standard = false;
        continue;
      }
      parsed.cn = part.value;
      previous_rank = 1;
      if (part.value.empty()) standard = false;
      continue;
    }
    parsed.labelled.push_back({part.label, part.value});
    const int rank = standard_rank(part.label);
    // A second '=' must be escaped ("$="): the abbreviated form could not
    // tell it from a label.
    const bool bare_equals = find_first_unescaped(part.value, '=') != npos;
    if (rank == 0 || part.value.empty() || bare_equals || rank < previous_rank ||
        (rank == previous_rank && rank != 2)) {
      standard = false;
    }
    previous_rank = std::max(previous_rank, rank);
    switch (rank) {
      case 1: parsed.cn = part.value; break;
      case 2: org_units.push_back(part.value); break;
      case 3: parsed.o = part.value; break;
      case 4: parsed.c = part.value; break;
      default: break;
    }
  }
  // Written country first, the OU next to the O comes first.
  if (leading_slash) std::reverse(org_units.begin(), org_units.end());
  parsed.org_units = std::move(org_units);
  if ((!parsed.org_units.empty() || !parsed.c.empty()) && parsed.o.empty()) standard = false;
  parsed.form = leading_slash ? NameForm::kLeadingSlash : standard ? NameForm::kCanonical : NameForm::kNonstandard;
}

void append_component(std::string& out, std::string_view label, std::string_view value) {
  if (!out.empty()) out += '/';
  out += label;
  out += value;
}

bool is_wildcard(std::string_view cn) { return cn == "*"; }

// The canonical text of a standard parsed name, with `cn` as its CN.
std::string write_canonical(const ParsedName& parsed, std::string_view cn) {
  std::string out;
  if (!cn.empty()) append_component(out, is_wildcard(cn) ? "" : "CN=", cn);
  for (std::string_view unit : parsed.org_units) append_component(out, "OU=", unit);
  if (!parsed.o.empty()) append_component(out, "O=", parsed.o);
  if (!parsed.c.empty()) append_component(out, "C=", parsed.c);
  if (!parsed.domain.empty()) {
    out += '@';
    out += parsed.domain;
  }
  return out;
}

bool is_standard(const ParsedName& parsed) { return parsed.is_hierarchical() && !parsed.needs_template; }

}  // namespace

bool is_label(std::string_view label, std::string_view upper_label) {
  return label.size() == upper_label.size() &&
         std::equal(label.begin(), label.end(), upper_label.begin(), [](char a, char b) {
           return (a >= 'a' && a <= 'z' ? static_cast<char>(a - 32) : a) == b;
         });
}

ParsedName parse_name(std::string_view name) {
  ParsedName parsed;
  if (parse_internet_address(name, parsed)) return parsed;

  std::string_view body = name;
  size_t at = find_last_unescaped(name, '@');
  if (at != npos && find_last_unescaped(name.substr(at), '/') != npos) at = npos;
  if (at != npos) {
    body = name.substr(0, at);
    parsed.domain = name.substr(at + 1);
    parsed.local_part = body;
    parsed.address821 = name;
  }

  std::vector<Component> parts = split_components(body);
  const bool leading_slash = parts.size() > 1 && parts.front().text.empty();
  if (leading_slash) parts.erase(parts.begin());
  const bool any_label =
      std::any_of(parts.begin(), parts.end(), [](const Component& part) { return part.labelled; });

  if (!any_label && !leading_slash) {
    if (parts.size() == 1) {
      parsed.form = NameForm::kFlat;
      parsed.cn = body;
      return parsed;
    }
    classify_abbreviated(parts, parsed);
  } else {
    classify_labelled(parts, leading_slash, parsed);
  }

  // A name ending in "@" gives no domain: keep such a name as written.
  if (at != npos && parsed.domain.empty() && !body.empty() && parsed.is_hierarchical()) {
    parsed.form = NameForm::kNonstandard;
  }
  if (parsed.org_units.size() > kMaxOrgUnits) {
    parsed.too_many_org_units = true;
    if (parsed.form != NameForm::kLeadingSlash) parsed.form = NameForm::kNonstandard;
  }
  // The hierarchy is what follows the CN component.
  if (!leading_slash && parts.front().labelled && standard_rank(parts.front().label) != 1) {
    parsed.hierarchy = body;
  } else if (!leading_slash && parts.size() > 1) {
    parsed.hierarchy = body.substr(parts.front().text.size() + 1);
  }
  return parsed;
}

std::string canonicalize(std::string_view name, std::string_view template_name) {
  const ParsedName parsed = parse_name(name);
  if (parsed.needs_template) {
    const ParsedName pattern = parse_name(template_name);
    if (!is_standard(pattern)) return std::string(name);
    ParsedName completed = pattern;
    completed.domain = {};
    return write_canonical(completed, parsed.cn);
  }
  if (!is_standard(parsed)) return std::string(name);
  return write_canonical(parsed, parsed.cn);
}

std::string abbreviate(std::string_view name) {
  const ParsedName parsed = parse_name(name);
  if (!is_standard(parsed)) return std::string(name);
  std::string out;
  if (!parsed.cn.empty()) append_component(out, "", parsed.cn);
  for (std::string_view unit : parsed.org_units) append_component(out, "", unit);
  if (!parsed.o.empty()) append_component(out, "", parsed.o);
  if (!parsed.c.empty()) append_component(out, "", parsed.c);
  if (!parsed.domain.empty()) {
    out += '@';
    out += parsed.domain;
  }
  return out;
}

std::string common_name(std::string_view name) { return std::string(parse_name(name).cn); }

bool is_hierarchical(std::string_view name) { return parse_name(name).is_hierarchical(); }

bool same_name(std::string_view a, std::string_view b) {
  return text::lmbcs_compare_ignore_case(canonicalize(a), canonicalize(b)) == 0;
}

}  // namespace tarnwick::rt::names
