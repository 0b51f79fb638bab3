#include <gtest/gtest.h>
#include <poll.h>

#include <chrono>

#include "Platform/Base/ResumeTimerLinux.h"

namespace qbdkr::test {
namespace {

using std::chrono::milliseconds;

class Resume : public testing::Test {
 protected:
  std::chrono::nanoseconds suspended = std::chrono::hours(5);
  ResumeTimer timer{[this] { return suspended; }};
};

TEST_F(Resume, IsNoticedOnce) {
  EXPECT_FALSE(timer.hasResumed());
  suspended += std::chrono::seconds(30);
  EXPECT_TRUE(timer.hasResumed());
  EXPECT_FALSE(timer.hasResumed());
  suspended += milliseconds(100);
  EXPECT_TRUE(timer.hasResumed());
}

TEST_F(Resume, IsNoDelayBetweenTheReadingsOfTwoClocks) {
  suspended += milliseconds(99);
  EXPECT_FALSE(timer.hasResumed());
  suspended -= milliseconds(99);
  EXPECT_FALSE(timer.hasResumed());
}

TEST_F(Resume, IsNotReportedByAMachineThatRuns) {
  ResumeTimer own;
  pollfd event{own.descriptor(), POLLIN, 0};
  EXPECT_GE(event.fd, 0);
  EXPECT_EQ(::poll(&event, 1, 0), 0);
  EXPECT_FALSE(own.hasResumed());
}

}  // namespace
}  // namespace qbdkr::test
