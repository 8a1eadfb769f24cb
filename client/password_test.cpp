#include "password.h"

#include <gtest/gtest.h>

namespace tarnwick::client {
namespace {

TEST(Password, HashesAreSaltedAndCheckable) {
  const std::string first = hash_password("s3cret");
  const std::string second = hash_password("s3cret");
  EXPECT_NE(first, second);  // different salts
  EXPECT_EQ(first.rfind("pbkdf2-sha256$", 0), 0u);
  EXPECT_TRUE(password_matches(first, "s3cret"));
  EXPECT_TRUE(password_matches(second, "s3cret"));
  EXPECT_FALSE(password_matches(first, "s3cret "));
  EXPECT_FALSE(password_matches(first, ""));
}

TEST(Password, MalformedStoredTextsNeverMatch) {
  for (const char* stored : {"", "s3cret", "pbkdf2-sha256$", "pbkdf2-sha256$0$00$00", "pbkdf2-sha256$10$zz$00",
                             "pbkdf2-sha256$10$0011", "md5$1$00$00"}) {
    EXPECT_FALSE(password_matches(stored, "s3cret")) << stored;
  }
}

}  // namespace
}  // namespace tarnwick::client
