// The reply document as the bytes it writes: attribute places, the escapes
// of attribute values and element text, what XML cannot carry, and texts
// that the text converter has to judge (malformed UTF-8, long texts), which
// must come out as the converter's own path would write them or fail as it
// fails.
#include "status/ReplyDocument.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>

#include "osenv.h"
#include "request/IPException.h"
#include "request/RequestFile.h"
#include "request/RequestTools.h"
#include "serverlog.h"

namespace {

namespace fs = std::filesystem;

constexpr char kHead[] = "<?xml version=\"1.0\" encoding=\"UTF-8\" standalone=\"no\" ?>";

std::string readFile(const fs::path& file) {
  std::ifstream in(file);
  std::stringstream text;
  text << in.rdbuf();
  return text.str();
}

class ReplyDocumentTest : public ::testing::Test {
 protected:
  // One data directory for the suite: refused texts are logged, and the log
  // is written after the test that caused it may have ended.
  static void SetUpTestSuite() {
    dir_ = fs::temp_directory_path() / ("tarnwick_replydoc_" + std::to_string(::getpid()));
    fs::create_directories(dir_ / "spool");
    std::ofstream(dir_ / "notes.ini") << "Directory=" << dir_.string() << "\nOOOTextErrorReply=1\n";
    std::string ini = "=" + (dir_ / "notes.ini").string();
    char* argv[] = {const_cast<char*>("test"), ini.data()};
    ASSERT_EQ(NotesInitExtended(2, argv), NOERROR);
  }
  static void TearDownTestSuite() {
    // Reading the log waits for the lines still on their way to it, so the
    // folder is not removed while they are being stored.
    ServerLogEnumLines(1, [](void*, const SERVER_LOG_LINE*) {}, nullptr);
    NotesTerm();
    fs::remove_all(dir_);
  }
  void SetUp() override {
    path_ = (dir_ / "spool" / "reply.xml").string();
    std::ofstream(path_) << "<request/>";
    file_ = RequestFile::open(path_, RequestFilePolicy::fromEnvironment());
    ASSERT_TRUE(file_.writable()) << file_.refusalText();
  }
  void TearDown() override { file_.close(); }

  // The document text of one User element whose attribute "A" is value.
  std::string withAttribute(const std::string& value) {
    ReplyDocument reply(file_);
    reply.setAttribute(reply.addUser(), "A", value.c_str());
    return reply.serialise();
  }
  std::string withText(const std::string& value) {
    ReplyDocument reply(file_);
    reply.setText(reply.addUser(), value.c_str());
    return reply.serialise();
  }

