// The tree-walking evaluator: statements, names, lists and operators.
#include "formula/evaluator.h"

#include <algorithm>
#include <cmath>

#include "formula/functions.h"
#include "formula/time_support.h"
#include "globerr.h"
#include "ostime.h"

namespace tarnwick::rt::formula {
namespace {

// Stops a runaway evaluation from any depth; caught in Evaluator::run only.
struct EvalAbort {
  STATUS status;
};

std::string fold_name(std::string_view name) { return to_lower(name); }

}  // namespace

// ---------------------------------------------------------------- fields

bool MemoryFieldSource::get(std::string_view name, Value& out) {
  for (auto& [item_name, value] : items_) {
    if (equal_ignoring_case(item_name, name)) {
      out = value;
      return true;
    }
  }
  return false;
}

bool MemoryFieldSource::has(std::string_view name) {
  return std::any_of(items_.begin(), items_.end(), [&](const auto& item) { return equal_ignoring_case(item.first, name); });
}

STATUS MemoryFieldSource::set(std::string_view name, const Value& value) {
  for (auto& [item_name, item_value] : items_) {
    if (equal_ignoring_case(item_name, name)) {
      item_value = value;
      return NOERROR;
    }
  }
  items_.emplace_back(std::string(name), value);
  return NOERROR;
}

void MemoryFieldSource::remove(std::string_view name) {
  std::erase_if(items_, [&](const auto& item) { return equal_ignoring_case(item.first, name); });
}

// ---------------------------------------------------------------- control

void Evaluator::charge(uint64_t steps) {
  if (steps > steps_left_) abort(ERR_COMPUTE_TIMEOUT);
  steps_left_ -= steps;
}

void Evaluator::abort(STATUS status) { throw EvalAbort{status}; }

// The formula's result is kept aside; what travels up is an error value, which
// every caller passes on at once, and eval() evaluates nothing more.
Value Evaluator::return_with(Value value) {
  if (!returning_) {
    returned_ = std::move(value);
    returning_ = true;
  }
  return Value::failure(ERR_FORMULA_GENERATED);
}

void Evaluator::check_text(size_t bytes) {
  if (bytes > kMaxTextBytes) abort(ERR_STRING_TOO_LONG);
  charge(bytes / 16);
}

void Evaluator::check_elements(size_t count) {
  if (count > kMaxListElements) abort(ERR_TOO_MANY_ELEMENTS);
  charge(count);
}

EvalResult Evaluator::run(const Program& program) {
  const SettingsHold settings;
  EvalResult result;
  try {
    result.value = eval(*program.root);
    if (returning_) result.value = std::move(returned_);
  } catch (const EvalAbort& a) {
    result.status = a.status;
    result.value = Value::failure(a.status);
  }
  if (selected_) {
    result.matches = select_value_;
  } else {
    bool ok = false;
    const bool truth = condition_value(result.value, ok);
    result.matches = ok ? truth : !result.value.is_error();
  }
  result.should_delete = should_delete_ || result.value.kind == Kind::kUnavailable;
  result.modified = modified_;
  return result;
}

// ---------------------------------------------------------------- names

Value* Evaluator::find_variable(std::string_view name) {
  for (auto& [variable, value] : variables_) {
    if (equal_ignoring_case(variable, name)) return &value;
  }
  return nullptr;
}

void Evaluator::set_variable(std::string_view name, Value value) {
  if (Value* existing = find_variable(name)) {
    *existing = std::move(value);
    return;
  }
  variables_.emplace_back(fold_name(name), std::move(value));
}

Value Evaluator::lookup(std::string_view name) {
  if (Value* variable = find_variable(name)) return *variable;
  Value value;
  if (fields_.get(name, value)) return value;
  return Value::text("");
}

bool Evaluator::is_available(std::string_view name) { return find_variable(name) != nullptr || fields_.has(name); }

// ---------------------------------------------------------------- nodes

Value Evaluator::eval(const Node& node) {
  if (returning_) return Value::failure(ERR_FORMULA_GENERATED);
  charge(1);
  switch (node.kind) {
    case NodeKind::kText:
      return Value::text(node.text);
    case NodeKind::kNumber:
      return Value::number(node.number);
    case NodeKind::kTimeConstant: {
      TIMEDATE t;
      if (!time_from_text(node.text, t)) return Value::failure(ERR_TDO_CONV);
      return Value::time(t);
    }
    case NodeKind::kKeyword:
      return Value::keyword({node.text});
    case NodeKind::kName:
      return lookup(node.text);
    case NodeKind::kList:
      return eval_list(node);
    case NodeKind::kUnary:
      return eval_unary(node);
    case NodeKind::kBinary:
      return eval_binary(node);
    case NodeKind::kCall: {
      const Builtin& builtin = *node.builtin;
      if (builtin.lazy) return builtin.lazy(*this, node);
      std::vector<Value> args;
      args.reserve(node.children.size());
      for (const auto& child : node.children) {
        args.push_back(eval(*child));
        if (args.back().is_error() && !builtin.sees_errors) return std::move(args.back());
      }
      if (returning_) return Value::failure(ERR_FORMULA_GENERATED);  // an argument returned
      return builtin.eager(*this, args);
    }
    case NodeKind::kAssignTemp:
    case NodeKind::kAssignField:
    case NodeKind::kAssignDefault:
      return eval_assignment(node);
    case NodeKind::kSelect: {
      Value value = eval(*node.children[0]);
      if (value.is_error()) return return_with(std::move(value));
      bool ok = false;
      select_value_ = condition_value(value, ok) && ok;
      selected_ = true;
      return value;
    }
    case NodeKind::kSequence:
      return eval_sequence(node);
  }
  return Value::failure(ERR_OP_INVALID);
}

// Statements run in order; the last one's value is the result. An error
// value reaching the statement level ends the formula with that error.
Value Evaluator::eval_sequence(const Node& node) {
  Value last = Value::text("");
  for (const auto& statement : node.children) {
    last = eval(*statement);
    if (last.is_error()) return return_with(std::move(last));
  }
  return last;
}

Value Evaluator::eval_assignment(const Node& node) {
  if (node.kind == NodeKind::kAssignDefault && fields_.has(node.text)) {
    return lookup(node.text);
  }
  Value value = eval(*node.children[0]);
  if (value.is_error()) return return_with(std::move(value));
  if (value.kind == Kind::kKeyword) return return_with(Value::failure(ERR_KEYWORD_CONTEXT));
  if (node.kind == NodeKind::kAssignField) {
    // FIELD x := @DeleteField (or @Unavailable) removes the item.
    if (value.kind == Kind::kUnavailable) {
      fields_.remove(node.text);
    } else if (STATUS error = fields_.set(node.text, value)) {
      abort(error);
    }
    modified_ = true;
    // The item now holds the value: a variable of that name no longer hides it.
    std::erase_if(variables_, [&](const auto& v) { return equal_ignoring_case(v.first, node.text); });
    return value;
  }
  set_variable(node.text, value);
  return value;
}

Value Evaluator::eval_list(const Node& node) {
  Value list;
  bool kind_known = false;
  for (const auto& child : node.children) {
    Value part = eval(*child);
    if (part.is_error()) return part;
    if (part.kind == Kind::kUnavailable) return Value::failure(ERR_INVALID_TYPE_FOR_OP);
    if (part.size() == 0) continue;  // @Nothing joins with anything
    if (!kind_known) {
      list.kind = part.kind;
      kind_known = true;
    } else if (part.kind != list.kind) {
      return Value::failure(ERR_INVALID_TYPE_FOR_OP);
    }
    check_elements(list.size() + part.size());
    switch (part.kind) {
      case Kind::kText:
      case Kind::kKeyword:
        for (auto& t : part.texts) list.texts.push_back(std::move(t));
        break;
      case Kind::kNumber:
        list.numbers.insert(list.numbers.end(), part.numbers.begin(), part.numbers.end());
        break;
      case Kind::kTime:
        list.times.insert(list.times.end(), part.times.begin(), part.times.end());
        break;
      default:
        break;
    }
  }
  return list;
}

Value Evaluator::eval_unary(const Node& node) {
  Value operand = eval(*node.children[0]);
  if (operand.is_error()) return operand;
  switch (node.op) {
    case Op::kNot: {
      bool ok = false;
      const bool truth = condition_value(operand, ok);
      if (!ok) return Value::failure(ERR_NUMBER_EXPECTED);
      return Value::boolean(!truth);
    }
    case Op::kNegate:
    case Op::kPlus:
      if (operand.kind != Kind::kNumber) return Value::failure(ERR_NUMBER_EXPECTED);
      if (node.op == Op::kNegate) {
        for (double& n : operand.numbers) n = -n;
      }
      return operand;
    default:
      return Value::failure(ERR_NOT_UNARY);
  }
}

Value Evaluator::eval_binary(const Node& node) {
  if (node.op == Op::kAnd || node.op == Op::kOr) {
    Value left = eval(*node.children[0]);
    if (left.is_error()) return left;
    bool ok = false;
    const bool l = condition_value(left, ok);
    if (!ok) return Value::failure(ERR_NUMBER_EXPECTED);
    // The right side decides only when the left one does not.
    if (node.op == Op::kAnd && !l) return Value::boolean(false);
    if (node.op == Op::kOr && l) return Value::boolean(true);
    Value right = eval(*node.children[1]);
    if (right.is_error()) return right;
    const bool r = condition_value(right, ok);
    if (!ok) return Value::failure(ERR_NUMBER_EXPECTED);
    return Value::boolean(r);
  }
  Value left = eval(*node.children[0]);
  if (left.is_error()) return left;
  Value right = eval(*node.children[1]);
  return apply_binary(*this, node.op, node.permuted, left, right);
}

// ---------------------------------------------------------------- operators

bool condition_value(const Value& value, bool& ok) {
  ok = value.kind == Kind::kNumber;
  if (!ok) return false;
  return std::any_of(value.numbers.begin(), value.numbers.end(), [](double n) { return n != 0; });
}

double seconds_between(const TIMEDATE& a, const TIMEDATE& b) {
  auto seconds_of = [](const TIMEDATE& t) -> double {
    const double days = t.Innards[1] == ANYDAY ? 0 : double(t.Innards[1] & TIMEDATE_JULIAN_MASK);
    const double ticks = t.Innards[0] == ALLDAY ? 0 : double(t.Innards[0]);
    return days * 86400.0 + ticks / TICKS_IN_SECOND;
  };
  return seconds_of(a) - seconds_of(b);
}

TIMEDATE add_seconds(const TIMEDATE& t, double seconds) {
  // Further than any two dates a TIMEDATE holds lie apart: past it every
  // result wraps the same way, and the arithmetic below stays defined for
  // any number a formula gives (not a number adds nothing).
  constexpr double kMostSeconds = double(TIMEDATE_JULIAN_MASK + 1.0) * 86400.0 * 2;
  seconds = std::isnan(seconds) ? 0 : std::clamp(seconds, -kMostSeconds, kMostSeconds);
  TIMEDATE out = t;
  if (t.Innards[0] == ALLDAY) {
    const int64_t days = static_cast<int64_t>(std::floor(seconds / 86400.0));
    out.Innards[1] = (t.Innards[1] & ~TIMEDATE_JULIAN_MASK) |
                     (static_cast<DWORD>(int64_t(t.Innards[1] & TIMEDATE_JULIAN_MASK) + days) & TIMEDATE_JULIAN_MASK);
    return out;
  }
  const int64_t ticks = int64_t(t.Innards[0]) + static_cast<int64_t>(std::llround(seconds * TICKS_IN_SECOND));
  int64_t days = ticks >= 0 ? ticks / TICKS_IN_DAY : (ticks - TICKS_IN_DAY + 1) / TICKS_IN_DAY;
  out.Innards[0] = static_cast<DWORD>(ticks - days * TICKS_IN_DAY);
  if (t.Innards[1] != ANYDAY) {
    out.Innards[1] = (t.Innards[1] & ~TIMEDATE_JULIAN_MASK) |
                     (static_cast<DWORD>(int64_t(t.Innards[1] & TIMEDATE_JULIAN_MASK) + days) & TIMEDATE_JULIAN_MASK);
  }
  return out;
}

// Wildcard parts match anything: a date-only value equals every time of
// that day's date number; a time-only value every day.
int compare_times(const TIMEDATE& a, const TIMEDATE& b) {
  const bool any_day = a.Innards[1] == ANYDAY || b.Innards[1] == ANYDAY;
  const bool all_day = a.Innards[0] == ALLDAY || b.Innards[0] == ALLDAY;
  if (!any_day) {
    const DWORD da = a.Innards[1] & TIMEDATE_JULIAN_MASK, db = b.Innards[1] & TIMEDATE_JULIAN_MASK;
    if (da != db) return da < db ? -1 : 1;
  }
  if (!all_day && a.Innards[0] != b.Innards[0]) return a.Innards[0] < b.Innards[0] ? -1 : 1;
  return 0;
}

namespace {

template <class A, class B, class F>
void for_each_pair(Evaluator& eval, const std::vector<A>& a, const std::vector<B>& b, bool permuted, F&& f) {
  if (a.empty() || b.empty()) return;
  if (permuted) {
    eval.check_elements(a.size() * b.size());
    for (const auto& x : a)
      for (const auto& y : b) f(x, y);
    return;
  }
  const size_t n = std::max(a.size(), b.size());
  eval.charge(n);
  for (size_t i = 0; i < n; ++i) f(a[std::min(i, a.size() - 1)], b[std::min(i, b.size() - 1)]);
}

bool compare_outcome(Op op, int order) {
  switch (op) {
    case Op::kEqual: return order == 0;
    case Op::kNotEqual: return order != 0;
    case Op::kLess: return order < 0;
    case Op::kGreater: return order > 0;
    case Op::kLessEqual: return order <= 0;
    case Op::kGreaterEqual: return order >= 0;
    default: return false;
  }
}

bool is_comparison(Op op) {
  return op == Op::kEqual || op == Op::kNotEqual || op == Op::kLess || op == Op::kGreater || op == Op::kLessEqual ||
         op == Op::kGreaterEqual;
}

// A comparison is true when any compared pair satisfies it. Texts compare
// without regard to case.
Value compare_values(Evaluator& eval, Op op, bool permuted, const Value& a, const Value& b) {
  if (a.kind != b.kind) return Value::failure(ERR_BINOP_TYPES);
  bool any = false;
  switch (a.kind) {
    case Kind::kText:
      for_each_pair(eval, a.texts, b.texts, permuted,
                    [&](const std::string& x, const std::string& y) { any |= compare_outcome(op, collate(x, y, false)); });
      break;
    case Kind::kNumber:
      for_each_pair(eval, a.numbers, b.numbers, permuted, [&](double x, double y) {
        any |= compare_outcome(op, x < y ? -1 : x > y ? 1 : 0);
      });
      break;
    case Kind::kTime:
      for_each_pair(eval, a.times, b.times, permuted,
                    [&](const TIMEDATE& x, const TIMEDATE& y) { any |= compare_outcome(op, compare_times(x, y)); });
      break;
    default:
      return Value::failure(ERR_BINOP_TYPES);
  }
  return Value::boolean(any);
}

Value arithmetic(Evaluator& eval, Op op, bool permuted, const Value& a, const Value& b) {
  if (a.kind == Kind::kText && b.kind == Kind::kText) {
    if (op != Op::kAdd) return Value::failure(ERR_NUMBER_EXPECTED);
    Value out = Value::text_list({});
    for_each_pair(eval, a.texts, b.texts, permuted, [&](const std::string& x, const std::string& y) {
      eval.check_text(x.size() + y.size());
      out.texts.push_back(x + y);
    });
    return out;
  }
  if (a.kind == Kind::kNumber && b.kind == Kind::kNumber) {
    Value out = Value::number_list({});
    bool divided_by_zero = false;
    for_each_pair(eval, a.numbers, b.numbers, permuted, [&](double x, double y) {
      switch (op) {
        case Op::kAdd: out.numbers.push_back(x + y); break;
        case Op::kSubtract: out.numbers.push_back(x - y); break;
        case Op::kMultiply: out.numbers.push_back(x * y); break;
        default:
          if (y == 0) divided_by_zero = true;
          out.numbers.push_back(y == 0 ? 0 : x / y);
      }
    });
    // Division by zero has no number; the platform reports a bad operand.
    if (divided_by_zero) return Value::failure(ERR_INVALID_TYPE_FOR_OP);
    return out;
  }
  if (a.kind == Kind::kTime && b.kind == Kind::kTime && op == Op::kSubtract) {
    Value out = Value::number_list({});
    for_each_pair(eval, a.times, b.times, permuted,
                  [&](const TIMEDATE& x, const TIMEDATE& y) { out.numbers.push_back(seconds_between(x, y)); });
    return out;
  }
  if (a.kind == Kind::kTime && b.kind == Kind::kNumber && (op == Op::kAdd || op == Op::kSubtract)) {
    Value out = Value::time_list({});
    for_each_pair(eval, a.times, b.numbers, permuted, [&](const TIMEDATE& x, double y) {
      out.times.push_back(add_seconds(x, op == Op::kAdd ? y : -y));
    });
    return out;
  }
  if (a.kind == Kind::kNumber && b.kind == Kind::kTime && op == Op::kAdd) {
    Value out = Value::time_list({});
    for_each_pair(eval, a.numbers, b.times, permuted,
                  [&](double x, const TIMEDATE& y) { out.times.push_back(add_seconds(y, x)); });
    return out;
  }
  if (a.kind == Kind::kText || b.kind == Kind::kText) return Value::failure(ERR_TEXT_EXPECTED);
  return Value::failure(ERR_INVALID_TYPE_FOR_OP);
}

}  // namespace

Value apply_binary(Evaluator& eval, Op op, bool permuted, const Value& a, const Value& b) {
  if (a.is_error()) return a;
  if (b.is_error()) return b;
  if (a.kind == Kind::kUnavailable || b.kind == Kind::kUnavailable || a.kind == Kind::kKeyword ||
      b.kind == Kind::kKeyword)
    return Value::failure(ERR_INVALID_TYPE_FOR_OP);
  if (is_comparison(op)) return compare_values(eval, op, permuted, a, b);
  return arithmetic(eval, op, permuted, a, b);
}

}  // namespace tarnwick::rt::formula
