#include "reply_json.h"

#include <gtest/gtest.h>

namespace tarnwick::gateway {
namespace {

class ReplyJson : public ::testing::Test {
 protected:
  XmlToolkit toolkit_;
};

TEST_F(ReplyJson, UsersBecomeObjectsWithTheirAttributeNames) {
  const auto users = reply_users(
      "<?xml version=\"1.0\" encoding=\"UTF-8\" standalone=\"no\" ?>\n<OOOReadObject>"
      "<User Subject=\"Fair &amp; &quot;expo&quot;\" Message=\"line 1&#10;line 2\" OOOEnable=\"1\">Jane Doe</User>"
      "<User User_Status=\"0\" ErrorMsg=\"No mail file\">Z\xc3\xb6\x65</User></OOOReadObject>");
  ASSERT_TRUE(users);
  ASSERT_EQ(users->size(), 2u);
  EXPECT_EQ((*users)[0]["User"], "Jane Doe");
  EXPECT_EQ((*users)[0]["Subject"], "Fair & \"expo\"");
  EXPECT_EQ((*users)[0]["Message"], "line 1\nline 2");
  EXPECT_EQ((*users)[0]["OOOEnable"], "1");
  EXPECT_EQ((*users)[1]["ErrorMsg"], "No mail file");
  EXPECT_EQ((*users)[1]["User"], std::string("Z\xc3\xb6" "e"));
}

TEST_F(ReplyJson, OtherDocumentsAreNoReply) {
  EXPECT_FALSE(reply_users(""));
  EXPECT_FALSE(reply_users("OK"));
  EXPECT_FALSE(reply_users("<Other><User>x</User></Other>"));
  EXPECT_FALSE(reply_users("<OOOReadObject><User>x</OOOReadObject>"));
  // No external entity is ever read: the document is refused or the
  // entity stays empty.
  const auto with_entity = reply_users(
      "<!DOCTYPE r [<!ENTITY e SYSTEM \"file:///etc/passwd\">]><OOOReadObject><User>&e;</User></OOOReadObject>");
  const std::string entity_text = with_entity && !with_entity->empty() ? (*with_entity)[0]["User"].get<std::string>() : "";
  EXPECT_EQ(entity_text.find("root:"), std::string::npos);
  const auto empty = reply_users("<OOOReadObject/>");
  ASSERT_TRUE(empty);
  EXPECT_TRUE(empty->empty());
}

}  // namespace
}  // namespace tarnwick::gateway
