// Values of the formula language. Every value is a list: a scalar is a list of
// one element. A list holds elements of one kind only: texts (LMBCS bytes),
// numbers or times. An error value carries the status that made it; it flows
// through operators and @functions until a statement ends the evaluation with
// it. A keyword value ([CN], [Descending]) only ever reaches the @functions
// that take keywords.
//
// Values convert to and from the platform's item bytes: the WORD data type
// followed by the value in host form (text lists with their LIST header,
// number and time lists as RANGEs).
#pragma once

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

#include "global.h"

namespace tarnwick::rt::formula {

enum class Kind : unsigned char { kText, kNumber, kTime, kError, kUnavailable, kKeyword };

struct Value {
  Kind kind = Kind::kText;
  std::vector<std::string> texts;  // kText, kKeyword
  std::vector<double> numbers;     // kNumber
  std::vector<TIMEDATE> times;     // kTime
  STATUS error = NOERROR;          // kError

  static Value text(std::string s);
  static Value text_list(std::vector<std::string> list);
  static Value number(double n);
  static Value number_list(std::vector<double> list);
  static Value time(TIMEDATE t);
  static Value time_list(std::vector<TIMEDATE> list);
  static Value boolean(bool b) { return number(b ? 1 : 0); }
  static Value failure(STATUS status);
  static Value unavailable();
  static Value keyword(std::vector<std::string> names);

  bool is_error() const { return kind == Kind::kError; }
  // Number of elements (0 for errors and @Unavailable).
  size_t size() const;
  // The value holds nothing: no elements, or one empty text.
  bool is_null() const;
};

// Limits that keep a single evaluation bounded.
constexpr size_t kMaxListElements = 65535;
constexpr size_t kMaxTextBytes = 65535;

// The item bytes of a value (type word first). Single numbers and times come
// out as ranges and texts as text lists, the list forms evaluation results
// use. An error value gives TYPE_ERROR plus the WORD status; @Unavailable
// gives TYPE_UNAVAILABLE alone. Fails with ERR_COMPUTE_LENGTH_WORD when the
// bytes would not fit the 16-bit length of a result.
STATUS encode_value(const Value& value, std::string& out);

// The value of an item given by its data type and bytes (without the type
// word). Types the language cannot use give ERR_INVALID_TYPE_FOR_OP.
STATUS decode_value(WORD type, std::string_view bytes, Value& out);

// ---- text helpers shared by the @functions (LMBCS aware) ----

// Byte length of the LMBCS character starting at text[pos] (at least 1,
// never past the end).
size_t char_length_at(std::string_view text, size_t pos);
// Number of characters.
size_t char_count(std::string_view text);
// Byte offset of character number `chars` (clamped to the text's size).
size_t byte_offset_of_char(std::string_view text, size_t chars);

std::string to_upper(std::string_view text);
std::string to_lower(std::string_view text);
bool equal_ignoring_case(std::string_view a, std::string_view b);
// Order of texts for sorting and < >: alphabetic without case first, then
// lowercase before uppercase ("a" < "A" < "b").
int collate(std::string_view a, std::string_view b, bool case_sensitive = true);

// The general text form of a number ("3", "1.5", "1E+20").
std::string number_to_text(double n);
// Parses a whole text as a number (surrounding spaces allowed).
bool text_to_number(std::string_view text, double& out);

}  // namespace tarnwick::rt::formula
