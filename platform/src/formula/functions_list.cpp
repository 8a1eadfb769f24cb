// List @functions: @Elements, @Subset, @Member, @IsMember, @IsNotMember,
// @Unique, @Sort, @Replace.
#include <algorithm>
#include <cmath>

#include "formula/evaluator.h"
#include "formula/functions.h"
#include "globerr.h"

namespace tarnwick::rt::formula {
namespace {

Value fn_elements(Evaluator&, std::vector<Value>& args) {
  const Value& v = args[0];
  if (v.kind == Kind::kText && v.is_null()) return Value::number(0);
  return Value::number(static_cast<double>(v.size()));
}

template <class T>
std::vector<T> subset_of(const std::vector<T>& list, long count) {
  const size_t n = std::min<size_t>(static_cast<size_t>(std::labs(count)), list.size());
  if (count > 0) return std::vector<T>(list.begin(), list.begin() + static_cast<long>(n));
  return std::vector<T>(list.end() - static_cast<long>(n), list.end());
}

// First n elements (n > 0) or last -n elements (n < 0).
Value fn_subset(Evaluator&, std::vector<Value>& args) {
  double count;
  if (!first_number(args[1], count)) return Value::failure(ERR_NUMBER_EXPECTED);
  const long n = static_cast<long>(std::clamp(std::trunc(count), -1e9, 1e9));
  if (n == 0) return Value::failure(ERR_SUBSET);
  Value out;
  out.kind = args[0].kind;
  switch (args[0].kind) {
    case Kind::kText: out.texts = subset_of(args[0].texts, n); break;
    case Kind::kNumber: out.numbers = subset_of(args[0].numbers, n); break;
    case Kind::kTime: out.times = subset_of(args[0].times, n); break;
    default: return Value::failure(ERR_INVALID_TYPE_FOR_OP);
  }
  return out;
}

// Index (from 0) of the first element equal to element `index` of `needle`,
// or -1. Texts compare exactly (with case).
long position_in(const Value& haystack, const Value& needle, size_t index) {
  switch (haystack.kind) {
    case Kind::kText:
      for (size_t i = 0; i < haystack.texts.size(); ++i)
        if (haystack.texts[i] == needle.texts[index]) return static_cast<long>(i);
      return -1;
    case Kind::kNumber:
      for (size_t i = 0; i < haystack.numbers.size(); ++i)
        if (haystack.numbers[i] == needle.numbers[index]) return static_cast<long>(i);
      return -1;
    case Kind::kTime:
      for (size_t i = 0; i < haystack.times.size(); ++i)
        if (compare_times(haystack.times[i], needle.times[index]) == 0) return static_cast<long>(i);
      return -1;
    default:
      return -1;
  }
}

Value fn_member(Evaluator& eval, std::vector<Value>& args) {
  if (args[0].kind != args[1].kind || args[0].size() == 0) return Value::number(0);
  eval.charge(args[1].size());
  return Value::number(static_cast<double>(position_in(args[1], args[0], 0) + 1));
}

// Every element of the first list is (IsMember) / none is (IsNotMember) in
// the second.
Value membership(Evaluator& eval, std::vector<Value>& args, bool want_member) {
  if (args[0].kind != args[1].kind) return Value::boolean(!want_member);
  eval.charge(args[0].size() * (args[1].size() + 1));
  for (size_t i = 0; i < args[0].size(); ++i) {
    const bool found = position_in(args[1], args[0], i) >= 0;
    if (found != want_member) return Value::boolean(false);
  }
  return Value::boolean(true);
}
Value fn_is_member(Evaluator& eval, std::vector<Value>& args) { return membership(eval, args, true); }
Value fn_is_not_member(Evaluator& eval, std::vector<Value>& args) { return membership(eval, args, false); }

Value fn_unique(Evaluator& eval, std::vector<Value>& args) {
  const Value& in = args[0];
  eval.charge(in.size() * in.size() / 16 + in.size());
  Value out;
  out.kind = in.kind;
  for (size_t i = 0; i < in.size(); ++i) {
    if (position_in(in, in, i) != static_cast<long>(i)) continue;
    switch (in.kind) {
      case Kind::kText: out.texts.push_back(in.texts[i]); break;
      case Kind::kNumber: out.numbers.push_back(in.numbers[i]); break;
      case Kind::kTime: out.times.push_back(in.times[i]); break;
      default: break;
    }
  }
  return out;
}

// @Sort(list [; keywords]): ascending and case-sensitive unless
// [DESCENDING] / [CASEINSENSITIVE] say otherwise.
Value fn_sort(Evaluator& eval, std::vector<Value>& args) {
  bool descending = false;
  bool case_sensitive = true;
  if (args.size() == 2) {
    if (args[1].kind != Kind::kKeyword) return Value::failure(ERR_KEYWORD_EXPECTED);
    for (const auto& keyword : args[1].texts) {
      if (keyword == "DESCENDING") descending = true;
      else if (keyword == "ASCENDING") descending = false;
      else if (keyword == "CASEINSENSITIVE") case_sensitive = false;
      else if (keyword == "CASESENSITIVE") case_sensitive = true;
      else if (keyword != "ACCENTSENSITIVE" && keyword != "ACCENTINSENSITIVE" && keyword != "PITCHSENSITIVE" &&
               keyword != "PITCHINSENSITIVE")
        return Value::failure(ERR_KEYWORD_CONTEXT);
    }
  }
  Value out = args[0];
  eval.charge(out.size() * 8);
  switch (out.kind) {
    case Kind::kText:
      std::stable_sort(out.texts.begin(), out.texts.end(), [&](const std::string& a, const std::string& b) {
        const int order = collate(a, b, case_sensitive);
        return descending ? order > 0 : order < 0;
      });
      break;
    case Kind::kNumber:
      std::stable_sort(out.numbers.begin(), out.numbers.end(),
                       [&](double a, double b) { return descending ? a > b : a < b; });
      break;
    case Kind::kTime:
      std::stable_sort(out.times.begin(), out.times.end(), [&](const TIMEDATE& a, const TIMEDATE& b) {
        const int order = compare_times(a, b);
        return descending ? order > 0 : order < 0;
      });
      break;
    default:
      return Value::failure(ERR_INVALID_TYPE_FOR_OP);
  }
  return out;
}

// @Replace(list; from; to): elements equal to from[i] become to[i] ("" when
// `to` is shorter).
Value fn_replace(Evaluator& eval, std::vector<Value>& args) {
  const Value& source = args[0];
  const Value& from = args[1];
  const Value& to = args[2];
  if (source.kind != from.kind || (to.kind != source.kind && !(to.kind == Kind::kText && to.is_null())))
    return Value::failure(ERR_INVALID_TYPE_FOR_OP);
  eval.charge(source.size() * (from.size() + 1));
  Value out = source;
  for (size_t i = 0; i < source.size(); ++i) {
    const long at = position_in(from, source, i);
    if (at < 0) continue;
    const size_t k = static_cast<size_t>(at);
    switch (source.kind) {
      case Kind::kText: out.texts[i] = k < to.texts.size() ? to.texts[k] : std::string(); break;
      case Kind::kNumber:
        if (k < to.numbers.size()) out.numbers[i] = to.numbers[k];
        break;
      case Kind::kTime:
        if (k < to.times.size()) out.times[i] = to.times[k];
        break;
      default: break;
    }
  }
  return out;
}

}  // namespace

void add_list_functions(std::vector<Builtin>& table) {
  table.push_back({"Elements", 1, 1, fn_elements});
  table.push_back({"Subset", 2, 2, fn_subset});
  table.push_back({"Member", 2, 2, fn_member});
  table.push_back({"IsMember", 2, 2, fn_is_member});
  table.push_back({"IsNotMember", 2, 2, fn_is_not_member});
  table.push_back({"Unique", 1, 1, fn_unique});
  table.push_back({"Sort", 1, 2, fn_sort});
  table.push_back({"Replace", 3, 3, fn_replace});
}

}  // namespace tarnwick::rt::formula
