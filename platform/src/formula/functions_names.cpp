// Name @functions: @UserName and @Name.
//
// @Name([action]; names) works on every element of a text list through the
// runtime's distinguished-name rules (names/distinguished_name.h): the
// component keywords give "" where the name has no such component; flat
// names come back unchanged from [Abbreviate] and [Canonicalize].
#include <string>
#include <string_view>

#include "env/environment.h"
#include "formula/evaluator.h"
#include "formula/functions.h"
#include "globerr.h"
#include "names/distinguished_name.h"

namespace tarnwick::rt::formula {
namespace {

// The name the runtime works under: the server's own name from notes.ini.
std::string runtime_user_name() { return get_environment("ServerName").value_or(std::string()); }

Value fn_user_name(Evaluator&, std::vector<Value>&) { return Value::text(runtime_user_name()); }

enum class NameAction {
  kAbbreviate,
  kCanonicalize,
  kCommonName,
  kOrganization,
  kOrgUnit,  // with an index 0..3
  kCountry,
  kHierarchyOnly,
  kToKeyword,
  kAddress821,
  kLocalPart,
  kPhrase,
  kLabelled,  // an X.400 component by its label (G, I, S, Q, P, A)
};

struct ActionSpec {
  std::string_view keyword;  // upper case, as the lexer gives it
  NameAction action;
  int org_unit = 0;
  std::string_view label = {};
};

constexpr ActionSpec kActions[] = {
    {"ABBREVIATE", NameAction::kAbbreviate},
    {"CANONICALIZE", NameAction::kCanonicalize},
    {"CN", NameAction::kCommonName},
    {"O", NameAction::kOrganization},
    {"OU1", NameAction::kOrgUnit, 0},
    {"OU2", NameAction::kOrgUnit, 1},
    {"OU3", NameAction::kOrgUnit, 2},
    {"OU4", NameAction::kOrgUnit, 3},
    {"C", NameAction::kCountry},
    {"HIERARCHYONLY", NameAction::kHierarchyOnly},
    {"TOKEYWORD", NameAction::kToKeyword},
    {"ADDRESS821", NameAction::kAddress821},
    {"LP", NameAction::kLocalPart},
    {"PHRASE", NameAction::kPhrase},
    {"G", NameAction::kLabelled, 0, "G"},
    {"I", NameAction::kLabelled, 0, "I"},
    {"S", NameAction::kLabelled, 0, "S"},
    {"Q", NameAction::kLabelled, 0, "Q"},
    {"P", NameAction::kLabelled, 0, "P"},
    {"A", NameAction::kLabelled, 0, "A"},
};

const ActionSpec* find_action(std::string_view keyword) {
  for (const auto& spec : kActions) {
    if (spec.keyword == keyword) return &spec;
  }
  return nullptr;
}

// An address in Internet form: "Phrase <local@domain>" or "local@domain".
bool is_internet_address(const names::ParsedName& parsed) {
  return !parsed.address821.empty() && !parsed.is_hierarchical();
}

// "US\Acme\Sales" for "CN=Jane Doe/OU=Sales/O=Acme/C=US": the hierarchy
// without the CN, most general part first, for categorised views.
std::string to_keyword(const names::ParsedName& parsed) {
  if (!parsed.is_hierarchical()) return std::string();
  std::string out;
  auto add = [&out](std::string_view part) {
    if (part.empty()) return;
    if (!out.empty()) out += '\\';
    out += part;
  };
  add(parsed.c);
  add(parsed.o);
  for (auto unit = parsed.org_units.rbegin(); unit != parsed.org_units.rend(); ++unit) add(*unit);
  return out;
}

std::string apply_action(const ActionSpec& spec, const std::string& name, const std::string& user_name) {
  switch (spec.action) {
    case NameAction::kAbbreviate:
      return names::abbreviate(name);
    case NameAction::kCanonicalize:
      return names::canonicalize(name, user_name);
    default:
      break;
  }
  const names::ParsedName parsed = names::parse_name(name);
  switch (spec.action) {
    case NameAction::kCommonName:
      return std::string(parsed.cn);
    case NameAction::kOrganization:
      return std::string(parsed.o);
    case NameAction::kOrgUnit:
      return static_cast<size_t>(spec.org_unit) < parsed.org_units.size()
                 ? std::string(parsed.org_units[static_cast<size_t>(spec.org_unit)])
                 : std::string();
    case NameAction::kCountry:
      return std::string(parsed.c);
    case NameAction::kHierarchyOnly:
      return parsed.is_hierarchical() ? std::string(parsed.hierarchy) : std::string();
    case NameAction::kToKeyword:
      return to_keyword(parsed);
    case NameAction::kAddress821:
      return is_internet_address(parsed) ? std::string(parsed.address821) : std::string();
    case NameAction::kLocalPart:
      return is_internet_address(parsed) ? std::string(parsed.local_part) : std::string();
    case NameAction::kPhrase:
      return std::string(parsed.phrase);
    case NameAction::kLabelled:
      for (const auto& component : parsed.labelled) {
        if (names::is_label(component.label, spec.label)) return std::string(component.value);
      }
      return std::string();
    default:
      return std::string();
  }
}

Value fn_name(Evaluator& eval, std::vector<Value>& args) {
  if (args[0].kind != Kind::kKeyword || args[0].texts.size() != 1) return Value::failure(ERR_KEYWORD_EXPECTED);
  const ActionSpec* spec = find_action(args[0].texts[0]);
  if (spec == nullptr) return Value::failure(ERR_KEYWORD_CONTEXT);
  if (args[1].kind != Kind::kText) return Value::failure(ERR_TEXT_EXPECTED);
  const std::string user_name = spec->action == NameAction::kCanonicalize ? runtime_user_name() : std::string();
  Value out = Value::text_list({});
  out.texts.reserve(args[1].texts.size());
  for (const auto& name : args[1].texts) {
    out.texts.push_back(apply_action(*spec, name, user_name));
    eval.check_text(out.texts.back().size());
  }
  return out;
}

}  // namespace

void add_name_functions(std::vector<Builtin>& table) {
  table.push_back({"UserName", 0, 0, fn_user_name});
  table.push_back({"Name", 2, 2, fn_name});
}

}  // namespace tarnwick::rt::formula
