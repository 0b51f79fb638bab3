#include <gtest/gtest.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstddef>
#include <cstdlib>
#include <functional>
#include <limits>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include <ClientComm/QBHPProcessList.h>

#include "Host.h"
#include "Platform/Processes/ProcessTable.h"

namespace qbdkr::test {
namespace {

constexpr const char* ownIdentifier = "com.Example.UnitTests";

// The table of processes is one for the whole machine, so no two tests may use the same identifier.
std::string otherIdentifier() { return "com.Example.Other.P" + std::to_string(getpid()); }

std::optional<QBHPProcessList::Entry> entryOf(pid_t processID,
                                              QBHPProcessList& list = QBHPProcessList::share()) {
  const auto entries = list.getBSDProcessList();
  const auto found = std::ranges::find_if(
      entries, [&](const auto& entry) { return entry.at("pid") == std::to_string(processID); });
  return found == entries.end() ? std::nullopt : std::optional(*found);
}

TEST(ProcessList, ShareIsOneObject) {
  EXPECT_EQ(&QBHPProcessList::share(), &QBHPProcessList::share());
}

TEST(ProcessList, ListsThisProcessUnderItsBundleName) {
  const auto entry = entryOf(getpid());
  ASSERT_TRUE(entry.has_value());
  EXPECT_EQ(*entry, (QBHPProcessList::Entry{{"pname", "Unit Tests"},
                                            {"pid", std::to_string(getpid())},
                                            {"uid", std::to_string(geteuid())}}));
}

TEST(ProcessList, ListsAProcessWithoutABundleUnderItsCommandName) {
  const RunningDaemon daemon("sampled");
  const auto entry = entryOf(daemon.processID());
  ASSERT_TRUE(entry.has_value());
  EXPECT_EQ(entry->at("pname"), "sampled");
}

TEST(ProcessList, ACommandNameHasAtMost16Characters) {
  const RunningDaemon daemon("a-very-long-name-of-a-daemon");
  const auto entry = entryOf(daemon.processID());
  ASSERT_TRUE(entry.has_value());
  EXPECT_TRUE(std::string("a-very-long-name-of-a-daemon").starts_with(entry->at("pname")));
  EXPECT_GE(entry->at("pname").size(), 15U);
  EXPECT_LE(entry->at("pname").size(), 16U);
}

TEST(ProcessList, ABundleWithoutANameIsListedUnderItsCommandName) {
  auto info = hostInformation();
  info.erase("CFBundleName");
  inHost(info, [](const Host&) {
    const auto entry = entryOf(getpid());
    ASSERT_TRUE(entry.has_value());
    EXPECT_EQ(entry->at("pname"), "Host");  // the executable's name
  });
}

TEST(ProcessList, ABundleNameThatHasNoTextIsNoName) {
  auto info = hostInformation();
  info.set("CFBundleName", PropertyList::Array{"Sample"});
  inHost(info, [](const Host&) { EXPECT_EQ(entryOf(getpid()).value().at("pname"), "Host"); });
}

TEST(ProcessList, ABundleNameThatIsANumberIsItsDigits) {
  auto info = hostInformation();
  info.set("CFBundleName", 7);
  inHost(info, [](const Host&) { EXPECT_EQ(entryOf(getpid()).value().at("pname"), "7"); });
}

TEST(ProcessList, AnEmptyBundleNameIsAName) {
  auto info = hostInformation();
  info.set("CFBundleName", "");
  inHost(info, [](const Host&) { EXPECT_EQ(entryOf(getpid()).value().at("pname"), ""); });
}

// Only a process with privileges can have two users, and give them to its child.
TEST(ProcessList, TheUserIsTheEffectiveOne) {
  if (geteuid() != 0) GTEST_SKIP() << "needs the privileges of root";
  constexpr uid_t real = 65533;
  constexpr uid_t effective = 65534;
  constexpr uid_t saved = 65532;
  std::array<int, 2> ready{};
  ASSERT_EQ(pipe(ready.data()), 0);
  const pid_t child = fork();
  ASSERT_GE(child, 0);
  if (child == 0) {
    const bool able = setresuid(real, effective, saved) == 0;
    [[maybe_unused]] const auto written = write(ready[1], able ? "y" : "n", 1);
    pause();
    _exit(0);
  }
  char able = 0;
  EXPECT_EQ(read(ready[0], &able, 1), 1);
  EXPECT_EQ(able, 'y');
  const auto entry = entryOf(child);
  kill(child, SIGKILL);
  waitpid(child, nullptr, 0);
  close(ready[0]);
  close(ready[1]);
  ASSERT_TRUE(entry.has_value());
  EXPECT_EQ(entry->at("uid"), std::to_string(effective));
}

TEST(ProcessList, IsInKernelOrderAndHasEveryProcessOnce) {
  const auto entries = QBHPProcessList::share().getBSDProcessList();
  ASSERT_FALSE(entries.empty());
  EXPECT_TRUE(std::ranges::is_sorted(entries, [](const auto& a, const auto& b) {
    return std::stoi(a.at("pid")) < std::stoi(b.at("pid"));
  }));
  EXPECT_EQ(
      std::ranges::count_if(
          entries, [](const auto& entry) { return entry.at("pid") == std::to_string(getpid()); }),
      1);
}

TEST(ProcessList, InfoForPIDIsTheInformationDictionaryOfItsApplication) {
  const auto info = QBHPProcessList::share().infoForPID(getpid());
  ASSERT_NE(info, nullptr);
  ASSERT_NE(info->find("CFBundleIdentifier"), nullptr);
  EXPECT_EQ(*info->find("CFBundleIdentifier"), PropertyList(ownIdentifier));
  EXPECT_EQ(*info->find("PID"), PropertyList("4711"));
}

TEST(ProcessList, InfoForPIDIsAbsentWithoutAProcess) {
  const pid_t child = fork();
  if (child == 0) _exit(0);
  waitpid(child, nullptr, 0);
  for (const int pid : {0, -1, -4711, static_cast<int>(child), std::numeric_limits<int>::max(),
                        std::numeric_limits<int>::min()}) {
    EXPECT_EQ(QBHPProcessList::share().infoForPID(pid), nullptr) << pid;
  }
}

TEST(ProcessList, ARunningApplicationIsFoundByItsExactIdentifier) {
  auto& list = QBHPProcessList::share();
  EXPECT_TRUE(list.applicationIsRunning(ownIdentifier, "/any/path"));
  EXPECT_TRUE(list.applicationIsRunning(ownIdentifier, ""));
  EXPECT_FALSE(list.applicationIsRunning("com.example.unittests", "/any/path"));
  EXPECT_FALSE(list.applicationIsRunning("COM.EXAMPLE.UNITTESTS", "/any/path"));
  EXPECT_FALSE(list.applicationIsRunning("com.Example.UnitTest", "/any/path"));
  EXPECT_FALSE(list.applicationIsRunning("com.Example.UnitTests ", "/any/path"));
  EXPECT_FALSE(list.applicationIsRunning("", "/any/path"));
}

// Calls a function whenever the processes were read.
class WatchedProcessList : public QBHPProcessList {
 public:
  explicit WatchedProcessList(std::function<void()> onRead) : QBHPProcessList(std::move(onRead)) {}
};

TEST(ProcessList, AnAbsentArgumentIsNotRunningWithoutALookAtTheProcesses) {
  unsigned readings = 0;
  WatchedProcessList list([&] { ++readings; });
  EXPECT_FALSE(list.applicationIsRunning(std::nullopt, "/any/path"));
  EXPECT_FALSE(list.applicationIsRunning(ownIdentifier, std::nullopt));
  EXPECT_FALSE(list.applicationIsRunning(std::nullopt, std::nullopt));
  EXPECT_EQ(readings, 0U);
  EXPECT_TRUE(list.applicationIsRunning(ownIdentifier, ""));
  EXPECT_EQ(readings, 1U);
}

TEST(ProcessList, AnotherApplicationIsFoundWhileItRuns) {
  inHost(hostInformation(), [](const Host& host) {
    auto& list = QBHPProcessList::share();
    const std::string identifier = otherIdentifier();
    EXPECT_FALSE(list.applicationIsRunning(identifier, "/any/path"));
    RunningApplication other(host.home / "Other.app",
                             {{"CFBundleIdentifier", identifier}, {"CFBundleName", "The Other"}});
    EXPECT_TRUE(list.applicationIsRunning(identifier, "/any/path"));
    EXPECT_EQ(entryOf(other.processID()).value().at("pname"), "The Other");
    other.end();
    EXPECT_FALSE(list.applicationIsRunning(identifier, "/any/path"));
  });
}

TEST(ProcessList, AnApplicationThatEndsMeanwhileIsListedUnderItsCommandName) {
  inHost(hostInformation(), [](const Host& host) {
    RunningApplication other(host.home / "Other.app", {{"CFBundleIdentifier", otherIdentifier()},
                                                       {"CFBundleName", "The Other"}});
    const pid_t processID = other.processID();
    EXPECT_EQ(entryOf(processID).value().at("pname"), "The Other");
    WatchedProcessList list([&] { other.end(); });
    const auto entry = entryOf(processID, list);
    ASSERT_TRUE(entry.has_value());
    EXPECT_EQ(*entry, (QBHPProcessList::Entry{{"pname", "Application"},
                                              {"pid", std::to_string(processID)},
                                              {"uid", std::to_string(geteuid())}}));
  });
}

TEST(ProcessList, AnApplicationThatEndsMeanwhileIsNotRunning) {
  inHost(hostInformation(), [](const Host& host) {
    const std::string identifier = otherIdentifier();
    RunningApplication other(host.home / "Other.app", {{"CFBundleIdentifier", identifier}});
    EXPECT_TRUE(QBHPProcessList::share().applicationIsRunning(identifier, "/any/path"));
    WatchedProcessList list([&] { other.end(); });
    EXPECT_FALSE(list.applicationIsRunning(identifier, "/any/path"));
  });
}

TEST(ProcessList, AnApplicationWithoutAnIdentifierIsSkipped) {
  inHost({}, [](const Host&) {
    EXPECT_FALSE(QBHPProcessList::share().applicationIsRunning("", "/any/path"));
    EXPECT_TRUE(entryOf(getpid()).has_value());
  });
}

TEST(GetBSDProcessListTest, GivesRecordsThatTheCallerFrees) {
  ProcessRecord* records = nullptr;
  std::size_t count = 0;
  GetBSDProcessList(&records, &count);
  const std::unique_ptr<ProcessRecord, Free> owned(records);
  ASSERT_NE(records, nullptr);
  ASSERT_GT(count, 0U);
  const auto own = std::find_if(records, records + count, [](const ProcessRecord& record) {
    return record.processID == getpid();
  });
  ASSERT_NE(own, records + count);
  EXPECT_EQ(own->effectiveUser, geteuid());
  EXPECT_STREQ(own->command, "UnitTests");
}

TEST(GetBSDProcessListTest, OverwritesWhatWasThere) {
  ProcessRecord before{};
  ProcessRecord* records = &before;
  std::size_t count = 99;
  GetBSDProcessList(&records, &count);
  EXPECT_NE(records, &before);
  std::free(records);
}

TEST(GetBSDProcessListDeathTest, AbortsWithoutAPlaceForTheList) {
  testing::GTEST_FLAG(death_test_style) = "threadsafe";
  std::size_t count = 0;
  EXPECT_DEATH(GetBSDProcessList(nullptr, &count), "procList != NULL");
}

TEST(GetBSDProcessListDeathTest, AbortsWithoutAPlaceForTheCount) {
  testing::GTEST_FLAG(death_test_style) = "threadsafe";
  ProcessRecord* records = nullptr;
  EXPECT_DEATH(GetBSDProcessList(&records, nullptr), "procCount != NULL");
}

// A table that answers as it is told, one answer per call.
class FetchProcessTable : public testing::Test {
 protected:
  struct Step {
    int result = 0;
    std::size_t records = 0;
  };
  FetchedProcessTable fetch(std::vector<Step> steps) {
    calls = 0;
    return fetchProcessTable([this, steps](ProcessRecord* buffer, std::size_t* length) {
      const Step& step = steps.at(calls);
      EXPECT_EQ(buffer == nullptr, calls % 2 == 0) << "call " << calls;
      if (buffer != nullptr) {
        EXPECT_EQ(*length, steps.at(calls - 1).records * sizeof(ProcessRecord));
        for (std::size_t i = 0; i < step.records; ++i) buffer[i] = {static_cast<pid_t>(i), 0, {}};
      }
      ++calls;
      *length = step.records * sizeof(ProcessRecord);
      return step.result;
    });
  }
  std::size_t calls = 0;
};

TEST_F(FetchProcessTable, AsksForTheSizeThenForTheTable) {
  const auto table = fetch({{0, 5}, {0, 5}});
  EXPECT_NE(table.records, nullptr);
  EXPECT_EQ(table.count, 5U);
  EXPECT_EQ(calls, 2U);
}

TEST_F(FetchProcessTable, ATableThatShrankHasFewerRecords) {
  const auto table = fetch({{0, 5}, {0, 3}});
  EXPECT_EQ(table.count, 3U);
}

TEST_F(FetchProcessTable, ATableThatGrewIsAskedForAgainWithoutABound) {
  std::vector<Step> steps;
  for (std::size_t i = 0; i < 1000; ++i) {
    steps.push_back({0, 1 + i});
    steps.push_back({ENOMEM, 0});
  }
  steps.push_back({0, 1001});
  steps.push_back({0, 1001});
  const auto table = fetch(steps);
  EXPECT_NE(table.records, nullptr);
  EXPECT_EQ(table.count, 1001U);
  EXPECT_EQ(calls, 2002U);
}

TEST_F(FetchProcessTable, AFailingSizeGivesNoTable) {
  for (const int error : {EPERM, ENOMEM}) {
    const auto table = fetch({{error, 0}});
    EXPECT_EQ(table.records, nullptr);
    EXPECT_EQ(table.count, 0U);
    EXPECT_EQ(calls, 1U);
  }
}

TEST_F(FetchProcessTable, AnyOtherFailureGivesNoTable) {
  const auto table = fetch({{0, 5}, {EINVAL, 5}});
  EXPECT_EQ(table.records, nullptr);
  EXPECT_EQ(table.count, 0U);
  EXPECT_EQ(calls, 2U);
}

TEST_F(FetchProcessTable, WithoutMemoryThereIsNoTable) {
  const std::size_t tooMuch = std::numeric_limits<std::size_t>::max() / 4 / sizeof(ProcessRecord);
  const auto table = fetch({{0, tooMuch}});
  EXPECT_EQ(table.records, nullptr);
  EXPECT_EQ(table.count, 0U);
  EXPECT_EQ(calls, 1U);
}

}  // namespace
}  // namespace qbdkr::test
