#include "time/time_text.h"

#include <algorithm>
#include <cctype>
#include <cstddef>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <optional>

#include "core/api_guard.h"
#include "globerr.h"
#include "time/intl_settings.h"
#include "time/timedate.h"
#include "time/zone_rules.h"

namespace tarnwick::rt {
namespace {

constexpr int kHour = 3600;

bool valid_format(const TFMT& f) {
  return f.Date <= TDFMT_DPARTIAL4 && f.Time <= TTFMT_FULL_MAX && f.Zone <= TZFMT_ALWAYS && f.Structure <= TSFMT_CDATE;
}

std::string_view field(const char* text, size_t capacity) { return {text, strnlen(text, capacity)}; }

enum class DateOrder { kMDY, kDMY, kYMD };
DateOrder date_order(const INTLFORMAT& intl) {
  if (intl.Flags & DATE_YMD) return DateOrder::kYMD;
  if (intl.Flags & DATE_DMY) return DateOrder::kDMY;
  return DateOrder::kMDY;
}

std::string two_digits(int n) {
  char text[16];
  std::snprintf(text, sizeof text, "%02d", n);
  return text;
}

// ---- zone names -----------------------------------------------------------

struct NamedZone {
  const char* standard;
  const char* daylight;
  int offset;  // standard offset, seconds east
};
constexpr NamedZone kNamedZones[] = {
    {"GMT", "BST", 0},           {"CET", "CEST", kHour},       {"EET", "EEST", 2 * kHour},
    {"AST", "ADT", -4 * kHour},  {"EST", "EDT", -5 * kHour},   {"CST", "CDT", -6 * kHour},
    {"MST", "MDT", -7 * kHour},  {"PST", "PDT", -8 * kHour},   {"NST", "NDT", -(3 * kHour + 1800)},
    {"JST", nullptr, 9 * kHour}, {"AEST", "AEDT", 10 * kHour},
};

// "ZE5B": Z, E(ast) or W(est), hours, A/B/C for 15/30/45 minutes; "DT" while
// daylight saving is in effect.
std::string generic_zone_name(int standard_offset, bool in_dst) {
  const int magnitude = std::abs(standard_offset);
  std::string name = standard_offset >= 0 ? "ZE" : "ZW";
  name += std::to_string(magnitude / kHour);
  const int quarters = (magnitude % kHour) / 900;
  if (quarters > 0) name += static_cast<char>('A' + quarters - 1);
  if (in_dst) name += "DT";
  return name;
}

std::string zone_name(int standard_offset, bool in_dst) {
  for (const auto& z : kNamedZones) {
    if (z.offset == standard_offset && (!in_dst || z.daylight != nullptr)) return in_dst ? z.daylight : z.standard;
  }
  return generic_zone_name(standard_offset, in_dst);
}

struct ZoneLabel {
  int standard_offset;
  bool observes_dst;
  int offset_in_effect;
};

bool equals_ignoring_case(std::string_view a, std::string_view b) {
  return a.size() == b.size() && std::equal(a.begin(), a.end(), b.begin(), [](char x, char y) {
           return std::tolower(static_cast<unsigned char>(x)) == std::tolower(static_cast<unsigned char>(y));
         });
}

std::optional<ZoneLabel> zone_from_name(std::string_view name) {
  for (const char* gmt : {"UTC", "UT", "Z"}) {
    if (equals_ignoring_case(name, gmt)) return ZoneLabel{0, false, 0};
  }
  for (const auto& z : kNamedZones) {
    if (equals_ignoring_case(name, z.standard)) return ZoneLabel{z.offset, z.daylight != nullptr, z.offset};
    if (z.daylight != nullptr && equals_ignoring_case(name, z.daylight)) {
      return ZoneLabel{z.offset, true, z.offset + kHour};
    }
  }
  // Generic form.
  if (name.size() < 3 || std::toupper(static_cast<unsigned char>(name[0])) != 'Z') return std::nullopt;
  const char side = static_cast<char>(std::toupper(static_cast<unsigned char>(name[1])));
  if (side != 'E' && side != 'W') return std::nullopt;
  size_t i = 2;
  int hours = 0;
  while (i < name.size() && i < 4 && std::isdigit(static_cast<unsigned char>(name[i])))
    hours = hours * 10 + (name[i++] - '0');
  if (i == 2 || hours > 14) return std::nullopt;
  int minutes = 0;
  if (i < name.size()) {
    const char q = static_cast<char>(std::toupper(static_cast<unsigned char>(name[i])));
    if (q >= 'A' && q <= 'C') {
      minutes = (q - 'A' + 1) * 15;
      ++i;
    }
  }
  bool daylight = false;
  if (i < name.size()) {
    if (!equals_ignoring_case(name.substr(i), "DT")) return std::nullopt;
    daylight = true;
  }
  const int magnitude = hours * kHour + minutes * 60;
  const int offset = side == 'E' ? magnitude : -magnitude;
  return ZoneLabel{offset, daylight, offset + (daylight ? kHour : 0)};
}

// ---- printing -------------------------------------------------------------

CivilTime today_local() {
  const int64_t now = static_cast<int64_t>(std::time(nullptr));
  const int offset = ZoneRules::operating_system().offset_at(now);
  return civil_from_ticks((now + offset) * kTicksPerSecond);
}

std::string year_text(int year, bool four_digits) {
  if (!four_digits && year >= 1950 && year <= 1999) return two_digits(year % 100);
  char text[16];
  std::snprintf(text, sizeof text, "%04d", year);
  return text;
}

std::string date_text(const INTLFORMAT& intl, BYTE date_format, int year, int month, int day) {
  const std::string sep(field(intl.DateString, ISTRMAX));
  const bool forced_four = date_format >= TDFMT_FULL4;
  const BYTE kind = forced_four ? static_cast<BYTE>(date_format - (TDFMT_FULL4 - TDFMT_FULL)) : date_format;
  const std::string y = year_text(year, forced_four || (intl.Flags & DATE_4DIGIT_YEAR) != 0);
  const std::string m = two_digits(month);
  const std::string d = two_digits(day);
  const DateOrder order = date_order(intl);
  if (kind == TDFMT_DPARTIAL) return order == DateOrder::kYMD ? y + sep + m : m + sep + y;
  const bool with_year = kind == TDFMT_FULL || (kind == TDFMT_CPARTIAL && year != today_local().year);
  if (!with_year) return order == DateOrder::kDMY ? d + sep + m : m + sep + d;
  switch (order) {
    case DateOrder::kDMY:
      return d + sep + m + sep + y;
    case DateOrder::kYMD:
      return y + sep + m + sep + d;
    default:
      return m + sep + d + sep + y;
  }
}

std::string time_text(const INTLFORMAT& intl, BYTE time_format, const CivilTime& t) {
  const bool clock24 = (intl.Flags & CLOCK_24_HOUR) != 0;
  const std::string sep(field(intl.TimeString, ISTRMAX));
  std::string text = two_digits(clock24 ? t.hour : (t.hour % 12 == 0 ? 12 : t.hour % 12));
  if (time_format != TTFMT_HOUR) text += sep + two_digits(t.minute);
  if (time_format == TTFMT_FULL || time_format == TTFMT_FULL_MAX) text += sep + two_digits(t.second);
  if (time_format == TTFMT_FULL_MAX) text += std::string(field(intl.DecimalString, ISTRMAX)) + two_digits(t.hundredth);
  if (clock24) return text;
  const std::string_view marker = t.hour < 12 ? field(intl.AMString, ISTRMAX) : field(intl.PMString, ISTRMAX);
  if (marker.empty()) return text;
  if (intl.Flags & TIME_AMPM_PREFIX) return std::string(marker) + " " + text;
  return text + " " + std::string(marker);
}

// "Today", "Yesterday", "Tomorrow" for dates next to today, else nullopt.
std::optional<std::string> relative_day(const INTLFORMAT& intl, int year, int month, int day) {
  const CivilTime today = today_local();
  const int64_t diff = static_cast<int64_t>(julian_day(year, month, day)) -
                       static_cast<int64_t>(julian_day(today.year, today.month, today.day));
  if (diff == 0) return std::string(field(intl.TodayString, YTSTRMAX));
  if (diff == -1) return std::string(field(intl.YesterdayString, YTSTRMAX));
  if (diff == 1) return std::string(field(intl.TomorrowString, YTSTRMAX));
  return std::nullopt;
}

std::string day_text(const INTLFORMAT& intl, const TFMT& format, const CivilTime& t) {
  if (format.Structure == TSFMT_CDATETIME || format.Structure == TSFMT_CDATE) {
    if (auto relative = relative_day(intl, t.year, t.month, t.day)) return *relative;
  }
  return date_text(intl, format.Date, t.year, t.month, t.day);
}

// ---- reading --------------------------------------------------------------

struct Number {
  int value;
  int digits;
};

class Reader {
 public:
  Reader(const INTLFORMAT& intl, std::string_view text) : intl_(intl), text_(text) {}

