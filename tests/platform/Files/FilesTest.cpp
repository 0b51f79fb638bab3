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

#include "Platform/Files/Files.h"
#include "support/Environment.h"
#include "support/OrdinaryUser.h"

namespace qbdkr {
namespace {

namespace fs = std::filesystem;
using std::chrono::milliseconds;
using test::asOrdinaryUser;
using test::giveToOrdinaryUser;
using test::modeOf;
using test::namesIn;
using test::readFile;
using test::TemporaryDirectory;
using test::writeFile;

class Files : public testing::Test {
 protected:
  TemporaryDirectory directory;
  const fs::path root = directory.path();
  const std::string to = root / "to";
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

TEST_F(Files, CreateDirectoryTakesAnySpellingOfAPath) {
  EXPECT_TRUE(createDirectory(root.string() + "//a///b//"));
  EXPECT_TRUE(fs::is_directory(root / "a/b"));
  EXPECT_TRUE(createDirectory(root.string() + "/a/./c/../d/"));
  EXPECT_EQ(namesIn(root / "a"), (std::vector<std::string>{"b", "c", "d"}));
  EXPECT_TRUE(createDirectory("/"));
}

TEST_F(Files, CreateDirectoryRefusesAPathThatIsTooLong) {
  std::string path = root;
  while (path.size() < 3'000'000) path += "/a";
  EXPECT_FALSE(createDirectory(path));
  EXPECT_EQ(namesIn(root), std::vector<std::string>());
}

TEST_F(Files, WhatIsMadeCanBeUsedByItsOwnerUnderAnyUmask) {
  giveToOrdinaryUser(root);
  EXPECT_TRUE(asOrdinaryUser([this] {
    umask(0777);
    return createDirectory(root / "a/b") && replaceFile(root / "a/b/file", "contents") &&
           replaceFile(root / "a/b/file", "others");
  }));
  EXPECT_EQ(modeOf(root / "a"), 0700U);
  EXPECT_EQ(modeOf(root / "a/b"), 0700U);
  EXPECT_EQ(modeOf(root / "a/b/file"), 0600U);
  EXPECT_EQ(readFile(root / "a/b/file"), "others");
}

TEST_F(Files, UmaskDecidesWhatOthersMayDoWithADirectory) {
  const mode_t before = umask(0027);
  EXPECT_TRUE(createDirectory(root / "a/b"));
  umask(before);
  EXPECT_EQ(modeOf(root / "a"), 0750U);
  EXPECT_EQ(modeOf(root / "a/b"), 0750U);
}

TEST_F(Files, ReplaceFileIsNotKeptFromItByWhatAKilledProcessHasLeft) {
  writeFile(to, "old");
  writeFile(stagedPath(to), "left behind");
  fs::permissions(stagedPath(to), fs::perms::none);
  fs::create_hard_link(stagedPath(to), root / "also");
  giveToOrdinaryUser(root);
  EXPECT_TRUE(asOrdinaryUser([this] { return replaceFile(to, "new"); }));
  EXPECT_EQ(readFile(to), "new");
  EXPECT_EQ(namesIn(root), (std::vector<std::string>{"also", "to"}));
  fs::permissions(root / "also", fs::perms::owner_read);
  EXPECT_EQ(readFile(root / "also"), "left behind");
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

}  // namespace
}  // namespace qbdkr
