#include "request/XMLStringTranslate.h"

#include <gtest/gtest.h>
#include <unistd.h>
#include <xercesc/util/PlatformUtils.hpp>

#include <filesystem>
#include <fstream>
#include <string>

#include "osenv.h"
#include "request/IPException.h"

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

// Lengths pass the platform as 16 bits: what does not fit is refused with
// an error, never cut.
TEST_F(XMLStringTranslateTest, TextsBeyondSixteenBitLengthsAreRefused) {
  XMLStringTranslate translator("utf-8");
  std::string fits(XMLStringTranslate::kMaxConvertedBytes - 8, 'a');
  translator.TranslatorUTF8ToLMBCS(fits);
  EXPECT_EQ(fits, std::string(XMLStringTranslate::kMaxConvertedBytes - 8, 'a'));

  std::string longInput(XMLStringTranslate::kMaxConvertedBytes + 1, 'a');
  try {
    translator.TranslatorUTF8ToLMBCS(longInput);
    ADD_FAILURE() << "a text over the limit was converted";
  } catch (const IPException& e) {
    EXPECT_EQ(e.show(), "TranslatorUTF8ToLMBCS:The text is longer than 65535 bytes and cannot be converted");
  }
  EXPECT_EQ(longInput.size(), XMLStringTranslate::kMaxConvertedBytes + 1) << "left as it was";

  // Short enough going in, too long coming out: one LMBCS byte per letter
  // becomes two in UTF-8.
  std::string growing(40000, '\x81');
  EXPECT_THROW(translator.TranslatorLMBCSToUTF8(growing), IPException);
}

// A data directory whose notes.ini may switch the round-trip stop into an
// error of the one request.
class TextStopTest : public XMLStringTranslateTest {
 protected:
  void useSettings(const std::string& lines) {
    dir_ = std::filesystem::temp_directory_path() / ("tarnwick_textstop_" + std::to_string(::getpid()));
    std::filesystem::create_directories(dir_);
    std::ofstream(dir_ / "notes.ini") << "Directory=" << dir_.string() << "\n" << lines;
    std::string ini = "=" + (dir_ / "notes.ini").string();
    char* argv[] = {const_cast<char*>("test"), ini.data()};
    ASSERT_EQ(NotesInitExtended(2, argv), NOERROR);
  }
  void TearDown() override { std::filesystem::remove_all(dir_); }

  std::filesystem::path dir_;
  const std::string user_ = "CN=Jane Doe/O=Acme";
  const std::string request_ = "/data/spool/q1.xml";
};

TEST_F(TextStopTest, SwitchedOnTheFailureIsAnErrorOfTheRequestAndLogged) {
  useSettings("OOOTextErrorReply=1\n");
  XMLStringTranslate translator("utf-8");
  TextRequestScope scope(user_, request_);
  ::testing::internal::CaptureStdout();
  try {
    translator.translate("bad \xC3\x28 byte");
    ADD_FAILURE() << "the text was taken";
  } catch (const IPException& e) {
    EXPECT_EQ(e.show(), "translate:The text cannot be converted");
  }
  const std::string log = ::testing::internal::GetCapturedStdout();
  EXPECT_NE(log.find("Tarnwick: Text conversion failed for [CN=Jane Doe/O=Acme] in request /data/spool/q1.xml: "
                     "the request is refused"),
            std::string::npos)
      << log;
  // A good text afterwards is converted as ever.
  EXPECT_EQ(wide(translator.translate("fine")), u"fine");
}

using TextStopDeathTest = TextStopTest;

TEST_F(TextStopDeathTest, ByDefaultTheStopIsLoggedWithUserAndRequestFirst) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  useSettings("");
  EXPECT_DEATH(
      {
        ::dup2(STDERR_FILENO, STDOUT_FILENO);  // the log line, where the death test looks
        XMLStringTranslate translator("utf-8");
        TextRequestScope scope(user_, request_);
        translator.translate("bad \xC3\x28 byte");
      },
      "Text conversion failed for \\[CN=Jane Doe/O=Acme\\] in request /data/spool/q1.xml: the task stops.*t1==t2");
}

}  // namespace
