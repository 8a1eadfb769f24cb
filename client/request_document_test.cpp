#include "request_document.h"

#include <gtest/gtest.h>

namespace tarnwick::client {
namespace {

TEST(RequestDocument, WritesEveryValueUnderItsExactNameInTheTaskOrder) {
  RequestValues values;
  values.user = "Jane <Doe> & Co/Acme";
  values.reply_queue = "MQ$OOOServletList_3";
  values.action = "2";
  values.message = "Line one\nline \"two\"";
  values.enable = "1";
  values.mail_server = "CN=Mail1/O=Acme";
  values.mail_box = "mail/jdoe.nsf";
  values.subject = "Away";
  values.leave = LocalDateTime{2026, 3, 2, 9, 30, 0};
  values.back = LocalDateTime{2026, 3, 9, 8, 0, 5};
  values.show_hours = "1";
  values.days_out = "days";
  values.append_subject_date = "asd";
  values.append_subject = "0";
  values.asd_enable = "1";
  values.is_iphone = "1";
  values.is_android = "0";
  values.exclude_internet = "1";
  values.login_name = "jdoe";
  values.login_server = "Mail1";
  values.query_user = "Bob";
  const std::string document = request_document(values);

  const std::vector<std::string> in_order = {
      "Message=\"Line one&#10;line &quot;two&quot;\"", "MQName=\"MQ$OOOServletList_3\"", "OOOEnable=\"1\"",
      "MailServer=\"CN=Mail1/O=Acme\"", "MailBox=\"mail/jdoe.nsf\"", "Subject=\"Away\"",
      "StartTimeYear=\"2026\"", "StartTimeMonth=\"3\"", "StartTimeDay=\"2\"", "StartTimeHour=\"9\"",
      "StartTimeMin=\"30\"", "StartTimeSec=\"0\"", "EndTimeYear=\"2026\"", "EndTimeMonth=\"3\"",
      "EndTimeDay=\"9\"", "EndTimeHour=\"8\"", "EndTimeMin=\"0\"", "EndTimeSec=\"5\"", "ShowHours=\"1\"",
      "Action=\"2\"", "DaysOut=\"days\"", "AppendSubjectDate=\"asd\"", "AppendSubject=\"0\"", "ASDEnable=\"1\"",
      "IsIphone=\"1\"", "IsAndroid=\"0\"", "InternetAddress=\"1\"", "LoginName=\"jdoe\"", "LoginServer=\"Mail1\"",
      "QueryUser=\"Bob\"", ">Jane &lt;Doe&gt; &amp; Co/Acme</Username>"};
  size_t at = document.find("<Username ");
  ASSERT_NE(at, std::string::npos) << document;
  for (const std::string& piece : in_order) {
    const size_t found = document.find(piece, at);
    ASSERT_NE(found, std::string::npos) << piece << " (in order) in " << document;
    at = found + piece.size();
  }
  EXPECT_EQ(reply_queue_named_in(document), "MQ$OOOServletList_3");
}

TEST(RequestDocument, UnsetValuesAreLeftOut) {
  RequestValues values;
  values.reply_queue = "Q";
  const std::string document = request_document(values);
  EXPECT_NE(document.find("<Username MQName=\"Q\"></Username>"), std::string::npos) << document;
  EXPECT_EQ(document.find("Action"), std::string::npos);
  EXPECT_EQ(document.find("StartTime"), std::string::npos);
}

TEST(RequestDocument, KindsCarryTheirActionOrFileMarker) {
  EXPECT_EQ(action_of(RequestKind::query), "1");
  EXPECT_EQ(action_of(RequestKind::set), "2");
  EXPECT_EQ(action_of(RequestKind::status), "3");
  EXPECT_EQ(action_of(RequestKind::page), "");
  EXPECT_EQ(file_marker_of(RequestKind::query), "");
  EXPECT_EQ(file_marker_of(RequestKind::page), "ND_REQUEST_OOO_");
  EXPECT_EQ(file_marker_of(RequestKind::mobile_page), "ND_REQUEST_MOBILE_OOO_");
  EXPECT_EQ(file_marker_of(RequestKind::install_ios_page), "ND_REQUEST_INSTALL_IOS_OOO_");
}

TEST(RequestDocument, ReplyQueueIsFoundAsTheTaskMatchesNames) {
  // Names match without case and as prefixes; single quotes; entities.
  EXPECT_EQ(reply_queue_named_in("<r><usernameX mqnamez='a&amp;b&#x41;&#66;'>u</usernameX></r>"), "a&bAB");
  // Only the Username element counts; the last one wins.
  EXPECT_EQ(reply_queue_named_in("<r MQName='no'><Other MQName='no'/><Username MQName='first'/>"
                                 "<Username MQName='second'>x</Username></r>"),
            "second");
  // A later Username element without MQName keeps the earlier value.
  EXPECT_EQ(reply_queue_named_in("<r><Username MQName='kept'/><Username Action='1'/></r>"), "kept");
  // Comments, CDATA and declarations are not elements.
  EXPECT_EQ(reply_queue_named_in("<?xml version='1.0'?><!-- <Username MQName='c'/> --><r>"
                                 "<![CDATA[<Username MQName='d'/>]]></r>"),
            std::nullopt);
  EXPECT_EQ(reply_queue_named_in("<r><Username Action='1'>u</Username></r>"), std::nullopt);
  EXPECT_EQ(reply_queue_named_in("<r><MQName MQName='x'/></r>"), std::nullopt);
  // Whitespace around "=".
  EXPECT_EQ(reply_queue_named_in("<Username\n  MQName = \"q\"\n/>"), "q");
}

TEST(RequestDocument, BrokenDocumentsEndTheScanWithoutHarm) {
  for (const char* broken : {"<", "<Username", "<Username MQName", "<Username MQName=", "<Username MQName='open",
                             "<!--", "<![CDATA[", "<Username =x MQName='a'>", "&#99999999999;"}) {
    EXPECT_EQ(reply_queue_named_in(broken), std::nullopt) << broken;
  }
  EXPECT_EQ(reply_queue_named_in("<Username MQName='&#99999999;&bogus;'/>"), "\xEF\xBF\xBD&bogus;");
}

}  // namespace
}  // namespace tarnwick::client
