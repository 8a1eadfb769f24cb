// The @function registry: every family adds its entries once, lookups go
// through a map keyed by the lower-case name.
#include "formula/functions.h"

#include <string>
#include <unordered_map>

namespace tarnwick::rt::formula {
namespace {

struct Registry {
  std::vector<Builtin> table;
  std::unordered_map<std::string, size_t> by_name;

  Registry() {
    add_logic_functions(table);
    add_text_functions(table);
    add_list_functions(table);
    add_number_functions(table);
    add_time_functions(table);
    add_name_functions(table);
    for (size_t i = 0; i < table.size(); ++i) by_name.emplace(to_lower(table[i].name), i);
  }
};

const Registry& registry() {
  static const Registry instance;
  return instance;
}

}  // namespace

const Builtin* find_builtin(std::string_view name) {
  const Registry& r = registry();
  auto it = r.by_name.find(to_lower(name));
  return it == r.by_name.end() ? nullptr : &r.table[it->second];
}

bool first_number(const Value& value, double& out) {
  if (value.kind != Kind::kNumber || value.numbers.empty()) return false;
  out = value.numbers.front();
  return true;
}

bool first_text(const Value& value, std::string& out) {
  if (value.kind != Kind::kText) return false;
  out = value.texts.empty() ? std::string() : value.texts.front();
  return true;
}

}  // namespace tarnwick::rt::formula
