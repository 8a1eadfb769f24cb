// Number @functions: @Sum, @Min, @Max, @Abs, @Round, @Integer, @Modulo.
#include <algorithm>
#include <cmath>

#include "formula/evaluator.h"
#include "formula/functions.h"
#include "globerr.h"

namespace tarnwick::rt::formula {
namespace {

bool all_numbers(const std::vector<Value>& args) {
  return std::all_of(args.begin(), args.end(), [](const Value& v) { return v.kind == Kind::kNumber; });
}

Value map_numbers(const Value& v, double (*f)(double)) {
  if (v.kind != Kind::kNumber) return Value::failure(ERR_NUMBER_EXPECTED);
  Value out = v;
  for (double& n : out.numbers) n = f(n);
  return out;
}

Value fn_sum(Evaluator&, std::vector<Value>& args) {
  if (!all_numbers(args)) return Value::failure(ERR_NUMBER_EXPECTED);
  double sum = 0;
  for (const auto& v : args)
    for (double n : v.numbers) sum += n;
  return Value::number(sum);
}

// One list: its extreme element. Two lists: pairwise extremes. More: the
// extreme of everything.
Value extreme(Evaluator& eval, std::vector<Value>& args, bool want_max) {
  if (!all_numbers(args)) return Value::failure(ERR_NUMBER_EXPECTED);
  auto pick = [want_max](double a, double b) { return want_max ? std::max(a, b) : std::min(a, b); };
  if (args.size() == 2) {
    const auto& a = args[0].numbers;
    const auto& b = args[1].numbers;
    if (a.empty() || b.empty()) return Value::number_list({});
    const size_t n = std::max(a.size(), b.size());
    eval.charge(n);
    Value out = Value::number_list({});
    for (size_t i = 0; i < n; ++i) out.numbers.push_back(pick(a[std::min(i, a.size() - 1)], b[std::min(i, b.size() - 1)]));
    return out;
  }
  bool any = false;
  double best = 0;
  for (const auto& v : args) {
    for (double n : v.numbers) {
      best = any ? pick(best, n) : n;
      any = true;
    }
  }
  return any ? Value::number(best) : Value::number_list({});
}
Value fn_min(Evaluator& eval, std::vector<Value>& args) { return extreme(eval, args, false); }
Value fn_max(Evaluator& eval, std::vector<Value>& args) { return extreme(eval, args, true); }

Value fn_abs(Evaluator&, std::vector<Value>& args) { return map_numbers(args[0], [](double n) { return std::fabs(n); }); }
Value fn_integer(Evaluator&, std::vector<Value>& args) {
  return map_numbers(args[0], [](double n) { return std::trunc(n); });
}

// @Round(n) to a whole number (halves away from zero); @Round(n; factor) to
// the nearest multiple of factor.
Value fn_round(Evaluator&, std::vector<Value>& args) {
  double factor = 1;
  if (args.size() == 2 && (!first_number(args[1], factor) || factor == 0)) return Value::failure(ERR_NUMBER_EXPECTED);
  if (args[0].kind != Kind::kNumber) return Value::failure(ERR_NUMBER_EXPECTED);
  Value out = args[0];
  for (double& n : out.numbers) n = std::round(n / factor) * factor;
  return out;
}

// Remainder with the sign of the dividend, pairwise over lists.
Value fn_modulo(Evaluator& eval, std::vector<Value>& args) {
  if (!all_numbers(args)) return Value::failure(ERR_NUMBER_EXPECTED);
  const auto& a = args[0].numbers;
  const auto& b = args[1].numbers;
  if (a.empty() || b.empty()) return Value::number_list({});
  const size_t n = std::max(a.size(), b.size());
  eval.charge(n);
  Value out = Value::number_list({});
  for (size_t i = 0; i < n; ++i) {
    const double divisor = b[std::min(i, b.size() - 1)];
    if (divisor == 0) return Value::failure(ERR_INVALID_TYPE_FOR_OP);
    out.numbers.push_back(std::fmod(a[std::min(i, a.size() - 1)], divisor));
  }
  return out;
}

}  // namespace

void add_number_functions(std::vector<Builtin>& table) {
  table.push_back({"Sum", 1, -1, fn_sum});
  table.push_back({"Min", 1, -1, fn_min});
  table.push_back({"Max", 1, -1, fn_max});
  table.push_back({"Abs", 1, 1, fn_abs});
  table.push_back({"Integer", 1, 1, fn_integer});
  table.push_back({"Round", 1, 2, fn_round});
  table.push_back({"Modulo", 2, 2, fn_modulo});
}

}  // namespace tarnwick::rt::formula
