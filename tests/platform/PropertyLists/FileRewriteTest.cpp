#include <errno.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <chrono>
#include <filesystem>
#include <functional>
#include <string>
#include <string_view>
#include <thread>
#include <tuple>
#include <vector>

#include <ClientComm/PropertyList.h>

#include "Platform/Files/FileLock.h"
#include "Platform/PropertyLists/FileRewrite.h"
#include "Platform/PropertyLists/PropertyListReader.h"
#include "Platform/PropertyLists/PropertyListWriter.h"
#include "platform/TaskProcess.h"
#include "support/Environment.h"
#include "support/ForkedBody.h"
#include "support/OrdinaryUser.h"
#include "support/RefusedCall.h"

namespace qbdkr {
namespace {

namespace fs = std::filesystem;
using namespace std::string_view_literals;
using Dictionary = PropertyList::Dictionary;
using test::asOrdinaryUser;
using test::dieAtCall;
using test::failCall;
using test::giveToOrdinaryUser;
using test::namesIn;
using test::readFile;
using test::runAtCall;
using test::runForked;
using test::TaskProcess;
using test::writeFile;

std::string list(const Dictionary& values) { return xmlPropertyList(values).value(); }

std::string recordOf(std::string_view before, std::string_view filled, std::size_t size) {
  return "qbhp-rewrite " + std::to_string(before.size()) + ' ' + std::to_string(size) + '\n' +
         std::string(before) + std::string(filled);
}

// The record of a large file, of which the first bytes are kept.
std::string recordOfTail(std::string_view before, std::string_view filled, std::size_t size,
                         std::size_t kept) {
  return "qbhp-rewrite " + std::to_string(before.size() - kept) + ' ' +
         std::to_string(size - kept) + ' ' + std::to_string(kept) + '\n' +
         std::string(before.substr(kept)) + std::string(filled.substr(kept));
}

// The system calls of a write, in their order.
constexpr std::array<long, 7> calls{SYS_fallocate, SYS_write,     SYS_fsync, SYS_rename,
                                    SYS_pwrite64,  SYS_ftruncate, SYS_unlink};

enum class End { wrote, refused, killed };

// Rewrites in a child process that cannot make one kind of call.
End rewriteWithout(const std::function<void()>& refuse, const std::string& path,
                   const std::string& contents) {
  const int status = runForked([&] {
    refuse();
    return rewriteFile(path, contents);
  });
  if (WIFSIGNALED(status)) return End::killed;
  EXPECT_LE(WEXITSTATUS(status), 1);
  return WEXITSTATUS(status) == 0 ? End::wrote : End::refused;
}

class FileRewrite : public testing::Test {
 protected:
  test::TemporaryDirectory directory;
  const fs::path root = directory.path();
  const std::string file = root / "Info.plist";
  const std::string record = root / ".Info.plist.qbhp-rewrite";