  size_t pos = 0;

  bool at_end() const { return pos >= text_.size(); }
  char peek(size_t ahead = 0) const { return pos + ahead < text_.size() ? text_[pos + ahead] : '\0'; }
  bool digit_at(size_t at) const {
    return at < text_.size() && std::isdigit(static_cast<unsigned char>(text_[at])) != 0;
  }
  bool alnum_at(size_t at) const {
    return at < text_.size() && std::isalnum(static_cast<unsigned char>(text_[at])) != 0;
  }
  void skip_spaces() {
    while (!at_end() && (peek() == ' ' || peek() == '\t')) ++pos;
  }

  std::optional<Number> number(int max_digits) {
    if (!digit_at(pos)) return std::nullopt;
    Number n{0, 0};
    const size_t start = pos;
    while (digit_at(pos)) {
      if (n.digits == max_digits) {  // too long to be a field
        pos = start;
        return std::nullopt;
      }
      n.value = n.value * 10 + (text_[pos++] - '0');
      ++n.digits;
    }
    return n;
  }

  // Consumes `word` (case-insensitive) when it is next and not followed by
  // a letter or digit.
  bool word(std::string_view w) {
    if (w.empty() || pos + w.size() > text_.size()) return false;
    if (!equals_ignoring_case(text_.substr(pos, w.size()), w) || alnum_at(pos + w.size())) return false;
    pos += w.size();
    return true;
  }

