#include <cstring>
#include <string>

#include <gtest/gtest.h>

#include "core/status_table.h"
#include "globerr.h"
#include "osmisc.h"

namespace {

using tarnwick::rt::all_status_texts;

TEST(StatusTexts, EveryEntryLoadsItsTextAndTheTableIsSortedWithoutDuplicates) {
  STATUS previous = 0;
  size_t count = 0;
  for (const auto& entry : all_status_texts()) {
    EXPECT_GT(entry.code, previous) << "table out of order or duplicated at 0x" << std::hex << entry.code;
    previous = entry.code;
    char buffer[512];
    WORD length = OSLoadString(NULLHANDLE, entry.code, buffer, sizeof buffer);
    EXPECT_GT(length, 0) << std::hex << entry.code;
    EXPECT_EQ(std::string(buffer, length), entry.text);
    EXPECT_EQ(buffer[length], '\0');
    ++count;
  }
  EXPECT_GE(count, 80u);
}

TEST(StatusTexts, CodesTheProductDependsOn) {
  char buffer[256];
  const struct {
    STATUS code;
    WORD value;
    const char* text;
  } expected[] = {
      {ERR_NOEXIST, 259, "File does not exist"},
      {ERR_SESSION_CLOSED, 0x0A02, "Remote system no longer responding"},
      {ERR_MQ_EMPTY, 1124, "Message Queue is empty."},
      {ERR_MQ_QUITTING, 1126, "Quit is pending on the Message Queue"},
      {ERR_ROUTER_NOSUCHUSER, 0x1105, "User %a not listed in Domino Directory"},
      {ERR_AUTH_NAME_AMBIGUOUS_MATCH, 0x3D45, "Multiple Notes name matches found in directory"},
      {ERR_ITEM_NOT_FOUND, 0x0222, "Note item not found"},
      {ERR_NOT_FOUND, 1028, "Entry not found in index"},
      {ERR_INVALID_NOTE, 0x0227, "Invalid or nonexistent document"},
      {ERR_TDO_CONV, 0x040D, "Invalid Time or Date Encountered"},
      {ERR_DUPLICATE_MQ, 1121, "Message Queue name already in use."},
      {ERR_NO_SUCH_MQ, 1122, "No Message Queue with that name."},
      {ERR_CONFLICT, 0x0205, "Someone else modified this document at the same time"},
  };
  for (const auto& e : expected) {
    EXPECT_EQ(e.code, e.value);
    ASSERT_GT(OSLoadString(NULLHANDLE, e.code, buffer, sizeof buffer), 0);
    EXPECT_STREQ(buffer, e.text);
  }
}

TEST(StatusTexts, FlagBitsAreIgnoredAndUnknownCodesGiveNothing) {
  char buffer[64];
  ASSERT_GT(OSLoadString(NULLHANDLE, ERR_NOEXIST | STS_DISPLAYED | STS_REMOTE, buffer, sizeof buffer), 0);
  EXPECT_STREQ(buffer, "File does not exist");
  buffer[0] = 'x';
  EXPECT_EQ(OSLoadString(NULLHANDLE, 0x3FFE, buffer, sizeof buffer), 0);
  EXPECT_EQ(buffer[0], '\0');
}

TEST(StatusTexts, SmallBuffersAreCutAndTerminated) {
  char buffer[8];
  std::memset(buffer, 'z', sizeof buffer);
  EXPECT_EQ(OSLoadString(NULLHANDLE, ERR_NOEXIST, buffer, 5), 4);
  EXPECT_STREQ(buffer, "File");
  EXPECT_EQ(buffer[5], 'z') << "nothing written past the given length";
  EXPECT_EQ(OSLoadString(NULLHANDLE, ERR_NOEXIST, buffer, 1), 0);
  EXPECT_EQ(buffer[0], '\0');
  EXPECT_EQ(OSLoadString(NULLHANDLE, ERR_NOEXIST, buffer, 0), 0);
  EXPECT_EQ(OSLoadString(NULLHANDLE, ERR_NOEXIST, nullptr, 10), 0);
}

}  // namespace
