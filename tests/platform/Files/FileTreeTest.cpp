#include <fcntl.h>
#include <gtest/gtest.h>
#include <linux/fs.h>
#include <sched.h>
#include <signal.h>
#include <sys/ioctl.h>
#include <sys/mount.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/xattr.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <functional>
#include <optional>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "Platform/Base/Descriptor.h"
#include "Platform/Files/FileError.h"
#include "Platform/Files/FileLock.h"
#include "Platform/Files/FileTree.h"
#include "Platform/Files/Files.h"
#include "platform/TaskProcess.h"
#include "support/Environment.h"
#include "support/ForkedBody.h"
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
using test::runForked;
using test::TaskProcess;
using test::TemporaryDirectory;
using test::writeFile;

std::string said(const std::optional<FileError>& error) {
  return error ? error->path + ": " + error->message : "";
}

struct stat statusOf(const fs::path& path) {
  struct stat status {};
  EXPECT_EQ(lstat(path.c_str(), &status), 0) << path;
  return status;
}

std::pair<time_t, long> modified(const fs::path& path) {
  const auto status = statusOf(path);
  return {status.st_mtim.tv_sec, status.st_mtim.tv_nsec};
}

void setModified(const fs::path& path, time_t seconds) {
  const std::array<timespec, 2> times{timespec{seconds, 1}, timespec{seconds, 123'456'789}};
  EXPECT_EQ(utimensat(AT_FDCWD, path.c_str(), times.data(), AT_SYMLINK_NOFOLLOW), 0) << path;
}

std::optional<std::string> attribute(const fs::path& path, const char* name) {
  std::array<char, 256> value{};
  const auto size = lgetxattr(path.c_str(), name, value.data(), value.size());
  if (size < 0) return std::nullopt;
  return std::string(value.data(), static_cast<std::size_t>(size));
}

bool setAttribute(const fs::path& path, const char* name, const std::string& value) {
  return lsetxattr(path.c_str(), name, value.data(), value.size(), 0) == 0;
}

void writeAt(const fs::path& path, off_t at, const std::string& text) {
  const Descriptor file(open(path.c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0600));
  ASSERT_EQ(pwrite(file.get(), text.data(), text.size(), at), static_cast<ssize_t>(text.size()));
}

