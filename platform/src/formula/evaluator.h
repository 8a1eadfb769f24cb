// Evaluation of a parsed formula against the items of one note.
//
// The evaluator reads and writes items only through FieldSource, so it does
// not depend on how notes are stored: the C API adapts a note handle to it,
// tests use MemoryFieldSource.
//
// Work is metered: every node, every list element and every 16 bytes of text
// produced cost a step. An evaluation that exceeds its step budget, or builds
// a list or text beyond the language's limits, stops with an error status
// instead of running away. An Evaluator is used by one thread for one
// evaluation at a time; Programs are shared read-only.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "formula/syntax.h"
#include "formula/value.h"

namespace tarnwick::rt::formula {

// The items of the note a formula runs against. Names match without case.
class FieldSource {
 public:
  virtual ~FieldSource() = default;
  // The item's value; false when the note has no item of that name.
  virtual bool get(std::string_view name, Value& out) = 0;
  virtual bool has(std::string_view name) = 0;
  // Creates or replaces the item.
  virtual STATUS set(std::string_view name, const Value& value) = 0;
  // Deletes every item of that name (none there is no error).
  virtual void remove(std::string_view name) = 0;
};

// Items held in memory, in the order they were first set.
class MemoryFieldSource : public FieldSource {
 public:
  bool get(std::string_view name, Value& out) override;
  bool has(std::string_view name) override;
  STATUS set(std::string_view name, const Value& value) override;
  void remove(std::string_view name) override;

 private:
  std::vector<std::pair<std::string, Value>> items_;
};

constexpr uint64_t kDefaultStepBudget = 2'000'000;

struct EvalResult {
  STATUS status = NOERROR;  // not NOERROR: the evaluation was stopped
  Value value;              // the formula's result (may be an error value)
  bool matches = true;      // SELECT (or the result) is true
  bool should_delete = false;
  bool modified = false;  // a FIELD assignment wrote an item
};

class Evaluator {
 public:
  explicit Evaluator(FieldSource& fields, uint64_t step_budget = kDefaultStepBudget)
      : fields_(fields), steps_left_(step_budget) {}

  EvalResult run(const Program& program);

  // ---- for the @functions ----
  Value eval(const Node& node);
  // Costs `steps` of the budget; stops the evaluation when it runs out.
  void charge(uint64_t steps);
  // Stops the evaluation with a status (limits, budget).
  [[noreturn]] void abort(STATUS status);
  // Ends the evaluation with this value as the formula's result (@Return):
  // the value to give back to the caller, which must return it at once.
  // Nothing is evaluated after it; the first value returned stays.
  Value return_with(Value value);
  // A text of that size may be built (charges it), else stops the evaluation.
  void check_text(size_t bytes);
  void check_elements(size_t count);
  // Value of a temporary variable or item; "" when neither exists.
  Value lookup(std::string_view name);
  bool is_available(std::string_view name);
  void request_delete() { should_delete_ = true; }
  FieldSource& fields() { return fields_; }

 private:
  Value eval_sequence(const Node& node);
  Value eval_list(const Node& node);
  Value eval_unary(const Node& node);
  Value eval_binary(const Node& node);
  Value eval_assignment(const Node& node);
  Value* find_variable(std::string_view name);
  void set_variable(std::string_view name, Value value);

  FieldSource& fields_;
  uint64_t steps_left_;
  std::vector<std::pair<std::string, Value>> variables_;
  bool selected_ = false;
  bool select_value_ = true;
  bool should_delete_ = false;
  bool modified_ = false;
  bool returning_ = false;  // return_with() was called: returned_ is the result
  Value returned_;
};

// Truth of a condition: a number list with any non-zero element. Texts and
// times are not conditions (nullopt-like false with ok = false).
bool condition_value(const Value& value, bool& ok);

// Operators on values with the language's list rules (pairwise: the shorter
// list repeats its last element; permuted: every element with every other).
Value apply_binary(Evaluator& eval, Op op, bool permuted, const Value& a, const Value& b);

// Time arithmetic used by operators and @functions: seconds between two
// times, and a time moved by seconds (date-only values move by whole days).
double seconds_between(const TIMEDATE& a, const TIMEDATE& b);
TIMEDATE add_seconds(const TIMEDATE& t, double seconds);
int compare_times(const TIMEDATE& a, const TIMEDATE& b);

}  // namespace tarnwick::rt::formula
