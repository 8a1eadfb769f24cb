// Time-date @functions: construction (@Date, @Time, @Now, @Today ...),
// @Adjust, the component functions (@Year ... @Weekday) and @TextToTime.
// Components are local time; see time_support.h.
#include <cmath>

#include "formula/evaluator.h"
#include "formula/functions.h"
#include "formula/time_support.h"
#include "globerr.h"
#include "ostime.h"

namespace tarnwick::rt::formula {
namespace {

bool whole_numbers(const std::vector<Value>& args, size_t from, size_t to, std::vector<int>& out) {
  out.clear();
  for (size_t i = from; i < to; ++i) {
    double n;
    if (!first_number(args[i], n) || !std::isfinite(n) || std::fabs(n) > 1e7) return false;
    out.push_back(static_cast<int>(std::trunc(n)));
  }
  return true;
}

// Applies f to every time of a time list.
template <class F>
Value map_times(Evaluator& eval, const Value& v, F&& f) {
  if (v.kind != Kind::kTime) return Value::failure(ERR_TIME_EXPECTED);
  eval.charge(v.times.size());
  Value out = Value::time_list({});
  for (const auto& t : v.times) {
    LocalTime local;
    TIMEDATE result;
    if (!to_local(t, local) || !f(local) || !from_local(local, result)) return Value::failure(ERR_TDO_CONV);
    out.times.push_back(result);
  }
  return out;
}

// @Date(time) / @Date(y; m; d) / @Date(y; m; d; h; mi; s): a date without
// time. Numbers that make no date give an empty text.
Value fn_date(Evaluator& eval, std::vector<Value>& args) {
  if (args.size() == 1) return map_times(eval, args[0], [](LocalTime& l) { return l.has_date && !(l.has_time = false); });
  if (args.size() != 3 && args.size() != 6) return Value::failure(ERR_DATETIME_FMT);
  std::vector<int> n;
  if (!whole_numbers(args, 0, 3, n)) return Value::failure(ERR_NUMBER_EXPECTED);
  LocalTime local;
  local.has_time = false;
  local.year = n[0];
  local.month = n[1];
  local.day = n[2];
  TIMEDATE t;
  if (!from_local(local, t)) return Value::text("");
  return Value::time(t);
}

// @Time(time) / @Time(h; m; s): a time without date; @Time(y; m; d; h; mi;
// s): date and time.
Value fn_time(Evaluator& eval, std::vector<Value>& args) {
  if (args.size() == 1) return map_times(eval, args[0], [](LocalTime& l) { return l.has_time && !(l.has_date = false); });
  if (args.size() != 3 && args.size() != 6) return Value::failure(ERR_DATETIME_FMT);
  std::vector<int> n;
  if (!whole_numbers(args, 0, args.size(), n)) return Value::failure(ERR_NUMBER_EXPECTED);
  LocalTime local;
  if (args.size() == 3) {
    local.has_date = false;
    local.hour = n[0], local.minute = n[1], local.second = n[2];
  } else {
    local.year = n[0], local.month = n[1], local.day = n[2];
    local.hour = n[3], local.minute = n[4], local.second = n[5];
  }
  TIMEDATE t;
  if (!from_local(local, t)) return Value::text("");
  return Value::time(t);
}

Value fn_now(Evaluator&, std::vector<Value>&) { return Value::time(current_time()); }
Value fn_today(Evaluator&, std::vector<Value>&) { return Value::time(local_date(0)); }
Value fn_tomorrow(Evaluator&, std::vector<Value>&) { return Value::time(local_date(1)); }
Value fn_yesterday(Evaluator&, std::vector<Value>&) { return Value::time(local_date(-1)); }

// @Adjust(time; years; months; days; hours; minutes; seconds): as
// TimeDateAdjust moves a time: hours, minutes and seconds are elapsed time,
// days, months and years move along the local calendar keeping the clock
// time (11/3 - 7 days - 1 month = 9/27; 1/31 + 1 month = the last day of
// February). Keywords ([InLocalTime], [InGMT]) are accepted and change
// nothing: calendar moves are always local.
Value fn_adjust(Evaluator& eval, std::vector<Value>& args) {
  std::vector<int> n;
  if (!whole_numbers(args, 1, 7, n)) return Value::failure(ERR_NUMBER_EXPECTED);
  for (size_t i = 7; i < args.size(); ++i) {
    if (args[i].kind != Kind::kKeyword) return Value::failure(ERR_KEYWORD_EXPECTED);
  }
  if (args[0].kind != Kind::kTime) return Value::failure(ERR_TIME_EXPECTED);
  eval.charge(args[0].times.size());
  Value out = Value::time_list({});
  for (TIMEDATE t : args[0].times) {
    if (TimeDateAdjust(&t, n[5], n[4], n[3], n[2], n[1], n[0])) return Value::failure(ERR_TDO_CONV);
    out.times.push_back(t);
  }
  return out;
}

enum class Part { kYear, kMonth, kDay, kHour, kMinute, kSecond, kWeekday };

// A component of every time; -1 where the value lacks that part.
Value component(Evaluator& eval, const Value& v, Part part) {
  if (v.kind != Kind::kTime) return Value::failure(ERR_TIME_EXPECTED);
  eval.charge(v.times.size());
  Value out = Value::number_list({});
  for (const auto& t : v.times) {
    LocalTime l;
    if (!to_local(t, l)) return Value::failure(ERR_TDO_CONV);
    int n = -1;
    switch (part) {
      case Part::kYear: n = l.has_date ? l.year : -1; break;
      case Part::kMonth: n = l.has_date ? l.month : -1; break;
      case Part::kDay: n = l.has_date ? l.day : -1; break;
      case Part::kWeekday: n = l.has_date ? l.weekday : -1; break;
      case Part::kHour: n = l.has_time ? l.hour : -1; break;
      case Part::kMinute: n = l.has_time ? l.minute : -1; break;
      case Part::kSecond: n = l.has_time ? l.second : -1; break;
    }
    out.numbers.push_back(n);
  }
  return out;
}
Value fn_year(Evaluator& e, std::vector<Value>& a) { return component(e, a[0], Part::kYear); }
Value fn_month(Evaluator& e, std::vector<Value>& a) { return component(e, a[0], Part::kMonth); }
Value fn_day(Evaluator& e, std::vector<Value>& a) { return component(e, a[0], Part::kDay); }
Value fn_hour(Evaluator& e, std::vector<Value>& a) { return component(e, a[0], Part::kHour); }
Value fn_minute(Evaluator& e, std::vector<Value>& a) { return component(e, a[0], Part::kMinute); }
Value fn_second(Evaluator& e, std::vector<Value>& a) { return component(e, a[0], Part::kSecond); }
Value fn_weekday(Evaluator& e, std::vector<Value>& a) { return component(e, a[0], Part::kWeekday); }

// @TextToTime: text read as ConvertTextToTIMEDATE reads it, with the
// international settings' date order and Today/Yesterday/Tomorrow words.
// Text that is no time gives an error.
Value fn_text_to_time(Evaluator& eval, std::vector<Value>& args) {
  if (args[0].kind == Kind::kTime) return args[0];
  if (args[0].kind != Kind::kText) return Value::failure(ERR_TEXT_EXPECTED);
  eval.charge(args[0].texts.size());
  Value out = Value::time_list({});
  for (const auto& text : args[0].texts) {
    TIMEDATE t;
    if (text.size() > 256 || !time_from_text(text, t)) return Value::failure(ERR_TOTIME);
    out.times.push_back(t);
  }
  return out;
}

}  // namespace

void add_time_functions(std::vector<Builtin>& table) {
  table.push_back({"Date", 1, 6, fn_date});
  table.push_back({"Time", 1, 6, fn_time});
  table.push_back({"Now", 0, 0, fn_now});
  table.push_back({"Today", 0, 0, fn_today});
  table.push_back({"Tomorrow", 0, 0, fn_tomorrow});
  table.push_back({"Yesterday", 0, 0, fn_yesterday});
  table.push_back({"Adjust", 7, 9, fn_adjust});
  table.push_back({"Year", 1, 1, fn_year});
  table.push_back({"Month", 1, 1, fn_month});
  table.push_back({"Day", 1, 1, fn_day});
  table.push_back({"Hour", 1, 1, fn_hour});
  table.push_back({"Minute", 1, 1, fn_minute});
  table.push_back({"Second", 1, 1, fn_second});
  table.push_back({"Weekday", 1, 1, fn_weekday});
  table.push_back({"TextToTime", 1, 1, fn_text_to_time});
}

}  // namespace tarnwick::rt::formula
