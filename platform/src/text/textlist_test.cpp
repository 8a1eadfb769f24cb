#include <gtest/gtest.h>

#include <cstring>
#include <string>

#include "globerr.h"
#include "nsfdata.h"
#include "osmem.h"
#include "textlist.h"

namespace {

std::string bytes(std::initializer_list<int> values) {
  std::string out;
  for (int v : values) out.push_back(static_cast<char>(v));
  return out;
}

// The list's bytes as the block holds them, `size` long.
std::string block_contents(DHANDLE handle, WORD size) {
  const char* memory = static_cast<const char*>(OSLockObject(handle));
  std::string out(memory, size);
  OSUnlockObject(handle);
  return out;
}

struct ListBlock {
  DHANDLE handle = NULLHANDLE;
  WORD size = 0;
  BOOL prefixed;
  explicit ListBlock(BOOL prefix) : prefixed(prefix) {
    void* pointer = nullptr;
    EXPECT_EQ(ListAllocate(0, 0, prefixed, &handle, &pointer, &size), NOERROR);
    OSUnlockObject(handle);
  }
  ~ListBlock() { OSMemFree(handle); }
  STATUS add(WORD at, const std::string& text) {
    return ListAddEntry(handle, prefixed, &size, at, text.data(), static_cast<WORD>(text.size()));
  }
  std::string contents() const { return block_contents(handle, size); }
  std::string entry(WORD number) const {
    char* text = nullptr;
    WORD length = 0;
    const void* list = OSLockObject(handle);
    STATUS error = ListGetText(list, prefixed, number, &text, &length);
    OSUnlockObject(handle);
    return error ? "<error>" : std::string(text, length);
  }
};

TEST(TextList, LayoutIsByteForByteWithAndWithoutTheTypeWord) {
  for (BOOL prefixed : {FALSE, TRUE}) {
    SCOPED_TRACE(prefixed);
    ListBlock list(prefixed);
    const std::string type = prefixed ? bytes({0x01, 0x05}) : "";
    EXPECT_EQ(list.contents(), type + bytes({0, 0}));
    EXPECT_EQ(list.size, type.size() + 2);

    ASSERT_EQ(list.add(0, "Sales"), NOERROR);
    ASSERT_EQ(list.add(1, "IT"), NOERROR);
    ASSERT_EQ(list.add(2, ""), NOERROR);
    EXPECT_EQ(list.contents(), type + bytes({3, 0, 5, 0, 2, 0, 0, 0}) + "SalesIT");
    EXPECT_EQ(list.size, type.size() + 2 + 6 + 7);

    const void* pointer = OSLockObject(list.handle);
    EXPECT_EQ(ListGetNumEntries(pointer, prefixed), 3);
    EXPECT_EQ(ListGetSize(pointer, prefixed), list.size);
    OSUnlockObject(list.handle);
    DWORD block_size = 0;
    ASSERT_EQ(OSMemGetSize(list.handle, &block_size), NOERROR);
    EXPECT_EQ(block_size, list.size);
  }
}

TEST(TextList, EntriesAreInsertedAndRemovedInPlace) {
  ListBlock list(TRUE);
  ASSERT_EQ(list.add(0, "b"), NOERROR);
  ASSERT_EQ(list.add(0, "a"), NOERROR);      // in front
  ASSERT_EQ(list.add(2, "d"), NOERROR);      // at the end
  const std::string with_nul("c\0x", 3);  // entries may hold any bytes
  ASSERT_EQ(list.add(2, with_nul), NOERROR);  // in the middle
  EXPECT_EQ(list.entry(0), "a");
  EXPECT_EQ(list.entry(1), "b");
  EXPECT_EQ(list.entry(2), with_nul);
  EXPECT_EQ(list.entry(3), "d");

  ASSERT_EQ(ListRemoveEntry(list.handle, TRUE, &list.size, 1), NOERROR);
  EXPECT_EQ(list.contents(), bytes({0x01, 0x05, 3, 0, 1, 0, 3, 0, 1, 0}) + "a" + with_nul + "d");
  ASSERT_EQ(ListRemoveEntry(list.handle, TRUE, &list.size, 2), NOERROR);
  EXPECT_EQ(list.contents(), bytes({0x01, 0x05, 2, 0, 1, 0, 3, 0}) + "a" + with_nul);

  ASSERT_EQ(ListRemoveAllEntries(list.handle, TRUE, &list.size), NOERROR);
  EXPECT_EQ(list.contents(), bytes({0x01, 0x05, 0, 0}));
  EXPECT_EQ(list.entry(0), "<error>");
}

TEST(TextList, AnEntryCanBeCopiedFromTheSameList) {
  ListBlock list(FALSE);
  ASSERT_EQ(list.add(0, "Jane Doe/Acme"), NOERROR);
  char* text = nullptr;
  WORD length = 0;
  ASSERT_EQ(ListGetText(OSLockObject(list.handle), FALSE, 0, &text, &length), NOERROR);
  OSUnlockObject(list.handle);
  // `text` points into the block that ListAddEntry reallocates.
  ASSERT_EQ(ListAddEntry(list.handle, FALSE, &list.size, 1, text, length), NOERROR);
  EXPECT_EQ(list.entry(1), "Jane Doe/Acme");
}

TEST(TextList, AllocateReservesEmptyEntriesAndTextRoom) {
  DHANDLE handle = NULLHANDLE;
  void* pointer = nullptr;
  WORD size = 0;
  ASSERT_EQ(ListAllocate(2, 10, TRUE, &handle, &pointer, &size), NOERROR);
  EXPECT_EQ(size, 2 + 2 + 4 + 10);
  ASSERT_NE(pointer, nullptr);
  EXPECT_EQ(std::string(static_cast<char*>(pointer), 8), bytes({0x01, 0x05, 2, 0, 0, 0, 0, 0}));
  EXPECT_EQ(ListGetNumEntries(pointer, TRUE), 2);
  EXPECT_EQ(ListGetSize(pointer, TRUE), 8);
  OSUnlockObject(handle);
  // Adding gives the spare room back: the block is then exactly the list.
  ASSERT_EQ(ListAddEntry(handle, TRUE, &size, 2, "x", 1), NOERROR);
  EXPECT_EQ(block_contents(handle, size), bytes({0x01, 0x05, 3, 0, 0, 0, 0, 0, 1, 0}) + "x");
  OSMemFree(handle);
}

TEST(TextList, BadInputGivesAnErrorStatus) {
  ListBlock list(TRUE);
  ASSERT_EQ(list.add(0, "one"), NOERROR);
  EXPECT_EQ(list.add(5, "far"), ERR_ODS_NO_SUCH_ENTRY);
  EXPECT_EQ(ListRemoveEntry(list.handle, TRUE, &list.size, 1), ERR_ODS_NO_SUCH_ENTRY);
  EXPECT_EQ(ListAddEntry(list.handle, TRUE, nullptr, 0, "x", 1), ERR_BAD_PARAM);
  EXPECT_EQ(ListAddEntry(list.handle, TRUE, &list.size, 0, nullptr, 3), ERR_BAD_PARAM);
  EXPECT_EQ(ListAddEntry(NULLHANDLE, TRUE, &list.size, 0, "x", 1), ERR_BAD_PARAM);
  EXPECT_EQ(ListRemoveAllEntries(12345, TRUE, &list.size), ERR_BAD_PARAM);
  // The list was made with the type word: reading it as a list without one,
  // or a block without TYPE_TEXT_LIST in front, is refused.
  EXPECT_EQ(ListAddEntry(list.handle, FALSE, &list.size, 0, "x", 1), ERR_BAD_PARAM);
  const char text_item[] = {0x00, 0x05, 'a', 'b'};  // TYPE_TEXT, not a list
  char* text = nullptr;
  EXPECT_EQ(ListGetText(text_item, TRUE, 0, &text, nullptr), ERR_BAD_PARAM);
  EXPECT_EQ(ListGetNumEntries(text_item, TRUE), 0);
  EXPECT_EQ(ListGetSize(nullptr, FALSE), 0);
  EXPECT_EQ(ListGetText(nullptr, FALSE, 0, &text, nullptr), ERR_BAD_PARAM);
  // Lengths that run past the block are caught before anything is copied.
  void* memory = OSLockObject(list.handle);
  const WORD huge = 60000;
  std::memcpy(static_cast<char*>(memory) + 4, &huge, sizeof huge);
  OSUnlockObject(list.handle);
  EXPECT_EQ(list.add(1, "x"), ERR_BAD_PARAM);
  // The list as a whole never outgrows one segment.
  DHANDLE handle = NULLHANDLE;
  void* pointer = nullptr;
  WORD size = 0;
  EXPECT_EQ(ListAllocate(1000, 64000, FALSE, &handle, &pointer, &size), ERR_SEGMENT_TOO_BIG);
  EXPECT_EQ(handle, NULLHANDLE);
  ListBlock big(FALSE);
  const std::string chunk(30000, 'x');
  EXPECT_EQ(big.add(0, chunk), NOERROR);
  EXPECT_EQ(big.add(1, chunk), NOERROR);
  EXPECT_EQ(big.add(2, chunk), ERR_SEGMENT_TOO_BIG);
  EXPECT_EQ(ListGetNumEntries(OSLockObject(big.handle), FALSE), 2);
  OSUnlockObject(big.handle);
}

}  // namespace
