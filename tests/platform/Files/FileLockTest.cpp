#include <gtest/gtest.h>
#include <signal.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <filesystem>
#include <thread>
#include <utility>

#include "Platform/Files/FileLock.h"
#include "platform/TaskProcess.h"
#include "support/Environment.h"
#include "support/Patience.h"
#include "support/WatchedThread.h"

namespace qbdkr {
namespace {

using std::chrono::milliseconds;
using test::TaskProcess;

class FileLocks : public testing::Test {
 protected:
  test::TemporaryDirectory directory;
  const std::filesystem::path root = directory.path();
};

// A host may fork workers of its own.
TEST_F(FileLocks, LockIsReleasedAlthoughAForkedProcessHasItsDescriptor) {
  auto lock = FileLock::acquire(root, milliseconds(0));
  ASSERT_TRUE(lock.isHeld());
  const pid_t worker = fork();
  ASSERT_GE(worker, 0);
  if (worker == 0) {
    pause();
    _exit(0);
  }
  lock.unlock();
  EXPECT_TRUE(FileLock::acquire(root, milliseconds(0)).isHeld());
  kill(worker, SIGKILL);
  waitpid(worker, nullptr, 0);
}

TEST_F(FileLocks, LockKeepsAnotherProcessOut) {
  TaskProcess other({"hold", root});
  ASSERT_EQ(other.firstLine(), "locked");
  EXPECT_TRUE(FileLock::acquire(root, milliseconds(0)).isTaken());
  const auto start = std::chrono::steady_clock::now();
  EXPECT_FALSE(FileLock::acquire(root, milliseconds(50)).isHeld());
  EXPECT_GE(std::chrono::steady_clock::now() - start, milliseconds(50));
}

TEST_F(FileLocks, LockIsHadWhenTheOtherProcessEnds) {
  TaskProcess other({"hold", root});
  ASSERT_EQ(other.firstLine(), "locked");
  std::thread ending([&] { other.finish(); });
  EXPECT_TRUE(FileLock::acquire(root, milliseconds(20'000)).isHeld());
  ending.join();
}

TEST_F(FileLocks, LockIsHadWhenTheOtherProcessIsKilled) {
  TaskProcess other({"hold", root});
  ASSERT_EQ(other.firstLine(), "locked");
  other.kill();
  EXPECT_TRUE(FileLock::acquire(root, milliseconds(0)).isHeld());
}

TEST_F(FileLocks, LockIsReleasedByItsDestruction) {
  auto lock = FileLock::acquire(root, milliseconds(0));
  ASSERT_TRUE(lock.isHeld());
  EXPECT_FALSE(FileLock::acquire(root, milliseconds(0)).isHeld());
  lock.unlock();
  EXPECT_TRUE(FileLock::acquire(root, milliseconds(0)).isHeld());
}

TEST_F(FileLocks, LockMovesWithItsObject) {
  auto lock = FileLock::acquire(root, milliseconds(0));
  ASSERT_TRUE(lock.isHeld());
  {
    const FileLock moved(std::move(lock));
    lock.unlock();  // NOLINT(bugprone-use-after-move): it holds nothing any more
    EXPECT_FALSE(FileLock::acquire(root, milliseconds(0)).isHeld());
  }
  EXPECT_TRUE(FileLock::acquire(root, milliseconds(0)).isHeld());
}

TEST_F(FileLocks, LockIsNotInheritedByAProcessThatIsStarted) {
  auto lock = FileLock::acquire(root, milliseconds(0));
  TaskProcess other({"wait"});
  ASSERT_EQ(other.firstLine(), "waiting");
  lock.unlock();
  EXPECT_TRUE(FileLock::acquire(root, milliseconds(0)).isHeld());
}

TEST_F(FileLocks, LockIsThatOfTheFileWhichTookThePlaceOfAnother) {
  std::filesystem::create_directory(root / "old");
  std::filesystem::create_directory(root / "new");
  auto old = FileLock::acquire(root / "old", milliseconds(0));
  FileLock waiting = FileLock::acquire(root / "missing", milliseconds(0));
  test::WatchedThread thread([&] { waiting = FileLock::acquire(root / "old", test::patience); });
  EXPECT_TRUE(thread.waits());
  std::filesystem::rename(root / "old", root / "gone");
  std::filesystem::rename(root / "new", root / "old");
  old.unlock();
  thread.join();
  EXPECT_TRUE(waiting.isHeld());
  EXPECT_TRUE(FileLock::acquire(root / "old", milliseconds(0)).isTaken());
  EXPECT_TRUE(FileLock::acquire(root / "gone", milliseconds(0)).isHeld());
}

TEST_F(FileLocks, LockNeedsSomethingToLock) {
  const auto lock = FileLock::acquire(root / "missing", milliseconds(0));
  EXPECT_FALSE(lock.isHeld());
  EXPECT_FALSE(lock.isTaken());
}

TEST_F(FileLocks, LockOnAFifoDoesNotWaitForAWriter) {
  ASSERT_EQ(mkfifo((root / "fifo").c_str(), 0600), 0);
  EXPECT_TRUE(FileLock::acquire(root / "fifo", milliseconds(0)).isHeld());
}

}  // namespace
}  // namespace qbdkr
