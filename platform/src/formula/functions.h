// The table of @functions. Each entry says how many arguments the function
// takes and how it is evaluated: most take their arguments' values; a few
// (@If, @Do, @IsAvailable ...) receive the argument trees and decide what to
// evaluate. The parser checks names and argument counts against this table.
#pragma once

#include <string_view>
#include <vector>

#include "formula/value.h"

namespace tarnwick::rt::formula {

class Evaluator;
struct Node;

using EagerFunction = Value (*)(Evaluator& eval, std::vector<Value>& args);
using LazyFunction = Value (*)(Evaluator& eval, const Node& call);

struct Builtin {
  std::string_view name;  // without '@', as the platform spells it
  int min_args;
  int max_args;  // -1: any number
  EagerFunction eager = nullptr;
  LazyFunction lazy = nullptr;
  bool sees_errors = false;  // receives error arguments instead of passing them on
};

// The function of that name (without '@', any case), or nullptr.
const Builtin* find_builtin(std::string_view name);

// Each family registers its entries through one of these (functions_*.cpp).
void add_logic_functions(std::vector<Builtin>& table);
void add_text_functions(std::vector<Builtin>& table);
void add_list_functions(std::vector<Builtin>& table);
void add_number_functions(std::vector<Builtin>& table);
void add_time_functions(std::vector<Builtin>& table);
void add_name_functions(std::vector<Builtin>& table);

// Shared argument helpers: the first element as a number or text; false
// when the value has none of that kind.
bool first_number(const Value& value, double& out);
bool first_text(const Value& value, std::string& out);

}  // namespace tarnwick::rt::formula
