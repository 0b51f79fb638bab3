#include <elf.h>
#include <gtest/gtest.h>
#include <link.h>
#include <sys/stat.h>

#include <chrono>
#include <cstring>
#include <filesystem>
#include <string>
#include <utility>

#include "Platform/Workspace/LoaderOutputLinux.h"
#include "Platform/Workspace/Program.h"
#include "support/Environment.h"

namespace qbdkr::test {
namespace {

namespace fs = std::filesystem;
using Names = std::vector<std::string>;
using Parts = std::pair<std::string, std::string>;

constexpr std::chrono::seconds loaderPatience(20);

class ProgramTest : public testing::Test {
 protected:
  [[nodiscard]] std::string make(const std::string& contents, mode_t mode = 0755) const {
    fs::path path = directory.path() / "program";
    fs::remove(path);
    writeFile(path, contents);
    ::chmod(path.c_str(), mode);
    return path;
  }

  // Returns the bytes of a small program with shared libraries.
  [[nodiscard]] static std::string someProgram() { return readFile("/usr/bin/env"); }

  static ElfW(Phdr) segmentOf(const std::string& program, unsigned type) {
    ElfW(Ehdr) header{};
    std::memcpy(&header, program.data(), sizeof header);
    ElfW(Phdr) segment{};
    for (unsigned i = 0; i < header.e_phnum && segment.p_type != type; ++i) {
      std::memcpy(&segment, program.data() + header.e_phoff + i * sizeof segment, sizeof segment);
    }
    return segment;
  }

  // Gives the first entry of a tag in the dynamic section another tag.
  static std::string withTag(std::string program, std::int64_t before, std::int64_t after) {
    const auto dynamic = segmentOf(program, PT_DYNAMIC);
    for (auto at = dynamic.p_offset;; at += sizeof(ElfW(Dyn))) {
      ElfW(Dyn) entry{};
      std::memcpy(&entry, program.data() + at, sizeof entry);
      if (entry.d_tag == DT_NULL) throw std::runtime_error("no such entry");
      if (entry.d_tag != before) continue;
      entry.d_tag = after;
      std::memcpy(program.data() + at, &entry, sizeof entry);
      return program;
    }
  }

