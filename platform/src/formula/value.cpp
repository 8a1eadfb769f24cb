// Formula values: construction, item byte layouts, and the text helpers.
#include "formula/value.h"

#include <cctype>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "globerr.h"
#include "nsfdata.h"

namespace tarnwick::rt::formula {

Value Value::text(std::string s) {
  Value v;
  v.kind = Kind::kText;
  v.texts.push_back(std::move(s));
  return v;
}
Value Value::text_list(std::vector<std::string> list) {
  Value v;
  v.kind = Kind::kText;
  v.texts = std::move(list);
  return v;
}
Value Value::number(double n) {
  Value v;
  v.kind = Kind::kNumber;
  v.numbers.push_back(n);
  return v;
}
Value Value::number_list(std::vector<double> list) {
  Value v;
  v.kind = Kind::kNumber;
  v.numbers = std::move(list);
  return v;
}
Value Value::time(TIMEDATE t) {
  Value v;
  v.kind = Kind::kTime;
  v.times.push_back(t);
  return v;
}
Value Value::time_list(std::vector<TIMEDATE> list) {
  Value v;
  v.kind = Kind::kTime;
  v.times = std::move(list);
  return v;
}
Value Value::failure(STATUS status) {
  Value v;
  v.kind = Kind::kError;
  v.error = status;
  return v;
}
Value Value::unavailable() {
  Value v;
  v.kind = Kind::kUnavailable;
  return v;
}
Value Value::keyword(std::vector<std::string> names) {
  Value v;
  v.kind = Kind::kKeyword;
  v.texts = std::move(names);
  return v;
}

size_t Value::size() const {
  switch (kind) {
    case Kind::kText:
    case Kind::kKeyword:
      return texts.size();
    case Kind::kNumber:
      return numbers.size();
    case Kind::kTime:
      return times.size();
    default:
      return 0;
  }
}

bool Value::is_null() const {
  if (kind == Kind::kText) return texts.empty() || (texts.size() == 1 && texts[0].empty());
  return size() == 0;
}

namespace {

void put_word(std::string& out, WORD w) {
  out.push_back(static_cast<char>(w & 0xFF));
  out.push_back(static_cast<char>(w >> 8));
}
template <class T>
void put_raw(std::string& out, const T& v) {
  out.append(reinterpret_cast<const char*>(&v), sizeof v);
}
WORD get_word(std::string_view bytes, size_t at) {
  return static_cast<WORD>(static_cast<unsigned char>(bytes[at]) | (static_cast<unsigned char>(bytes[at + 1]) << 8));
}

STATUS decode_text_list(std::string_view bytes, Value& out) {
  if (bytes.size() < sizeof(LIST)) return ERR_INVALID_TYPE_FOR_OP;
  const size_t count = get_word(bytes, 0);
  size_t text_at = sizeof(LIST) + 2 * count;
  if (bytes.size() < text_at) return ERR_INVALID_TYPE_FOR_OP;
  std::vector<std::string> list;
  list.reserve(count);
  for (size_t i = 0; i < count; ++i) {
    const size_t length = get_word(bytes, sizeof(LIST) + 2 * i);
    if (text_at + length > bytes.size()) return ERR_INVALID_TYPE_FOR_OP;
    list.emplace_back(bytes.substr(text_at, length));
    text_at += length;
  }
  out = Value::text_list(std::move(list));
  return NOERROR;
}

template <class T>
STATUS decode_range(std::string_view bytes, std::vector<T>& list) {
  if (bytes.size() < sizeof(RANGE)) return ERR_INVALID_TYPE_FOR_OP;
  const size_t count = get_word(bytes, 0);
  if (bytes.size() < sizeof(RANGE) + count * sizeof(T)) return ERR_INVALID_TYPE_FOR_OP;
  list.resize(count);
  if (count > 0) std::memcpy(list.data(), bytes.data() + sizeof(RANGE), count * sizeof(T));
  return NOERROR;
}

}  // namespace

STATUS encode_value(const Value& value, std::string& out) {
  out.clear();
  switch (value.kind) {
    case Kind::kText:
    case Kind::kKeyword: {
      size_t total = 2 + sizeof(LIST) + 2 * value.texts.size();
      for (const auto& t : value.texts) total += t.size();
      if (total > MAXWORD || value.texts.size() > kMaxListElements) return ERR_COMPUTE_LENGTH_WORD;
      out.reserve(total);
      put_word(out, TYPE_TEXT_LIST);
      put_word(out, static_cast<WORD>(value.texts.size()));
      for (const auto& t : value.texts) put_word(out, static_cast<WORD>(t.size()));
      for (const auto& t : value.texts) out += t;
      return NOERROR;
    }
    case Kind::kNumber: {
      const size_t total = 2 + sizeof(RANGE) + value.numbers.size() * sizeof(NUMBER);
      if (total > MAXWORD) return ERR_COMPUTE_LENGTH_WORD;
      out.reserve(total);
      put_word(out, TYPE_NUMBER_RANGE);
      put_word(out, static_cast<WORD>(value.numbers.size()));
      put_word(out, 0);
      for (double n : value.numbers) put_raw(out, n);
      return NOERROR;
    }
    case Kind::kTime: {
      const size_t total = 2 + sizeof(RANGE) + value.times.size() * sizeof(TIMEDATE);
      if (total > MAXWORD) return ERR_COMPUTE_LENGTH_WORD;
      out.reserve(total);
      put_word(out, TYPE_TIME_RANGE);
      put_word(out, static_cast<WORD>(value.times.size()));
      put_word(out, 0);
      for (const auto& t : value.times) put_raw(out, t);
      return NOERROR;
    }
    case Kind::kError:
      put_word(out, TYPE_ERROR);
      put_word(out, value.error);
      return NOERROR;
    case Kind::kUnavailable:
      put_word(out, TYPE_UNAVAILABLE);
      return NOERROR;
  }
  return ERR_INVALID_TYPE_FOR_OP;
}

STATUS decode_value(WORD type, std::string_view bytes, Value& out) {
  switch (type) {
    case TYPE_TEXT:
    case TYPE_RFC822_TEXT:
      out = Value::text(std::string(bytes));
      return NOERROR;
    case TYPE_TEXT_LIST:
      return decode_text_list(bytes, out);
    case TYPE_NUMBER: {
      double n;
      if (bytes.size() < sizeof n) return ERR_INVALID_TYPE_FOR_OP;
      std::memcpy(&n, bytes.data(), sizeof n);
      out = Value::number(n);
      return NOERROR;
    }
    case TYPE_NUMBER_RANGE: {
      Value v;
      v.kind = Kind::kNumber;
      if (STATUS error = decode_range(bytes, v.numbers)) return error;
      out = std::move(v);
      return NOERROR;
    }
    case TYPE_TIME: {
      TIMEDATE t;
      if (bytes.size() < sizeof t) return ERR_INVALID_TYPE_FOR_OP;
      std::memcpy(&t, bytes.data(), sizeof t);
      out = Value::time(t);
      return NOERROR;
    }
    case TYPE_TIME_RANGE: {
      Value v;
      v.kind = Kind::kTime;
      if (STATUS error = decode_range(bytes, v.times)) return error;
      out = std::move(v);
      return NOERROR;
    }
    case TYPE_ERROR:
      out = Value::failure(bytes.size() >= 2 ? get_word(bytes, 0) : ERR_FORMULA_GENERATED);
      return NOERROR;
    case TYPE_UNAVAILABLE:
      out = Value::unavailable();
      return NOERROR;
    default:
      return ERR_INVALID_TYPE_FOR_OP;
  }
}

// LMBCS: bytes 0x01-0x0F (except a few controls) and 0x10-0x14 introduce a
// character of another group; the single-byte groups take one more byte, the
// double-byte and Unicode groups two.
size_t char_length_at(std::string_view text, size_t pos) {
  const unsigned char b = static_cast<unsigned char>(text[pos]);
  size_t length = 1;
  if ((b >= 0x01 && b <= 0x06) || b == 0x08 || b == 0x0B || b == 0x0F) {
    length = 2;
  } else if (b >= 0x10 && b <= 0x14) {
    length = 3;
  }
  return std::min(length, text.size() - pos);
}

size_t char_count(std::string_view text) {
  size_t count = 0;
  for (size_t pos = 0; pos < text.size(); pos += char_length_at(text, pos)) ++count;
  return count;
}

size_t byte_offset_of_char(std::string_view text, size_t chars) {
  size_t pos = 0;
  while (chars > 0 && pos < text.size()) {
    pos += char_length_at(text, pos);
    --chars;
  }
  return pos;
}

std::string to_upper(std::string_view text) {
  std::string out(text);
  for (size_t pos = 0; pos < out.size(); pos += char_length_at(out, pos)) {
    unsigned char& c = reinterpret_cast<unsigned char&>(out[pos]);
    if (c >= 'a' && c <= 'z') c = static_cast<unsigned char>(c - 'a' + 'A');
  }
  return out;
}

std::string to_lower(std::string_view text) {
  std::string out(text);
  for (size_t pos = 0; pos < out.size(); pos += char_length_at(out, pos)) {
    unsigned char& c = reinterpret_cast<unsigned char&>(out[pos]);
    if (c >= 'A' && c <= 'Z') c = static_cast<unsigned char>(c - 'A' + 'a');
  }
  return out;
}

bool equal_ignoring_case(std::string_view a, std::string_view b) {
  if (a.size() != b.size()) return false;
  for (size_t i = 0; i < a.size(); ++i) {
    if (std::tolower(static_cast<unsigned char>(a[i])) != std::tolower(static_cast<unsigned char>(b[i]))) return false;
  }
  return true;
}

int collate(std::string_view a, std::string_view b, bool case_sensitive) {
  const size_t n = std::min(a.size(), b.size());
  for (size_t i = 0; i < n; ++i) {
    const int ca = std::tolower(static_cast<unsigned char>(a[i]));
    const int cb = std::tolower(static_cast<unsigned char>(b[i]));
    if (ca != cb) return ca < cb ? -1 : 1;
  }
  if (a.size() != b.size()) return a.size() < b.size() ? -1 : 1;
  if (!case_sensitive) return 0;
  for (size_t i = 0; i < n; ++i) {
    if (a[i] != b[i]) {
      // Same letter in another case: the lowercase one sorts first.
      return std::islower(static_cast<unsigned char>(a[i])) ? -1 : 1;
    }
  }
  return 0;
}

std::string number_to_text(double n) {
  if (n == 0) return "0";
  if (std::isnan(n)) return "NaN";
  if (std::isinf(n)) return n > 0 ? "INF" : "-INF";
  char buffer[64];
  std::snprintf(buffer, sizeof buffer, "%.15g", n);
  std::string out(buffer);
  if (auto e = out.find('e'); e != std::string::npos) {
    out[e] = 'E';
  }
  return out;
}

bool text_to_number(std::string_view text, double& out) {
  size_t begin = 0, end = text.size();
  while (begin < end && text[begin] == ' ') ++begin;
  while (end > begin && text[end - 1] == ' ') --end;
  if (begin == end || end - begin > 400) return false;
  std::string digits(text.substr(begin, end - begin));
  char* stop = nullptr;
  const double n = std::strtod(digits.c_str(), &stop);
  if (stop != digits.c_str() + digits.size()) return false;
  // strtod also reads "inf", "nan" and hex: the language knows only decimals.
  for (char c : digits) {
    if (!(std::isdigit(static_cast<unsigned char>(c)) || c == '.' || c == 'e' || c == 'E' || c == '+' || c == '-'))
      return false;
  }
  out = n;
  return true;
}

}  // namespace tarnwick::rt::formula
