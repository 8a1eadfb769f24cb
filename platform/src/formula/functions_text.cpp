// Text @functions. They apply to every element of a text list; positions
// and lengths count characters, not bytes.
#include <algorithm>
#include <cctype>
#include <cmath>
#include <cstdio>

#include "formula/evaluator.h"
#include "formula/functions.h"
#include "formula/text_format.h"
#include "formula/time_support.h"
#include "globerr.h"

namespace tarnwick::rt::formula {
namespace {

using TextMap = std::string (*)(std::string_view);

template <class F>
Value map_texts(Evaluator& eval, const Value& v, F&& f) {
  if (v.kind != Kind::kText) return Value::failure(ERR_TEXT_EXPECTED);
  Value out = Value::text_list({});
  out.texts.reserve(v.texts.size());
  for (const auto& t : v.texts) {
    out.texts.push_back(f(t));
    eval.check_text(out.texts.back().size());
  }
  return out;
}

std::string chars_left(std::string_view s, size_t n) { return std::string(s.substr(0, byte_offset_of_char(s, n))); }
std::string chars_from(std::string_view s, size_t n) { return std::string(s.substr(byte_offset_of_char(s, n))); }

size_t count_arg(double n) { return n <= 0 ? 0 : static_cast<size_t>(std::min(n, 1e9)); }

// @Left / @Right / @LeftBack / @RightBack share one shape: a count of
// characters or a text to search for.
enum class Side { kLeft, kRight, kLeftBack, kRightBack };

std::string cut(std::string_view s, Side side, bool by_count, size_t count, const std::string& pattern) {
  const size_t length = char_count(s);
  if (by_count) {
    switch (side) {
      case Side::kLeft: return chars_left(s, count);
      case Side::kRight: return chars_from(s, length - std::min(count, length));
      case Side::kLeftBack: return chars_left(s, length - std::min(count, length));
      case Side::kRightBack: return chars_from(s, count);
    }
  }
  const bool back = side == Side::kLeftBack || side == Side::kRightBack;
  const size_t at = back ? s.rfind(pattern) : s.find(pattern);
  if (at == std::string_view::npos) return std::string();
  if (side == Side::kLeft || side == Side::kLeftBack) return std::string(s.substr(0, at));
  return std::string(s.substr(at + pattern.size()));
}

Value cut_texts(Evaluator& eval, std::vector<Value>& args, Side side) {
  double count = 0;
  std::string pattern;
  const bool by_count = first_number(args[1], count);
  if (!by_count && !first_text(args[1], pattern)) return Value::failure(ERR_INVALID_TYPE_FOR_OP);
  return map_texts(eval, args[0], [&](const std::string& s) { return cut(s, side, by_count, count_arg(count), pattern); });
}
Value fn_left(Evaluator& e, std::vector<Value>& a) { return cut_texts(e, a, Side::kLeft); }
Value fn_right(Evaluator& e, std::vector<Value>& a) { return cut_texts(e, a, Side::kRight); }
Value fn_left_back(Evaluator& e, std::vector<Value>& a) { return cut_texts(e, a, Side::kLeftBack); }
Value fn_right_back(Evaluator& e, std::vector<Value>& a) { return cut_texts(e, a, Side::kRightBack); }

// @Middle(text; offset or start text; count or end text).
Value fn_middle(Evaluator& eval, std::vector<Value>& args) {
  double offset = 0, count = 0;
  std::string start_text, end_text;
  const bool start_is_number = first_number(args[1], offset);
  if (!start_is_number && !first_text(args[1], start_text)) return Value::failure(ERR_INVALID_TYPE_FOR_OP);
  const bool end_is_number = first_number(args[2], count);
  if (!end_is_number && !first_text(args[2], end_text)) return Value::failure(ERR_INVALID_TYPE_FOR_OP);
  return map_texts(eval, args[0], [&](const std::string& s) -> std::string {
    size_t start_byte;
    if (start_is_number) {
      start_byte = byte_offset_of_char(s, count_arg(offset));
    } else {
      const size_t at = s.find(start_text);
      if (at == std::string::npos) return std::string();
      start_byte = at + start_text.size();
    }
    if (!end_is_number) {
      const size_t end = s.find(end_text, start_byte);
      return s.substr(start_byte, end == std::string::npos ? std::string::npos : end - start_byte);
    }
    const size_t start_char = char_count(std::string_view(s).substr(0, start_byte));
    if (count >= 0) {
      const size_t end_byte = byte_offset_of_char(s, start_char + count_arg(count));
      return s.substr(start_byte, end_byte - start_byte);
    }
    // A negative count takes characters to the left of the offset.
    const size_t back = std::min(count_arg(-count), start_char);
    const size_t from = byte_offset_of_char(s, start_char - back);
    return s.substr(from, start_byte - from);
  });
}

Value fn_length(Evaluator& eval, std::vector<Value>& args) {
  if (args[0].kind != Kind::kText) return Value::failure(ERR_TEXT_EXPECTED);
  Value out = Value::number_list({});
  eval.charge(args[0].texts.size());
  for (const auto& t : args[0].texts) out.numbers.push_back(static_cast<double>(char_count(t)));
  return out;
}

std::string trim_spaces(std::string_view s) {
  std::string out;
  bool pending_space = false;
  for (char c : s) {
    if (c == ' ') {
      pending_space = !out.empty();
      continue;
    }
    if (pending_space) out.push_back(' ');
    pending_space = false;
    out.push_back(c);
  }
  return out;
}

// Spaces at both ends go, runs of spaces inside become one; empty list
// elements are dropped.
Value fn_trim(Evaluator& eval, std::vector<Value>& args) {
  Value out = map_texts(eval, args[0], trim_spaces);
  if (out.is_error()) return out;
  std::erase_if(out.texts, [](const std::string& t) { return t.empty(); });
  if (out.texts.empty() && !args[0].texts.empty()) out.texts.emplace_back();
  return out;
}

std::string proper_case(std::string_view s) {
  std::string out = to_lower(s);
  bool word_start = true;
  for (size_t pos = 0; pos < out.size(); pos += char_length_at(out, pos)) {
    unsigned char& c = reinterpret_cast<unsigned char&>(out[pos]);
    if (word_start && c >= 'a' && c <= 'z') c = static_cast<unsigned char>(c - 'a' + 'A');
    word_start = !std::isalnum(c) && c < 0x80;
  }
  return out;
}

Value fn_upper(Evaluator& e, std::vector<Value>& a) { return map_texts(e, a[0], to_upper); }
Value fn_lower(Evaluator& e, std::vector<Value>& a) { return map_texts(e, a[0], to_lower); }
Value fn_proper(Evaluator& e, std::vector<Value>& a) { return map_texts(e, a[0], proper_case); }

// True when any element of the first list relates to any of the second.
template <class F>
Value any_text_pair(Evaluator& eval, std::vector<Value>& args, F&& related) {
  if (args[0].kind != Kind::kText || args[1].kind != Kind::kText) return Value::failure(ERR_TEXT_EXPECTED);
  eval.charge(args[0].texts.size() * args[1].texts.size());
  for (const auto& s : args[0].texts)
    for (const auto& p : args[1].texts)
      if (related(std::string_view(s), std::string_view(p))) return Value::boolean(true);
  return Value::boolean(false);
}
Value fn_contains(Evaluator& e, std::vector<Value>& a) {
  return any_text_pair(e, a, [](std::string_view s, std::string_view p) { return s.find(p) != std::string_view::npos; });
}
Value fn_begins(Evaluator& e, std::vector<Value>& a) {
  return any_text_pair(e, a, [](std::string_view s, std::string_view p) { return s.starts_with(p); });
}
Value fn_ends(Evaluator& e, std::vector<Value>& a) {
  return any_text_pair(e, a, [](std::string_view s, std::string_view p) { return s.ends_with(p); });
}

// ---- @Matches: ? one character, * any run, {abc} {a-z} {!abc} sets, \x
// the character x itself.
struct PatternItem {
  enum class Type { kChar, kAny, kStar, kSet } type;
  std::string chars;     // kChar: the character's bytes; kSet: members
  std::string ranges;    // kSet: pairs of bytes lo,hi
  bool negated = false;  // kSet
};

std::vector<PatternItem> compile_pattern(std::string_view p) {
  std::vector<PatternItem> items;
  size_t pos = 0;
  while (pos < p.size()) {
    const char c = p[pos];
    if (c == '*') {
      items.push_back({PatternItem::Type::kStar, {}, {}});
      ++pos;
    } else if (c == '?') {
      items.push_back({PatternItem::Type::kAny, {}, {}});
      ++pos;
    } else if (c == '{' && p.find('}', pos + 1) != std::string_view::npos) {
      const size_t close = p.find('}', pos + 1);
      PatternItem set{PatternItem::Type::kSet, {}, {}};
      std::string_view inside = p.substr(pos + 1, close - pos - 1);
      if (!inside.empty() && inside.front() == '!') {
        set.negated = true;
        inside.remove_prefix(1);
      }
      for (size_t i = 0; i < inside.size(); ++i) {
        if (i + 2 < inside.size() && inside[i + 1] == '-') {
          set.ranges.push_back(inside[i]);
          set.ranges.push_back(inside[i + 2]);
          i += 2;
        } else {
          set.chars.push_back(inside[i]);
        }
      }
      items.push_back(std::move(set));
      pos = close + 1;
    } else {
      if (c == '\\' && pos + 1 < p.size()) ++pos;
      const size_t length = char_length_at(p, pos);
      items.push_back({PatternItem::Type::kChar, std::string(p.substr(pos, length)), {}});
      pos += length;
    }
  }
  return items;
}

bool item_matches(const PatternItem& item, std::string_view s, size_t pos, size_t length) {
  switch (item.type) {
    case PatternItem::Type::kAny: return true;
    case PatternItem::Type::kChar: return s.substr(pos, length) == item.chars;
    case PatternItem::Type::kSet: {
      bool in = false;
      if (length == 1) {
        const unsigned char c = static_cast<unsigned char>(s[pos]);
        in = item.chars.find(static_cast<char>(c)) != std::string::npos;
        for (size_t r = 0; !in && r + 1 < item.ranges.size(); r += 2)
          in = c >= static_cast<unsigned char>(item.ranges[r]) && c <= static_cast<unsigned char>(item.ranges[r + 1]);
      }
      return in != item.negated;
    }
    default: return false;
  }
}

// Greedy matching with one backtrack point per '*' (the classic wildcard
// walk): linear in practice, quadratic at worst.
bool pattern_matches(const std::vector<PatternItem>& items, std::string_view s) {
  size_t si = 0, pi = 0;
  size_t star_item = std::string::npos, star_text = 0;
  while (si < s.size()) {
    const size_t length = char_length_at(s, si);
    if (pi < items.size() && items[pi].type == PatternItem::Type::kStar) {
      star_item = pi++;
      star_text = si;
    } else if (pi < items.size() && item_matches(items[pi], s, si, length)) {
      ++pi;
      si += length;
    } else if (star_item != std::string::npos) {
      pi = star_item + 1;
      star_text += char_length_at(s, star_text);
      si = star_text;
    } else {
      return false;
    }
  }
  while (pi < items.size() && items[pi].type == PatternItem::Type::kStar) ++pi;
  return pi == items.size();
}

Value fn_matches(Evaluator& eval, std::vector<Value>& args) {
  std::string pattern;
  if (args[0].kind != Kind::kText || !first_text(args[1], pattern)) return Value::failure(ERR_TEXT_EXPECTED);
  const auto items = compile_pattern(pattern);
  for (const auto& s : args[0].texts) {
    eval.charge((s.size() + 1) * (items.size() + 1) / 4);
    if (pattern_matches(items, s)) return Value::boolean(true);
  }
  return Value::boolean(false);
}

// Every occurrence of from[i] becomes to[i] (the last `to` when the list is
// shorter); replaced text is not searched again.
Value fn_replace_substring(Evaluator& eval, std::vector<Value>& args) {
  if (args[1].kind != Kind::kText || args[2].kind != Kind::kText) return Value::failure(ERR_TEXT_EXPECTED);
  const auto& from = args[1].texts;
  const auto& to = args[2].texts;
  return map_texts(eval, args[0], [&](const std::string& s) {
    eval.charge((s.size() + 1) * (from.size() + 1) / 8);
    std::string out;
    size_t pos = 0;
    while (pos < s.size()) {
      bool replaced = false;
      for (size_t i = 0; i < from.size(); ++i) {
        if (from[i].empty() || s.compare(pos, from[i].size(), from[i]) != 0) continue;
        out += to.empty() ? std::string() : to[std::min(i, to.size() - 1)];
        eval.check_text(out.size());
        pos += from[i].size();
        replaced = true;
        break;
      }
      if (!replaced) {
        const size_t length = char_length_at(s, pos);
        out.append(s, pos, length);
        pos += length;
      }
    }
    return out;
  });
}

Value fn_implode(Evaluator& eval, std::vector<Value>& args) {
  std::string separator = " ";
  if (args.size() == 2 && !first_text(args[1], separator)) return Value::failure(ERR_TEXT_EXPECTED);
  if (args[0].kind != Kind::kText) return Value::failure(ERR_TEXT_EXPECTED);
  std::string out;
  for (size_t i = 0; i < args[0].texts.size(); ++i) {
    if (i > 0) out += separator;
    out += args[0].texts[i];
    eval.check_text(out.size());
  }
  return Value::text(std::move(out));
}

// @Explode(text [; separators [; keep empty entries [; newline separates]]]):
// every character of `separators` (default " ,;") splits, and so do line
// breaks unless the fourth argument is false.
Value fn_explode(Evaluator& eval, std::vector<Value>& args) {
  if (args[0].kind != Kind::kText) return Value::failure(ERR_TEXT_EXPECTED);
  std::string separators = " ,;";
  double keep_empty = 0, newline_separates = 1;
  if (args.size() >= 2 && !first_text(args[1], separators)) return Value::failure(ERR_TEXT_EXPECTED);
  if (args.size() >= 3 && !first_number(args[2], keep_empty)) return Value::failure(ERR_NUMBER_EXPECTED);
  if (args.size() >= 4 && !first_number(args[3], newline_separates)) return Value::failure(ERR_NUMBER_EXPECTED);
  if (newline_separates != 0) separators += std::string("\n\r\0", 3);
  Value out = Value::text_list({});
  for (const auto& s : args[0].texts) {
    std::string current;
    for (size_t pos = 0; pos <= s.size();) {
      const bool at_end = pos == s.size();
      if (at_end || separators.find(s[pos]) != std::string::npos) {
        if (!current.empty() || keep_empty != 0) {
          out.texts.push_back(std::move(current));
          eval.check_elements(out.texts.size());
        }
        current.clear();
        if (at_end) break;
        ++pos;
        continue;
      }
      const size_t length = char_length_at(s, pos);
      current.append(s, pos, length);
      pos += length;
    }
  }
  if (out.texts.empty()) out.texts.emplace_back();
  return out;
}

// @Word(text; separator; n): the n-th word (from 1; negative counts from the
// end), "" when there is none.
Value fn_word(Evaluator& eval, std::vector<Value>& args) {
  std::string separator;
  double n = 0;
  if (!first_text(args[1], separator)) return Value::failure(ERR_TEXT_EXPECTED);
  if (!first_number(args[2], n)) return Value::failure(ERR_NUMBER_EXPECTED);
  return map_texts(eval, args[0], [&](const std::string& s) -> std::string {
    std::vector<std::string_view> words;
    std::string_view rest = s;
    if (separator.empty()) {
      words.push_back(rest);
    } else {
      while (true) {
        const size_t at = rest.find(separator);
        words.push_back(rest.substr(0, at));
        if (at == std::string_view::npos) break;
        rest.remove_prefix(at + separator.size());
      }
    }
    const long index = static_cast<long>(std::trunc(std::clamp(n, -1e9, 1e9)));
    const long count = static_cast<long>(words.size());
    if (index > 0 && index <= count) return std::string(words[static_cast<size_t>(index - 1)]);
    if (index < 0 && -index <= count) return std::string(words[static_cast<size_t>(count + index)]);
    return std::string();
  });
}

Value fn_new_line(Evaluator&, std::vector<Value>&) { return Value::text("\n"); }

// @Char(n): the character of code n of the default character group
// (code page 850), one byte.
Value fn_char(Evaluator&, std::vector<Value>& args) {
  if (args[0].kind != Kind::kNumber) return Value::failure(ERR_NUMBER_EXPECTED);
  Value out = Value::text_list({});
  for (double n : args[0].numbers) {
    const double code = std::trunc(n);
    out.texts.push_back(code >= 1 && code <= 255 ? std::string(1, static_cast<char>(static_cast<int>(code))) : "");
  }
  return out;
}

Value fn_text_to_number(Evaluator& eval, std::vector<Value>& args) {
  if (args[0].kind == Kind::kNumber) return args[0];
  if (args[0].kind != Kind::kText) return Value::failure(ERR_TEXT_EXPECTED);
  Value out = Value::number_list({});
  eval.charge(args[0].texts.size());
  for (const auto& t : args[0].texts) {
    double n;
    if (!text_to_number(t, n)) return Value::failure(ERR_TONUMBER);
    out.numbers.push_back(n);
  }
  return out;
}

// @Text(value [; format]): numbers and times by their format codes in the
// international settings, texts unchanged.
Value fn_text(Evaluator& eval, std::vector<Value>& args) {
  std::string format;
  if (args.size() == 2 && !first_text(args[1], format)) return Value::failure(ERR_TEXT_EXPECTED);
  const Value& v = args[0];
  if (v.kind == Kind::kText) return v;
  const INTLFORMAT& intl = intl_settings();
  Value out = Value::text_list({});
  switch (v.kind) {
    case Kind::kNumber:
      for (double n : v.numbers) out.texts.push_back(format_number(intl, n, format));
      break;
    case Kind::kTime:
      for (const auto& t : v.times) {
        std::string text;
        if (STATUS error = format_time(intl, t, format, text)) return Value::failure(error);
        out.texts.push_back(std::move(text));
      }
      break;
    default:
      return Value::failure(ERR_INVALID_TYPE_FOR_OP);
  }
  eval.charge(out.texts.size());
  return out;
}

}  // namespace

void add_text_functions(std::vector<Builtin>& table) {
  table.push_back({"Left", 2, 2, fn_left});
  table.push_back({"Right", 2, 2, fn_right});
  table.push_back({"LeftBack", 2, 2, fn_left_back});
  table.push_back({"RightBack", 2, 2, fn_right_back});
  table.push_back({"Middle", 3, 3, fn_middle});
  table.push_back({"Length", 1, 1, fn_length});
  table.push_back({"Trim", 1, 1, fn_trim});
  table.push_back({"UpperCase", 1, 1, fn_upper});
  table.push_back({"LowerCase", 1, 1, fn_lower});
  table.push_back({"ProperCase", 1, 1, fn_proper});
  table.push_back({"Contains", 2, 2, fn_contains});
  table.push_back({"Begins", 2, 2, fn_begins});
  table.push_back({"Ends", 2, 2, fn_ends});
  table.push_back({"Matches", 2, 2, fn_matches});
  table.push_back({"ReplaceSubstring", 3, 3, fn_replace_substring});
  table.push_back({"Implode", 1, 2, fn_implode});
  table.push_back({"Explode", 1, 4, fn_explode});
  table.push_back({"Word", 3, 3, fn_word});
  table.push_back({"NewLine", 0, 0, fn_new_line});
  table.push_back({"Char", 1, 1, fn_char});
  table.push_back({"TextToNumber", 1, 1, fn_text_to_number});
  table.push_back({"Text", 1, 2, fn_text});
}

}  // namespace tarnwick::rt::formula