  static inline fs::path dir_;
  RequestTools tools_;  // holds the XML toolkit
  std::string path_;
  RequestFile file_;
};

TEST_F(ReplyDocumentTest, AttributesKeepFirstPlacesAndElementsTheirOrder) {
  {
    ReplyDocument reply(file_);
    EXPECT_EQ(readFile(path_), "<request/>");  // nothing written before write(), which replaces it all
    ReplyDocument::User& user = reply.addUser();
    reply.setAttribute(user, "Zeta", "1");
    reply.setAttribute(user, "Alpha", "bell\x07 and \xEF\xBF\xBF end");
    reply.setAttribute(user, "Zeta", "2");  // keeps its first place
    reply.setText(user, "a < b & c > d");
    reply.addUser();  // no attributes, no text
    ReplyDocument::User& named = reply.addUser();
    reply.setAttribute(named, "Empty", "");
    reply.setText(named, "");  // an empty text still closes the element apart
    reply.write();
  }
  EXPECT_EQ(readFile(path_), std::string(kHead) +
                                 "<OOOReadObject>"
                                 "<User Zeta=\"2\" Alpha=\"bell\xEF\xBF\xBD and \xEF\xBF\xBD end\">a &lt; b &amp; c &gt; "
                                 "d</User><User/><User Empty=\"\"></User></OOOReadObject>");
}

TEST_F(ReplyDocumentTest, AttributeValuesAndTextAreEscapedForTheirPlace) {
  // Lines, tabs and quotes survive a parser only as references in a value;
  // in element text they stand as they are.
  EXPECT_EQ(withAttribute("q\"'\t\r\n<&>"),
            std::string(kHead) + "<OOOReadObject><User A=\"q&quot;'&#x9;&#xD;&#xA;&lt;&amp;&gt;\"/></OOOReadObject>");
  EXPECT_EQ(withText("q\"'\t\r\n<&>"),
            std::string(kHead) + "<OOOReadObject><User>q\"'\t\r\n&lt;&amp;&gt;</User></OOOReadObject>");
  // Every character XML 1.0 has passes; the C0 controls, U+FFFE and U+FFFF
  // become U+FFFD, in values and in text alike.
  const std::string carried = "\x20\x7E\x7F\xC2\x80\xC2\x9F\xDF\xBF\xE0\xA0\x80\xED\x9F\xBF\xEE\x80\x80\xEF\xBF\xBD"
                              "\xF0\x90\x80\x80\xF4\x8F\xBF\xBF";
  EXPECT_EQ(withAttribute(carried), std::string(kHead) + "<OOOReadObject><User A=\"" + carried + "\"/></OOOReadObject>");
  EXPECT_EQ(withText("\x01\x08\x0B\x0C\x1F\xEF\xBF\xBE\xEF\xBF\xBF"),
            std::string(kHead) + "<OOOReadObject><User>"
                "\xEF\xBF\xBD\xEF\xBF\xBD\xEF\xBF\xBD\xEF\xBF\xBD\xEF\xBF\xBD\xEF\xBF\xBD\xEF\xBF\xBD</User></OOOReadObject>");
  // A value ends at its first NUL, as a C string does.
  EXPECT_EQ(withAttribute(std::string("cut\0here", 8)),
            std::string(kHead) + "<OOOReadObject><User A=\"cut\"/></OOOReadObject>");
}

TEST_F(ReplyDocumentTest, MalformedUtf8IsRefusedAsTheConverterRefusesIt) {
  // Overlong forms, encoded surrogates, code points past U+10FFFF, cut
  // sequences and stray continuation bytes (OOOTextErrorReply=1: the
  // request fails instead of the task).
  for (const std::string bad : {"\xC0\x80", "\xC1\xBF", "\xE0\x9F\xBF", "\xED\xA0\x80", "\xF0\x8F\xBF\xBF",
                                "\xF4\x90\x80\x80", "\xF5\x80\x80\x80", "ab\xE2\x82", "\x80", "x\xFFy"}) {
    try {
      withAttribute(bad);
      ADD_FAILURE() << "taken: " << ::testing::PrintToString(bad);
    } catch (const IPException& e) {
      EXPECT_EQ(e.show(), "translate:The text cannot be converted") << ::testing::PrintToString(bad);
    }
    EXPECT_THROW(withText(bad), IPException) << ::testing::PrintToString(bad);
  }
}

TEST_F(ReplyDocumentTest, LongTextsGoThroughTheConverterWithTheSameEscapes) {
  // More bytes than the converter has characters, but few enough characters:
  // converted, and escaped exactly as a short text.
  std::string text;
  std::string escaped;
  for (int i = 0; i < 3500; ++i) {
    text += "\xE2\x82\xAC<\n\x01";
    escaped += "\xE2\x82\xAC&lt;&#xA;\xEF\xBF\xBD";
  }
  ASSERT_GT(text.size(), XMLStringTranslate::kWideChars);
  EXPECT_EQ(withAttribute(text), std::string(kHead) + "<OOOReadObject><User A=\"" + escaped + "\"/></OOOReadObject>");
  // More characters than the converter holds: refused, not cut.
  EXPECT_THROW(withAttribute(std::string(XMLStringTranslate::kWideChars + 1, 'a')), IPException);
  EXPECT_EQ(withAttribute(std::string(XMLStringTranslate::kWideChars, 'a')),
            std::string(kHead) + "<OOOReadObject><User A=\"" + std::string(XMLStringTranslate::kWideChars, 'a') +
                "\"/></OOOReadObject>");
}

TEST_F(ReplyDocumentTest, AReplyNeverWrittenLeavesTheFileEmpty) {
  {
    ReplyDocument reply(file_);
    reply.setAttribute(reply.addUser(), "A", "1");
  }
  EXPECT_EQ(readFile(path_), "");
}

}  // namespace