  TemporaryDirectory directory;
};

TEST_F(ProgramTest, InterpreterIsTheFirstWordOfTheFirstLine) {
  EXPECT_EQ(interpreterOfScript("#!/bin/sh"), Parts("/bin/sh", ""));
  EXPECT_EQ(interpreterOfScript("#! /bin/sh -e\necho"), Parts("/bin/sh", "-e"));
  EXPECT_EQ(interpreterOfScript("#!\t/usr/bin/env  python3 -u \nx"),
            Parts("/usr/bin/env", "python3 -u"));
  EXPECT_EQ(interpreterOfScript("#!/bin/sh\r\n"), Parts("/bin/sh\r", ""));
  EXPECT_EQ(interpreterOfScript("#!\n"), Parts());
  EXPECT_EQ(interpreterOfScript("/bin/sh"), Parts());
}

TEST_F(ProgramTest, FindsNoFaultInAProgramThatRuns) {
  const auto report = reportOnProgram("/proc/self/exe");
  EXPECT_EQ(report.fault, ProgramFault::none);
  EXPECT_EQ(report.interpreter, "");
}

TEST_F(ProgramTest, TellsTheInterpreterOfAScript) {
  const auto report = reportOnProgram(make("#!/bin/sh\n"));
  EXPECT_EQ(report.fault, ProgramFault::none);
  EXPECT_EQ(report.interpreter, "/bin/sh");
}

TEST_F(ProgramTest, LeavesOptionsOfEnvToEnv) {
  EXPECT_EQ(reportOnProgram(make("#!/usr/bin/env -S no-such-program\n")).fault, ProgramFault::none);
  EXPECT_EQ(reportOnProgram(make("#!/usr/bin/env no-such-program\n")).fault,
            ProgramFault::interpreterNotFound);
  EXPECT_EQ(reportOnProgram(make("#!/usr/bin/env sh\n")).fault, ProgramFault::none);
}

TEST_F(ProgramTest, TellsAProgramForAnotherProcessor) {
  std::string program = someProgram();
  constexpr ElfW(Half) other = EM_S390;
  std::memcpy(program.data() + offsetof(ElfW(Ehdr), e_machine), &other, sizeof other);
  const auto report = reportOnProgram(make(program));
  EXPECT_EQ(report.fault, ProgramFault::otherProcessor);
  EXPECT_EQ(report.detail, "s390");
}

TEST_F(ProgramTest, TellsAnObjectFileFromAProgram) {
  std::string program = someProgram();
  constexpr ElfW(Half) object = ET_REL;
  std::memcpy(program.data() + offsetof(ElfW(Ehdr), e_type), &object, sizeof object);
  EXPECT_EQ(reportOnProgram(make(program)).fault, ProgramFault::unknownFormat);
}

TEST_F(ProgramTest, NamesALoaderThatIsMissing) {
  std::string program = someProgram();
  program[segmentOf(program, PT_INTERP).p_offset + 1] = 'X';
  const auto report = reportOnProgram(make(program));
  EXPECT_EQ(report.fault, ProgramFault::missingLoader);
  EXPECT_TRUE(report.detail.starts_with("/X")) << report.detail;
  EXPECT_FALSE(librariesOfProgram(make(program), loaderPatience).isKnown);
}

TEST_F(ProgramTest, ListsTheLibrariesOfAProgram) {
  const auto report = librariesOfProgram(make(someProgram()), loaderPatience);
  EXPECT_TRUE(report.isKnown);
  EXPECT_EQ(report.missing, Names());
  EXPECT_FALSE(report.found.empty());
}

// The loader executes auditors even if it only lists libraries.
TEST_F(ProgramTest, DoesNotAskTheLoaderAboutAProgramWithAuditors) {
  for (const std::int64_t tag : {std::int64_t{DT_AUDIT}, std::int64_t{DT_DEPAUDIT}}) {
    const std::string program = withTag(someProgram(), DT_DEBUG, tag);
    EXPECT_FALSE(librariesOfProgram(make(program), loaderPatience).isKnown);
  }
}

TEST_F(ProgramTest, DoesNotAskTheLoaderAboutATableThatIsLoadedFromElsewhere) {
  std::string program = someProgram();
  ElfW(Ehdr) header{};
  std::memcpy(&header, program.data(), sizeof header);
  for (unsigned i = 0; i < header.e_phnum; ++i) {
    const auto at = header.e_phoff + i * sizeof(ElfW(Phdr));
    ElfW(Phdr) segment{};
    std::memcpy(&segment, program.data() + at, sizeof segment);
    if (segment.p_type != PT_DYNAMIC) continue;
    segment.p_vaddr -= sizeof(ElfW(Dyn));
    std::memcpy(program.data() + at, &segment, sizeof segment);
  }
  EXPECT_FALSE(librariesOfProgram(make(program), loaderPatience).isKnown);
}

TEST_F(ProgramTest, SurvivesDamagedPrograms) {
  const std::string program = someProgram().substr(0, 4096);
  for (std::size_t size = 0; size < program.size(); size += 61) {
    (void)reportOnProgram(make(program.substr(0, size)));
    EXPECT_FALSE(librariesOfProgram(make(program.substr(0, size)), loaderPatience).isKnown);
  }
  std::string damaged = program;
  for (std::size_t at = 4; at < sizeof(ElfW(Ehdr)); ++at) {
    damaged[at] = '\xFF';
    (void)reportOnProgram(make(damaged));
    (void)librariesOfProgram(make(damaged), loaderPatience);
  }
}

TEST(LoaderOutputTest, NamesTheLibrariesThatAreNotFound) {
  const auto report = librariesInLoaderOutput(
      "\tlinux-vdso.so.1 (0x00007f5bd5ca4000)\n"
      "\tlibone.so.1 => not found\n"
      "\tlibc.so.6 => /lib/libc.so.6 (0x00007f1c77610000)\n"
      "\tlibtwo.so => not found\n"
      "\tlibone.so.1 => not found");
  EXPECT_TRUE(report.isKnown);
  EXPECT_EQ(report.missing, (Names{"libone.so.1", "libtwo.so"}));
  EXPECT_EQ(report.found, Names{"/lib/libc.so.6"});
}

TEST(LoaderOutputTest, NamesTheLibraryAtWhichTheLoaderStops) {
  EXPECT_EQ(librariesInLoaderOutput("/x: error while loading shared libraries: libone.so: cannot "
                                    "open shared object file: No such file or directory\n")
                .missing,
            Names{"libone.so"});
  EXPECT_EQ(librariesInLoaderOutput(
                "/x: error while loading shared libraries: libone.so: file too short\n")
                .missing,
            Names{"libone.so (file too short)"});
}

TEST(LoaderOutputTest, NamesAVersionOfALibraryThatIsNotFound) {
  EXPECT_EQ(librariesInLoaderOutput("/x: /lib/libc.so.6: version `GLIBC_9.99' not found (required "
                                    "by /x)\n\tlibc.so.6 => /lib/libc.so.6 (0x1)\n")
                .missing,
            Names{"GLIBC_9.99"});
}

TEST(LoaderOutputTest, ReadsTheWordsOfAnotherLoader) {
  EXPECT_EQ(librariesInLoaderOutput("Error loading shared library libone.so: No such file or "
                                    "directory (needed by /x)\n")
                .missing,
            Names{"libone.so"});
}

TEST(LoaderOutputTest, KnowsNothingFromOtherWords) {
  for (const char* output : {"", "\n\n", "usage: x => y", "\tstatically linked\n", " => "}) {
    EXPECT_FALSE(librariesInLoaderOutput(output).isKnown) << output;
  }
}

}  // namespace
}  // namespace qbdkr::test