  // Consumes a separator (one of the given texts) when a digit follows it.
  bool separator_before_digit(std::initializer_list<std::string_view> options) {
    for (std::string_view s : options) {
      if (!s.empty() && text_.substr(pos, s.size()) == s && digit_at(pos + s.size())) {
        pos += s.size();
        return true;
      }
    }
    return false;
  }

  // Whether `s` followed by a digit is next.
  bool separator_follows(std::string_view s) const {
    return !s.empty() && text_.substr(pos, s.size()) == s && digit_at(pos + s.size());
  }

  std::string_view alnum_run() const {
    size_t end = pos;
    while (alnum_at(end)) ++end;
    return text_.substr(pos, end - pos);
  }

  std::string_view date_sep() const { return field(intl_.DateString, ISTRMAX); }
  std::string_view time_sep() const { return field(intl_.TimeString, ISTRMAX); }

 private:
  const INTLFORMAT& intl_;
  std::string_view text_;
};

enum class Outcome { kNone, kInvalid, kRead };

struct DateFields {
  int year, month, day;
};

int full_year(const Number& n) {
  if (n.digits > 2) return n.value;
  return n.value < 50 ? 2000 + n.value : 1900 + n.value;
}

Outcome read_relative_day(const INTLFORMAT& intl, Reader& r, DateFields& date) {
  struct Word {
    std::string_view text;
    int days;
  } words[] = {{field(intl.TodayString, YTSTRMAX), 0},
               {field(intl.YesterdayString, YTSTRMAX), -1},
               {field(intl.TomorrowString, YTSTRMAX), 1},
               {"Today", 0},
               {"Yesterday", -1},
               {"Tomorrow", 1}};
  for (const auto& w : words) {
    if (r.word(w.text)) {
      const CivilTime today = today_local();
      civil_from_julian(julian_day(today.year, today.month, today.day) + w.days, date.year, date.month, date.day);
      return Outcome::kRead;
    }
  }
  return Outcome::kNone;
}

Outcome read_numeric_date(const INTLFORMAT& intl, Reader& r, DateFields& date) {
  const size_t start = r.pos;
  auto none = [&] {
    r.pos = start;
    return Outcome::kNone;
  };
  const auto first = r.number(5);
  if (!first) return none();
  // A time separator here means this is a time, unless dates use it too.
  const std::string_view date_sep = r.date_sep();
  const std::string_view time_sep = r.time_sep();
  auto date_separator = [&] {
    if (r.peek() == ':') return false;
    if (time_sep != date_sep && r.separator_follows(time_sep)) return false;
    return r.separator_before_digit({date_sep, "/", "-", "."});
  };
  if (!date_separator()) return none();
  const auto second = r.number(5);
  if (!second) return none();
  std::optional<Number> third;
  const size_t after_second = r.pos;
  if (date_separator()) {
    third = r.number(5);
    if (!third) r.pos = after_second;
  }
  const DateOrder order = date_order(intl);
  if (third) {
    if (first->digits >= 3 || order == DateOrder::kYMD) {
      date = {full_year(*first), second->value, third->value};
    } else if (order == DateOrder::kDMY) {
      date = {full_year(*third), second->value, first->value};
    } else {
      date = {full_year(*third), first->value, second->value};
    }
  } else if (first->digits >= 3) {
    date = {first->value, second->value, 1};  // year and month
  } else if (second->digits >= 3) {
    date = {second->value, first->value, 1};  // month and year
  } else {
    const int year = today_local().year;
    date = order == DateOrder::kDMY ? DateFields{year, second->value, first->value}
                                    : DateFields{year, first->value, second->value};
  }
  const CivilTime check{date.year, date.month, date.day};
  return is_valid_civil(check) ? Outcome::kRead : Outcome::kInvalid;
}

// An English month name or its first three letters; 0 when none is next.
int read_month_name(Reader& r) {
  static constexpr std::string_view kMonths[] = {"January", "February", "March",     "April",   "May",      "June",
                                                 "July",    "August",   "September", "October", "November", "December"};
  for (int i = 0; i < 12; ++i) {
    if (r.word(kMonths[i]) || r.word(kMonths[i].substr(0, 3))) {
      if (r.peek() == '.') ++r.pos;
      return i + 1;
    }
  }
  return 0;
}

// "Jan 2, 2026", "January 2 2026", "2 Jan 2026", "2-Jan-2026"; the year may
// be left out (this year).
Outcome read_named_date(Reader& r, DateFields& date) {
  const size_t start = r.pos;
  auto none = [&] {
    r.pos = start;
    return Outcome::kNone;
  };
  std::optional<Number> day;
  int month = read_month_name(r);
  if (month != 0) {
    r.skip_spaces();
    day = r.number(2);
    if (!day) return none();
  } else {
    day = r.number(2);
    if (!day) return none();
    if (r.peek() == '-' || r.peek() == ' ' || r.peek() == '.') ++r.pos;
    r.skip_spaces();
    month = read_month_name(r);
    if (month == 0) return none();
  }
  date = {today_local().year, month, day->value};
  // The year: after a comma, spaces or a dash, but not a time ("Jan 2 10:00").
  const size_t before_year = r.pos;
  if (r.peek() == ',' || r.peek() == '-') ++r.pos;
  r.skip_spaces();
  const auto year = r.number(5);
  if (year && r.peek() != ':' && !r.separator_follows(r.time_sep())) {
    date.year = full_year(*year);
  } else {
    r.pos = before_year;
  }
  const CivilTime check{date.year, date.month, date.day};
  return is_valid_civil(check) ? Outcome::kRead : Outcome::kInvalid;
}

struct ClockFields {
  int hour = 0, minute = 0, second = 0, hundredth = 0;
};

// AM/PM marker: 0 = AM, 1 = PM, nullopt = none.
std::optional<int> read_marker(const INTLFORMAT& intl, Reader& r) {
  for (std::string_view am : {field(intl.AMString, ISTRMAX), std::string_view("AM")}) {
    if (r.word(am)) return 0;
  }
  for (std::string_view pm : {field(intl.PMString, ISTRMAX), std::string_view("PM")}) {
    if (r.word(pm)) return 1;
  }
  return std::nullopt;
}

Outcome read_clock(const INTLFORMAT& intl, Reader& r, bool lone_hour_allowed, ClockFields& clock) {
  const size_t start = r.pos;
  auto none = [&] {
    r.pos = start;
    return Outcome::kNone;
  };
  std::optional<int> marker = read_marker(intl, r);
  if (marker) {
    r.skip_spaces();
    if (!r.digit_at(r.pos)) return none();
  }
  const auto hour = r.number(2);
  if (!hour) return none();
  clock.hour = hour->value;
  const std::string_view sep = r.time_sep();
  bool lone = true;
  if (r.separator_before_digit({sep, ":"})) {
    lone = false;
    const auto minute = r.number(2);
    if (!minute) return Outcome::kInvalid;
    clock.minute = minute->value;
    if (r.separator_before_digit({sep, ":"})) {
      const auto second = r.number(2);
      if (!second) return Outcome::kInvalid;
      clock.second = second->value;
      if (r.separator_before_digit({field(intl.DecimalString, ISTRMAX), ".", ","})) {
        const auto fraction = r.number(2);
        if (!fraction) return Outcome::kInvalid;
        clock.hundredth = fraction->digits == 1 ? fraction->value * 10 : fraction->value;
      }
    }
  }
  if (!marker) {
    const size_t before_marker = r.pos;
    r.skip_spaces();
    marker = read_marker(intl, r);
    if (!marker) r.pos = before_marker;
  }
  if (lone && !marker && !lone_hour_allowed) return none();
  if (marker) {
    if (clock.hour < 1 || clock.hour > 12) return Outcome::kInvalid;
    clock.hour = clock.hour % 12 + (*marker == 1 ? 12 : 0);
  }
  const bool valid = clock.hour <= 23 && clock.minute <= 59 && clock.second <= 59;
  return valid ? Outcome::kRead : Outcome::kInvalid;
}

std::optional<ZoneLabel> read_zone(Reader& r) {
  const size_t start = r.pos;
  r.skip_spaces();
  const std::string_view name = r.alnum_run();
  if (auto zone = zone_from_name(name)) {
    r.pos += name.size();
    return zone;
  }
  r.pos = start;
  return std::nullopt;
}

ParsedTimeDate failure(STATUS status) {
  ParsedTimeDate result;
  result.status = status;
  return result;
}

}  // namespace

STATUS format_timedate(const INTLFORMAT& intl, const TFMT& format, const TIMEDATE& value, std::string& text) {
  text.clear();
  if (!valid_format(format)) return ERR_TFMT;
  const bool date = has_date(value);
  const bool time = has_time(value);
  if (!date && !time) return NOERROR;  // the wildcard has nothing to show
  if (time && value.Innards[0] >= static_cast<DWORD>(kTicksPerDay)) return ERR_TDO_CONV;
  if (!date) {
    const CivilTime t = civil_from_ticks(value.Innards[0]);
    text = time_text(intl, format.Time, t);
    return NOERROR;
  }
  if (!time) {
    const DWORD julian = julian_of(value);
    if (julian < kJulianDayOfYear1 || julian > julian_day(kMaxYear, 12, 31)) return ERR_TDO_CONV;
    CivilTime t;
    civil_from_julian(julian, t.year, t.month, t.day);
    text = day_text(intl, format, t);
    return NOERROR;
  }
  if (!is_complete_instant(value)) return ERR_TDO_CONV;

  const int64_t gmt = instant_ticks(value);
  const int64_t gmt_seconds = floor_div(gmt, kTicksPerSecond);
  const LocalZone own = zone_from_bits(value.Innards[1]);
  const LocalZone machine = local_zone(static_cast<std::time_t>(gmt_seconds));
  const bool own_zone_differs =
      own.standard_offset_seconds != machine.standard_offset_seconds || own.observes_dst != machine.observes_dst;
  const bool show_zone = format.Zone == TZFMT_ALWAYS || (format.Zone == TZFMT_SOMETIMES && own_zone_differs);
  const ZoneRules rules = show_zone ? ZoneRules::for_zone(own.standard_offset_seconds, own.observes_dst, gmt_seconds)
                                    : ZoneRules::operating_system();
  const int offset = rules.offset_at(gmt_seconds);
  const CivilTime t = civil_from_ticks(gmt + offset * kTicksPerSecond);
  if (!is_valid_civil(t)) return ERR_TDO_CONV;

  const bool show_date = format.Structure != TSFMT_TIME;
  const bool show_time = format.Structure != TSFMT_DATE && format.Structure != TSFMT_CDATE;
  if (show_date) text = day_text(intl, format, t);
  if (show_time) {
    if (!text.empty()) text += ' ';
    text += time_text(intl, format.Time, t);
    if (show_zone) {
      text += ' ';
      text += zone_name(own.standard_offset_seconds, offset != own.standard_offset_seconds);
    }
  }
  return NOERROR;
}

ParsedTimeDate parse_timedate(const INTLFORMAT& intl, const TFMT& format, std::string_view text) {
  if (!valid_format(format)) return failure(ERR_TFMT);
  Reader r(intl, text);
  r.skip_spaces();

  DateFields date{};
  Outcome date_read = read_relative_day(intl, r, date);
  if (date_read == Outcome::kNone) date_read = read_named_date(r, date);
  if (date_read == Outcome::kNone) date_read = read_numeric_date(intl, r, date);
  if (date_read == Outcome::kInvalid) return failure(ERR_TDO_CONV);
  size_t end = r.pos;

  if (date_read == Outcome::kRead) {
    if ((r.peek() == 'T' || r.peek() == 't') && r.digit_at(r.pos + 1)) {
      ++r.pos;
    } else {
      r.skip_spaces();
      if (r.peek() == ',') {
        ++r.pos;
        r.skip_spaces();
      }
    }
  }
  ClockFields clock;
  const bool lone_hour_allowed = date_read == Outcome::kRead || format.Structure == TSFMT_TIME;
  const Outcome clock_read = read_clock(intl, r, lone_hour_allowed, clock);
  if (clock_read == Outcome::kInvalid) return failure(ERR_TDO_CONV);
  std::optional<ZoneLabel> zone;
  if (clock_read == Outcome::kRead) {
    zone = read_zone(r);
    end = r.pos;
  }
  if (date_read != Outcome::kRead && clock_read != Outcome::kRead) return failure(ERR_TDO_CONV);
  r.pos = end;
  r.skip_spaces();
  if (r.alnum_at(r.pos)) return failure(ERR_TDO_CONV);

  ParsedTimeDate result;
  result.consumed = end;
  const int64_t clock_ticks =
      ((clock.hour * 60 + clock.minute) * 60 + clock.second) * kTicksPerSecond + clock.hundredth;
  if (date_read != Outcome::kRead) {
    result.value = TIMEDATE{{static_cast<DWORD>(clock_ticks), ANYDAY}};
    return result;
  }
  const DWORD julian = julian_day(date.year, date.month, date.day);
  if (clock_read != Outcome::kRead) {
    result.value = TIMEDATE{{ALLDAY, julian}};
    return result;
  }
  const int64_t local = (static_cast<int64_t>(julian) - kJulianDayOf1970) * kTicksPerDay + clock_ticks;
  std::optional<TIMEDATE> value;
  if (zone) {
    value = timedate_from_instant(local - zone->offset_in_effect * kTicksPerSecond,
                                  zone_bits(zone->standard_offset, zone->observes_dst));
  } else {
    const ZoneRules rules = ZoneRules::operating_system();
    const int64_t seconds = floor_div(local, kTicksPerSecond);
    const int64_t gmt_seconds = rules.gmt_from_local(seconds);
    const LocalZone machine = local_zone(static_cast<std::time_t>(gmt_seconds));
    value = timedate_from_instant(gmt_seconds * kTicksPerSecond + (local - seconds * kTicksPerSecond),
                                  zone_bits(machine.standard_offset_seconds, machine.observes_dst));
  }
  if (!value) return failure(ERR_TDO_CONV);
  result.value = *value;
  return result;
}

}  // namespace tarnwick::rt

