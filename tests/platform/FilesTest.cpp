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

class Files : public testing::Test {
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

TEST_F(Files, FileExistsForFilesAndDirectoriesOnly) {
  writeFile(root / "file", "");
  fs::create_symlink("nowhere", root / "dangling");
  EXPECT_TRUE(fileExists(root / "file"));
  EXPECT_TRUE(fileExists(root));
  EXPECT_FALSE(fileExists(root / "missing"));
  EXPECT_FALSE(fileExists(root / "file/below"));
  EXPECT_FALSE(fileExists(root / "dangling"));
  EXPECT_FALSE(fileExists(""));
}

TEST_F(Files, CreateDirectoryMakesTheMissingOnesAbove) {
  EXPECT_TRUE(createDirectory(root / "a/b/c"));
  EXPECT_TRUE(fs::is_directory(root / "a/b/c"));
  EXPECT_TRUE(createDirectory(root / "a/b/c"));
}

TEST_F(Files, CreateDirectoryFailsWhereAFileIs) {
  writeFile(root / "file", "kept");
  EXPECT_FALSE(createDirectory(root / "file"));
  EXPECT_FALSE(createDirectory(root / "file/below"));
  EXPECT_EQ(readFile(root / "file"), "kept");
  EXPECT_FALSE(createDirectory(""));
}

TEST_F(Files, ContentsAreTheNamesWithoutTheDots) {
  writeFile(root / "b", "");
  writeFile(root / ".hidden", "");
  fs::create_directories(root / "c");
  auto names = contentsOfDirectory(root).value();
  std::ranges::sort(names);
  EXPECT_EQ(names, (std::vector<std::string>{".hidden", "b", "c"}));
  EXPECT_EQ(contentsOfDirectory(root / "c"), std::vector<std::string>{});
  EXPECT_EQ(contentsOfDirectory(root / "b"), std::nullopt);
  EXPECT_EQ(contentsOfDirectory(root / "missing"), std::nullopt);
}

TEST_F(Files, CopyTakesATreeWithItsModes) {
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

TEST_F(Files, CopyDoesNotDependOnTheUserMask) {
  makeTree();
  fs::permissions(from, fs::perms(0777));
  fs::permissions(from + "/Contents/Linux/tool", fs::perms(0777));
  const mode_t before = umask(0077);
  EXPECT_TRUE(copyItem(from, to));
  umask(before);
  EXPECT_EQ(modeOf(to), 0777U);
  EXPECT_EQ(modeOf(to + "/Contents/Linux/tool"), 0777U);
}

TEST_F(Files, CopyTakesASingleFile) {
  writeFile(from, "file");
  fs::permissions(from, fs::perms(0444));
  EXPECT_TRUE(copyItem(from, to));
  EXPECT_EQ(readFile(to), "file");
  EXPECT_EQ(modeOf(to), 0444U);
}

TEST_F(Files, CopyTakesLinksAsLinks) {
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

TEST_F(Files, CopyOfALinkIsALink) {
  fs::create_symlink("nowhere", from);
  EXPECT_TRUE(copyItem(from, to));
  EXPECT_EQ(fs::read_symlink(to), "nowhere");
}

TEST_F(Files, CopyOfAReadOnlyTreeIsWhole) {
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

TEST_F(Files, CopyNeverReplacesWhatIsThere) {
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

TEST_F(Files, FailedCopyLeavesNothing) {
  EXPECT_FALSE(copyItem(from, to));  // there is no source
  EXPECT_EQ(namesIn(root), std::vector<std::string>{});
  makeTree();
  ASSERT_EQ(mkfifo((from + "/Contents/fifo").c_str(), 0600), 0);
  EXPECT_FALSE(copyItem(from, to));  // what is neither file nor link nor directory cannot be copied
  EXPECT_EQ(namesIn(root), std::vector<std::string>{"from"});
  EXPECT_FALSE(copyItem(from, root / "missing/to"));
}

TEST_F(Files, CopyOfAnUnreadableFileLeavesNothing) {
  giveToOrdinaryUser(root);
  EXPECT_FALSE(asOrdinaryUser([this] {
    makeTree();
    fs::permissions(from + "/Contents/Linux/tool", fs::perms::none);
    return copyItem(from, to);
  }));
  EXPECT_EQ(namesIn(root), std::vector<std::string>{"from"});
}

TEST_F(Files, CopyWithoutRoomLeavesNothing) {
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

TEST_F(Files, OneOfSeveralCopiesAtOnceWins) {
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

TEST_F(Files, CopyClearsWhatADeadProcessLeft) {
  makeTree();
  writeFile(root / ".to.qbhp-staging-AAAAAA/item/half", "half");
  writeFile(root / ".other.qbhp-staging-BBBBBB/item/half", "half");
  EXPECT_TRUE(copyItem(from, to));
  EXPECT_EQ(namesIn(root), (std::vector<std::string>{".other.qbhp-staging-BBBBBB", "from", "to"}));
}

TEST_F(Files, CopyLeavesWhatALiveProcessWorksOn) {
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

TEST_F(Files, RemoveTakesAwayFilesTreesAndLinks) {
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

TEST_F(Files, RemoveSaysWhatWentWrong) {
  EXPECT_EQ(removeItem(root / "missing"), "No such file or directory");
  giveToOrdinaryUser(root);
  EXPECT_TRUE(asOrdinaryUser([this] {
    writeFile(root / "closed/file", "kept");
    fs::permissions(root / "closed", fs::perms(0555));
    return removeItem(root / "closed/file") == "Permission denied";
  }));
  EXPECT_EQ(readFile(root / "closed/file"), "kept");
}

TEST_F(Files, PathBeforeRemovalIsWhereAProcessWasStarted) {
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

TEST_F(Files, ReplaceFileCreatesWithMode0600) {
  const mode_t before = umask(0);
  EXPECT_TRUE(replaceFile(to, "contents"));
  umask(before);
  EXPECT_EQ(readFile(to), "contents");
  EXPECT_EQ(modeOf(to), 0600U);
  EXPECT_EQ(namesIn(root), std::vector<std::string>{"to"});
}

TEST_F(Files, ReplaceFileReplacesTheContents) {
  EXPECT_TRUE(replaceFile(to, std::string(100'000, 'a')));
  EXPECT_TRUE(replaceFile(to, std::string("b\0c", 3)));
  EXPECT_EQ(readFile(to), std::string("b\0c", 3));
  EXPECT_TRUE(replaceFile(to, ""));
  EXPECT_EQ(readFile(to), "");
}

TEST_F(Files, ReplaceFileThatFailsKeepsTheOldContents) {
  writeFile(to, "old");
  giveToOrdinaryUser(root);
  EXPECT_FALSE(asOrdinaryUser([this] {
    signal(SIGXFSZ, SIG_IGN);
    const rlimit limit{1000, 1000};
    setrlimit(RLIMIT_FSIZE, &limit);
    return replaceFile(to, std::string(2000, 'x'));
  }));
  EXPECT_EQ(readFile(to), "old");
  EXPECT_EQ(namesIn(root), std::vector<std::string>{"to"});
  EXPECT_FALSE(asOrdinaryUser([this] {
    fs::permissions(root, fs::perms(0555));
    return replaceFile(to, "new");
  }));
  EXPECT_EQ(readFile(to), "old");
}

TEST_F(Files, ReplaceFileNeedsAPlaceForAFile) {
  EXPECT_FALSE(replaceFile(root / "missing/file", "x"));
  fs::create_directories(root / "directory/below");
  EXPECT_FALSE(replaceFile(root / "directory", "x"));
  EXPECT_EQ(namesIn(root), std::vector<std::string>{"directory"});
}

TEST_F(Files, ReaderNeverSeesHalfAFile) {
  const std::string a(50'000, 'a');
  const std::string b(70'000, 'b');
  ASSERT_TRUE(replaceFile(to, a));
  std::atomic<bool> done{false};
  std::thread writer([&] {
    for (int i = 0; i < 50; ++i) replaceFile(to, i % 2 == 0 ? b : a);
    done = true;
  });
  while (!done) {
    const std::string seen = readFile(to);
    EXPECT_TRUE(seen == a || seen == b) << seen.size();
  }
  writer.join();
}

TEST_F(Files, RewriteFileKeepsTheFile) {
  writeFile(to, "old");
  fs::permissions(to, fs::perms(0640));
  fs::create_hard_link(to, from);
  for (const std::string& contents :
       {std::string(100'000, 'a'), std::string("b\0c", 3), std::string(), std::string("d")}) {
    EXPECT_TRUE(rewriteFile(to, contents));
    EXPECT_EQ(readFile(to), contents);
    EXPECT_EQ(readFile(from), contents);
    EXPECT_EQ(modeOf(to), 0640U);
  }
  EXPECT_EQ(namesIn(root), (std::vector<std::string>{"from", "to"}));
}

TEST_F(Files, RewriteFileNeedsAFile) {
  EXPECT_FALSE(rewriteFile(to, "new"));
  EXPECT_FALSE(fs::exists(to));
  fs::create_directory(root / "directory");
  EXPECT_FALSE(rewriteFile(root / "directory", "new"));
  ASSERT_EQ(mkfifo((root / "fifo").c_str(), 0600), 0);
  EXPECT_FALSE(rewriteFile(root / "fifo", "new"));
  EXPECT_FALSE(rewriteFile("/dev/full", "new"));
}

TEST_F(Files, RewriteFileThatFailsKeepsTheOldContents) {
  writeFile(to, "old");
  giveToOrdinaryUser(root);
  EXPECT_FALSE(asOrdinaryUser([this] {
    const rlimit limit{1000, 1000};
    setrlimit(RLIMIT_FSIZE, &limit);
    return rewriteFile(to, std::string(2000, 'x'));
  }));
  EXPECT_EQ(readFile(to), "old");
  for (const int mode : {0444, 0222}) {
    fs::permissions(to, fs::perms(mode));
    EXPECT_FALSE(asOrdinaryUser([this] { return rewriteFile(to, "new"); })) << mode;
    fs::permissions(to, fs::perms(0644));
    EXPECT_EQ(readFile(to), "old");
  }
}

TEST_F(Files, ReaderOfARewrittenFileMeetsNoByteThatNobodyWrote) {
  const std::string a(50'000, 'a');
  const std::string b(70'000, 'b');
  writeFile(to, a);
  std::atomic<bool> done{false};
  std::thread writer([&] {
    for (int i = 0; i < 50; ++i) rewriteFile(to, i % 2 == 0 ? b : a);
    done = true;
  });
  while (!done) EXPECT_EQ(readFile(to).find_first_not_of("ab"), std::string::npos);
  writer.join();
}

TEST_F(Files, TildeIsExpandedAtTheFrontOnly) {
  setenv("HOME", "/home/someone", 1);
  EXPECT_EQ(expandTilde("~"), "/home/someone");
  EXPECT_EQ(expandTilde("~/Library/Acme"), "/home/someone/Library/Acme");
  EXPECT_EQ(expandTilde("/a/~/b"), "/a/~/b");
  EXPECT_EQ(expandTilde("a"), "a");
  EXPECT_EQ(expandTilde(""), "");
}

TEST_F(Files, TildeAndANameIsThatUsersHome) {
  const passwd* user = getpwuid(0);
  ASSERT_NE(user, nullptr);
  const std::string home = user->pw_dir;
  EXPECT_EQ(expandTilde(std::string("~") + user->pw_name), home);
  EXPECT_EQ(expandTilde(std::string("~") + user->pw_name + "/Acme"), home + "/Acme");
  EXPECT_EQ(expandTilde("~no-such-user/b"), "~no-such-user/b");
}

TEST_F(Files, TildeWithoutAHomeVariableIsTheUsersHome) {
  unsetenv("HOME");
  const std::string home = expandTilde("~");
  EXPECT_TRUE(home.starts_with('/')) << home;
  setenv("HOME", "", 1);
  EXPECT_EQ(expandTilde("~"), home);
}

TEST_F(Files, ExtensionIsThatOfTheLastComponent) {
  EXPECT_EQ(pathExtension("/a/Helper.app"), "app");
  EXPECT_EQ(pathExtension("/a/Helper.app/"), "app");
  EXPECT_EQ(pathExtension("Helper.tar.gz"), "gz");
  EXPECT_EQ(pathExtension("/a.b/c"), "");
  EXPECT_EQ(pathExtension("/a/.app"), "");
  EXPECT_EQ(pathExtension("/a/app"), "");
  EXPECT_EQ(pathExtension("a."), "");
  EXPECT_EQ(pathExtension(""), "");
  EXPECT_EQ(pathExtension("/"), "");
}

TEST_F(Files, LastComponentIgnoresSlashesBehindIt) {
  EXPECT_EQ(lastPathComponent("/a/b"), "b");
  EXPECT_EQ(lastPathComponent("/a/b///"), "b");
  EXPECT_EQ(lastPathComponent("b"), "b");
  EXPECT_EQ(lastPathComponent("/"), "/");
  EXPECT_EQ(lastPathComponent("///"), "/");
  EXPECT_EQ(lastPathComponent(""), "");
}

TEST_F(Files, AppendPutsOneSlashBetween) {
  EXPECT_EQ(appendPathComponent("/a", "b"), "/a/b");
  EXPECT_EQ(appendPathComponent("/a/", "b"), "/a/b");
  EXPECT_EQ(appendPathComponent("/a//", "b"), "/a/b");
  EXPECT_EQ(appendPathComponent("/", "b"), "/b");
  EXPECT_EQ(appendPathComponent("", "b"), "b");
  EXPECT_EQ(appendPathComponent("a", "b.app"), "a/b.app");
}

// As a host does that starts workers of its own.
TEST_F(Files, LockIsReleasedAlthoughAForkedProcessHasItsDescriptor) {
  auto lock = FileLock::acquire(root, milliseconds(0));
  ASSERT_TRUE(lock.has_value());
  const pid_t worker = fork();
  ASSERT_GE(worker, 0);
  if (worker == 0) {
    pause();
    _exit(0);
  }
  lock.reset();
  EXPECT_TRUE(FileLock::acquire(root, milliseconds(0)).has_value());
  kill(worker, SIGKILL);
  waitpid(worker, nullptr, 0);
}

TEST_F(Files, LockKeepsAnotherProcessOut) {
  Process other({"hold", root});
  ASSERT_EQ(other.readLine(), "locked");
  EXPECT_FALSE(FileLock::acquire(root, milliseconds(0)).has_value());
  const auto start = std::chrono::steady_clock::now();
  EXPECT_FALSE(FileLock::acquire(root, milliseconds(50)).has_value());
  EXPECT_GE(std::chrono::steady_clock::now() - start, milliseconds(50));
}

TEST_F(Files, LockIsHadWhenTheOtherProcessEnds) {
  Process other({"hold", root});
  ASSERT_EQ(other.readLine(), "locked");
  std::thread ending([&] { other.finish(); });
  EXPECT_TRUE(FileLock::acquire(root, milliseconds(20'000)).has_value());
  ending.join();
}

TEST_F(Files, LockIsHadWhenTheOtherProcessIsKilled) {
  Process other({"hold", root});
  ASSERT_EQ(other.readLine(), "locked");
  other.kill();
  other.finish();
  EXPECT_TRUE(FileLock::acquire(root, milliseconds(0)).has_value());
}

TEST_F(Files, LockIsReleasedByItsDestruction) {
  auto lock = FileLock::acquire(root, milliseconds(0));
  ASSERT_TRUE(lock.has_value());
  EXPECT_FALSE(FileLock::acquire(root, milliseconds(0)).has_value());
  lock.reset();
  EXPECT_TRUE(FileLock::acquire(root, milliseconds(0)).has_value());
}

TEST_F(Files, LockMovesWithItsObject) {
  auto lock = FileLock::acquire(root, milliseconds(0));
  ASSERT_TRUE(lock.has_value());
  {
    const FileLock moved(std::move(*lock));
    lock.reset();
    EXPECT_FALSE(FileLock::acquire(root, milliseconds(0)).has_value());
  }
  EXPECT_TRUE(FileLock::acquire(root, milliseconds(0)).has_value());
}

TEST_F(Files, LockIsNotInheritedByAProcessThatIsStarted) {
  auto lock = FileLock::acquire(root, milliseconds(0));
  Process other({"wait"});
  ASSERT_EQ(other.readLine(), "waiting");
  lock.reset();
  EXPECT_TRUE(FileLock::acquire(root, milliseconds(0)).has_value());
}

TEST_F(Files, LockNeedsSomethingToLock) {
  EXPECT_FALSE(FileLock::acquire(root / "missing", milliseconds(0)).has_value());
}

TEST_F(Files, LockOnAFifoDoesNotWaitForAWriter) {
  ASSERT_EQ(mkfifo((root / "fifo").c_str(), 0600), 0);
  EXPECT_TRUE(FileLock::acquire(root / "fifo", milliseconds(0)).has_value());
}

}  // namespace
}  // namespace qbdkr