// Makes a chain of directories, which may be longer than a path.
void makeChain(const fs::path& top, int levels) {
  fs::create_directories(top);
  Descriptor directory(open(top.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  for (int level = 1; level < levels; ++level) {
    ASSERT_EQ(mkdirat(directory.get(), "a name of a directory", 0700), 0);
    directory = Descriptor(openat(directory.get(), "a name of a directory", O_RDONLY | O_CLOEXEC));
  }
  Descriptor file(openat(directory.get(), "end", O_WRONLY | O_CREAT | O_CLOEXEC, 0600));
  ASSERT_TRUE(file);
}

// Tells whether the file system of a directory lets files share their data.
bool canShareData(const fs::path& directory) {
  writeFile(directory / "shared", "data");
  const Descriptor file(open((directory / "shared").c_str(), O_RDONLY | O_CLOEXEC));
  const Descriptor other(
      open((directory / "sharing").c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0600));
  return ioctl(other.get(), FICLONE, file.get()) == 0;
}

bool isSuperuser() { return geteuid() == 0; }

// Runs a body in a child process with its own mount namespace. Returns whether the body returned
// true.
bool withOwnMounts(const std::function<bool()>& body) {
  const auto bodyApart = [&body] {
    const bool apart =
        unshare(CLONE_NEWNS) == 0 && mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr) == 0;
    return apart && body();
  };
  return runForked(bodyApart) == 0;
}

bool mayMount() {
  return withOwnMounts([] { return true; });
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
  EXPECT_EQ(said(copyItem(from, to)), "");
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
  EXPECT_EQ(said(copyItem(from, to)), "");
  umask(before);
  EXPECT_EQ(modeOf(to), 0777U);
  EXPECT_EQ(modeOf(to + "/Contents/Linux/tool"), 0777U);
}

TEST_F(FileTree, CopyAndRemovalNeedNothingOfTheUserMask) {
  makeTree();
  giveToOrdinaryUser(root);
  EXPECT_TRUE(asOrdinaryUser([this] {
    umask(0777);
    return !copyItem(from, to) && !removeItem(from);
  }));
  EXPECT_EQ(namesIn(root), std::vector<std::string>{"to"});
  EXPECT_EQ(readFile(to + "/Contents/Linux/tool"), "tool");
}

TEST_F(FileTree, CopyTakesASingleFile) {
  writeFile(from, "file");
  fs::permissions(from, fs::perms(0444));
  EXPECT_EQ(said(copyItem(from, to)), "");
  EXPECT_EQ(readFile(to), "file");
  EXPECT_EQ(modeOf(to), 0444U);
}

TEST_F(FileTree, CopyTellsItsProgressUpToTheSizeOfTheTree) {
  makeTree();
  fs::create_symlink("Contents/Info.plist", from + "/link");
  writeFile(root / "from/large", std::string(std::size_t{40} << 20U, 'x'));
  writeFile(root / "from/hole", "begin");
  fs::resize_file(from + "/hole", std::uintmax_t{1} << 30U);
  const auto size = sizeOfItem(from);
  EXPECT_EQ(size, (40U << 20U) + (1U << 30U) + 8U);
  std::uint64_t told = 0;
  std::size_t calls = 0;
  EXPECT_EQ(said(copyItem(from, to,
                          [&](std::uint64_t bytes) {
                            told += bytes;
                            ++calls;
                          })),
            "");
  EXPECT_EQ(told, size);
  if (!canShareData(root)) {
    EXPECT_GE(calls, 2U + 3U + 2U);  // two small files, steps in the large one, data and hole
  }
  EXPECT_EQ(sizeOfItem(to), size);
}

// The mount and its loop device end with the process that makes them.
TEST_F(FileTree, CopySharesItsDataIfTheFileSystemCan) {
  constexpr off_t size = 40 << 20;
  const std::string image = root / "image";
  const std::string mounted = root / "mounted";
  writeFile(image, "");
  fs::resize_file(image, std::uintmax_t{256} << 20U);
  fs::create_directory(mounted);
  const std::string make = "mkfs.btrfs --quiet '" + image + "' > /dev/null 2>&1";
  const std::string mount = "mount -o loop '" + image + "' '" + mounted + "' 2> /dev/null";
  const auto withImage = [&](const std::function<bool()>& body) {
    return withOwnMounts([&] { return std::system(mount.c_str()) == 0 && body(); });
  };
  if (!mayMount() || std::system(make.c_str()) != 0 || !withImage([] { return true; })) {
    GTEST_SKIP() << "no file system with shared data can be mounted";
  }
  EXPECT_TRUE(withImage([&] {
    const std::string original = mounted + "/original";
    writeFile(original, std::string(std::size_t{36} << 20U, 'x'));
    writeAt(original, size - 3, "end");
    std::vector<std::uint64_t> told;
    const auto error =
        copyItem(original, mounted + "/copy", [&](std::uint64_t bytes) { told.push_back(bytes); });
    return !error && told == std::vector<std::uint64_t>{size} &&
           readFile(mounted + "/copy") == readFile(original);
  }));
}

TEST_F(FileTree, CopyFromAnotherFileSystemTellsItsProgressToo) {
  if (!mayMount()) GTEST_SKIP() << "not the right to mount";
  const std::string contents(std::size_t{1} << 20U, 'x');
  fs::create_directory(from);
  EXPECT_TRUE(withOwnMounts([&] {
    if (mount("none", from.c_str(), "tmpfs", 0, nullptr) != 0) return false;
    writeFile(fs::path(from) / "file", contents);
    std::uint64_t told = 0;
    const auto error = copyItem(from, to, [&](std::uint64_t bytes) { told += bytes; });
    return !error && told == contents.size();
  }));
  EXPECT_EQ(readFile(to + "/file"), contents);
}

TEST_F(FileTree, ReplacementTellsItsProgress) {
  makeTree();
  writeFile(to, "old");
  std::uint64_t told = 0;
  ItemReplacement replacement;
  EXPECT_EQ(said(replacement.prepare(from, to, [&](std::uint64_t bytes) { told += bytes; })), "");
  EXPECT_EQ(told, sizeOfItem(from));
}

TEST_F(FileTree, SizeOfAFileAndOfNothing) {
  writeFile(from, "file");
  EXPECT_EQ(sizeOfItem(from), 4U);
  EXPECT_EQ(sizeOfItem(root / "nothing"), 0U);
}

TEST_F(FileTree, CopyTakesLinksAsLinks) {
  makeTree();
  writeFile(root / "outside", "outside");
  fs::create_symlink("Contents/Info.plist", from + "/relative");
  fs::create_symlink(root / "outside", from + "/absolute");
  fs::create_symlink("nowhere", from + "/dangling");
  fs::create_symlink("..", from + "/upwards");
  EXPECT_EQ(said(copyItem(from, to)), "");
  EXPECT_EQ(fs::read_symlink(to + "/relative"), "Contents/Info.plist");
  EXPECT_EQ(fs::read_symlink(to + "/absolute"), root / "outside");
  EXPECT_EQ(fs::read_symlink(to + "/dangling"), "nowhere");
  EXPECT_EQ(fs::read_symlink(to + "/upwards"), "..");
}

TEST_F(FileTree, CopyOfALinkIsWhatItLeadsTo) {
  makeTree();
  fs::create_symlink("from", root / "link");
  fs::create_symlink("from/Contents/Info.plist", root / "link to a file");
  fs::create_symlink("nowhere", root / "dangling");
  EXPECT_EQ(said(copyItem(root / "link", to)), "");
  EXPECT_FALSE(fs::is_symlink(to));
  EXPECT_EQ(readFile(to + "/Contents/Linux/tool"), "tool");
  EXPECT_EQ(said(copyItem(root / "link to a file", root / "file")), "");
  EXPECT_FALSE(fs::is_symlink(root / "file"));
  EXPECT_EQ(readFile(root / "file"), "info");
  EXPECT_EQ(said(copyItem(root / "dangling", root / "none")),
            (root / "dangling: No such file or directory").string());
}

TEST_F(FileTree, CopyOfAReadOnlyTreeIsWhole) {
  giveToOrdinaryUser(root);
  EXPECT_TRUE(asOrdinaryUser([this] {
    makeTree();
    fs::permissions(from + "/Contents/Linux", fs::perms(0555));
    fs::permissions(from + "/Contents", fs::perms(0555));
    fs::permissions(from, fs::perms(0555));
    return !copyItem(from, to);
  }));
  EXPECT_EQ(readFile(to + "/Contents/Linux/tool"), "tool");
  // The copy can be replaced later.
  EXPECT_EQ(modeOf(to), 0755U);
  EXPECT_EQ(modeOf(to + "/Contents/Linux"), 0755U);
  EXPECT_TRUE(asOrdinaryUser([this] { return !removeItem(to); }));
  EXPECT_EQ(namesIn(root), std::vector<std::string>{"from"});
}

TEST_F(FileTree, CopyNeverReplacesWhatIsThere) {
  makeTree();
  writeFile(to, "kept");
  EXPECT_EQ(said(copyItem(from, to)), to + ": File exists");
  EXPECT_EQ(readFile(to), "kept");
  fs::remove(to);
  fs::create_directories(to);
  EXPECT_EQ(said(copyItem(from, to)), to + ": File exists");
  EXPECT_TRUE(fs::is_empty(to));
  fs::remove(to);
  fs::create_symlink("nowhere", to);
  EXPECT_EQ(said(copyItem(from, to)), to + ": File exists");
  EXPECT_EQ(fs::read_symlink(to), "nowhere");
}

TEST_F(FileTree, FailedCopyLeavesNothingAndSaysWhereItFailed) {
  EXPECT_EQ(said(copyItem(from, to)), from + ": No such file or directory");
  EXPECT_EQ(namesIn(root), std::vector<std::string>{});
  makeTree();
  ASSERT_EQ(mkfifo((from + "/Contents/fifo").c_str(), 0600), 0);
  EXPECT_EQ(said(copyItem(from, to)), from + "/Contents/fifo: Operation not supported");
  EXPECT_EQ(namesIn(root), std::vector<std::string>{"from"});
  EXPECT_EQ(said(copyItem(from, root / "missing/to")),
            (root / "missing/to: No such file or directory").string());
}

TEST_F(FileTree, CopyOfAnUnreadableFileLeavesNothing) {
  giveToOrdinaryUser(root);
  EXPECT_TRUE(asOrdinaryUser([this] {
    makeTree();
    fs::permissions(from + "/Contents/Linux/tool", fs::perms::none);
    return said(copyItem(from, to)) == from + "/Contents/Linux/tool: Permission denied";
  }));
  EXPECT_EQ(namesIn(root), std::vector<std::string>{"from"});
}

TEST_F(FileTree, CopyOfAnUnreadableDirectoryLeavesNothing) {
  giveToOrdinaryUser(root);
  EXPECT_TRUE(asOrdinaryUser([this] {
    makeTree();
    fs::permissions(from + "/Contents/Linux", fs::perms::none);
    return said(copyItem(from, to)) == from + "/Contents/Linux: Permission denied";
  }));
  EXPECT_EQ(namesIn(root), std::vector<std::string>{"from"});
}

TEST_F(FileTree, CopyWithoutRoomLeavesNothing) {
  giveToOrdinaryUser(root);
  EXPECT_TRUE(asOrdinaryUser([this] {
    makeTree();
    writeFile(from + "/large", std::string(100'000, 'x'));
    signal(SIGXFSZ, SIG_IGN);
    const rlimit limit{50'000, 50'000};
    setrlimit(RLIMIT_FSIZE, &limit);
    return said(copyItem(from, to)) == from + "/large: File too large";
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
        if (!copyItem(from, to)) ++successes;
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
  EXPECT_EQ(said(copyItem(from, to)), "");
  EXPECT_EQ(namesIn(root), (std::vector<std::string>{".other.qbhp-staging-BBBBBB", "from", "to"}));
}

TEST_F(FileTree, CopyLeavesWhatALiveProcessWorksOn) {
  makeTree();
  writeFile(root / ".to.qbhp-staging-AAAAAA/item/half", "half");
  TaskProcess worker({"hold", root / ".to.qbhp-staging-AAAAAA"});
  ASSERT_EQ(worker.firstLine(), "locked");
  EXPECT_EQ(said(copyItem(from, to)), "");
  EXPECT_EQ(readFile(root / ".to.qbhp-staging-AAAAAA/item/half"), "half");
  // Once that process has died, the next operation clears up.
  worker.kill();
  EXPECT_EQ(said(removeItem(to)), "");
  EXPECT_EQ(namesIn(root), std::vector<std::string>{"from"});
}

TEST_F(FileTree, ReplacementLeavesTheOldOneInUseUntilTheExchange) {
  makeTree();
  writeFile(to + "/old", "old");
  {
    ItemReplacement replacement;
    EXPECT_EQ(said(replacement.prepare(from, to)), "");
    EXPECT_EQ(namesIn(to), std::vector<std::string>{"old"});
    EXPECT_EQ(namesIn(root).size(), 3U);
    const FileLock lock = FileLock::acquire(to, milliseconds(0));
    EXPECT_EQ(said(replacement.exchange()), "");
    EXPECT_EQ(readFile(to + "/Contents/Linux/tool"), "tool");
  }
  EXPECT_EQ(namesIn(root), (std::vector<std::string>{"from", "to"}));
}

TEST_F(FileTree, ReplacementThatIsNotExchangedLeavesNothing) {
  makeTree();
  writeFile(to + "/old", "old");
  {
    ItemReplacement replacement;
    EXPECT_EQ(said(replacement.prepare(from, to)), "");
  }
  EXPECT_EQ(namesIn(to), std::vector<std::string>{"old"});
  EXPECT_EQ(namesIn(root), (std::vector<std::string>{"from", "to"}));
}

TEST_F(FileTree, ReplacementWithoutRoomLeavesTheOldOneAlone) {
  giveToOrdinaryUser(root);
  EXPECT_TRUE(asOrdinaryUser([this] {
    makeTree();
    writeFile(to + "/old", "old");
    writeFile(from + "/large", std::string(100'000, 'x'));
    signal(SIGXFSZ, SIG_IGN);
    const rlimit limit{50'000, 50'000};
    setrlimit(RLIMIT_FSIZE, &limit);
    ItemReplacement replacement;
    return said(replacement.prepare(from, to)) == from + "/large: File too large";
  }));
  EXPECT_EQ(namesIn(to), std::vector<std::string>{"old"});
}

TEST_F(FileTree, ReplacementOfWhatCannotBeRemovedLeavesItInPlace) {
  makeTree();
  fs::path deep = to;
  for (int level = 0; level < 257; ++level) deep /= "d";
  fs::create_directories(deep);
  ItemReplacement replacement;
  EXPECT_EQ(said(replacement.prepare(from, to)), "");
  EXPECT_EQ(said(removalObstacleOf(to)), said(replacement.exchange()));
  EXPECT_NE(said(removalObstacleOf(to)), "");
  EXPECT_TRUE(fs::exists(deep));
  EXPECT_FALSE(fs::exists(to + "/Contents"));
}

TEST_F(FileTree, ReplacementTakesThePlaceOfAReadOnlyTreeAFileAndALink) {
  giveToOrdinaryUser(root);
  EXPECT_TRUE(asOrdinaryUser([this] {
    makeTree();
    writeFile(to + "/old", "old");
    fs::permissions(to, fs::perms::owner_read | fs::perms::owner_exec);
    writeFile(root / "file", "file");
    fs::create_symlink("nowhere", root / "link");
    bool holds = true;
    for (const std::string& path : {to, (root / "file").string(), (root / "link").string()}) {
      ItemReplacement replacement;
      holds = holds && !replacement.prepare(from, path) && !replacement.exchange() &&
              readFile(path + "/Contents/Linux/tool") == "tool";
    }
    return holds;
  }));
  EXPECT_EQ(namesIn(root), (std::vector<std::string>{"file", "from", "link", "to"}));
}

TEST_F(FileTree, ReplacementOfWhatIsGoneFails) {
  makeTree();
  ItemReplacement replacement;
  EXPECT_EQ(said(replacement.prepare(from, to)), "");
  EXPECT_EQ(said(replacement.exchange()), to + ": No such file or directory");
}

TEST_F(FileTree, RemoveTakesAwayFilesTreesAndLinks) {
  makeTree();
  writeFile(root / "file", "");
  fs::create_symlink(from, root / "link");
  fs::create_symlink("nowhere", root / "dangling");
  EXPECT_EQ(said(removeItem(root / "link")), "");
  EXPECT_EQ(said(removeItem(root / "dangling")), "");
  EXPECT_EQ(said(removeItem(root / "file")), "");
  EXPECT_EQ(namesIn(root), std::vector<std::string>{"from"});
  EXPECT_EQ(said(removeItem(from)), "");
  EXPECT_EQ(namesIn(root), std::vector<std::string>{});
}

TEST_F(FileTree, RemoveSaysWhatWentWrong) {
  EXPECT_EQ(said(removeItem(root / "missing")),
            (root / "missing: No such file or directory").string());
  giveToOrdinaryUser(root);
  EXPECT_TRUE(asOrdinaryUser([this] {
    writeFile(root / "closed/file", "kept");
    fs::permissions(root / "closed", fs::perms(0555));
    return said(removeItem(root / "closed/file")) ==
           (root / "closed/file: Permission denied").string();
  }));
  EXPECT_EQ(readFile(root / "closed/file"), "kept");
}

TEST_F(FileTree, CopyKeepsHoles) {
  constexpr off_t size = 8 << 20;
  fs::create_directories(from);
  writeAt(from + "/begins with data", 0, "begin");
  fs::resize_file(from + "/begins with data", size);
  writeAt(from + "/ends with data", size - 3, "end");
  writeAt(from + "/data in the middle", size / 2, "middle");
  fs::resize_file(from + "/data in the middle", size);
  writeFile(from + "/no data", "");
  fs::resize_file(from + "/no data", size);
  EXPECT_EQ(said(copyItem(from, to)), "");
  for (const char* name : {"begins with data", "ends with data", "data in the middle", "no data"}) {
    const auto status = statusOf(to + "/" + name);
    EXPECT_EQ(status.st_size, size) << name;
    EXPECT_LT(status.st_blocks, 1024) << name;
    EXPECT_TRUE(readFile(to + "/" + name) == readFile(from + "/" + name)) << name;
  }
}

TEST_F(FileTree, CopyKeepsModificationTimes) {
  makeTree();
  fs::create_symlink("empty", from + "/link");
  setModified(from + "/Contents/Linux/tool", 1'000'000'001);
  setModified(from + "/link", 1'000'000'002);
  setModified(from + "/Contents/Linux", 1'000'000'003);
  setModified(from + "/Contents", 1'000'000'004);
  setModified(from + "/empty", 1'000'000'005);
  setModified(from, 1'000'000'006);
  EXPECT_EQ(said(copyItem(from, to)), "");
  for (const char* name : {"/Contents/Linux/tool", "/link", "/Contents/Linux", "/Contents",
                           "/empty", "/Contents/Info.plist", ""}) {
    EXPECT_EQ(modified(to + name), modified(from + name)) << name;
  }
  EXPECT_EQ(modified(to), (std::pair<time_t, long>(1'000'000'006, 123'456'789)));
}

TEST_F(FileTree, CopyKeepsAttributesOfUsersAlone) {
  giveToOrdinaryUser(root);
  EXPECT_TRUE(asOrdinaryUser([this] {
    makeTree();
    return true;
  }));
  const std::string tool = "/Contents/Linux/tool";
  if (!setAttribute(from + tool, "user.first", "1")) GTEST_SKIP() << "no attributes here";
  EXPECT_TRUE(setAttribute(from + tool, "user.binary", std::string("a\0b", 3)));
  EXPECT_TRUE(setAttribute(from + tool, "user.empty", ""));
  EXPECT_TRUE(setAttribute(from + "/Contents", "user.directory", "2"));
  const bool trusted = setAttribute(from + tool, "trusted.mark", "3");
  fs::permissions(from + tool, fs::perms(0444));  // does not keep the attributes from the copy
  fs::permissions(from + "/Contents", fs::perms(0555));
  EXPECT_TRUE(asOrdinaryUser([this] { return !copyItem(from, to); }));
  EXPECT_EQ(attribute(to + tool, "user.first"), "1");
  EXPECT_EQ(attribute(to + tool, "user.binary"), std::string("a\0b", 3));
  EXPECT_EQ(attribute(to + tool, "user.empty"), "");
  EXPECT_EQ(attribute(to + "/Contents", "user.directory"), "2");
  EXPECT_EQ(modeOf(to + tool), 0444U);
  // The same holds for root.
  EXPECT_EQ(said(copyItem(from, root / "second")), "");
  EXPECT_EQ(attribute((root / "second").string() + tool, "user.first"), "1");
  if (trusted) {
    EXPECT_EQ(attribute((root / "second").string() + tool, "trusted.mark"), std::nullopt);
  }
}

TEST_F(FileTree, CopyGoesToAnotherFileSystem) {
  constexpr const char* memory = "/dev/shm";
  struct stat status {};
  if (stat(memory, &status) != 0 || status.st_dev == statusOf(root).st_dev) {
    GTEST_SKIP() << "no second file system";
  }
  const fs::path other = fs::path(memory) / root.filename();
  fs::create_directory(other);
  makeTree();
  const std::string contents(200'000, 'y');  // more than one buffer
  writeFile(from + "/large", contents);
  writeAt(from + "/sparse", 32 << 20, "end");
  setModified(from + "/large", 1'000'000'001);
  setAttribute(from + "/large", "user.mark", "taken or not");
  EXPECT_EQ(said(copyItem(from, other / "to")), "");
  EXPECT_EQ(readFile(other / "to/large"), contents);
  EXPECT_TRUE(readFile(other / "to/sparse") == readFile(from + "/sparse"));
  EXPECT_LT(statusOf(other / "to/sparse").st_blocks, 1024);
  EXPECT_EQ(modified(other / "to/large"), modified(from + "/large"));
  EXPECT_EQ(said(copyItem(other / "to", to)), "");  // and back
  EXPECT_EQ(readFile(to + "/large"), contents);
  fs::remove_all(other);
}

TEST_F(FileTree, CopyTakesEmptyFilesOddNamesAndHardLinks) {
  writeFile(from + "/empty", "");
  writeFile(from + "/two\nlines", "two");
  writeFile(from + "/\xff", "no text");
  writeFile(from + "/first", "linked");
  fs::create_hard_link(from + "/first", from + "/second");
  EXPECT_EQ(said(copyItem(from, to)), "");
  EXPECT_EQ(namesIn(to), namesIn(from));
  EXPECT_EQ(statusOf(to + "/empty").st_size, 0);
  EXPECT_EQ(readFile(to + "/two\nlines"), "two");
  EXPECT_EQ(readFile(to + "/first"), "linked");
  EXPECT_EQ(readFile(to + "/second"), "linked");
  EXPECT_EQ(said(removeItem(to)), "");
  EXPECT_EQ(namesIn(root), std::vector<std::string>{"from"});
}

TEST_F(FileTree, CopyForAnotherOwnerRunsAsNobodyElse) {
  makeTree();
  const std::string tool = "/Contents/Linux/tool";
  fs::permissions(from + tool, fs::perms(06755));
  EXPECT_EQ(said(copyItem(from, to)), "");
  EXPECT_EQ(modeOf(to + tool), 06755U);
  if (!isSuperuser()) GTEST_SKIP() << "files cannot be given away";
  giveToOrdinaryUser(from);
  fs::permissions(from + tool, fs::perms(06755));
  EXPECT_EQ(said(copyItem(from, root / "second")), "");
  EXPECT_EQ(modeOf((root / "second").string() + tool), 0755U);
}

TEST_F(FileTree, CopyUnderAStrictUserMaskIsWhole) {
  giveToOrdinaryUser(root);
  EXPECT_TRUE(asOrdinaryUser([this] {
    makeTree();
    setAttribute(from + "/Contents/Info.plist", "user.mark", "1");
    umask(0777);
    return !copyItem(from, to);
  }));
  EXPECT_EQ(readFile(to + "/Contents/Linux/tool"), "tool");
  EXPECT_EQ(modeOf(to + "/Contents/Info.plist"), modeOf(from + "/Contents/Info.plist"));
  EXPECT_EQ(attribute(to + "/Contents/Info.plist", "user.mark"),
            attribute(from + "/Contents/Info.plist", "user.mark"));
  EXPECT_EQ(namesIn(root), (std::vector<std::string>{"from", "to"}));
}

TEST_F(FileTree, CopyOfAReadOnlyFileStaysReadOnlyUnderAStrictUserMask) {
  writeFile(from, "file");
  fs::permissions(from, fs::perms(0444));
  for (const mode_t mask : {0200U, 0277U, 0777U}) {
    const mode_t before = umask(mask);
    EXPECT_EQ(said(copyItem(from, to)), "");
    umask(before);
    EXPECT_EQ(modeOf(to), 0444U) << mask;
    fs::remove(to);
  }
}

TEST_F(FileTree, CopyIntoItselfIsRefused) {
  makeTree();
  fs::create_symlink("from/empty", root / "link");
  EXPECT_EQ(said(copyItem(from, from + "/empty/to")), from + "/empty/to: Invalid argument");
  EXPECT_EQ(said(copyItem(from, root / "link/to")), (root / "link/to: Invalid argument").string());
  EXPECT_EQ(namesIn(from + "/empty"), std::vector<std::string>{});
  // A name with the same beginning is another directory.
  EXPECT_EQ(said(copyItem(from, from + "-to")), "");
}

TEST_F(FileTree, CopyOfAFileThatChangesMeanwhileIsRefused) {
  writeFile(from, std::string(8 << 20, 'x'));
  std::atomic<bool> stop{false};
  std::thread writer([&] {
    const Descriptor file(open(from.c_str(), O_WRONLY | O_APPEND | O_CLOEXEC));
    while (!stop) EXPECT_EQ(write(file.get(), "y", 1), 1);
  });
  const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(40);
  std::string last;
  // Repeats until the writer ran during a copy.
  while (last.empty() && std::chrono::steady_clock::now() < deadline) {
    last = said(copyItem(from, to));
    fs::remove(to);
  }
  stop = true;
  writer.join();
  EXPECT_EQ(last, from + ": Device or resource busy");
  EXPECT_EQ(namesIn(root), std::vector<std::string>{"from"});
}

TEST_F(FileTree, TreesOfManyLevelsNeedFewDescriptors) {
  giveToOrdinaryUser(root);
  EXPECT_TRUE(asOrdinaryUser([this] {
    makeChain(from, 100);
    const rlimit limit{32, 32};
    setrlimit(RLIMIT_NOFILE, &limit);
    return !copyItem(from, to) && !removeItem(from);
  }));
  EXPECT_EQ(namesIn(root), std::vector<std::string>{"to"});
  int levels = 0;
  for (auto end = fs::path(to); fs::exists(end); end /= "a name of a directory") ++levels;
  EXPECT_EQ(levels, 100);
}

TEST_F(FileTree, TreesHaveABoundOnTheirLevels) {
  makeChain(from, 256);  // longer than the longest path
  EXPECT_EQ(said(removeItem(from)), "");
  EXPECT_EQ(namesIn(root), std::vector<std::string>{});
  makeChain(from, 257);
  const auto removal = removeItem(from);
  ASSERT_TRUE(removal);
  EXPECT_EQ(removal->message, "File name too long");
  EXPECT_EQ(namesIn(root), std::vector<std::string>{"from"});
  fs::rename(from + "/a name of a directory", root / "less");
  EXPECT_EQ(said(removeItem(root / "less")), "");
}

TEST_F(FileTree, TreesThatAreTooDeepAreNotCopied) {
  fs::path path = from;
  for (int level = 1; level < 257; ++level) path /= "d";
  fs::create_directories(path);
  EXPECT_EQ(said(copyItem(from, to)), path.string() + ": File name too long");
  EXPECT_EQ(namesIn(root), std::vector<std::string>{"from"});
  fs::remove(path);
  EXPECT_EQ(said(copyItem(from, to)), "");
}

TEST_F(FileTree, NamesInAnOpenDirectoryAreGivenEachTime) {
  makeTree();
  const Descriptor tree(open(from.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  for (int time = 0; time < 2; ++time) {
    auto names = contentsOfDirectory(tree.get());
    ASSERT_TRUE(names);
    std::ranges::sort(*names);
    EXPECT_EQ(*names, (std::vector<std::string>{"Contents", "empty"}));
  }
}

// --- Removal

class Removal : public FileTree {
 protected:
  // Makes a tree of the ordinary user, in which root owns a directory with a file.
  void makeForeignDirectory(mode_t mode) {
    makeTree();
    writeFile(foreign / "file", "foreign");
    giveToOrdinaryUser(root);
    EXPECT_EQ(chown(foreign.c_str(), 0, 0), 0);
    EXPECT_EQ(chown((foreign / "file").c_str(), 0, 0), 0);
    EXPECT_EQ(chmod(foreign.c_str(), mode), 0);
  }

  // Expects every name and text in its place.
  void expectUntouched() const {
    EXPECT_EQ(namesIn(root), std::vector<std::string>{"from"});
    EXPECT_EQ(namesIn(from), (std::vector<std::string>{"Contents", "empty"}));
    EXPECT_EQ(readFile(from + "/Contents/Info.plist"), "info");
    EXPECT_EQ(readFile(from + "/Contents/Linux/tool"), "tool");
  }

  std::string removedByOrdinaryUser() {
    const TemporaryDirectory answers;
    giveToOrdinaryUser(answers.path());
    const fs::path answer = answers.path() / "answer";
    asOrdinaryUser([&] {
      writeFile(answer, said(removeItem(from)));
      return true;
    });
    return readFile(answer);
  }

  const fs::path foreign = root / "from/Contents/foreign";
};

TEST_F(Removal, OfAForeignDirectoryWithContentsIsRefusedBeforeAnythingIsMoved) {
  if (!isSuperuser()) GTEST_SKIP() << "needs two users";
  makeForeignDirectory(0755);
  EXPECT_EQ(removedByOrdinaryUser(), foreign.string() + ": Permission denied");
  expectUntouched();
  EXPECT_EQ(readFile(foreign / "file"), "foreign");
  // The same holds if not even the names can be read.
  ASSERT_EQ(chmod(foreign.c_str(), 0700), 0);
  EXPECT_EQ(removedByOrdinaryUser(), foreign.string() + ": Permission denied");
  expectUntouched();
  // Write permission without search permission is not enough.
  ASSERT_EQ(chmod(foreign.c_str(), 0706), 0);
  EXPECT_EQ(removedByOrdinaryUser(), foreign.string() + ": Permission denied");
  expectUntouched();
}

TEST_F(Removal, TakesForeignFilesAndEmptyForeignDirectoriesInOwnOnes) {
  if (!isSuperuser()) GTEST_SKIP() << "needs two users";
  makeForeignDirectory(0755);
  fs::rename(foreign / "file", root / "from/Contents/foreign file");
  EXPECT_EQ(removedByOrdinaryUser(), "");
  EXPECT_EQ(namesIn(root), std::vector<std::string>{});
}

TEST_F(Removal, TakesAForeignDirectoryThatAllMayWrite) {
  if (!isSuperuser()) GTEST_SKIP() << "needs two users";
  makeForeignDirectory(0777);
  EXPECT_EQ(removedByOrdinaryUser(), "");
  EXPECT_EQ(namesIn(root), std::vector<std::string>{});
}

TEST_F(Removal, LeavesForeignFilesInAForeignStickyDirectory) {
  if (!isSuperuser()) GTEST_SKIP() << "needs two users";
  makeForeignDirectory(01777);
  EXPECT_EQ(removedByOrdinaryUser(), (foreign / "file: Operation not permitted").string());
  expectUntouched();
  giveToOrdinaryUser(foreign);
  ASSERT_EQ(chmod(foreign.c_str(), 01777), 0);
  ASSERT_EQ(chown((foreign / "file").c_str(), 0, 0), 0);  // the directory's owner may remove it
  EXPECT_EQ(removedByOrdinaryUser(), "");
  EXPECT_EQ(namesIn(root), std::vector<std::string>{});
}

TEST_F(Removal, TakesOwnFilesInAForeignStickyDirectory) {
  if (!isSuperuser()) GTEST_SKIP() << "needs two users";
  makeForeignDirectory(01777);
  ASSERT_EQ(lchown((foreign / "file").c_str(), statusOf(from).st_uid, 0), 0);
  EXPECT_EQ(removedByOrdinaryUser(), "");
  EXPECT_EQ(namesIn(root), std::vector<std::string>{});
}

TEST_F(Removal, TakesOwnDirectoriesThatAreReadOnly) {
  makeTree();
  giveToOrdinaryUser(root);
  for (const char* name : {"/Contents/Linux", "/Contents", "/empty", ""}) {
    fs::permissions(from + name, fs::perms(0555));
  }
  EXPECT_EQ(removedByOrdinaryUser(), "");
  EXPECT_EQ(namesIn(root), std::vector<std::string>{});
}

TEST_F(Removal, OfAnUnreadableOwnDirectoryIsRefused) {
  makeTree();
  giveToOrdinaryUser(root);
  fs::permissions(from + "/Contents", fs::perms::none);
  EXPECT_EQ(removedByOrdinaryUser(), from + "/Contents: Permission denied");
  EXPECT_EQ(modeOf(from + "/Contents"), 0U);
  EXPECT_EQ(namesIn(root), std::vector<std::string>{"from"});
}

TEST_F(Removal, FollowsNoLinks) {
  makeTree();
  writeFile(root / "outside/file", "kept");
  fs::permissions(root / "outside", fs::perms(0555));
  fs::create_directory_symlink(root / "outside", from + "/link");
  fs::create_directory_symlink(root, from + "/upwards");
  giveToOrdinaryUser(root);
  EXPECT_EQ(removedByOrdinaryUser(), "");
  EXPECT_EQ(namesIn(root), std::vector<std::string>{"outside"});
  EXPECT_EQ(readFile(root / "outside/file"), "kept");
  EXPECT_EQ(modeOf(root / "outside"), 0555U);
}

TEST_F(Removal, OfAnImmutableFileIsRefused) {
  makeTree();
  const Descriptor file(open((from + "/Contents/Info.plist").c_str(), O_RDONLY | O_CLOEXEC));
  int flags = 0;
  if (ioctl(file.get(), FS_IOC_GETFLAGS, &flags) != 0) GTEST_SKIP() << "no such flags here";
  for (const int flag : {FS_IMMUTABLE_FL, FS_APPEND_FL}) {
    int changed = flags | flag;
    if (ioctl(file.get(), FS_IOC_SETFLAGS, &changed) != 0) GTEST_SKIP() << "not the right to do it";
    EXPECT_EQ(said(removeItem(from)), from + "/Contents/Info.plist: Operation not permitted");
    expectUntouched();
    ASSERT_EQ(ioctl(file.get(), FS_IOC_SETFLAGS, &flags), 0);
  }
  EXPECT_EQ(said(removeItem(from)), "");
  EXPECT_EQ(namesIn(root), std::vector<std::string>{});
}

TEST_F(Removal, OfATreeWithAMountIsRefused) {
  if (!mayMount()) GTEST_SKIP() << "not the right to mount";
  makeTree();
  const std::string busy = from + "/empty: Device or resource busy";
  EXPECT_TRUE(withOwnMounts([&] {
    return mount("none", (from + "/empty").c_str(), "tmpfs", 0, nullptr) == 0 &&
           said(removeItem(from)) == busy;
  }));
  expectUntouched();
  EXPECT_TRUE(withOwnMounts([&] {  // of the same file system
    const std::string other = from + "/Contents/Linux";
    return mount(other.c_str(), (from + "/empty").c_str(), nullptr, MS_BIND, nullptr) == 0 &&
           said(removeItem(from)) == busy;
  }));
  expectUntouched();
}

TEST_F(Removal, ThatFailsAtTheMoveLeavesTheModeAsItWas) {
  if (!mayMount()) GTEST_SKIP() << "not the right to mount";
  makeTree();
  fs::permissions(from, fs::perms(0555));
  EXPECT_TRUE(withOwnMounts([&] {
    return mount(from.c_str(), from.c_str(), nullptr, MS_BIND, nullptr) == 0 &&
           said(removeItem(from)) == from + ": Device or resource busy";
  }));
  EXPECT_EQ(modeOf(from), 0555U);
  expectUntouched();
}

TEST_F(Removal, LeftoverOfReadOnlyDirectoriesIsClearedTheNextTime) {
  makeTree();
  const fs::path leftover = root / ".from.qbhp-staging-AAAAAA";
  writeFile(leftover / "item/closed/file", "left");
  writeFile(root / ".from.qbhp-staging-BBBBBB/item/file", "left");
  giveToOrdinaryUser(root);
  fs::permissions(leftover / "item/closed", fs::perms(0));
  fs::permissions(leftover / "item", fs::perms(0555));
  fs::permissions(root / ".from.qbhp-staging-BBBBBB", fs::perms(0));
  EXPECT_TRUE(asOrdinaryUser([this] {
    clearInterrupted(from);
    return true;
  }));
  expectUntouched();
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
