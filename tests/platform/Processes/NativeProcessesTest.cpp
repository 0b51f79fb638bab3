#include <gtest/gtest.h>
#include <signal.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstddef>
#include <cstring>
#include <filesystem>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "Platform/Files/FileTree.h"
#include "Platform/Files/Files.h"
#include "Platform/Processes/NativeProcesses.h"
#include "Platform/Processes/RunningApplications.h"
#include "Platform/PropertyLists/PropertyListWriter.h"
#include "platform/TaskProcess.h"
#include "support/Environment.h"
#include "support/Patience.h"
#include "support/WatchedThread.h"

namespace qbdkr {
namespace {

namespace fs = std::filesystem;
using test::putOwnExecutable;
using test::TaskProcess;
using test::TemporaryDirectory;
using test::writeFile;

std::vector<ProcessRecord> wholeTable() {
  std::size_t length = 0;
  EXPECT_EQ(queryProcessTable(nullptr, &length), 0);
  std::vector<ProcessRecord> records(length / sizeof(ProcessRecord) + 100);
  length = records.size() * sizeof(ProcessRecord);
  EXPECT_EQ(queryProcessTable(records.data(), &length), 0);
  records.resize(length / sizeof(ProcessRecord));
  return records;
}

std::optional<ProcessRecord> recordOf(pid_t processID) {
  const auto records = wholeTable();
  const auto found = std::ranges::find(records, processID, &ProcessRecord::processID);
  return found == records.end() ? std::nullopt : std::optional(*found);
}

ProcessSerialNumber serialOf(pid_t processID) { return {0, static_cast<std::uint32_t>(processID)}; }

std::string identifierOf(pid_t processID) {
  const auto info = copyProcessInformation(serialOf(processID));
  const PropertyList* value = info ? info->find("CFBundleIdentifier") : nullptr;
  return value == nullptr ? "(none)" : *value->string();
}

TEST(ProcessTable, HasThisProcess) {
  const auto record = recordOf(getpid());
  ASSERT_TRUE(record.has_value());
  EXPECT_EQ(record->effectiveUser, geteuid());
  EXPECT_EQ(std::string(record->command), std::string(program_invocation_short_name).substr(0, 15));
}

TEST(ProcessTable, HasEveryProcessOnceInTheOrderOfTheKernel) {
  const auto records = wholeTable();
  EXPECT_TRUE(std::ranges::is_sorted(records, {}, &ProcessRecord::processID));
  EXPECT_EQ(std::ranges::adjacent_find(records, {}, &ProcessRecord::processID), records.end());
  EXPECT_TRUE(std::ranges::all_of(
      records, [](const ProcessRecord& record) { return record.processID > 0; }));
}

TEST(ProcessTable, CommandNamesAreTerminatedAndHaveAtMost16Characters) {
  const TemporaryDirectory directory;
  const fs::path executable = directory.path() / "a-very-long-name-of-a-program";
  putOwnExecutable(executable);
  TaskProcess process({"wait"}, executable);
  ASSERT_EQ(process.firstLine(), "waiting");
  const auto record = recordOf(process.processID());
  ASSERT_TRUE(record.has_value());
  const std::size_t length = strnlen(record->command, sizeof record->command);
  EXPECT_GE(length, 15U);
  EXPECT_LE(length, 16U);
  EXPECT_TRUE(executable.filename().string().starts_with(record->command));
}

TEST(ProcessTable, ProcessThatMayNotBeLookedIntoBelongsToItsUser) {
  const uid_t user = geteuid() == 0 ? 65534 : geteuid();
  TaskProcess hidden({"hide", std::to_string(user)});
  EXPECT_EQ(hidden.firstLine(), "hidden");
  const auto record = recordOf(hidden.processID());
  ASSERT_TRUE(record.has_value());
  EXPECT_EQ(record->effectiveUser, user);
}

TEST(ProcessTable, WithoutABufferItSaysTheRoomThatIsNeeded) {
  std::size_t length = 0;
  EXPECT_EQ(queryProcessTable(nullptr, &length), 0);
  EXPECT_GE(length, sizeof(ProcessRecord));
  EXPECT_EQ(length % sizeof(ProcessRecord), 0U);
}

TEST(ProcessTable, ABufferThatIsTooSmallGivesENOMEM) {
  ProcessRecord one{};
  std::size_t length = 0;
  EXPECT_EQ(queryProcessTable(&one, &length), ENOMEM);
  const TaskProcess other({"wait"});  // the table has two processes at least
  length = sizeof one;
  EXPECT_EQ(queryProcessTable(&one, &length), ENOMEM);
}

TEST(ProcessTable, SerialNumberIsTheProcessIDBehindAZeroWord) {
  ProcessSerialNumber number{1, 1};
  EXPECT_EQ(getProcessForPID(getpid(), &number), noErr);
  EXPECT_EQ(number.highLongOfPSN, 0U);
  EXPECT_EQ(number.lowLongOfPSN, static_cast<std::uint32_t>(getpid()));
}

TEST(ProcessTable, ThereIsNoProcessOfAnIDThatIsNotPositive) {
  ProcessSerialNumber number{};
  EXPECT_EQ(getProcessForPID(0, &number), procNotFound);
  EXPECT_EQ(getProcessForPID(-1, &number), procNotFound);
}

TEST(ProcessInformationTest, IsAbsentForWhatIsNoApplication) {
  EXPECT_EQ(copyProcessInformation(serialOf(getpid())), nullptr);
  EXPECT_EQ(copyProcessInformation({1, static_cast<std::uint32_t>(getpid())}), nullptr);
  EXPECT_EQ(copyProcessInformation({0, 0}), nullptr);
  EXPECT_EQ(copyProcessInformation({0xFFFFFFFFU, 0xFFFFFFFFU}), nullptr);
  EXPECT_EQ(copyProcessInformation({0, 0xFFFFFFFFU}), nullptr);
}

// Runs an application.
class Application : public testing::Test {
 protected:
  Application() {
    writeFile(path / "Contents/Info.plist",
              xmlPropertyList(PropertyList::Dictionary{{"CFBundleIdentifier", "com.Acme.Sample"}})
                  .value());
    putOwnExecutable(path / "Contents/Linux/Sample");
    process = std::make_unique<TaskProcess>(std::vector<std::string>{"wait"},
                                            path / "Contents/Linux/Sample");
    EXPECT_EQ(process->firstLine(), "waiting");
  }

