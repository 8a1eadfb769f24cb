// The request document parser: matching rules, conversions, dates.
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <memory>
#include <string>
#include <utility>

#include "osenv.h"
#include "ostime.h"
#include "request/IPOOO.h"
#include "request/RequestTools.h"

namespace {

class RequestParserTest : public ::testing::Test {
 protected:
  void SetUp() override {
    dir_ = std::filesystem::temp_directory_path() /
           ("tarnwick_parser_" + std::to_string(::getpid()) + "_" +
            ::testing::UnitTest::GetInstance()->current_test_info()->name());
    std::filesystem::create_directories(dir_ / "spool");
    // Request files are read from the data directory's spool folder.
    std::ofstream(dir_ / "notes.ini") << "Directory=" << dir_.string() << "\n";
    std::string ini = "=" + (dir_ / "notes.ini").string();
    char* argv[] = {const_cast<char*>("test"), ini.data()};
    ASSERT_EQ(NotesInitExtended(2, argv), NOERROR);
  }
  void TearDown() override { std::filesystem::remove_all(dir_); }

  // Parses xml as a request file into context_; returns xmlParser's result.
  int parse(const std::string& xml) {
    path_ = (dir_ / "spool" / "request.xml").string();
    std::ofstream(path_) << xml;
    return context_.xmlParser(path_);
  }

  // The text of the IPException that parsing xml raises ("" if none).
  std::string failure(const std::string& xml) {
    try {
      parse(xml);
    } catch (const IPException& e) {
      return e.show();
    }
    return "";
  }

