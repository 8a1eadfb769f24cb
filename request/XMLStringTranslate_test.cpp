#include "request/XMLStringTranslate.h"

#include <gtest/gtest.h>
#include <xercesc/util/PlatformUtils.hpp>

#include <string>

using namespace xercesc;

namespace {

class XMLStringTranslateTest : public ::testing::Test {
 protected:
  static void SetUpTestSuite() { XMLPlatformUtils::Initialize(); }
  static void TearDownTestSuite() { XMLPlatformUtils::Terminate(); }
};

std::u16string wide(const XMLCh* text) { return std::u16string(reinterpret_cast<const char16_t*>(text)); }

TEST_F(XMLStringTranslateTest, EmptyTextsPassUnchanged) {
  XMLStringTranslate translator("utf-8");
  std::string empty;
  EXPECT_EQ(translator.TranslatorUTF8ToLMBCS(empty), 1);
  EXPECT_EQ(empty, "");
  EXPECT_EQ(translator.TranslatorLMBCSToUTF8(empty), 1);
  EXPECT_EQ(empty, "");
  EXPECT_EQ(wide(translator.translate(static_cast<const char*>(nullptr))), u"");
  EXPECT_EQ(wide(translator.translate("")), u"");
  EXPECT_EQ(translator.translate(static_cast<const XMLCh*>(nullptr)), "");
}

TEST_F(XMLStringTranslateTest, Utf8AndUtf16RoundTrip) {
  XMLStringTranslate translator("UTF-8");
  EXPECT_EQ(wide(translator.translate("Jürgen Müller/Zürich")), u"Jürgen Müller/Zürich");
  EXPECT_EQ(translator.translate(u"Ångström €5 日本"), "Ångström €5 日本");
  // A later call replaces the earlier result instead of adding to it.
  EXPECT_EQ(translator.translate(u"ab"), "ab");
}

TEST_F(XMLStringTranslateTest, LongTextComesOutWhole) {
  // Longer than the formatter's own buffer, so it arrives in several pieces.
  std::u16string text;
  std::string expected;
  for (int i = 0; i < 9000; ++i) {
    text += u"ä€";
    expected += "ä€";
  }
  XMLStringTranslate translator("utf-8");
  EXPECT_EQ(translator.translate(reinterpret_cast<const XMLCh*>(text.c_str())), expected);
}

TEST_F(XMLStringTranslateTest, NamesGoThroughLmbcsAndBack) {
  XMLStringTranslate translator("utf-8");
  std::string ascii = "CN=Jane Doe/O=Acme\r\n\tmail/jdoe.nsf";
  translator.TranslatorUTF8ToLMBCS(ascii);
  EXPECT_EQ(ascii, "CN=Jane Doe/O=Acme\r\n\tmail/jdoe.nsf");

  std::string name = "Jürgen Müller";
  translator.TranslatorUTF8ToLMBCS(name);
  // Western European letters are single bytes of the platform's group 1.
  EXPECT_EQ(name, "J\x81rgen M\x81ller");
  translator.TranslatorLMBCSToUTF8(name);
  EXPECT_EQ(name, "Jürgen Müller");

  std::string mixed = "Ελένη 李 Zoë";
  const std::string original = mixed;
  translator.TranslatorUTF8ToLMBCS(mixed);
  EXPECT_NE(mixed, original);
  translator.TranslatorLMBCSToUTF8(mixed);
  EXPECT_EQ(mixed, original);
}

using XMLStringTranslateDeathTest = XMLStringTranslateTest;

TEST_F(XMLStringTranslateDeathTest, TextThatDoesNotSurviveTheRoundTripStopsTheProcess) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  EXPECT_DEATH(
      {
        XMLStringTranslate translator("utf-8");
        translator.translate("bad \xC3\x28 byte");
      },
      "t1==t2");
  EXPECT_DEATH(
      {
        XMLStringTranslate translator("utf-8");
        std::string tooLong(XMLStringTranslate::kWideChars + 1, 'x');
        translator.translate(tooLong.c_str());
      },
      "t1==t2");
  // Exactly the buffer's size still fits.
  XMLStringTranslate translator("utf-8");
  std::string fits(XMLStringTranslate::kWideChars, 'y');
  EXPECT_EQ(translator.translate(translator.translate(fits.c_str())), fits);
}

}  // namespace
