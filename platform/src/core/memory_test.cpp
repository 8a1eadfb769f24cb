#include <cstring>
#include <set>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include "core/handle_table.h"
#include "globerr.h"
#include "osmem.h"

namespace {

TEST(MemoryHandles, AllocLockWriteSizeFree) {
  DHANDLE handle = NULLHANDLE;
  ASSERT_EQ(OSMemAlloc(BLK_MEM_ALLOC, 100, &handle), NOERROR);
  ASSERT_NE(handle, NULLHANDLE);
  char* bytes = static_cast<char*>(OSLockObject(handle));
  ASSERT_NE(bytes, nullptr);
  EXPECT_EQ(bytes[0], 0) << "new blocks are zeroed";
  std::memset(bytes, 'x', 100);
  EXPECT_TRUE(OSUnlockObject(handle));
  DWORD size = 0;
  EXPECT_EQ(OSMemGetSize(handle, &size), NOERROR);
  EXPECT_EQ(size, 100u);
  ASSERT_EQ(OSMemRealloc(handle, 200), NOERROR);
  bytes = static_cast<char*>(OSLockObject(handle));
  EXPECT_EQ(bytes[99], 'x') << "realloc keeps the old contents";
  EXPECT_EQ(bytes[150], 0);
  OSUnlockObject(handle);
  EXPECT_EQ(OSMemFree(handle), NOERROR);
}

TEST(MemoryHandles, BadAndFreedHandlesGiveErrorsNotCrashes) {
  DHANDLE handle = NULLHANDLE;
  ASSERT_EQ(OSMemAlloc(0, 8, &handle), NOERROR);
  ASSERT_EQ(OSMemFree(handle), NOERROR);
  EXPECT_NE(OSMemFree(handle), NOERROR) << "double free is refused";
  EXPECT_EQ(OSLockObject(handle), nullptr);
  EXPECT_FALSE(OSUnlockObject(handle));
  DWORD size = 0;
  EXPECT_NE(OSMemGetSize(handle, &size), NOERROR);
  EXPECT_NE(OSMemFree(NULLHANDLE), NOERROR);
  EXPECT_NE(OSMemFree(0xDEADBEEF), NOERROR);
  EXPECT_EQ(OSMemAlloc(0, 8, nullptr), ERR_BAD_PARAM);
  EXPECT_EQ(OSMemAlloc(0, 0xFFFFFFFFu, &handle), ERR_MEMORY);
  EXPECT_EQ(handle, NULLHANDLE);
}

TEST(MemoryHandles, HandleOfAnotherKindIsNotAMemoryHandle) {
  auto& table = tarnwick::rt::handles();
  DWORD other = table.add(tarnwick::rt::HandleKind::kOther, std::make_shared<int>(7));
  EXPECT_EQ(OSLockObject(other), nullptr);
  EXPECT_NE(OSMemFree(other), NOERROR);
  EXPECT_NE(table.remove(other, tarnwick::rt::HandleKind::kOther), nullptr) << "the wrong-kind free left it alone";
}

TEST(MemoryHandlesConcurrency, ThreadsAllocateAndFreeDistinctHandles) {
  constexpr int kThreads = 4;
  constexpr int kPerThread = 2000;
  std::vector<std::vector<DHANDLE>> seen(kThreads);
  std::vector<std::thread> threads;
  for (int t = 0; t < kThreads; ++t) {
    threads.emplace_back([t, &seen] {
      for (int i = 0; i < kPerThread; ++i) {
        DHANDLE h = NULLHANDLE;
        if (OSMemAlloc(0, 16, &h) != NOERROR) return;
        static_cast<char*>(OSLockObject(h))[0] = static_cast<char>(t);
        seen[t].push_back(h);
        if (i % 2 == 0) OSMemFree(h);
      }
    });
  }
  for (auto& thread : threads) thread.join();
  std::set<DHANDLE> all;
  size_t total = 0;
  for (int t = 0; t < kThreads; ++t) {
    total += seen[t].size();
    all.insert(seen[t].begin(), seen[t].end());
    for (size_t i = 1; i < seen[t].size(); i += 2) {
      EXPECT_EQ(static_cast<char*>(OSLockObject(seen[t][i]))[0], t);
      OSMemFree(seen[t][i]);
    }
  }
  EXPECT_EQ(total, size_t{kThreads * kPerThread});
  EXPECT_EQ(all.size(), total) << "no handle was issued twice";
}

}  // namespace
