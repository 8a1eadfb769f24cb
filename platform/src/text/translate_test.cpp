#include <gtest/gtest.h>
#include <unicode/utf16.h>

#include <cstring>

#include <string>
#include <thread>
#include <vector>

#include "osmisc.h"
#include "text/lmbcs.h"

namespace {

// Translates with a generous buffer.
std::string translate(WORD mode, const std::string& in) {
  std::string out(in.size() * 4 + 16, '\0');
  WORD length = OSTranslate(mode, in.data(), static_cast<WORD>(in.size()), out.data(), static_cast<WORD>(out.size()));
  out.resize(length);
  return out;
}

std::string bytes(std::initializer_list<int> values) {
  std::string out;
  for (int v : values) out.push_back(static_cast<char>(v));
  return out;
}

std::string utf16le(const std::u16string& text) {
  std::string out;
  for (char16_t unit : text) {
    out.push_back(static_cast<char>(unit & 0xFF));
    out.push_back(static_cast<char>(unit >> 8));
  }
  return out;
}

const char* const kSamples[] = {
    "Jane Doe/Sales/Acme",
    "Müller, José, Ærø",
    "日本語テキスト",
    "Жизнь и судьба",
    "Ωμέγα",
    "grin 😀 and ☃ snow",
    "mixed: Köln 東京 Москва 😀\r\n\tend",
};

TEST(OSTranslateText, Utf8RoundTripsThroughLmbcs) {
  for (const char* sample : kSamples) {
    const std::string lmbcs = translate(OS_TRANSLATE_UTF8_TO_LMBCS, sample);
    EXPECT_FALSE(lmbcs.empty()) << sample;
    EXPECT_EQ(translate(OS_TRANSLATE_LMBCS_TO_UTF8, lmbcs), sample);
    // The native character set is UTF-8 on this system.
    EXPECT_EQ(translate(OS_TRANSLATE_NATIVE_TO_LMBCS, sample), lmbcs);
    EXPECT_EQ(translate(OS_TRANSLATE_LMBCS_TO_NATIVE, lmbcs), sample);
  }
}

TEST(OSTranslateText, LmbcsBytesFollowTheGroupRules) {
  // Plain ASCII is unchanged.
  EXPECT_EQ(translate(OS_TRANSLATE_UTF8_TO_LMBCS, "CN=Jane/O=Acme"), "CN=Jane/O=Acme");
  // Group 1 (code page 850) is the optimisation group: one byte, no group byte.
  EXPECT_EQ(translate(OS_TRANSLATE_UTF8_TO_LMBCS, "ü"), bytes({0x81}));
  EXPECT_EQ(translate(OS_TRANSLATE_UTF8_TO_LMBCS, "Müller"), bytes({'M', 0x81, 'l', 'l', 'e', 'r'}));
  EXPECT_EQ(translate(OS_TRANSLATE_UTF8_TO_LMBCS, "éÆø"), bytes({0x82, 0x92, 0x9B}));
  // Cyrillic: group 0x05 (code page 1251), Ж = 0xC6 there.
  EXPECT_EQ(translate(OS_TRANSLATE_UTF8_TO_LMBCS, "Ж"), bytes({0x05, 0xC6}));
  // Japanese: group 0x10 and the two bytes of code page 932 (日 = 0x93FA).
  EXPECT_EQ(translate(OS_TRANSLATE_UTF8_TO_LMBCS, "日"), bytes({0x10, 0x93, 0xFA}));
  // Outside every code page: the Unicode group, UTF-16 big-endian, with a
  // zero low byte written as 0xF6 + high byte (U+1F600 = D83D DE00).
  EXPECT_EQ(translate(OS_TRANSLATE_UTF8_TO_LMBCS, "😀"), bytes({0x14, 0xD8, 0x3D, 0x14, 0xF6, 0xDE}));
  // Controls other than TAB, LF, CR move to the control group.
  EXPECT_EQ(translate(OS_TRANSLATE_UTF8_TO_LMBCS, "\x01\t"), bytes({0x0F, 0x21, 0x09}));
  // And back.
  EXPECT_EQ(translate(OS_TRANSLATE_LMBCS_TO_UTF8, bytes({0x81, 0x05, 0xC6, 0x10, 0x93, 0xFA})), "üЖ日");
}

TEST(OSTranslateText, Utf16ModesUseLittleEndianHostOrder) {
  EXPECT_EQ(translate(OS_TRANSLATE_LMBCS_TO_UNICODE, "Hi"), bytes({'H', 0, 'i', 0}));
  EXPECT_EQ(translate(OS_TRANSLATE_LMBCS_TO_UNICODE, bytes({0x81, 0x05, 0xC6})), bytes({0xFC, 0x00, 0x16, 0x04}));
  EXPECT_EQ(translate(OS_TRANSLATE_UNICODE_TO_LMBCS, utf16le(u"Hi")), "Hi");
  EXPECT_EQ(translate(OS_TRANSLATE_UNICODE_TO_LMBCS, utf16le(u"Müller 😀")),
            translate(OS_TRANSLATE_UTF8_TO_LMBCS, "Müller 😀"));
  // An odd trailing byte is not a whole unit and is ignored.
  EXPECT_EQ(translate(OS_TRANSLATE_UNICODE_TO_LMBCS, utf16le(u"ab") + "x"), "ab");
  for (const char* sample : kSamples) {
    const std::string lmbcs = translate(OS_TRANSLATE_UTF8_TO_LMBCS, sample);
    EXPECT_EQ(translate(OS_TRANSLATE_UNICODE_TO_LMBCS, translate(OS_TRANSLATE_LMBCS_TO_UNICODE, lmbcs)), lmbcs);
  }
}

TEST(OSTranslateText, CaseMappingAndAccentRemoval) {
  const auto lmbcs = [](const char* utf8) { return translate(OS_TRANSLATE_UTF8_TO_LMBCS, utf8); };
  EXPECT_EQ(translate(OS_TRANSLATE_LOWER_TO_UPPER, "Jane Doe/acme"), "JANE DOE/ACME");
  EXPECT_EQ(translate(OS_TRANSLATE_UPPER_TO_LOWER, "Jane Doe/ACME"), "jane doe/acme");
  EXPECT_EQ(translate(OS_TRANSLATE_LOWER_TO_UPPER, lmbcs("müller жизнь straße")), lmbcs("MÜLLER ЖИЗНЬ STRASSE"));
  EXPECT_EQ(translate(OS_TRANSLATE_UPPER_TO_LOWER, lmbcs("MÜLLER ЖИЗНЬ")), lmbcs("müller жизнь"));
  EXPECT_EQ(translate(OS_TRANSLATE_UNACCENT, lmbcs("Müller, José, Ærø, Ñandú")), lmbcs("Muller, Jose, Ærø, Nandu"));
  EXPECT_EQ(translate(OS_TRANSLATE_UNACCENT, "plain"), "plain");
}

// The characters of a translation's output, whatever its character set.
std::u16string output_characters(WORD mode, const std::string& output) {
  using namespace tarnwick::rt::text;
  switch (mode) {
    case OS_TRANSLATE_LMBCS_TO_UNICODE: {
      std::u16string units(output.size() / 2, u'\0');
      std::memcpy(units.data(), output.data(), units.size() * 2);
      return units;
    }
    case OS_TRANSLATE_LMBCS_TO_UTF8: {
      std::u16string units;
      utf8_to_utf16(output, units);
      return units;
    }
    default:
      return lmbcs_to_utf16(output);
  }
}

// For every output size, the translation writes only inside the buffer, is a
// prefix of the full translation, and ends on a character boundary.
void expect_bounded(WORD mode, const std::string& in) {
  const std::string full = translate(mode, in);
  for (size_t size = 0; size <= full.size() + 2; ++size) {
    std::string buffer(size + 8, '\x5A');
    WORD length =
        OSTranslate(mode, in.data(), static_cast<WORD>(in.size()), buffer.data() + 4, static_cast<WORD>(size));
    ASSERT_LE(length, size);
    for (int guard = 0; guard < 4; ++guard) {
      ASSERT_EQ(buffer[guard], '\x5A') << "wrote before the buffer, size " << size;
      ASSERT_EQ(buffer[size + 4 + guard], '\x5A') << "wrote past the buffer, size " << size;
    }
    const std::string written = buffer.substr(4, length);
    ASSERT_EQ(written, full.substr(0, length)) << "size " << size;
    // Whole characters only: no broken sequence, no half surrogate pair.
    const std::u16string characters = output_characters(mode, written);
    ASSERT_EQ(characters.find(u'\uFFFD'), std::u16string::npos) << "size " << size;
    ASSERT_FALSE(!characters.empty() && U16_IS_LEAD(characters.back())) << "size " << size;
    // Nothing is dropped that would have fitted: the next character is longer
    // than the room left.
    if (length < full.size()) {
      ASSERT_GT(length + 6, size) << "size " << size;
    }
  }
}

TEST(OSTranslateText, BoundedOutputNeverOverrunsOrSplitsACharacter) {
  for (const char* sample : kSamples) {
    SCOPED_TRACE(sample);
    const std::string lmbcs = translate(OS_TRANSLATE_UTF8_TO_LMBCS, sample);
    expect_bounded(OS_TRANSLATE_UTF8_TO_LMBCS, sample);
    expect_bounded(OS_TRANSLATE_LMBCS_TO_UTF8, lmbcs);
    expect_bounded(OS_TRANSLATE_LMBCS_TO_UNICODE, lmbcs);
    expect_bounded(OS_TRANSLATE_UNICODE_TO_LMBCS, translate(OS_TRANSLATE_LMBCS_TO_UNICODE, lmbcs));
    expect_bounded(OS_TRANSLATE_LOWER_TO_UPPER, lmbcs);
  }
}

TEST(OSTranslateText, BadInputGivesNothingOrReplacementsNeverACrash) {
  char out[32];
  EXPECT_EQ(OSTranslate(OS_TRANSLATE_UTF8_TO_LMBCS, nullptr, 5, out, sizeof out), 0);
  EXPECT_EQ(OSTranslate(OS_TRANSLATE_UTF8_TO_LMBCS, "abc", 3, nullptr, 10), 0);
  EXPECT_EQ(OSTranslate(OS_TRANSLATE_UTF8_TO_LMBCS, "abc", 3, out, 0), 0);
  EXPECT_EQ(OSTranslate(2, "abc", 3, out, sizeof out), 0);
  EXPECT_EQ(OSTranslate(99, "ab\x81", 3, out, sizeof out), 0);
  // Malformed UTF-8 and LMBCS become U+FFFD, the rest survives.
  EXPECT_EQ(translate(OS_TRANSLATE_LMBCS_TO_UTF8, translate(OS_TRANSLATE_UTF8_TO_LMBCS, "a\xC3(b")), "a\xEF\xBF\xBD(b");
  EXPECT_EQ(translate(OS_TRANSLATE_LMBCS_TO_UTF8, bytes({'a', 0x07, 'b', 0x10, 0x93})), "a\xEF\xBF\xBD" "b\xEF\xBF\xBD");
}

TEST(OSTranslateConcurrency, ThreadsTranslateIndependently) {
  std::vector<std::string> expected;
  for (const char* sample : kSamples) expected.push_back(translate(OS_TRANSLATE_UTF8_TO_LMBCS, sample));
  std::vector<std::thread> threads;
  std::vector<int> failures(4, 0);
  for (int t = 0; t < 4; ++t) {
    threads.emplace_back([&, t] {
      for (int round = 0; round < 200; ++round) {
        for (size_t i = 0; i < std::size(kSamples); ++i) {
          const std::string lmbcs = translate(OS_TRANSLATE_UTF8_TO_LMBCS, kSamples[i]);
          if (lmbcs != expected[i] || translate(OS_TRANSLATE_LMBCS_TO_UTF8, lmbcs) != kSamples[i]) ++failures[t];
        }
      }
    });
  }
  for (auto& thread : threads) thread.join();
  for (int t = 0; t < 4; ++t) EXPECT_EQ(failures[t], 0) << "thread " << t;
}

}  // namespace