  const std::string longer = list({{"Name", "old"}, {"More", std::string(20'000, 'o')}});
  const std::string shorter = list({{"Name", "new"}});

  void expectOnly(const std::string& contents) const {
    EXPECT_EQ(readFile(file), contents);
    EXPECT_EQ(namesIn(root), std::vector<std::string>{"Info.plist"});
  }
};

TEST_F(FileRewrite, KeepsTheFile) {
  writeFile(file, "old");
  fs::permissions(file, fs::perms(0640));
  fs::create_hard_link(file, root / "link");
  struct stat before {};
  ASSERT_EQ(stat(file.c_str(), &before), 0);
  for (const std::string& contents :
       {std::string(100'000, 'a'), std::string("b\0c", 3), std::string(), std::string("d")}) {
    EXPECT_TRUE(rewriteFile(file, contents));
    EXPECT_EQ(readFile(file), contents);
    EXPECT_EQ(readFile(root / "link"), contents);
  }
  struct stat after {};
  ASSERT_EQ(stat(file.c_str(), &after), 0);
  EXPECT_EQ(after.st_ino, before.st_ino);
  EXPECT_EQ(after.st_mode, before.st_mode);
  EXPECT_EQ(namesIn(root), (std::vector<std::string>{"Info.plist", "link"}));
}

TEST_F(FileRewrite, TakesAPathWithoutADirectory) {
  writeFile(file, "old");
  giveToOrdinaryUser(root);
  EXPECT_TRUE(asOrdinaryUser(
      [this] { return chdir(root.c_str()) == 0 && rewriteFile("Info.plist", "new"); }));
  expectOnly("new");
}

TEST_F(FileRewrite, NeedsAFile) {
  EXPECT_FALSE(rewriteFile(file, "new"));
  fs::create_directory(root / "directory");
  EXPECT_FALSE(rewriteFile(root / "directory", "new"));
  ASSERT_EQ(mkfifo((root / "fifo").c_str(), 0600), 0);
  EXPECT_FALSE(rewriteFile(root / "fifo", "new"));
  EXPECT_FALSE(rewriteFile("/dev/full", "new"));
  EXPECT_EQ(namesIn(root), (std::vector<std::string>{"directory", "fifo"}));
}

TEST_F(FileRewrite, NeedsABlankAndAFileOfBoundedSize) {
  writeFile(file, "old");
  EXPECT_FALSE(rewriteFile(file, "new", ""));
  EXPECT_FALSE(rewriteFile(file, std::string((std::size_t{16} << 20U) + 1, 'x')));
  expectOnly("old");
  fs::resize_file(file, std::uintmax_t{1} << 40U);
  EXPECT_FALSE(rewriteFile(file, "new"));
  EXPECT_EQ(fs::file_size(file), std::uintmax_t{1} << 40U);
}

TEST_F(FileRewrite, ThatMayNotReadOrWriteKeepsTheOldContents) {
  writeFile(file, "old");
  giveToOrdinaryUser(root);
  for (const int mode : {0444, 0222}) {
    fs::permissions(file, fs::perms(mode));
    EXPECT_FALSE(asOrdinaryUser([this] { return rewriteFile(file, "new"); })) << mode;
    fs::permissions(file, fs::perms(0644));
    expectOnly("old");
  }
}

// Passing the limit would end the process. The record is larger than the file.
TEST_F(FileRewrite, StaysWithinTheLimitOnFiles) {
  writeFile(file, std::string(400, 'o'));
  giveToOrdinaryUser(root);
  for (const std::size_t size : {2000U, 700U}) {
    EXPECT_FALSE(asOrdinaryUser([this, size] {
      const rlimit limit{1000, 1000};
      setrlimit(RLIMIT_FSIZE, &limit);
      const bool written = rewriteFile(file, std::string(size, 'x'));
      if (written) return true;
      return !rewriteFile(file, std::string(500, 'x'));  // fits
    }));
    expectOnly(std::string(500, 'x'));
    EXPECT_TRUE(rewriteFile(file, std::string(400, 'o')));
  }
}

TEST_F(FileRewrite, ReaderMeetsNoByteThatNobodyWrote) {
  const std::string a(50'000, 'a');
  const std::string b(70'000, 'b');
  writeFile(file, a);
  std::atomic<bool> done{false};
  std::thread writer([&] {
    for (int i = 0; i < 50; ++i) rewriteFile(file, i % 2 == 0 ? b : a);
    done = true;
  });
  while (!done) EXPECT_EQ(readFile(file).find_first_not_of("ab\n"), std::string::npos);
  writer.join();
}

TEST_F(FileRewrite, ThatIsKilledAtAnyCallLeavesOldOrNewContents) {
  for (const auto& [before, after] : {std::pair(longer, shorter), std::pair(shorter, longer)}) {
    int killed = 0;
    for (const long call : calls) {
      writeFile(file, before);
      const End end = rewriteWithout([call] { dieAtCall(call); }, file, after);
      killed += end == End::killed ? 1 : 0;
      const bool isOpen = call == SYS_pwrite64 || call == SYS_ftruncate;
      EXPECT_EQ(fs::exists(record), isOpen) << call;
      if (isOpen) {
        EXPECT_EQ(readFile(record).find(before), readFile(record).find('\n') + 1);
      }
      const auto left = readDictionaryFile(file);
      ASSERT_TRUE(left) << call;
      EXPECT_EQ(*left->text("Name"), left->size() == 2 ? "old" : "new") << call;
      EXPECT_FALSE(recoverFilesIn(root)) << call;
      EXPECT_EQ(readDictionaryFile(file), left) << call;
      EXPECT_EQ(namesIn(root), std::vector<std::string>{"Info.plist"}) << call;
    }
    EXPECT_EQ(killed, calls.size());
  }
}

// Contents that were written whole stay, even if the file could not be truncated.
TEST_F(FileRewrite, ThatFailsAtAnyCallLeavesOldOrNewContents) {
  for (const int error : {ENOSPC, EIO, EACCES}) {
    for (const auto& [before, after] : {std::pair(longer, shorter), std::pair(shorter, longer)}) {
      for (const long call : calls) {
        writeFile(file, before);
        const End end = rewriteWithout([&] { failCall(call, error); }, file, after);
        EXPECT_EQ(end, call == SYS_unlink ? End::wrote : End::refused) << call << ' ' << error;
        const bool isNew = call == SYS_unlink || call == SYS_ftruncate;
        const auto expected = parsePropertyList(isNew ? after : before);
        EXPECT_EQ(readDictionaryFile(file), *expected->dictionary()) << call << ' ' << error;
        EXPECT_FALSE(recoverFilesIn(root)) << call << ' ' << error;
        EXPECT_EQ(readDictionaryFile(file), *expected->dictionary()) << call << ' ' << error;
        EXPECT_EQ(namesIn(root), std::vector<std::string>{"Info.plist"}) << call;
      }
    }
  }
}

TEST_F(FileRewrite, WithoutRoomIsRefused) {
  writeFile(file, shorter);
  EXPECT_EQ(rewriteWithout([] { failCall(SYS_fallocate, ENOSPC); }, file, longer), End::refused);
  expectOnly(shorter);
  // If the file system cannot set room aside, the record protects the old contents.
  EXPECT_EQ(rewriteWithout([] { failCall(SYS_fallocate, EOPNOTSUPP); }, file, longer), End::wrote);
  expectOnly(longer);
}

TEST_F(FileRewrite, InAClosedDirectoryNeedsRoomSetAside) {
  writeFile(file, longer);
  giveToOrdinaryUser(root);
  fs::permissions(root, fs::perms(0555));
  EXPECT_FALSE(asOrdinaryUser([this] {
    failCall(SYS_fallocate, EOPNOTSUPP);
    return rewriteFile(file, shorter);
  }));
  expectOnly(longer);
  EXPECT_TRUE(asOrdinaryUser([this] { return rewriteFile(file, shorter); }));
  expectOnly(shorter);
}

TEST_F(FileRewrite, ThatIsNotFlushedDoesNotSucceed) {
  writeFile(file, longer);
  giveToOrdinaryUser(root);
  fs::permissions(root, fs::perms(0555));  // no record, whose flush would fail first
  EXPECT_FALSE(asOrdinaryUser([this] {
    failCall(SYS_fsync, EIO);
    return rewriteFile(file, shorter);
  }));
  EXPECT_TRUE(readDictionaryFile(file));
}

// The rewriting cannot query the limit, and so meets it in the middle of the write.
TEST_F(FileRewrite, ThatFailsInTheMiddleTakesTheOldContentsBack) {
  writeFile(file, shorter);
  giveToOrdinaryUser(root);
  fs::permissions(root, fs::perms(0555));
  EXPECT_TRUE(asOrdinaryUser([this] {
    signal(SIGXFSZ, SIG_IGN);
    const rlimit limit{4096, 4096};
    setrlimit(RLIMIT_FSIZE, &limit);
    const auto before = fs::last_write_time(file);
    failCall(SYS_prlimit64, EPERM);
    return !rewriteFile(file, longer) && fs::last_write_time(file) != before;
  }));
  expectOnly(shorter);
}

TEST_F(FileRewrite, ShorterUTF16TextIsFilledUpWithWholeUnits) {
  const std::string path = root / "InfoPlist.strings";
  writeFile(path, "\"Name\" = \"old and odd in size\";");
  ASSERT_EQ(fs::file_size(path) % 2, 1U);
  const std::string after("\xFF\xFE\"\0N\0\"\0=\0\"\0n\0\"\0;\0"sv);
  runForked([&] {
    dieAtCall(SYS_ftruncate);
    return rewriteFile(path, after, "\n\0"sv);
  });
  EXPECT_GT(fs::file_size(path), after.size());
  EXPECT_EQ(readDictionaryFile(path), (Dictionary{{"N", "n"}}));
  recoverFilesIn(root);
  EXPECT_EQ(readDictionaryFile(path), (Dictionary{{"N", "n"}}));
  EXPECT_EQ(namesIn(root), std::vector<std::string>{"InfoPlist.strings"});
}

// Rewrites a file of more than 64 KiB, of which the bytes before the first difference are kept.
class LargeFileRewrite : public FileRewrite {
 protected:
  static std::string listWith(const std::string& value) {
    return list({{"First", std::string(60'000, 'f')},
                 {"Value", value},
                 {"Last", std::string(20'000, 'l')}});
  }
  static std::string filledUp(std::string contents, std::size_t size) {
    contents.resize(std::max(contents.size(), size), '\n');
    return contents;
  }

  const std::string before = listWith("old");
  const std::string after = listWith("newer");
  const std::size_t kept = before.find("old<");
};

TEST_F(LargeFileRewrite, RecordsAndWritesFromTheFirstDifferenceOn) {
  const std::string withBlanks = before + "\n\n";
  for (const auto& [from, to, same] :
       {std::tuple(before, after, kept), std::tuple(after, before, kept),
        std::tuple(withBlanks, before, before.size()), std::tuple(before, before, before.size()),
        std::tuple(before, withBlanks, before.size())}) {
    writeFile(file, from);
    EXPECT_EQ(rewriteWithout([] { dieAtCall(SYS_ftruncate); }, file, to), End::killed);
    EXPECT_EQ(readFile(record), recordOfTail(from, filledUp(to, from.size()), to.size(), same));
    EXPECT_EQ(readFile(file), filledUp(to, from.size()));
    EXPECT_FALSE(recoverFilesIn(root));
    writeFile(file, from);
    EXPECT_TRUE(rewriteFile(file, to));
    expectOnly(to);
  }
}

TEST_F(LargeFileRewrite, ThatIsKilledBeforeTheWriteKeepsTheOldContents) {
  for (const auto& [from, to] : {std::pair(before, after), std::pair(after, before)}) {
    writeFile(file, from);
    EXPECT_EQ(rewriteWithout([] { dieAtCall(SYS_pwrite64); }, file, to), End::killed);
    EXPECT_TRUE(fs::exists(record));
    EXPECT_EQ(readFile(file), from);
    EXPECT_FALSE(recoverFilesIn(root));
    EXPECT_TRUE(rewriteFile(file, to));
    expectOnly(to);
  }
}

TEST_F(LargeFileRewrite, ChangesTheEndOrNothing) {
  for (const std::string& to : {before + "\n", before, before.substr(0, before.size() - 1)}) {
    for (const std::string& from : {before, before + "\n\n"}) {
      writeFile(file, from);
      EXPECT_TRUE(rewriteFile(file, to));
      expectOnly(to);
    }
  }
}

TEST_F(LargeFileRewrite, ThatIsKilledAtAnyCallLeavesOldOrNewContents) {
  for (const auto& [from, to] : {std::pair(before, after), std::pair(after, before)}) {
    for (const long call : calls) {
      writeFile(file, from);
      EXPECT_EQ(rewriteWithout([call] { dieAtCall(call); }, file, to), End::killed) << call;
      recoverFilesIn(root);
      const auto left = readDictionaryFile(file);
      EXPECT_TRUE(left == *parsePropertyList(from)->dictionary() ||
                  left == *parsePropertyList(to)->dictionary())
          << call;
      EXPECT_EQ(namesIn(root), std::vector<std::string>{"Info.plist"}) << call;
    }
  }
}

TEST_F(LargeFileRewrite, AnyMixtureOfPagesIsTakenBack) {
  constexpr std::size_t page = 4096;
  for (const auto& [from, to] : {std::pair(before, after), std::pair(after, before)}) {
    const std::string filled = filledUp(to, from.size());
    const std::size_t firstPage = kept / page;
    const std::size_t pages = filled.size() / page + 1 - firstPage;
    ASSERT_EQ(pages, 6U);
    for (unsigned which = 1; which + 1 < 1U << pages; ++which) {
      std::string mixture = filled;
      for (std::size_t i = 0; i < pages; ++i) {
        const std::size_t place = (firstPage + i) * page;
        if ((which >> i & 1U) != 0) mixture.replace(place, page, from, place, page);
      }
      writeFile(record, recordOfTail(from, filled, to.size(), kept));
      writeFile(file, mixture);
      EXPECT_EQ(recoverFilesIn(root), mixture != from && mixture != filled) << which;
      const auto left = readDictionaryFile(file);
      EXPECT_EQ(left, *parsePropertyList(mixture == filled ? to : from)->dictionary()) << which;
      EXPECT_EQ(namesIn(root), std::vector<std::string>{"Info.plist"});
    }
  }
}

TEST_F(LargeFileRewrite, WhatOthersWroteSinceStays) {
  const std::string empty = list({});
  for (const std::string& contents :
       {listWith("other"), list({{"First", "another"}}), empty, std::string("garbage"),
        std::string(before.size(), 'x'), filledUp(after, 100'000)}) {
    writeFile(record, recordOfTail(before, after, after.size(), kept));
    writeFile(file, contents);
    EXPECT_FALSE(recoverFilesIn(root)) << contents.size();
    expectOnly(contents);
  }
}

TEST_F(LargeFileRewrite, RecordsThatMakeNoSenseAreRemoved) {
  const std::string tail = before.substr(kept);
  const std::string sizes = std::to_string(tail.size()) + ' ' + std::to_string(tail.size());
  for (const std::string& keeps :
       {std::string(" "), std::string(" 18446744073709551615\n"), std::string(" -1\n"),
        " " + std::to_string(kept), " " + std::to_string(kept) + " \n",
        " " + std::to_string(before.size() + 1) + '\n', std::string(" 0\n")}) {
    writeFile(record, "qbhp-rewrite " + sizes + keeps + tail + tail);
    writeFile(file, "garbage");
    EXPECT_FALSE(recoverFilesIn(root)) << keeps;
    expectOnly("garbage");
  }
}

// The other program writes while the record is flushed, after the old contents were read.
TEST_F(LargeFileRewrite, WhatAnotherProgramWritesMeanwhileStays) {
  static std::string path;
  static std::string contents;
  path = file;
  contents = listWith("another's");
  const std::string grown = contents + "<!-- -->";
  for (const std::string& others : {contents, grown, contents.substr(0, 100), std::string()}) {
    contents = others;
    writeFile(file, before);
    const auto interfere = [] { runAtCall(SYS_fsync, [] { writeFile(path, contents); }); };
    EXPECT_EQ(rewriteWithout(interfere, file, after), End::refused);
    expectOnly(others);
  }
}

// Leaves a rewriting that was cut off, with its record.
class CutOffRewrite : public FileRewrite {
 protected:
  const std::string filled = shorter + std::string(longer.size() - shorter.size(), '\n');

  void leave(const std::string& contents) const {
    writeFile(record, recordOf(longer, filled, shorter.size()));
    writeFile(file, contents);
  }
};

TEST_F(CutOffRewrite, MixtureIsTakenBack) {
  struct stat before {};
  leave(filled.substr(0, 4096) + longer.substr(4096));
  ASSERT_EQ(stat(file.c_str(), &before), 0);
  EXPECT_TRUE(recoverFilesIn(root));
  expectOnly(longer);
  struct stat after {};
  ASSERT_EQ(stat(file.c_str(), &after), 0);
  EXPECT_EQ(after.st_ino, before.st_ino);
}

TEST_F(CutOffRewrite, MixtureOfALongerTextIsTakenBack) {
  writeFile(record, recordOf(shorter, longer, longer.size()));
  for (const std::size_t size : {shorter.size() + 1, longer.size() / 2, longer.size() - 1}) {
    writeFile(record, recordOf(shorter, longer, longer.size()));
    writeFile(file, longer.substr(0, size));
    EXPECT_TRUE(recoverFilesIn(root)) << size;
    expectOnly(shorter);
  }
}

// The new text is one byte longer, so the old text's next page repeats a letter.
TEST_F(CutOffRewrite, MixtureThatCanBeReadIsTakenBack) {
  const std::string before = list({{"Flag", true}, {"Text", "abc"}});
  const std::string after = list({{"Flag", false}, {"Text", "abc"}});
  const auto page = before.find("bc</");
  const std::string mixture = after.substr(0, page) + before.substr(page) + '\n';
  ASSERT_TRUE(readDictionaryFile((writeFile(file, mixture), file)));
  ASSERT_NE(mixture, after);
  writeFile(record, recordOf(before, after, after.size()));
  writeFile(file, after.substr(0, page) + before.substr(page));
  EXPECT_TRUE(recoverFilesIn(root));
  expectOnly(before);
}

TEST_F(CutOffRewrite, FileThatCannotBeReadIsTakenBack) {
  for (const std::string& contents : {std::string(), std::string("garbage \x01"),
                                      std::string(longer.size(), '\0'), longer.substr(0, 100)}) {
    leave(contents);
    EXPECT_TRUE(recoverFilesIn(root)) << contents.size();
    expectOnly(longer);
  }
}

TEST_F(CutOffRewrite, WholeContentsStay) {
  for (const std::string& contents : {longer, filled, shorter}) {
    leave(contents);
    EXPECT_FALSE(recoverFilesIn(root));
    expectOnly(contents);
  }
}

TEST_F(CutOffRewrite, WhatOthersWroteSinceStays) {
  for (const std::string& contents :
       {list({{"Name", "other"}}), list({{"Name", std::string(30'000, 'x')}})}) {
    leave(contents);
    EXPECT_FALSE(recoverFilesIn(root));
    expectOnly(contents);
  }
}

TEST_F(CutOffRewrite, BeginningOfTheOldContentsMayBeWhatOthersWrote) {
  const std::string before = "\"A\" = \"a\";\n\"B\" = \"b\";\n";
  writeFile(record, recordOf(before, before, before.size()));
  writeFile(file, before.substr(0, before.size() / 2));
  ASSERT_TRUE(readDictionaryFile(file));
  EXPECT_FALSE(recoverFilesIn(root));
  expectOnly(before.substr(0, before.size() / 2));
}

TEST_F(CutOffRewrite, FileThatIsGoneIsNotMade) {
  leave("");
  fs::remove(file);
  EXPECT_FALSE(recoverFilesIn(root));
  EXPECT_TRUE(fs::is_empty(root));
}

TEST_F(CutOffRewrite, WriterAtWorkIsLeftAlone) {
  leave("garbage");
  {
    TaskProcess writer({"hold", file});
    ASSERT_EQ(writer.firstLine(), "locked");
    EXPECT_FALSE(recoverFilesIn(root));
    EXPECT_EQ(readFile(file), "garbage");
    EXPECT_TRUE(fs::exists(record));
  }
  EXPECT_TRUE(recoverFilesIn(root));
  expectOnly(longer);
}

TEST_F(CutOffRewrite, HolderOfTheLockRecoversBeforeHeWrites) {
  leave("garbage");
  const auto lock = FileLock::acquire(file, std::chrono::milliseconds(0));
  EXPECT_TRUE(recoverLockedFile(file));
  expectOnly(longer);
  EXPECT_FALSE(recoverLockedFile(file));
}

TEST_F(CutOffRewrite, FileThatMayNotBeWrittenKeepsItsRecord) {
  leave("garbage");
  giveToOrdinaryUser(root);
  fs::permissions(file, fs::perms(0444));
  EXPECT_FALSE(asOrdinaryUser([this] { return recoverFilesIn(root); }));
  EXPECT_EQ(readFile(file), "garbage");
  EXPECT_TRUE(fs::exists(record));
  fs::permissions(file, fs::perms(0644));
  EXPECT_TRUE(asOrdinaryUser([this] { return recoverFilesIn(root); }));
  expectOnly(longer);
}

TEST_F(CutOffRewrite, RecordThatWasStagedIsRemoved) {
  writeFile(file, shorter);
  writeFile(record + ".new", "half a rec");
  EXPECT_FALSE(recoverFilesIn(root));
  expectOnly(shorter);
}

TEST_F(CutOffRewrite, RecordsThatMakeNoSenseAreRemoved) {
  const std::string size = std::to_string(longer.size());
  for (const std::string& text :
       {std::string(), std::string("qbhp-rewrite "), std::string("qbhp-rewrite 1"),
        std::string("qbhp-rewrite 1 1"), std::string("qbhp-rewrite -1 1\nxx"),
        std::string("qbhp-rewrite 99999999999999999999 1\nxx"),
        "qbhp-rewrite " + size + " 18446744073709551615\n" + longer + longer,
        "qbhp-rewrite " + size + " 1\n" + longer,
        "qbhp-rewritten " + size + " 1\n" + longer + longer,
        recordOf("no dictionary", "no dictionary", 13), recordOf("", "", 0)}) {
    writeFile(record, text);
    writeFile(file, "garbage");
    EXPECT_FALSE(recoverFilesIn(root)) << text.substr(0, 40);
    expectOnly("garbage");
  }
}

TEST_F(CutOffRewrite, RecordThatIsTooLargeIsRemoved) {
  leave("garbage");
  fs::resize_file(record, std::uintmax_t{1} << 40U);
  EXPECT_FALSE(recoverFilesIn(root));
  expectOnly("garbage");
}

TEST_F(CutOffRewrite, WhatIsNoFileOfThisUserIsNoRecord) {
  writeFile(file, "garbage");
  writeFile(root / "elsewhere", recordOf(longer, filled, shorter.size()));
  fs::create_symlink("elsewhere", record);
  EXPECT_FALSE(recoverFilesIn(root));
  EXPECT_TRUE(fs::is_symlink(record));
  writeFile(record + ".new", "left behind");
  EXPECT_FALSE(recoverFilesIn(root));
  EXPECT_TRUE(fs::is_symlink(record));
  EXPECT_EQ(readFile(file), "garbage");
  fs::remove(record);
  ASSERT_EQ(mkfifo(record.c_str(), 0600), 0);
  EXPECT_FALSE(recoverFilesIn(root));
  EXPECT_TRUE(fs::is_fifo(record));
  fs::remove(record);
  fs::create_directory(record);
  EXPECT_FALSE(recoverFilesIn(root));
  EXPECT_TRUE(fs::is_directory(record));
  EXPECT_EQ(readFile(file), "garbage");
}

TEST_F(CutOffRewrite, RecordOfAnotherUserIsLeftAlone) {
  leave("garbage");
  if (geteuid() != 0) GTEST_SKIP() << "needs another user";
  giveToOrdinaryUser(root);
  EXPECT_FALSE(recoverFilesIn(root));
  EXPECT_EQ(readFile(file), "garbage");
  EXPECT_TRUE(fs::exists(record));
}

TEST_F(CutOffRewrite, NamesThatAreNoRecordsAreLeftAlone) {
  const std::vector<std::string> names{".qbhp-rewrite", ".qbhp-rewrite.new", "..qbhp-rewrite",
                                       ".Info.plist.qbhp-rewrite2", "Info.plist.qbhp-rewrite"};
  for (const std::string& name : names) writeFile(root / name, "kept");
  EXPECT_FALSE(recoverFilesIn(root));
  EXPECT_EQ(namesIn(root).size(), names.size());
  EXPECT_FALSE(recoverFilesIn(root / "missing"));
}

}  // namespace
}  // namespace qbdkr
