#include "sessions.h"

#include <gtest/gtest.h>

namespace tarnwick::gateway {
namespace {

using namespace std::chrono_literals;

struct FakeClock {
  std::chrono::steady_clock::time_point now{};
  Clock clock() {
    return [this] { return now; };
  }
};

TEST(SessionStore, SessionsHaveUnguessableTokensAndExpireWhenIdle) {
  FakeClock time;
  SessionStore store(60s, time.clock());
  const std::string a = store.open(Account{"CN=Jane Doe/O=Acme", "", "", ""});
  const std::string b = store.open(Account{"CN=Jane Doe/O=Acme", "", "", ""});
  EXPECT_EQ(a.size(), 64u);
  EXPECT_NE(a, b);
  auto session = store.find(a);
  ASSERT_TRUE(session);
  EXPECT_EQ(session->account.full_name, "CN=Jane Doe/O=Acme");
  EXPECT_EQ(session->csrf.size(), 64u);
  EXPECT_NE(session->csrf, a);
  EXPECT_NE(session->csrf, store.find(b)->csrf);
  EXPECT_FALSE(store.find("not-a-token"));

  time.now += 50s;
  EXPECT_TRUE(store.find(a)) << "use restarts the idle time";
  time.now += 50s;
  EXPECT_TRUE(store.find(a));
  EXPECT_FALSE(store.find(b)) << "idle for 100 s";
  store.close(a);
  EXPECT_FALSE(store.find(a));
}

TEST(SignInThrottle, FailuresSlowDownPerNameAndPerAddress) {
  FakeClock time;
  SignInThrottle::Limits limits;
  limits.free_failures_per_name = 3;
  limits.free_failures_per_address = 5;
  SignInThrottle throttle(limits, time.clock());

  for (int i = 0; i < 3; ++i) {
    EXPECT_EQ(throttle.wait_before("jdoe", "10.0.0.1").count(), 0) << i;
    throttle.failed("jdoe", "10.0.0.1");
  }
  EXPECT_EQ(throttle.wait_before("jdoe", "10.0.0.2").count(), 1) << "the name is slowed from any address";
  EXPECT_EQ(throttle.wait_before("JDOE", "10.0.0.2").count(), 1) << "names without case";
  EXPECT_EQ(throttle.wait_before("other", "10.0.0.2").count(), 0);
  time.now += 1s;
  EXPECT_EQ(throttle.wait_before("jdoe", "10.0.0.1").count(), 0);
  throttle.failed("jdoe", "10.0.0.1");
  EXPECT_EQ(throttle.wait_before("jdoe", "10.0.0.1").count(), 2) << "the delay doubles";

  // The address: two more failures under other names reach its limit.
  throttle.failed("a", "10.0.0.1");
  EXPECT_EQ(throttle.wait_before("b", "10.0.0.1").count(), 1);
  EXPECT_EQ(throttle.wait_before("b", "10.0.0.3").count(), 0);

  // Success clears the name; a quiet quarter of an hour clears everything.
  throttle.succeeded("jdoe");
  EXPECT_EQ(throttle.wait_before("jdoe", "10.0.0.3").count(), 0);
  for (int i = 0; i < 10; ++i) throttle.failed("x", "10.0.0.9");
  EXPECT_GT(throttle.wait_before("x", "10.0.0.9").count(), 30);
  EXPECT_LE(throttle.wait_before("x", "10.0.0.9").count(), 60) << "capped";
  time.now += 16min;
  EXPECT_EQ(throttle.wait_before("x", "10.0.0.9").count(), 0);
}

}  // namespace
}  // namespace tarnwick::gateway