  std::filesystem::path dir_;
  std::string path_;
  IPOOO context_;
};

TEST_F(RequestParserTest, NamesMatchWithoutCaseAndAsPrefixes) {
  EXPECT_NE(parse("<r><usernameX ACTION='21' mqname='MQ$OOOServletList_3' MailBoxes='mail/jdoe.nsf' "
                  "MAILSERVER='CN=Srv1/O=Org' Unknown='x' User='y'>Jane Doe/Org</usernameX></r>"),
            0);
  EXPECT_EQ(context_.Username, "Jane Doe/Org");
  EXPECT_EQ(context_.Action, IPOOO::kActionSet);
  EXPECT_EQ(context_.MQName, "MQ$OOOServletList_3");
  EXPECT_EQ(context_.MailBox, "mail/jdoe.nsf");
  EXPECT_EQ(context_.MailServer, "CN=Srv1/O=Org");

  // Shorter than the keyword is no match: "User" is not "Username".
  IPOOO other;
  path_ = (dir_ / "spool" / "short.xml").string();
  std::ofstream(path_) << "<r><User MQName='Q'>x</User><Usernam MQName='Q'>y</Usernam></r>";
  other.xmlParser(path_);
  EXPECT_EQ(other.Username, "");
  EXPECT_EQ(other.MQName, "");
}

TEST_F(RequestParserTest, MailFileGetsItsDatabaseSuffixWhenMissing) {
  const std::pair<const char*, const char*> cases[] = {
      {"mail/jdoe", "mail/jdoe.nsf"},
      {"mail/jdoe.nsf", "mail/jdoe.nsf"},
      {"mail/JDOE.NSF", "mail/JDOE.NSF"},
      {"mail/jdoe.ns", "mail/jdoe.ns.nsf"},
      {"", ""},
  };
  for (const auto& [given, stored] : cases) {
    IPOOO context;
    path_ = (dir_ / "spool" / "mailbox.xml").string();
    std::ofstream(path_) << "<Username MailBox='" << given << "'>u</Username>";
    context.xmlParser(path_);
    EXPECT_EQ(context.MailBox, stored) << given;
  }
}

TEST_F(RequestParserTest, FirstRuleInTableOrderWins) {
  parse("<Username AppendSubjectDate='(back soon)' AppendSubject='1' ASDEnable='1'>u</Username>");
  EXPECT_EQ(context_.AppendSubjectDate, "(back soon)");
  EXPECT_TRUE(context_.AppendSubject);
  EXPECT_TRUE(context_.ASDEnable);

  // An attribute named AppendSubjectDate never reaches the AppendSubject flag.
  IPOOO other;
  path_ = (dir_ / "spool" / "other.xml").string();
  std::ofstream(path_) << "<Username AppendSubjectDate='1'>u</Username>";
  other.xmlParser(path_);
  EXPECT_EQ(other.AppendSubjectDate, "1");
  EXPECT_FALSE(other.AppendSubject);
}

TEST_F(RequestParserTest, FlagsAreSetOnlyByALeadingOne) {
  parse("<Username OOOEnable='true' IsIphone='1yes' IsAndroid='01' InternetAddress='1' ASDEnable=''>u</Username>");
  EXPECT_FALSE(context_.OOOEnable);
  EXPECT_TRUE(context_.IsIphone);
  EXPECT_FALSE(context_.IsAndroid);
  EXPECT_TRUE(context_.InternetAddress);
  EXPECT_FALSE(context_.ASDEnable);
}

TEST_F(RequestParserTest, ActionIsChosenByTheFirstCharacterOnly) {
  const std::pair<const char*, WORD> cases[] = {{"1", 1}, {"2", 2}, {"3xyz", 3}, {"21", 2},
                                                {"4", 0}, {"0", 0}, {"", 0},     {" 1", 0}};
  for (const auto& [value, expected] : cases) {
    parse(std::string("<Username Action='") + value + "'>u</Username>");
    EXPECT_EQ(context_.Action, expected) << "Action='" << value << "'";
  }
}

TEST_F(RequestParserTest, ValuesAreConvertedAsTheirKindSays) {
  parse(
      "<Username Message='Bin weg&#10;Grüße' Subject='Außer Haus' DaysOut='Tage' ShowHours='Grüße' "
      "LoginName='Jürgen Müller' LoginServer='Sörver' QueryUser='Zoë'>Jürgen Müller</Username>");
  // Request values for the platform are LMBCS...
  EXPECT_EQ(context_.Username, "J\x81rgen M\x81ller");
  EXPECT_EQ(context_.Message, "Bin weg\nGr\x81\xE1" "e");
  EXPECT_EQ(context_.Subject, "Au\xE1" "er Haus");
  EXPECT_EQ(context_.DaysOut, "Tage");
  // ...the front end's values stay UTF-8.
  EXPECT_EQ(context_.ShowHours, "Grüße");
  EXPECT_EQ(context_.LoginName, "Jürgen Müller");
  EXPECT_EQ(context_.LoginServer, "Sörver");
  EXPECT_EQ(context_.QueryUser, "Zoë");
}

TEST_F(RequestParserTest, TheUsernameElementAloneCarriesTheRequest) {
  parse(
      "<Request MQName='wrong'><Header Action='2'>ignored</Header>"
      "<Username MQName='first' Action='1'>Jane <b>Doe</b></Username>"
      "<Other><UserName MQName='second'>John</UserName></Other></Request>");
  // A later Username element overwrites what an earlier one stored.
  EXPECT_EQ(context_.Username, "John");
  EXPECT_EQ(context_.MQName, "second");
  EXPECT_EQ(context_.Action, 1);

  parse("<Username MQName='q'>Jane <b>Doe</b><!-- note --></Username>");
  EXPECT_EQ(context_.Username, "Jane Doe");
}

TEST_F(RequestParserTest, DatePartsMakeTheLeavingAndReturningTimes) {
  parse(
      "<Username StartTimeYear='2031' StartTimeMonth='7' StartTimeDay='14' StartTimeHour='9' StartTimeMin='30' "
      "StartTimeSec='15' EndTimeYear='2031' EndTimeMonth='8' EndTimeDay='1' EndTimeHour='17' EndTimeMin='0' "
      "EndTimeSec='0'>u</Username>");
  TIME leave{};
  leave.year = 2031;
  leave.month = 7;
  leave.day = 14;
  leave.hour = 9;
  leave.minute = 30;
  leave.second = 15;
  OSCurrentTimeZone(&leave.zone, &leave.dst);
  ASSERT_FALSE(TimeLocalToGM(&leave));
  EXPECT_TRUE(TimeDateEqual(&context_.leaveTime, &leave.GM));
  EXPECT_EQ(TimeDateDifference(&context_.returnTime, &context_.leaveTime),
            (18 * 24 + 7) * 3600 + 29 * 60 + 45);

  // Decimal conversion stops at the first non-digit.
  parse("<Username StartTimeYear='2031x' StartTimeMonth='07' StartTimeDay='14th' StartTimeHour='9'"
        " EndTimeYear='2031' EndTimeMonth='8' EndTimeDay='1'>u</Username>");
  TIME again{};
  again.year = 2031;
  again.month = 7;
  again.day = 14;
  again.hour = 9;
  OSCurrentTimeZone(&again.zone, &again.dst);
  ASSERT_FALSE(TimeLocalToGM(&again));
  EXPECT_TRUE(TimeDateEqual(&context_.leaveTime, &again.GM));
}

TEST_F(RequestParserTest, InvalidDatesFailTheRequestWithTheirMessages) {
  EXPECT_EQ(failure("<Username StartTimeYear='2031' StartTimeMonth='13' StartTimeDay='1' EndTimeYear='2031' "
                    "EndTimeMonth='8' EndTimeDay='1'>u</Username>"),
            "receiveElements:The leaving date is invalid..");
  EXPECT_EQ(failure("<Username StartTimeYear='2031' StartTimeMonth='7' StartTimeDay='1' EndTimeYear='2031' "
                    "EndTimeMonth='2' EndTimeDay='30'>u</Username>"),
            "receiveElements:The returning date is invalid.");
  // Values stored before the failure stay in the context.
  EXPECT_EQ(failure("<Username MQName='reply' StartTimeMonth='13'>u</Username>"),
            "receiveElements:The leaving date is invalid..");
  EXPECT_EQ(context_.MQName, "reply");
}

TEST_F(RequestParserTest, EmptyOrBrokenDocumentsRaiseFromXmlParser) {
  EXPECT_EQ(failure(""), "xmlParser:Empty XML document");
  EXPECT_EQ(failure("<?xml version='1.0'?>\n"), "xmlParser:Empty XML document");
  // The parser stops at the first fatal error; what was read before counts.
  parse("<r><Username MQName='q'>u</Username><broken");
  EXPECT_EQ(context_.MQName, "q");
}

TEST_F(RequestParserTest, ExternalEntitiesAreNotFetched) {
  std::ofstream(dir_ / "spool" / "secret.txt") << "secret";
  parse("<!DOCTYPE r [<!ENTITY s SYSTEM '" + (dir_ / "spool" / "secret.txt").string() +
        "'>]><r><Username MQName='q'>a&s;b</Username></r>");
  EXPECT_EQ(context_.Username.find("secret"), std::string::npos);
}

// Contexts of one worker share its tools in turn: each request is parsed
// as by a context of its own, whatever the request before it was (a
// document type of its own, a broken document, long texts).
TEST_F(RequestParserTest, ContextsOnSharedToolsParseAsContextsOfTheirOwn) {
  RequestTools tools;
  auto parsed = [&](const std::string& xml, std::string& failureText) {
    auto context = std::make_unique<IPOOO>(tools);
    std::string path = (dir_ / "spool" / "shared.xml").string();
    std::ofstream(path) << xml;
    failureText.clear();
    try {
      context->xmlParser(path);
    } catch (const IPException& e) {
      failureText = e.show();
    }
    return context;
  };
  std::string failed;
  const std::string longSubject(20000, 's');
  auto first = parsed("<!DOCTYPE r [<!ATTLIST Username Action CDATA '2'>]><r><Username MQName='q1' LoginName='L\u00e9'"
                      " Subject='" + longSubject + "'>Jane</Username></r>", failed);
  EXPECT_EQ(failed, "");
  EXPECT_EQ(first->Action, 2) << "the default of the document's own type";
  EXPECT_EQ(first->Subject, longSubject);
  EXPECT_EQ(first->Username, "Jane");
  first.reset();

  auto broken = parsed("<r><Username MQName='q2'>x</Username><broken", failed);
  EXPECT_EQ(broken->MQName, "q2");  // the parse stopped at the break
  broken.reset();

  auto plain = parsed("<r><Username MQName='q3'>Wei</Username></r>", failed);
  EXPECT_EQ(failed, "");
  EXPECT_EQ(plain->Action, 0) << "no default carried over from an earlier document type";
  EXPECT_EQ(plain->Subject, "");
  EXPECT_EQ(plain->LoginName, "");
  EXPECT_EQ(plain->Username, "Wei");
  EXPECT_EQ(plain->MQName, "q3");
  EXPECT_EQ(plain->utf8Of(u"\u00e9t\u00e9"), "\xC3\xA9t\xC3\xA9");
}

}  // namespace
