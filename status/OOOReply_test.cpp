// The reply document read back with the XML toolkit's own parser: the
// attributes in the order front ends rely on, the rules for optional and
// empty values, texts that must survive the trip (lines, markup characters,
// non-ASCII), and what a failure leaves in the reply file.
#include <gtest/gtest.h>
#include <unistd.h>

#include <xercesc/dom/DOM.hpp>
#include <xercesc/parsers/XercesDOMParser.hpp>

#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

#include "osenv.h"
#include "ostime.h"
#include "request/IPOOO.h"
#include "tests/support/reply_attributes.h"

namespace {

namespace fs = std::filesystem;
using namespace xercesc;

std::string utf8(const XMLCh* text) {
  XMLStringTranslate translate("UTF-8");
  return translate.translate(text);
}

// The User elements of a reply file as the toolkit's parser sees them.
struct ParsedUser {
  std::vector<std::string> names;  // attribute names as written
  std::vector<std::pair<std::string, std::string>> attributes;
  std::string text;
  std::string value(const std::string& name) const {
    for (const auto& [n, v] : attributes) {
      if (n == name) return v;
    }
    return "<missing>";
  }
};

std::string readFile(const fs::path& file) {
  std::ifstream in(file);
  std::stringstream text;
  text << in.rdbuf();
  return text.str();
}

// Attribute names in file order (the parser's map does not keep it).
std::vector<std::string> attributeNamesInFile(const std::string& xml) {
  std::vector<std::string> names;
  const size_t open = xml.find("<User ");
  const size_t close = xml.find('>', open);
  for (size_t at = open; at < close;) {
    const size_t equals = xml.find("=\"", at);
    if (equals == std::string::npos || equals > close) break;
    const size_t start = xml.rfind(' ', equals) + 1;
    names.push_back(xml.substr(start, equals - start));
    at = xml.find('"', equals + 2) + 1;
  }
  return names;
}

class OOOReplyTest : public ::testing::Test {
 protected:
  void SetUp() override {
    dir_ = fs::temp_directory_path() / ("tarnwick_reply_" + std::to_string(::getpid()) + "_" +
                                        ::testing::UnitTest::GetInstance()->current_test_info()->name());
    fs::create_directories(dir_);
    std::ofstream(dir_ / "notes.ini") << "Directory=" << dir_.string() << "\nServerName=CN=Srv1/O=Org\n";
    std::string ini = "=" + (dir_ / "notes.ini").string();
    char* argv[] = {const_cast<char*>("test"), ini.data()};
    ASSERT_EQ(NotesInitExtended(2, argv), NOERROR);
    std::filesystem::create_directories(dir_ / "spool");
    path_ = (dir_ / "spool" / "reply.xml").string();
    std::ofstream(path_) << "<request/>";
    fill(context_);
  }
  void TearDown() override { fs::remove_all(dir_); }

  // A context as getOOOContent leaves it, every optional text present.
  static void fill(IPOOO& c) {
    c.ownerName = "Jane Doe";
    c.oooSubject = "Away\nback Monday";
    c.oooMessage = "Dear <all> & \"friends\",\n\tsee you";
    c.agentMode = 0;
    c.showHoursText = "1";
    c.oooEnabled = 1;
    c.appendSubjectPresent = 1;
    c.appendSubjectFlag = 0;
    c.excludeInternet = 1;
    TIME t{};
    t.year = 2026, t.month = 3, t.day = 2, t.hour = 9, t.minute = 30, t.second = 15;
    TimeLocalToGM(&t);
    c.firstDayOut = c.startTime = t.GM;
    t.year = 2026, t.month = 3, t.day = 9, t.hour = 17, t.minute = 5, t.second = 0;
    TimeLocalToGM(&t);
    c.firstDayBack = c.endTime = t.GM;
    c.templateDaysOut = "from var_First until var_Back";
    c.templateDaysOutS = "until var_Back";
    c.templateDaysOutV = "V";
    c.daysOutValue = "5";
    c.templateAppendSubjectDate = "(returning var_Back)";
    c.appendSubjectDateValue = "d";
    c.templateResetSubject = "var_User est absente \xC3\xA9t\xC3\xA9";
    c.notifiedList = {"Ann Lee/Acme", "Bob Ray/Acme"};
  }