using namespace tarnwick::rt;

namespace {

constexpr TFMT kDefaultFormat{TDFMT_FULL, TTFMT_FULL, TZFMT_NEVER, TSFMT_DATETIME};

// The settings to use: the caller's (which must say its own size) or the
// current ones.
std::optional<INTLFORMAT> settings_from(const void* intl_format) {
  if (intl_format == nullptr) return current_intl_settings();
  if (static_cast<const BYTE*>(intl_format)[offsetof(INTLFORMAT, Length)] != sizeof(INTLFORMAT)) return std::nullopt;
  INTLFORMAT intl;
  std::memcpy(&intl, intl_format, sizeof intl);
  return intl;
}

}  // namespace

extern "C" {

STATUS LNPUBLIC ConvertTIMEDATEToText(const void* IntlFormat, const TFMT* TextFormat, const TIMEDATE* InputTime,
                                      char* retTextBuffer, WORD TextBufferLength, WORD* retTextLength) {
  if (retTextLength != nullptr) *retTextLength = 0;
  if (InputTime == nullptr || (retTextBuffer == nullptr && TextBufferLength > 0)) return ERR_TDO_CONV;
  return guarded([&]() -> STATUS {
    const auto intl = settings_from(IntlFormat);
    if (!intl) return ERR_IFMT;
    std::string text;
    const STATUS status = format_timedate(*intl, TextFormat ? *TextFormat : kDefaultFormat, *InputTime, text);
    if (status != NOERROR) return status;
    const size_t length = std::min<size_t>(text.size(), TextBufferLength);  // cut to the buffer
    // The platform's text is not NUL-terminated.
    if (length > 0) std::memcpy(retTextBuffer, text.data(), length);  // NOLINT(bugprone-not-null-terminated-result)
    if (retTextLength != nullptr) *retTextLength = static_cast<WORD>(length);
    return NOERROR;
  });
}

STATUS LNPUBLIC ConvertTextToTIMEDATE(const void* IntlFormat, const TFMT* TextFormat, char** ppTextString,
                                      WORD MaxLength, TIMEDATE* retTIMEDATE) {
  if (ppTextString == nullptr || *ppTextString == nullptr || retTIMEDATE == nullptr) return ERR_TDO_CONV;
  return guarded([&]() -> STATUS {
    const auto intl = settings_from(IntlFormat);
    if (!intl) return ERR_IFMT;
    const std::string_view text(*ppTextString, strnlen(*ppTextString, MaxLength));
    const ParsedTimeDate parsed = parse_timedate(*intl, TextFormat ? *TextFormat : kDefaultFormat, text);
    if (parsed.status != NOERROR) return parsed.status;
    *retTIMEDATE = parsed.value;
    *ppTextString += parsed.consumed;
    return NOERROR;
  });
}

}  // extern "C"
