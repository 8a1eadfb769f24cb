#include <gtest/gtest.h>
#include <unicode/ucnv.h>
#include <unicode/utf16.h>

#include <random>
#include <set>
#include <string>
#include <vector>

#include "text/lmbcs.h"

namespace {

using namespace tarnwick::rt::text;

// Where ICU's own converter starts each character of `lmbcs`.
std::set<size_t> icu_character_starts(const std::string& lmbcs) {
  UErrorCode error = U_ZERO_ERROR;
  UConverter* converter = ucnv_open("LMBCS-1", &error);
  EXPECT_TRUE(U_SUCCESS(error));
  std::vector<UChar> units(lmbcs.size() + 1);
  std::vector<int32_t> offsets(lmbcs.size() + 1);
  UChar* target = units.data();
  const char* source = lmbcs.data();
  ucnv_toUnicode(converter, &target, units.data() + units.size(), &source, lmbcs.data() + lmbcs.size(),
                 offsets.data(), true, &error);
  ucnv_close(converter);
  EXPECT_TRUE(U_SUCCESS(error));
  std::set<size_t> starts;
  for (ptrdiff_t i = 0; i < target - units.data(); ++i) {
    if (!U16_IS_TRAIL(units[i])) starts.insert(static_cast<size_t>(offsets[i]));
  }
  return starts;
}

std::set<size_t> our_character_starts(const std::string& lmbcs) {
  std::set<size_t> starts;
  const auto* bytes = reinterpret_cast<const unsigned char*>(lmbcs.data());
  for (size_t position = 0; position < lmbcs.size();) {
    starts.insert(position);
    position += lmbcs_char_length(bytes + position, lmbcs.size() - position);
  }
  return starts;
}

TEST(Lmbcs, CharacterLengthsAgreeWithTheConverter) {
  // Text from many scripts, converted by ICU, then walked both ways.
  const char32_t ranges[][2] = {{0x20, 0x7E},     {0xA0, 0x17F},   {0x370, 0x3FF},   {0x400, 0x4FF},
                                {0x5D0, 0x5EA},   {0x620, 0x64A},  {0xE01, 0xE3A},   {0x3041, 0x30FF},
                                {0x4E00, 0x9FFF}, {0xAC00, 0xD7A3}, {0x1F600, 0x1F64F}, {0x1, 0x1F}};
  std::mt19937 random(12345);
  for (int round = 0; round < 200; ++round) {
    std::u32string text;
    for (int i = 0; i < 40; ++i) {
      const auto& range = ranges[random() % std::size(ranges)];
      text.push_back(range[0] + random() % (range[1] - range[0] + 1));
    }
    std::u16string utf16;
    for (char32_t c : text) {
      if (c > 0xFFFF) {
        utf16.push_back(static_cast<char16_t>(0xD7C0 + (c >> 10)));
        utf16.push_back(static_cast<char16_t>(0xDC00 | (c & 0x3FF)));
      } else {
        utf16.push_back(static_cast<char16_t>(c));
      }
    }
    const std::string lmbcs = utf16_to_lmbcs(utf16);
    ASSERT_EQ(our_character_starts(lmbcs), icu_character_starts(lmbcs)) << "round " << round;
    ASSERT_EQ(lmbcs_to_utf16(lmbcs), utf16);
  }
}

TEST(Lmbcs, FitKeepsWholeCharacters) {
  const std::string text = "a\x81\x05\xC6\x10\x93\xFA\x14\xD8\x3D\x14\xF6\xDE" "b";  // a ü Ж 日 😀 b
  const size_t expected[] = {0, 1, 2, 2, 4, 4, 4, 7, 7, 7, 7, 7, 7, 13, 14, 14};
  for (size_t limit = 0; limit < std::size(expected); ++limit) {
    EXPECT_EQ(lmbcs_fit(text, limit), expected[limit]) << limit;
  }
  // A character cut off by the end of the text counts only what is there.
  EXPECT_EQ(lmbcs_fit("ab\x10", 10), 3u);
  EXPECT_EQ(utf8_fit("a\xC3\xBC\xF0\x9F\x98\x80", 2), 1u);
  EXPECT_EQ(utf8_fit("a\xC3\xBC\xF0\x9F\x98\x80", 6), 3u);
  EXPECT_EQ(utf16_fit(u"a\U0001F600", 2), 1u);
  EXPECT_EQ(utf16_fit(u"a\U0001F600", 3), 3u);
}

TEST(Lmbcs, CompareIgnoringCase) {
  EXPECT_EQ(lmbcs_compare_ignore_case("Jane Doe", "JANE DOE"), 0);
  EXPECT_LT(lmbcs_compare_ignore_case("Jane", "jane doe"), 0);
  EXPECT_GT(lmbcs_compare_ignore_case("Zed", "adam"), 0);
  EXPECT_EQ(lmbcs_compare_ignore_case(utf8_to_lmbcs("Müller Жизнь"), utf8_to_lmbcs("MÜLLER ЖИЗНЬ")), 0);
  EXPECT_NE(lmbcs_compare_ignore_case(utf8_to_lmbcs("Müller"), utf8_to_lmbcs("Muller")), 0);
  EXPECT_EQ(lmbcs_to_utf8(utf8_to_lmbcs("Ærø 日本")), "Ærø 日本");
}

}  // namespace
