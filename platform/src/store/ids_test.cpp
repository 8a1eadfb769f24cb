// Random values and UNIDs stay distinct across threads and across fork():
// a child never repeats what its parent draws next.
#include "store/ids.h"

#include <sys/wait.h>
#include <unistd.h>

#include <cstdint>
#include <set>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

namespace {

using tarnwick::rt::store::random64;

TEST(RandomValues, AForkedChildDoesNotRepeatItsParentsNextValues) {
  (void)random64();  // the parent's generator is seeded before the fork
  int pipe_fds[2];
  ASSERT_EQ(::pipe(pipe_fds), 0);
  const pid_t child = ::fork();
  if (child == 0) {
    uint64_t drawn[4];
    for (uint64_t& value : drawn) value = random64();
    ::_exit(::write(pipe_fds[1], drawn, sizeof drawn) == static_cast<ssize_t>(sizeof drawn) ? 0 : 1);
  }
  uint64_t theirs[4] = {};
  ASSERT_EQ(::read(pipe_fds[0], theirs, sizeof theirs), static_cast<ssize_t>(sizeof theirs));
  int status = 0;
  ::waitpid(child, &status, 0);
  ::close(pipe_fds[0]);
  ::close(pipe_fds[1]);
  std::set<uint64_t> all(std::begin(theirs), std::end(theirs));
  for (int i = 0; i < 4; ++i) all.insert(random64());
  EXPECT_EQ(all.size(), 8u);
}

TEST(RandomValues, ThreadsDrawDistinctValues) {
  std::vector<std::vector<uint64_t>> drawn(4);
  std::vector<std::thread> threads;
  for (auto& values : drawn) {
    threads.emplace_back([&values] {
      for (int i = 0; i < 1000; ++i) values.push_back(random64());
    });
  }
  for (auto& thread : threads) thread.join();
  std::set<uint64_t> all;
  for (const auto& values : drawn) all.insert(values.begin(), values.end());
  EXPECT_EQ(all.size(), 4000u);
}

}  // namespace