  ParsedUser parse() {
    ParsedUser user;
    user.names = attributeNamesInFile(readFile(path_));
    XercesDOMParser parser;
    parser.parse(path_.c_str());
    EXPECT_EQ(parser.getErrorCount(), 0u) << readFile(path_);
    DOMDocument* document = parser.getDocument();
    if (document == nullptr || document->getDocumentElement() == nullptr) return user;
    EXPECT_EQ(utf8(document->getDocumentElement()->getTagName()), "OOOReadObject");
    EXPECT_EQ(document->getDocumentElement()->getChildElementCount(), 1u);
    const DOMElement* element = document->getDocumentElement()->getFirstElementChild();
    if (element == nullptr) return user;
    EXPECT_EQ(utf8(element->getTagName()), "User");
    const DOMNamedNodeMap* attributes = element->getAttributes();
    for (XMLSize_t i = 0; i < attributes->getLength(); ++i) {
      user.attributes.emplace_back(utf8(attributes->item(i)->getNodeName()), utf8(attributes->item(i)->getNodeValue()));
    }
    user.text = utf8(element->getTextContent());
    return user;
  }

  fs::path dir_;
  std::string path_;
  IPOOO context_;
};

TEST_F(OOOReplyTest, AttributesComeInTheirOrderAndTextsSurviveTheParser) {
  ASSERT_EQ(context_.getOOOInfo(path_), "OK");
  const ParsedUser user = parse();
  EXPECT_EQ(user.names, tarnwick::testing::kReplyAttributes);
  EXPECT_EQ(user.value("Subject"), "Away\nback Monday");
  EXPECT_EQ(user.value("Message"), "Dear <all> & \"friends\",\n\tsee you");
  EXPECT_EQ(user.value("TaskType"), "2");
  EXPECT_EQ(user.value("ShowHours"), "1");
  EXPECT_EQ(user.value("ASDEnable"), "1");
  EXPECT_EQ(user.value("AppendSubject"), "0");
  EXPECT_EQ(user.value("InternetAddress"), "1");
  const std::vector<std::pair<const char*, const char*>> clock = {
      {"StartTimeYear", "2026"}, {"StartTimeMonth", "3"}, {"StartTimeDay", "2"},   {"StartTimeHour", "9"},
      {"StartTimeMin", "30"},    {"StartTimeSec", "15"},  {"EndTimeYear", "2026"}, {"EndTimeMonth", "3"},
      {"EndTimeDay", "9"},       {"EndTimeHour", "17"},   {"EndTimeMin", "5"},     {"EndTimeSec", "0"}};
  for (const auto& [name, value] : clock) EXPECT_EQ(user.value(name), value) << name;
  EXPECT_EQ(user.value("ResetSubject"), "var_User est absente \xC3\xA9t\xC3\xA9");
  EXPECT_EQ(user.value("Notified"), "Ann Lee/Acme;Bob Ray/Acme");
  EXPECT_EQ(user.value("User_Status"), "1");
  EXPECT_EQ(user.value("BuildVersion"), "230");
  EXPECT_EQ(user.text, "Jane Doe");
}

TEST_F(OOOReplyTest, EmptyAndAgentModeValues) {
  context_.oooSubject.clear();
  context_.oooMessage.clear();
  context_.agentMode = 1;  // ShowHours is "0" whatever the profile says
  context_.ownerName.clear();
  context_.notifiedList = {"Ann Lee/Acme"};
  context_.templateDaysOutS.clear();
  context_.daysOutValue.clear();
  OSSetEnvironmentVariable("AMString", "");
  ASSERT_EQ(context_.getOOOInfo(path_), "OK");
  const ParsedUser user = parse();
  EXPECT_EQ(user.value("Subject"), "<missing>");
  EXPECT_EQ(user.value("DaysOut_S"), "<missing>");
  EXPECT_EQ(user.value("DaysOutValue"), "<missing>");
  EXPECT_EQ(user.value("Message"), "");
  EXPECT_EQ(user.value("TaskType"), "1");
  EXPECT_EQ(user.value("ShowHours"), "0");
  EXPECT_EQ(user.value("AMString"), "");
  EXPECT_EQ(user.value("PMString"), "PM");
  EXPECT_EQ(user.value("Notified"), "Ann Lee/Acme");
  EXPECT_EQ(user.text, "Unknow");
  EXPECT_EQ(user.names.size(), 32u);

  context_.notifiedList.clear();
  ASSERT_EQ(context_.getOOOInfo(path_), "OK");
  EXPECT_EQ(parse().value("Notified"), "");
}

TEST_F(OOOReplyTest, ATimeThatCannotBeConvertedLeavesAnEmptyReplyFile) {
  context_.firstDayBack = TIMEDATE{{ALLDAY, ANYDAY}};
  try {
    context_.getOOOInfo(path_);
    ADD_FAILURE() << "the end date cannot be converted";
  } catch (const IPException& e) {
    EXPECT_EQ(e.show(), "getOOOInfo:Convert Time error");
  }
  EXPECT_TRUE(fs::exists(path_));
  EXPECT_EQ(fs::file_size(path_), 0u);
}

// The whole file, byte for byte: front ends and the gateway read it as it
// stands, so every escape, replacement and attribute place counts.
TEST_F(OOOReplyTest, ReplyFileIsExactlyTheDocumentFrontEndsRead) {
  context_.oooSubject = "Tab\there\r\nnext 'quoted' \xF0\x9F\x98\x80";
  context_.oooMessage = "a<b>&c\"d\x1E\x7F\xC2\x85\xEF\xBF\xBE\xEF\xBF\xBF\xEF\xBF\xBD\xED\x9F\xBF\xEE\x80\x80";
  context_.ownerName = "Jane <&> \"Doe\"\t\r\n\x02";
  context_.notifiedList = {"Ann Lee/Acme", "Z\xC3\xBC/Acme"};
  context_.templateDaysOutV = "\xF4\x8F\xBF\xBF]]>";
  ASSERT_EQ(context_.getOOOInfo(path_), "OK");
  EXPECT_EQ(readFile(path_),
            "<?xml version=\"1.0\" encoding=\"UTF-8\" standalone=\"no\" ?><OOOReadObject><User"
            " Subject=\"Tab&#x9;here&#xD;&#xA;next 'quoted' \xF0\x9F\x98\x80\""
            " Message=\"a&lt;b&gt;&amp;c&quot;d\xEF\xBF\xBD\x7F\xC2\x85\xEF\xBF\xBD\xEF\xBF\xBD\xEF\xBF\xBD"
            "\xED\x9F\xBF\xEE\x80\x80\""
            " TaskType=\"2\" OOOEnable=\"1\" ShowHours=\"1\" ASDEnable=\"1\" AppendSubject=\"0\" InternetAddress=\"1\""
            " StartTimeYear=\"2026\" StartTimeMonth=\"3\" StartTimeDay=\"2\" StartTimeHour=\"9\" StartTimeMin=\"30\""
            " StartTimeSec=\"15\" EndTimeYear=\"2026\" EndTimeMonth=\"3\" EndTimeDay=\"9\" EndTimeHour=\"17\""
            " EndTimeMin=\"5\" EndTimeSec=\"0\" DaysOut=\"from var_First until var_Back\" DaysOut_S=\"until var_Back\""
            " DaysOut_V=\"\xF4\x8F\xBF\xBF]]&gt;\" DaysOutValue=\"5\" AppendSubjectDate=\"(returning var_Back)\""
            " AppendSubjectDateValue=\"d\" ResetSubject=\"var_User est absente \xC3\xA9t\xC3\xA9\" DateFlag=\"292\""
            " AMString=\"AM\" PMString=\"PM\" DateString=\"/\" TimeString=\":\" User_Status=\"1\""
            " Notified=\"Ann Lee/Acme;Z\xC3\xBC/Acme\" BuildVersion=\"230\">"
            "Jane &lt;&amp;&gt; \"Doe\"\t\r\n\xEF\xBF\xBD</User></OOOReadObject>");
}

}  // namespace
