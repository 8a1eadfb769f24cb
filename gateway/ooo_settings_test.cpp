#include "ooo_settings.h"

#include <gtest/gtest.h>

namespace tarnwick::gateway {
namespace {

using Json = nlohmann::ordered_json;

Json current_state() {
  return Json{{"User", "Jane Doe"},       {"Subject", "Away"},      {"Message", "Back soon"},
              {"OOOEnable", "0"},         {"ShowHours", "0"},       {"ASDEnable", "1"},
              {"AppendSubject", "0"},     {"InternetAddress", "1"}, {"StartTimeYear", "2026"},
              {"StartTimeMonth", "3"},    {"StartTimeDay", "2"},    {"StartTimeHour", "9"},
              {"StartTimeMin", "30"},     {"StartTimeSec", "0"},    {"EndTimeYear", "2026"},
              {"EndTimeMonth", "3"},      {"EndTimeDay", "9"},      {"EndTimeHour", "8"},
              {"EndTimeMin", "0"},        {"EndTimeSec", "0"},      {"DaysOut", "template text"},
              {"DaysOutValue", "5 days"}, {"AppendSubjectDate", "template"}};
}

TEST(SetValues, AChangeIsLaidOverTheCurrentState) {
  const auto values = set_values(current_state(), Json{{"OOOEnable", true}, {"EndTimeDay", 12}, {"Subject", "Fair"}});
  EXPECT_EQ(values.enable, "1");
  EXPECT_EQ(values.subject, "Fair");
  EXPECT_EQ(values.message, "Back soon") << "kept from the current state";
  EXPECT_EQ(values.exclude_internet, "1");
  ASSERT_TRUE(values.leave && values.back);
  EXPECT_EQ(values.leave->year, 2026);
  EXPECT_EQ(values.leave->minute, 30);
  EXPECT_EQ(values.back->day, 12);
  EXPECT_EQ(values.back->hour, 8);
  // The stored value of DaysOut, never the template's text of the reply.
  EXPECT_EQ(values.days_out, "5 days");
  EXPECT_FALSE(values.append_subject_date) << "the reply held only the template's text";
  // The mail file, server and user never come from here.
  EXPECT_FALSE(values.mail_box);
  EXPECT_FALSE(values.mail_server);
  EXPECT_TRUE(values.user.empty());
}

TEST(SetValues, BadFieldsAndValuesAreRefused) {
  const Json current = current_state();
  for (const Json& change : {Json{{"MailBox", "mail/other.nsf"}}, Json{{"MailServer", "CN=Evil/O=X"}},
                             Json{{"Username", "Other"}}, Json{{"MQName", "MQ$X"}}, Json{{"OOOEnable", "yes"}},
                             Json{{"OOOEnable", 2}}, Json{{"Subject", 5}}, Json{{"Subject", "two\nlines"}},
                             Json{{"Message", std::string("nul\0byte", 8)}}, Json{{"Message", "bad \xff utf-8"}},
                             Json{{"StartTimeYear", -1}}, Json{{"StartTimeYear", "20x6"}},
                             Json{{"EndTimeDay", 100000}}, Json::array({1, 2}),
                             Json{{"Subject", std::string(kMaxSubjectBytes + 1, 'a')}}}) {
    EXPECT_THROW(set_values(current, change), std::invalid_argument) << change.dump();
  }
  EXPECT_NO_THROW(set_values(current, Json{{"Message", "two\r\nlines\tand a tab"}}));
  // A date the task will judge passes: the task's own message is wanted.
  EXPECT_EQ(set_values(current, Json{{"StartTimeMonth", 13}}).leave->month, 13);
}

TEST(Names, OnlyPlainNamesAreAccepted) {
  for (const char* good : {"Jane Doe/Acme", "CN=Jane Doe/O=Acme", "jdoe", "jdoe@acme.example", "Sales",
                           "Zoë Ångström/Acme", "O'Brien/Acme"}) {
    EXPECT_TRUE(is_valid_name(good)) << good;
  }
  for (const std::string& bad : {std::string(""), std::string("   "), std::string("a<b"), std::string("x\">"),
                                std::string("a&b"), std::string("Mail2!!mail/x.nsf"), std::string("tab\there"),
                                std::string("new\nline"), std::string("back\\slash"), std::string("bad \xc3"),
                                std::string(kMaxNameBytes + 1, 'n')}) {
    EXPECT_FALSE(is_valid_name(bad)) << bad;
  }
}

TEST(StateSummary, NamesStateDatesAndSubject) {
  Json state = current_state();
  state["OOOEnable"] = "1";
  EXPECT_EQ(state_summary(state), "on, leave 2026-03-02 09:30, return 2026-03-09 08:00, subject \"Away\"");
  state["Subject"] = "say \"hi\"";
  EXPECT_NE(state_summary(state).find("subject \"say 'hi'\""), std::string::npos);
}

}  // namespace
}  // namespace tarnwick::gateway
