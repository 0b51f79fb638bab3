#include <fcntl.h>
#include <gtest/gtest.h>
#include <pwd.h>
#include <signal.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <string>
#include <thread>
#include <vector>

#include "Platform/FileTree.h"
#include "Platform/Files.h"
#include "Program.h"
#include "support/Environment.h"

namespace qbdkr {
namespace {

namespace fs = std::filesystem;
using std::chrono::milliseconds;
using test::asOrdinaryUser;
using test::giveToOrdinaryUser;
using test::Process;
using test::readFile;
using test::TemporaryDirectory;
using test::writeFile;

mode_t modeOf(const fs::path& path) {
  struct stat status {};
  EXPECT_EQ(lstat(path.c_str(), &status), 0) << path;
  return status.st_mode & 07777U;
}

std::vector<std::string> namesIn(const fs::path& directory) {
  std::vector<std::string> names;
  for (const auto& entry : fs::directory_iterator(directory)) {
    names.push_back(entry.path().filename());
  }
  std::ranges::sort(names);
  return names;
}

class FileTree : public testing::Test {
 protected:
  TemporaryDirectory directory;
  const fs::path root = directory.path();
  const std::string from = root / "from";
  const std::string to = root / "to";

  void makeTree() {
    writeFile(root / "from/Contents/Info.plist", "info");
    writeFile(root / "from/Contents/Linux/tool", "tool");
    fs::create_directories(root / "from/empty");
  }
};

TEST_F(FileTree, CopyTakesATreeWithItsModes) {
  makeTree();
  fs::permissions(from + "/Contents/Info.plist", fs::perms(0640));
  fs::permissions(from + "/Contents/Linux/tool", fs::perms(0755));
  fs::permissions(from + "/empty", fs::perms(0750));
  EXPECT_TRUE(copyItem(from, to));
  EXPECT_EQ(readFile(to + "/Contents/Info.plist"), "info");
  EXPECT_EQ(readFile(to + "/Contents/Linux/tool"), "tool");
  EXPECT_TRUE(fs::is_directory(to + "/empty"));
  EXPECT_EQ(modeOf(to + "/Contents/Info.plist"), 0640U);
  EXPECT_EQ(modeOf(to + "/Contents/Linux/tool"), 0755U);
  EXPECT_EQ(modeOf(to + "/empty"), 0750U);
  EXPECT_EQ(namesIn(root), (std::vector<std::string>{"from", "to"}));
}

TEST_F(FileTree, CopyDoesNotDependOnTheUserMask) {
  makeTree();
  fs::permissions(from, fs::perms(0777));
  fs::permissions(from + "/Contents/Linux/tool", fs::perms(0777));
  const mode_t before = umask(0077);
  EXPECT_TRUE(copyItem(from, to));
  umask(before);
  EXPECT_EQ(modeOf(to), 0777U);
  EXPECT_EQ(modeOf(to + "/Contents/Linux/tool"), 0777U);
}

TEST_F(FileTree, CopyTakesASingleFile) {
  writeFile(from, "file");
  fs::permissions(from, fs::perms(0444));
  EXPECT_TRUE(copyItem(from, to));
  EXPECT_EQ(readFile(to), "file");
  EXPECT_EQ(modeOf(to), 0444U);
}

TEST_F(FileTree, CopyTakesLinksAsLinks) {
  makeTree();
  writeFile(root / "outside", "outside");
  fs::create_symlink("Contents/Info.plist", from + "/relative");
  fs::create_symlink(root / "outside", from + "/absolute");
  fs::create_symlink("nowhere", from + "/dangling");
  fs::create_symlink("..", from + "/upwards");
  EXPECT_TRUE(copyItem(from, to));
  EXPECT_EQ(fs::read_symlink(to + "/relative"), "Contents/Info.plist");
  EXPECT_EQ(fs::read_symlink(to + "/absolute"), root / "outside");
  EXPECT_EQ(fs::read_symlink(to + "/dangling"), "nowhere");
  EXPECT_EQ(fs::read_symlink(to + "/upwards"), "..");
}

TEST_F(FileTree, CopyOfALinkIsALink) {
  fs::create_symlink("nowhere", from);
  EXPECT_TRUE(copyItem(from, to));
  EXPECT_EQ(fs::read_symlink(to), "nowhere");
}

TEST_F(FileTree, CopyOfAReadOnlyTreeIsWhole) {
  giveToOrdinaryUser(root);
  EXPECT_TRUE(asOrdinaryUser([this] {
    makeTree();
    fs::permissions(from + "/Contents/Linux", fs::perms(0555));
    fs::permissions(from + "/Contents", fs::perms(0555));
    fs::permissions(from, fs::perms(0555));
    return copyItem(from, to);
  }));
  EXPECT_EQ(readFile(to + "/Contents/Linux/tool"), "tool");
  // And it can be replaced later on.
  EXPECT_EQ(modeOf(to), 0755U);
  EXPECT_EQ(modeOf(to + "/Contents/Linux"), 0755U);
  EXPECT_TRUE(asOrdinaryUser([this] { return !removeItem(to); }));
  EXPECT_EQ(namesIn(root), std::vector<std::string>{"from"});
}

TEST_F(FileTree, CopyNeverReplacesWhatIsThere) {
  makeTree();
  writeFile(to, "kept");
  EXPECT_FALSE(copyItem(from, to));
  EXPECT_EQ(readFile(to), "kept");
  fs::remove(to);
  fs::create_directories(to);
  EXPECT_FALSE(copyItem(from, to));
  EXPECT_TRUE(fs::is_empty(to));
  fs::remove(to);
  fs::create_symlink("nowhere", to);
  EXPECT_FALSE(copyItem(from, to));
  EXPECT_EQ(fs::read_symlink(to), "nowhere");
}

TEST_F(FileTree, FailedCopyLeavesNothing) {
  EXPECT_FALSE(copyItem(from, to));  // there is no source
  EXPECT_EQ(namesIn(root), std::vector<std::string>{});
  makeTree();
  ASSERT_EQ(mkfifo((from + "/Contents/fifo").c_str(), 0600), 0);
  EXPECT_FALSE(copyItem(from, to));  // what is neither file nor link nor directory cannot be copied
  EXPECT_EQ(namesIn(root), std::vector<std::string>{"from"});
  EXPECT_FALSE(copyItem(from, root / "missing/to"));
}

TEST_F(FileTree, CopyOfAnUnreadableFileLeavesNothing) {
  giveToOrdinaryUser(root);
  EXPECT_FALSE(asOrdinaryUser([this] {
    makeTree();
    fs::permissions(from + "/Contents/Linux/tool", fs::perms::none);
    return copyItem(from, to);
  }));
  EXPECT_EQ(namesIn(root), std::vector<std::string>{"from"});
}

TEST_F(FileTree, CopyWithoutRoomLeavesNothing) {
  giveToOrdinaryUser(root);
  EXPECT_FALSE(asOrdinaryUser([this] {
    makeTree();
    writeFile(from + "/large", std::string(100'000, 'x'));
    signal(SIGXFSZ, SIG_IGN);
    const rlimit limit{50'000, 50'000};
    setrlimit(RLIMIT_FSIZE, &limit);
    return copyItem(from, to);
  }));
  EXPECT_EQ(namesIn(root), std::vector<std::string>{"from"});
}

TEST_F(FileTree, OneOfSeveralCopiesAtOnceWins) {
  makeTree();
  for (int round = 0; round < 10; ++round) {
    std::atomic<int> successes{0};
    std::vector<std::thread> threads;
    for (int i = 0; i < 4; ++i) {
      threads.emplace_back([&] {
        if (copyItem(from, to)) ++successes;
      });
    }
    for (std::thread& thread : threads) thread.join();
    EXPECT_EQ(successes, 1);
    EXPECT_EQ(namesIn(root), (std::vector<std::string>{"from", "to"}));
    EXPECT_EQ(readFile(to + "/Contents/Linux/tool"), "tool");
    fs::remove_all(to);
  }
}

TEST_F(FileTree, CopyClearsWhatADeadProcessLeft) {
  makeTree();
  writeFile(root / ".to.qbhp-staging-AAAAAA/item/half", "half");
  writeFile(root / ".other.qbhp-staging-BBBBBB/item/half", "half");
  EXPECT_TRUE(copyItem(from, to));
  EXPECT_EQ(namesIn(root), (std::vector<std::string>{".other.qbhp-staging-BBBBBB", "from", "to"}));
}

TEST_F(FileTree, CopyLeavesWhatALiveProcessWorksOn) {
  makeTree();
  writeFile(root / ".to.qbhp-staging-AAAAAA/item/half", "half");
  Process worker({"hold", root / ".to.qbhp-staging-AAAAAA"});
  ASSERT_EQ(worker.readLine(), "locked");
  EXPECT_TRUE(copyItem(from, to));
  EXPECT_EQ(readFile(root / ".to.qbhp-staging-AAAAAA/item/half"), "half");
  // When that process dies, the next one clears up.
  worker.kill();
  worker.finish();
  EXPECT_EQ(removeItem(to), std::nullopt);
  EXPECT_EQ(namesIn(root), std::vector<std::string>{"from"});
}

TEST_F(FileTree, RemoveTakesAwayFilesTreesAndLinks) {
  makeTree();
  writeFile(root / "file", "");
  fs::create_symlink(from, root / "link");
  fs::create_symlink("nowhere", root / "dangling");
  EXPECT_EQ(removeItem(root / "link"), std::nullopt);
  EXPECT_EQ(removeItem(root / "dangling"), std::nullopt);
  EXPECT_EQ(removeItem(root / "file"), std::nullopt);
  EXPECT_EQ(namesIn(root), std::vector<std::string>{"from"});
  EXPECT_EQ(removeItem(from), std::nullopt);
  EXPECT_EQ(namesIn(root), std::vector<std::string>{});
}

TEST_F(FileTree, RemoveSaysWhatWentWrong) {
  EXPECT_EQ(removeItem(root / "missing"), "No such file or directory");
  giveToOrdinaryUser(root);
  EXPECT_TRUE(asOrdinaryUser([this] {
    writeFile(root / "closed/file", "kept");
    fs::permissions(root / "closed", fs::perms(0555));
    return removeItem(root / "closed/file") == "Permission denied";
  }));
  EXPECT_EQ(readFile(root / "closed/file"), "kept");
}

TEST_F(FileTree, PathBeforeRemovalIsWhereAProcessWasStarted) {
  EXPECT_EQ(pathBeforeRemoval("/a/.Helper.app.qbhp-staging-x1Y2z3/item/Contents/Linux/Helper"),
            "/a/Helper.app/Contents/Linux/Helper");
  for (const char* path :
       {"", "/", "/a/Helper.app/Contents/Linux/Helper", "/a/Helper.app.qbhp-staging-x1Y2z3/item/b",
        "/a/.Helper.app.qbhp-staging-x1Y2z3/item", "/a/.Helper.app.qbhp-staging-x1Y2z3",
        "/a/.Helper.app.qbhp-staging-x1Y2z3/other/b", ".qbhp-staging-", "/a/.qbhp-staging-",
        "/a/.qbhp-staging-x1Y2z3/item/b"}) {
    EXPECT_EQ(pathBeforeRemoval(path), path);
  }
}

}  // namespace
}  // namespace qbdkr