  TemporaryDirectory directory;
  const fs::path path = directory.path() / "Sample.app";
  std::unique_ptr<TaskProcess> process;
};

TEST_F(Application, IsKnownWhileItRuns) {
  const pid_t processID = process->processID();
  EXPECT_EQ(identifierOf(processID), "com.Acme.Sample");
  process->finish();
  EXPECT_EQ(identifierOf(processID), "(none)");
}

TEST_F(Application, WhoseExecutableWasReplacedIsStillKnown) {
  fs::remove(path / "Contents/Linux/Sample");
  EXPECT_EQ(identifierOf(process->processID()), "com.Acme.Sample");
  putOwnExecutable(path / "Contents/Linux/Sample");
  EXPECT_EQ(identifierOf(process->processID()), "com.Acme.Sample");
}

TEST_F(Application, WhoseBundleWasReplacedIsStillKnown) {
  fs::copy(path, directory.path() / "New.app", fs::copy_options::recursive);
  ASSERT_FALSE(removeItem(path));
  ASSERT_FALSE(copyItem(directory.path() / "New.app", path));
  EXPECT_EQ(identifierOf(process->processID()), "com.Acme.Sample");
}

TEST_F(Application, ThatEndedIsInTheTableUntilItsParentKnowsButIsNoApplicationAnyMore) {
  const auto before = recordOf(process->processID());
  process->signal(SIGKILL);
  siginfo_t ended{};
  ASSERT_EQ(waitid(P_PID, static_cast<id_t>(process->processID()), &ended, WEXITED | WNOWAIT), 0);
  const auto record = recordOf(process->processID());
  ASSERT_TRUE(before.has_value());
  ASSERT_TRUE(record.has_value());
  EXPECT_STREQ(record->command, before->command);
  EXPECT_EQ(identifierOf(process->processID()), "(none)");
}

// Runs a program of a bundle whose application has another name.
class ProgramOfABundle : public testing::Test {
 protected:
  // Returns the path of the bundle whose application the program is; "" if it is another program.
  std::string applicationOf(const fs::path& program) {
    putOwnExecutable(program);
    TaskProcess process({"wait"}, program);
    EXPECT_EQ(process.firstLine(), "waiting");
    const auto application = ApplicationFinder().of(process.processID());
    return application ? application->bundlePath : "";
  }
  void name(const std::string& executable) {
    writeFile(bundle / "Contents/Info.plist",
              xmlPropertyList(PropertyList::Dictionary{{"CFBundleIdentifier", "com.Acme.Sample"},
                                                       {"CFBundleExecutable", executable}})
                  .value());
  }

