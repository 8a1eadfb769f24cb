// Profile documents: lookup without case, creation, fields, and no lost
// update when threads and processes write one profile at once.
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <barrier>
#include <cstring>
#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include "globerr.h"
#include "nsfdata.h"
#include "nsfdb.h"
#include "nsfnote.h"
#include "nsfprofile.h"
#include "osmem.h"
#include "store/test_data_dir.h"

namespace {

using tarnwick::rt::store::testing::DataDirTest;
using tarnwick::rt::store::testing::OneDatabaseTest;

class ProfileTest : public OneDatabaseTest {
 protected:
  ProfileTest() : OneDatabaseTest("mail.nsf") {}

  static STATUS open_profile(DBHANDLE db, const char* name, const char* user, NOTEHANDLE* note) {
    return NSFProfileOpen(db, name, static_cast<WORD>(std::strlen(name)), user,
                          user ? static_cast<WORD>(std::strlen(user)) : 0, TRUE, note);
  }
  static NOTEID id_of(NOTEHANDLE note) {
    NOTEID id = 0;
    NSFNoteGetInfo(note, _NOTE_ID, &id);
    return id;
  }
  static std::string text(NOTEHANDLE note, const char* item) {
    char buffer[256];
    WORD length = NSFItemGetText(note, item, buffer, sizeof buffer);
    return std::string(buffer, length);
  }

};

TEST_F(ProfileTest, OpenCreatesOnceAndFindsWithoutCase) {
  NOTEHANDLE first = NULLHANDLE;
  ASSERT_EQ(open_profile(db_, "OutOfOfficeProfile", nullptr, &first), NOERROR);
  EXPECT_NE(id_of(first), 0u) << "a new profile is stored at once";
  EXPECT_EQ(text(first, "$Name"), "$profile_018outofofficeprofile_");

  NOTEHANDLE second = NULLHANDLE;
  ASSERT_EQ(open_profile(db_, "OUTOFOFFICEPROFILE", "", &second), NOERROR);
  EXPECT_EQ(id_of(second), id_of(first));
  NSFNoteClose(second);

  NOTEHANDLE user = NULLHANDLE;
  ASSERT_EQ(open_profile(db_, "CalendarProfile", "Jane Doe", &user), NOERROR);
  EXPECT_EQ(text(user, "$Name"), "$profile_015calendarprofile_Jane Doe");
  NOTEHANDLE same_user = NULLHANDLE;
  ASSERT_EQ(open_profile(db_, "calendarprofile", "JANE DOE", &same_user), NOERROR);
  EXPECT_EQ(id_of(same_user), id_of(user));
  EXPECT_NE(id_of(user), id_of(first));
  NSFNoteClose(user);
  NSFNoteClose(same_user);

  // Items written through the handle are there when the profile is opened again.
  ASSERT_EQ(NSFItemSetText(first, "TaskState", "1", 1), NOERROR);
  ASSERT_EQ(NSFProfileUpdate(first, "OutOfOfficeProfile", 18, nullptr, 0), NOERROR);
  NSFNoteClose(first);
  ASSERT_EQ(open_profile(db_, "outofofficeprofile", nullptr, &first), NOERROR);
  EXPECT_EQ(text(first, "TaskState"), "1");
  NSFNoteClose(first);

  EXPECT_EQ(open_profile(db_, "", nullptr, &first), ERR_BAD_PARAM);
  EXPECT_EQ(open_profile(db_ + 77, "P", nullptr, &first), ERR_DB_NOT_OPEN);
}

// Updates that keep a note's profile key leave the key's index as it is;
// one that changes "$Name" moves the note to the new key, and a document
// given a profile name becomes that profile.
TEST_F(ProfileTest, ANoteIsFoundUnderTheProfileKeyItsLastUpdateStored) {
  NOTEHANDLE profile = NULLHANDLE;
  ASSERT_EQ(open_profile(db_, "First", nullptr, &profile), NOERROR);
  const NOTEID id = id_of(profile);
  ASSERT_EQ(NSFItemSetText(profile, "Body", "one", 3), NOERROR);
  ASSERT_EQ(NSFNoteUpdate(profile, 0), NOERROR);
  NOTEHANDLE again = NULLHANDLE;
  ASSERT_EQ(open_profile(db_, "first", nullptr, &again), NOERROR);
  EXPECT_EQ(id_of(again), id);
  EXPECT_EQ(text(again, "Body"), "one");
  NSFNoteClose(again);

  const char renamed[] = "$profile_006second_";
  ASSERT_EQ(NSFItemSetText(profile, "$Name", renamed, sizeof renamed - 1), NOERROR);
  ASSERT_EQ(NSFNoteUpdate(profile, 0), NOERROR);
  NSFNoteClose(profile);
  ASSERT_EQ(open_profile(db_, "Second", nullptr, &again), NOERROR);
  EXPECT_EQ(id_of(again), id) << "the renamed note is the profile of its new name";
  EXPECT_EQ(text(again, "Body"), "one");
  NSFNoteClose(again);
  ASSERT_EQ(open_profile(db_, "First", nullptr, &again), NOERROR);
  EXPECT_NE(id_of(again), id) << "the old name has no profile left, so a new one is made";
  NSFNoteClose(again);

  NOTEHANDLE document = NULLHANDLE;
  ASSERT_EQ(NSFNoteCreate(db_, &document), NOERROR);
  ASSERT_EQ(NSFItemSetText(document, "Form", "Memo", 4), NOERROR);
  ASSERT_EQ(NSFNoteUpdate(document, 0), NOERROR);
  const char third[] = "$profile_005third_";
  ASSERT_EQ(NSFItemSetText(document, "$Name", third, sizeof third - 1), NOERROR);
  ASSERT_EQ(NSFNoteUpdate(document, 0), NOERROR);
  ASSERT_EQ(open_profile(db_, "Third", nullptr, &again), NOERROR);
  EXPECT_EQ(id_of(again), id_of(document));
  NSFNoteClose(again);
  NSFNoteClose(document);
}

TEST_F(ProfileTest, FieldsAreReadWithTheTypeWordAndWrittenWithout) {
  WORD type = 0;
  BLOCKID value{};
  DWORD length = 0;
  EXPECT_EQ(NSFProfileGetField(db_, "CalendarProfile", 15, nullptr, 0, "Owner", 5, &type, &value, &length),
            ERR_ITEM_NOT_FOUND);
  int profiles = 0;
  auto count = [](DBHANDLE, void* ctx, char*, WORD, char*, WORD, NOTEID) -> STATUS {
    ++*static_cast<int*>(ctx);
    return NOERROR;
  };
  ASSERT_EQ(NSFProfileEnum(db_, nullptr, 0, count, &profiles, 0), NOERROR);
  EXPECT_EQ(profiles, 0) << "reading a field does not create the profile";

  ASSERT_EQ(NSFProfileSetField(db_, "CalendarProfile", 15, nullptr, 0, "Owner", 5, TYPE_TEXT, "CN=Jane Doe/O=Org",
                               17),
            NOERROR);
  ASSERT_EQ(NSFProfileGetField(db_, "calendarprofile", 15, nullptr, 0, "OWNER", 5, &type, &value, &length), NOERROR);
  EXPECT_EQ(type, TYPE_TEXT);
  ASSERT_EQ(length, 2u + 17u);
  const char* bytes = OSLockBlock(char, value);
  WORD stored_type = 0;
  std::memcpy(&stored_type, bytes, sizeof stored_type);
  EXPECT_EQ(stored_type, TYPE_TEXT);
  EXPECT_EQ(std::string(bytes + 2, 17), "CN=Jane Doe/O=Org");
  OSUnlockBlock(value);

  ASSERT_EQ(NSFProfileSetField(db_, "CalendarProfile", 15, nullptr, 0, "Owner", 5, TYPE_TEXT, nullptr, 0), NOERROR);
  EXPECT_EQ(NSFProfileGetField(db_, "CalendarProfile", 15, nullptr, 0, "Owner", 5, &type, &value, &length),
            ERR_ITEM_NOT_FOUND);
  EXPECT_EQ(NSFProfileSetField(db_, "CalendarProfile", 15, nullptr, 0, "N", 1, TYPE_NUMBER, "abc", 3),
            ERR_INVALID_ITEMUNK);
}

TEST_F(ProfileTest, EnumListsProfilesAndDeleteRemovesThem) {
  NOTEHANDLE note = NULLHANDLE;
  ASSERT_EQ(open_profile(db_, "OutOfOfficeProfile", nullptr, &note), NOERROR);
  NSFNoteClose(note);
  ASSERT_EQ(open_profile(db_, "CalendarProfile", "Jane", &note), NOERROR);
  NSFNoteClose(note);
  ASSERT_EQ(open_profile(db_, "CalendarProfile", "John", &note), NOERROR);
  NSFNoteClose(note);

  struct Seen {
    std::vector<std::string> entries;
  } seen;
  auto collect = [](DBHANDLE, void* ctx, char* name, WORD name_length, char* user, WORD user_length,
                    NOTEID) -> STATUS {
    static_cast<Seen*>(ctx)->entries.push_back(std::string(name, name_length) + "/" + std::string(user, user_length));
    return NOERROR;
  };
  ASSERT_EQ(NSFProfileEnum(db_, "CALENDARPROFILE", 15, collect, &seen, 0), NOERROR);
  EXPECT_EQ(seen.entries, (std::vector<std::string>{"calendarprofile/Jane", "calendarprofile/John"}));

  ASSERT_EQ(NSFProfileDelete(db_, "CalendarProfile", 15, "jane", 4), NOERROR);
  EXPECT_EQ(NSFProfileDelete(db_, "CalendarProfile", 15, "jane", 4), ERR_NOT_FOUND);
  seen.entries.clear();
  ASSERT_EQ(NSFProfileEnum(db_, nullptr, 0, collect, &seen, 0), NOERROR);
  EXPECT_EQ(seen.entries, (std::vector<std::string>{"outofofficeprofile/", "calendarprofile/John"}));

  auto stop = [](DBHANDLE, void*, char*, WORD, char*, WORD, NOTEID) -> STATUS { return ERR_NOT_FOUND; };
  EXPECT_EQ(NSFProfileEnum(db_, nullptr, 0, stop, nullptr, 0), ERR_NOT_FOUND);
}

// Adds one to the profile's counter, retrying on conflict. Returns the number
// of conflicts seen, or -1 on any other failure.
int increment(DBHANDLE db) {
  int conflicts = 0;
  for (;;) {
    NOTEHANDLE note = NULLHANDLE;
    if (NSFProfileOpen(db, "Counter", 7, nullptr, 0, TRUE, &note) != NOERROR) return -1;
    NUMBER value = 0;
    NSFItemGetNumber(note, "Count", &value);
    value += 1;
    NSFItemSetNumber(note, "Count", &value);
    STATUS status = NSFProfileUpdate(note, "Counter", 7, nullptr, 0);
    NSFNoteClose(note);
    if (status == NOERROR) return conflicts;
    if (status != ERR_CONFLICT) return -1;
    ++conflicts;
  }
}

NUMBER final_count() {
  DBHANDLE db = NULLHANDLE;
  NOTEHANDLE note = NULLHANDLE;
  NUMBER value = -1;
  if (NSFDbOpen("mail.nsf", &db) == NOERROR && NSFProfileOpen(db, "Counter", 7, nullptr, 0, TRUE, &note) == NOERROR) {
    NSFItemGetNumber(note, "Count", &value);
  }
  NSFNoteClose(note);
  NSFDbClose(db);
  return value;
}

using ProfileConcurrencyTest = ProfileTest;

TEST_F(ProfileConcurrencyTest, TwoCopiesUpdatedAtOnceGiveOneConflict) {
  NOTEHANDLE a = NULLHANDLE;
  NOTEHANDLE b = NULLHANDLE;
  ASSERT_EQ(open_profile(db_, "OutOfOfficeProfile", nullptr, &a), NOERROR);
  ASSERT_EQ(open_profile(db_, "OutOfOfficeProfile", nullptr, &b), NOERROR);
  std::barrier ready(2);
  STATUS results[2] = {};
  auto writer = [&](int index, NOTEHANDLE note) {
    NSFItemSetText(note, "DaysOut", index == 0 ? "3" : "4", 1);
    ready.arrive_and_wait();
    results[index] = NSFNoteUpdate(note, 0);
  };
  std::thread first(writer, 0, a);
  std::thread second(writer, 1, b);
  first.join();
  second.join();
  NSFNoteClose(a);
  NSFNoteClose(b);
  EXPECT_TRUE((results[0] == NOERROR && results[1] == ERR_CONFLICT) ||
              (results[0] == ERR_CONFLICT && results[1] == NOERROR))
      << results[0] << " " << results[1];
}

TEST_F(ProfileConcurrencyTest, ThreadsIncrementingOneProfileLoseNoUpdate) {
  constexpr int kThreads = 4;
  constexpr int kIncrements = 25;
  std::atomic<int> failures{0};
  std::atomic<int> conflicts{0};
  std::vector<std::thread> threads;
  for (int t = 0; t < kThreads; ++t) {
    threads.emplace_back([&] {
      DBHANDLE db = NULLHANDLE;
      if (NSFDbOpen("mail.nsf", &db) != NOERROR) {
        ++failures;
        return;
      }
      for (int i = 0; i < kIncrements; ++i) {
        int seen = increment(db);
        if (seen < 0) {
          ++failures;
        } else {
          conflicts += seen;
        }
      }
      NSFDbClose(db);
    });
  }
  for (auto& thread : threads) thread.join();
  EXPECT_EQ(failures.load(), 0);
  EXPECT_EQ(final_count(), kThreads * kIncrements);
}

TEST_F(ProfileConcurrencyTest, ProcessesIncrementingOneProfileLoseNoUpdate) {
  constexpr int kProcesses = 2;
  constexpr int kIncrements = 30;
  std::vector<pid_t> children;
  for (int p = 0; p < kProcesses; ++p) {
    pid_t pid = fork();
    ASSERT_GE(pid, 0);
    if (pid == 0) {
      DBHANDLE db = NULLHANDLE;
      if (NSFDbOpen("mail.nsf", &db) != NOERROR) _exit(2);
      for (int i = 0; i < kIncrements; ++i) {
        if (increment(db) < 0) _exit(3);
      }
      NSFDbClose(db);
      _exit(0);
    }
    children.push_back(pid);
  }
  for (pid_t pid : children) {
    int status = 0;
    ASSERT_EQ(waitpid(pid, &status, 0), pid);
    EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0) << status;
  }
  EXPECT_EQ(final_count(), kProcesses * kIncrements);
}

}  // namespace