  TemporaryDirectory directory;
  const fs::path bundle = fs::canonical(directory.path()) / "Sample.app";
  const fs::path programs = bundle / "Contents/Linux";
};

TEST_F(ProgramOfABundle, IsTheApplicationThatTheBundleNames) {
  name("Sample");
  EXPECT_EQ(applicationOf(programs / "Sample"), bundle);
}

TEST_F(ProgramOfABundle, BesideTheApplicationIsNone) {
  name("Sample");
  putOwnExecutable(programs / "Sample");
  EXPECT_EQ(applicationOf(programs / "CrashReporter"), "");
  EXPECT_EQ(applicationOf(bundle / "Contents/Resources/Sample"), "");
}

TEST_F(ProgramOfABundle, BesideAnApplicationThatIsMissingIsNone) {
  name("Sample");
  EXPECT_EQ(applicationOf(programs / "CrashReporter"), "");
}

TEST_F(ProgramOfABundle, IsTheApplicationIfThatIsAScript) {
  name("Sample");
  writeFile(programs / "Sample", "#!/bin/sh\n");
  EXPECT_EQ(applicationOf(programs / "interpreter"), bundle);
}

TEST_F(ProgramOfABundle, IsTheApplicationIfTheBundleNamesNone) {
  writeFile(bundle / "Contents/Info.plist", "{CFBundleIdentifier = \"com.Acme.Sample\";}");
  EXPECT_EQ(applicationOf(programs / "any"), bundle);
}

TEST_F(ProgramOfABundle, ThatALinkOfTheNameLeadsToIsTheApplication) {
  name("Sample");
  fs::create_directories(programs);
  fs::create_symlink("../Frameworks/real", programs / "Sample");
  EXPECT_EQ(applicationOf(bundle / "Contents/Frameworks/real"), bundle);
}

TEST_F(ProgramOfABundle, WithAFIFOInThePlaceOfTheApplicationDoesNotBlock) {
  name("Sample");
  fs::create_directories(programs);
  ASSERT_EQ(mkfifo((programs / "Sample").c_str(), 0600), 0);
  EXPECT_EQ(applicationOf(programs / "CrashReporter"), "");
}

TEST_F(Application, IsFoundByItsPathOrItsIdentifier) {
  const std::optional it(std::vector<pid_t>{process->processID()});
  // Other tests run this application too, from elsewhere.
  const auto all = processesOfApplication("com.Acme.Sample", "/no/such.app").value();
  EXPECT_NE(std::ranges::find(all, process->processID()), all.end());
  EXPECT_EQ(processesOfApplication("", path), it);
  EXPECT_EQ(processesOfApplication("com.Acme.Other", path), it);
  EXPECT_EQ(processesOfApplication("com.Acme.Other", "/no/such.app")->size(), 0U);
  EXPECT_EQ(processesOfApplication("", "/no/such.app")->size(), 0U);
}

TEST_F(Application, IsListedWithItsBundleItsUserAndItsMemory) {
  const pid_t processID = process->processID();
  const auto running = runningApplications();
  ASSERT_TRUE(running.has_value());
  const auto found = std::ranges::find(*running, processID, &RunningApplication::processID);
  ASSERT_NE(found, running->end());
  EXPECT_EQ(found->bundlePath, path.string());
  EXPECT_EQ(found->effectiveUser, geteuid());
  EXPECT_EQ(found->info->text("CFBundleIdentifier"), "com.Acme.Sample");
  EXPECT_GT(found->residentBytes.value_or(0), std::uint64_t{100} << 10U);
  EXPECT_LT(found->residentBytes.value_or(0), std::uint64_t{1} << 40U);
  process->finish();
  const auto later = runningApplications();
  ASSERT_TRUE(later.has_value());
  EXPECT_EQ(std::ranges::find(*later, processID, &RunningApplication::processID), later->end());
  EXPECT_FALSE(residentBytesOf(processID).has_value());
}

TEST_F(Application, EndIsAwaited) {
  EXPECT_FALSE(waitForApplicationsEnd("", path, std::chrono::milliseconds(0)));
  test::WatchedThread waiting(
      [this] { EXPECT_TRUE(waitForApplicationsEnd("", path, test::patience)); });
  EXPECT_TRUE(waiting.waits());
  process->finish();
}

TEST_F(Application, EndOfNoneNeedsNoWait) {
  EXPECT_TRUE(waitForApplicationsEnd("com.Acme.Other", "/no/such.app", test::patience));
}

TEST(EndOfProcess, OfNoneIsNotThere) {
  const pid_t child = fork();
  if (child == 0) _exit(0);
  ASSERT_EQ(waitpid(child, nullptr, 0), child);
  EXPECT_FALSE(endOfProcess(child));
  EXPECT_EQ(errno, ESRCH);
}

}  // namespace
}  // namespace qbdkr
