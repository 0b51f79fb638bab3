#include <fcntl.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include <ClientComm/RunLoop.h>
#include <ClientComm/UserDefaults.h>

#include "Platform/Files/FileLock.h"
#include "Platform/PropertyLists/PropertyListReader.h"
#include "Platform/PropertyLists/PropertyListWriter.h"
#include "platform/RestedFile.h"
#include "platform/TaskProcess.h"
#include "support/Environment.h"
#include "support/OrdinaryUser.h"

namespace qbdkr {
namespace {

namespace fs = std::filesystem;
using Dictionary = PropertyList::Dictionary;
using test::asOrdinaryUser;
using test::giveToOrdinaryUser;
using test::readFile;
using test::TaskProcess;
using test::TemporaryDirectory;
using test::writeFile;

constexpr const char* domain = "com.Acme.Sample";

class Defaults : public testing::Test {
 protected:
  Defaults() { setenv("XDG_CONFIG_HOME", directory.path().c_str(), 1); }

  [[nodiscard]] fs::path file(const std::string& name = domain) const {
    return directory.path() / "preferences" / (name + ".plist");
  }
  [[nodiscard]] Dictionary stored() const {
    return readDictionaryFile(file()).value_or(Dictionary());
  }
  void store(const Dictionary& values) const { writeFile(file(), xmlPropertyList(values).value()); }

  TemporaryDirectory directory;
  UserDefaults defaults{domain};
};

TEST_F(Defaults, AKeyThatIsNotSetIsAbsent) {
  EXPECT_EQ(defaults.object("Missing"), std::nullopt);
  EXPECT_EQ(UserDefaults::persistentDomain(domain), std::nullopt);
}

TEST_F(Defaults, WhatIsSetIsSeenAtOnceAndStoredBySynchronize) {
  EXPECT_TRUE(defaults.setObject("Key", PropertyList("value")));
  EXPECT_EQ(defaults.object("Key"), PropertyList("value"));
  EXPECT_FALSE(fs::exists(file()));
  EXPECT_TRUE(defaults.synchronize());
  EXPECT_EQ(stored(), (Dictionary{{"Key", "value"}}));
  EXPECT_EQ(defaults.object("Key"), PropertyList("value"));
  EXPECT_EQ(UserDefaults(domain).object("Key"), PropertyList("value"));
  EXPECT_EQ(UserDefaults::persistentDomain(domain), (Dictionary{{"Key", "value"}}));
}

TEST_F(Defaults, KeepsEveryKindOfValue) {
  const Dictionary values{{"text", "Gr\u00FC\u00DFe"},
                          {"empty", ""},
                          {"flag", false},
                          {"number", -7},
                          {"real", 0.1},
                          {"array", PropertyList::Array{1, "two"}},
                          {"dictionary", Dictionary{{"a", true}}},
                          {"data", PropertyList::Data{std::string("a\0b", 3)}}};
  for (const auto& [key, value] : values) EXPECT_TRUE(defaults.setObject(key, value));
  EXPECT_TRUE(defaults.synchronize());
  EXPECT_EQ(stored(), values);
}

TEST_F(Defaults, TheFileIsForTheUserOnly) {
  const mode_t before = umask(0);
  defaults.setObject("Key", PropertyList(1));
  ASSERT_TRUE(defaults.synchronize());
  umask(before);
  struct stat status {};
  ASSERT_EQ(stat(file().c_str(), &status), 0);
  EXPECT_EQ(status.st_mode & 07777U, 0600U);
}

TEST_F(Defaults, AnAbsentValueRemovesTheKey) {
  store({{"Key", "value"}, {"Other", "stays"}});
  EXPECT_TRUE(defaults.setObject("Key", std::nullopt));
  EXPECT_EQ(defaults.object("Key"), std::nullopt);
  EXPECT_EQ(stored(), (Dictionary{{"Key", "value"}, {"Other", "stays"}}));
  EXPECT_TRUE(defaults.synchronize());
  EXPECT_EQ(stored(), (Dictionary{{"Other", "stays"}}));
  EXPECT_EQ(defaults.object("Key"), std::nullopt);
}

TEST_F(Defaults, RemovingWhatIsNotThereIsNoFailure) {
  EXPECT_TRUE(defaults.setObject("Key", std::nullopt));
  EXPECT_TRUE(defaults.synchronize());
}

TEST_F(Defaults, ReadsSeeWhatOthersStored) {
  store({{"Key", "one"}});
  EXPECT_EQ(defaults.object("Key"), PropertyList("one"));
  store({{"Key", "two"}});
  EXPECT_EQ(defaults.object("Key"), PropertyList("two"));
}

TEST_F(Defaults, OwnChangesStandOverThoseOfOthersUntilTheyAreStored) {
  defaults.setObject("Key", PropertyList("own"));
  store({{"Key", "other"}, {"Other", "theirs"}});
  EXPECT_EQ(defaults.object("Key"), PropertyList("own"));
  EXPECT_EQ(defaults.object("Other"), PropertyList("theirs"));
  EXPECT_TRUE(defaults.synchronize());
  EXPECT_EQ(stored(), (Dictionary{{"Key", "own"}, {"Other", "theirs"}}));
}

TEST_F(Defaults, SynchronizeWithoutChangesWritesNothing) {
  EXPECT_TRUE(defaults.synchronize());
  EXPECT_FALSE(fs::exists(file()));
  store({{"Key", "one"}});
  const auto before = fs::last_write_time(file());
  defaults.setObject("Key", PropertyList("one"));
  EXPECT_TRUE(defaults.synchronize());
  EXPECT_EQ(fs::last_write_time(file()), before);
}

TEST_F(Defaults, SettingTwiceStoresTheLastValue) {
  defaults.setObject("Key", PropertyList("one"));
  defaults.setObject("Key", PropertyList("two"));
  defaults.synchronize();
  EXPECT_EQ(stored(), (Dictionary{{"Key", "two"}}));
}

TEST_F(Defaults, KeysOfProcessesThatWriteAtOnceAreMerged) {
  constexpr int keys = 20;
  std::vector<std::unique_ptr<TaskProcess>> writers;
  for (const char* name : {"a", "b", "c"}) {
    writers.push_back(std::make_unique<TaskProcess>(
        std::vector<std::string>{"set", domain, name, std::to_string(keys)}));
  }
  for (const auto& writer : writers) EXPECT_EQ(writer->finish(), 0);
  const Dictionary all = stored();
  EXPECT_EQ(all.size(), 3U * keys);
  for (const std::string name : {"a", "b", "c"}) {
    for (int i = 0; i < keys; ++i) {
      const PropertyList* value = all.find(name + std::to_string(i));
      ASSERT_NE(value, nullptr) << name << i;
      EXPECT_EQ(*value, PropertyList(i));
    }
  }
}

TEST_F(Defaults, ThreadsMayUseOneObject) {
  constexpr int threads = 4;
  constexpr int keys = 25;
  std::vector<std::thread> running;
  for (int thread = 0; thread < threads; ++thread) {
    running.emplace_back([&, thread] {
      for (int i = 0; i < keys; ++i) {
        const std::string key = std::to_string(thread) + '.' + std::to_string(i);
        defaults.setObject(key, PropertyList(i));
        EXPECT_EQ(defaults.object(key), PropertyList(i));
        if (i % 5 == 0) defaults.synchronize();  // may fail: the others may hold the file too long
      }
    });
  }
  for (std::thread& thread : running) thread.join();
  EXPECT_TRUE(defaults.synchronize());
  EXPECT_EQ(stored().size(), std::size_t{threads} * keys);
}

// Many threads wait at the same time, not in turn.
TEST_F(Defaults, SynchronizeWaitsAMomentOnlyForOthers) {
  constexpr int waiting = 20;
  constexpr std::chrono::seconds bound(2);  // ten times the longest wait of each
  fs::create_directories(file().parent_path());
  TaskProcess other({"hold", file().parent_path()});
  ASSERT_EQ(other.firstLine(), "locked");
  defaults.setObject("Key", PropertyList("value"));
  const auto start = std::chrono::steady_clock::now();
  std::vector<std::thread> threads;
  for (int i = 0; i < waiting; ++i) {
    threads.emplace_back([this] { EXPECT_FALSE(defaults.synchronize()); });
  }
  for (std::thread& thread : threads) thread.join();
  EXPECT_LT(std::chrono::steady_clock::now() - start, bound);
  EXPECT_EQ(defaults.object("Key"), PropertyList("value"));
  EXPECT_FALSE(fs::exists(file()));
  other.finish();
  EXPECT_TRUE(defaults.synchronize());
  EXPECT_EQ(stored(), (Dictionary{{"Key", "value"}}));
}

TEST_F(Defaults, WhatIsSetWhileAnotherThreadWaitsForTheFileIsStoredByIt) {
  fs::create_directories(file().parent_path());
  bool done = false;
  // The waiting thread may give up first.
  for (int attempt = 0; attempt < 100 && !done; ++attempt) {
    defaults.setObject("Key", PropertyList("older"));
    auto lock = FileLock::acquire(file().parent_path(), std::chrono::milliseconds(0));
    ASSERT_TRUE(lock.isHeld());
    std::atomic<bool> begun{false};
    std::thread writer([&] {
      begun = true;
      done = defaults.synchronize();
    });
    while (!begun) std::this_thread::yield();
    // The lock is held, so this is a pause, in which the writer begins to wait.
    EXPECT_FALSE(FileLock::acquire(file().parent_path(), std::chrono::milliseconds(50)).isHeld());
    defaults.setObject("Key", PropertyList("newer"));
    lock.unlock();
    writer.join();
  }
  EXPECT_TRUE(done);
  EXPECT_EQ(stored(), (Dictionary{{"Key", "newer"}}));
}

TEST_F(Defaults, AFileWithoutBytesHasNoValuesAndIsPutAside) {
  writeFile(file(), "");
  EXPECT_EQ(defaults.object("Key"), std::nullopt);
  EXPECT_EQ(UserDefaults::persistentDomain(domain).value_or(Dictionary()), Dictionary());
  defaults.setObject("Key", PropertyList("value"));
  EXPECT_TRUE(defaults.synchronize());
  EXPECT_EQ(stored(), (Dictionary{{"Key", "value"}}));
  ASSERT_TRUE(fs::exists(file().string() + ".damaged"));
  EXPECT_EQ(fs::file_size(file().string() + ".damaged"), 0U);
}

TEST_F(Defaults, AreStoredUnderAnyUmask) {
  giveToOrdinaryUser(directory.path());
  EXPECT_TRUE(asOrdinaryUser([this] {
    umask(0777);
    defaults.setObject("Key", PropertyList("value"));
    return defaults.synchronize() && defaults.object("Key") == PropertyList("value");
  }));
  EXPECT_EQ(stored(), (Dictionary{{"Key", "value"}}));
}

TEST_F(Defaults, ADamagedFileIsPutAside) {
  writeFile(file(), "damaged \x01");
  EXPECT_EQ(defaults.object("Key"), std::nullopt);
  EXPECT_TRUE(UserDefaults::persistentDomain(domain).value_or(Dictionary()).empty());
  EXPECT_EQ(readFile(file()), "damaged \x01");  // reading does not change it
  defaults.setObject("Key", PropertyList("value"));
  EXPECT_TRUE(defaults.synchronize());
  EXPECT_EQ(stored(), (Dictionary{{"Key", "value"}}));
  EXPECT_EQ(readFile(file().string() + ".damaged"), "damaged \x01");
}

TEST_F(Defaults, AFileThatCannotBeOpenedForNowIsNotTakenForDamaged) {
  store({{"Old", "kept"}});
  defaults.setObject("Key", PropertyList("value"));
  // Allows the open descriptors and some spare ones. One of these counts leaves none for reading
  // the file.
  for (rlim_t spare = 0; spare < 8; ++spare) {
    const int next = fcntl(STDERR_FILENO, F_DUPFD_CLOEXEC, 0);
    ASSERT_GE(next, 0);
    close(next);
    rlimit before{};
    getrlimit(RLIMIT_NOFILE, &before);
    const rlimit tight{static_cast<rlim_t>(next) + spare, before.rlim_max};
    ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &tight), 0);
    const bool done = defaults.synchronize();
    setrlimit(RLIMIT_NOFILE, &before);
    EXPECT_FALSE(fs::exists(file().string() + ".damaged")) << spare << " spare";
    if (done) break;
    // Nothing of the old file is lost, whether or not the new one replaced it.
    const Dictionary now = stored();
    ASSERT_NE(now.find("Old"), nullptr) << spare << " spare";
  }
  EXPECT_EQ(stored(), (Dictionary{{"Old", "kept"}, {"Key", "value"}}));
}

TEST_F(Defaults, AReadThatFailsForNowIsNotRemembered) {
  fs::create_directories(file().parent_path());
  fs::create_symlink(test::restedFile("First.plist"), file());
  // The sanitizers need a descriptor for each type that they meet for the first time.
  fs::create_symlink(test::restedFile("First.plist"), file("com.Acme.Other"));
  ASSERT_EQ(UserDefaults("com.Acme.Other").object("PID"), PropertyList("4711"));
  rlimit before{};
  getrlimit(RLIMIT_NOFILE, &before);
  const rlimit none{0, before.rlim_max};
  ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &none), 0);
  EXPECT_EQ(defaults.object("PID"), std::nullopt);
  setrlimit(RLIMIT_NOFILE, &before);
  EXPECT_EQ(defaults.object("PID"), PropertyList("4711"));
}

TEST_F(Defaults, AFailureKeepsTheChangesForTheNextTime) {
  writeFile(directory.path() / "preferences", "a file where a folder would have to be");
  EXPECT_TRUE(defaults.setObject("Key", PropertyList("value")));
  EXPECT_FALSE(defaults.synchronize());
  EXPECT_EQ(defaults.object("Key"), PropertyList("value"));
  fs::remove(directory.path() / "preferences");
  EXPECT_TRUE(defaults.synchronize());
  EXPECT_EQ(stored(), (Dictionary{{"Key", "value"}}));
}

TEST_F(Defaults, WithoutRoomTheOldFileStays) {
  store({{"Old", "kept"}});
  giveToOrdinaryUser(directory.path());
  EXPECT_FALSE(asOrdinaryUser([this] {
    signal(SIGXFSZ, SIG_IGN);
    const rlimit limit{1000, 1000};
    setrlimit(RLIMIT_FSIZE, &limit);
    defaults.setObject("Key", PropertyList(std::string(2000, 'x')));
    return defaults.synchronize();
  }));
  EXPECT_EQ(stored(), (Dictionary{{"Old", "kept"}}));
}

TEST_F(Defaults, DomainsThatAreNoFileNamesHoldNothing) {
  writeFile(directory.path() / "secret.plist", xmlPropertyList(Dictionary{{"Key", 1}}).value());
  for (const std::string& name :
       {std::string(), std::string("../secret"), std::string("/etc/passwd"), std::string("a/b"),
        std::string("."), std::string(".."), std::string(".hidden"), std::string(300, 'a'),
        std::string("a\0b", 3)}) {
    UserDefaults hostile(name);
    EXPECT_EQ(UserDefaults::persistentDomain(name), std::nullopt) << name;
    hostile.setObject("Key", PropertyList("value"));
    EXPECT_FALSE(hostile.synchronize()) << name;
    EXPECT_EQ(hostile.object("Key"), PropertyList("value"));  // this process still sees it
    hostile.setObject("Key", std::nullopt);
  }
  EXPECT_EQ(*readDictionaryFile(directory.path() / "secret.plist")->find("Key"), PropertyList(1));
  EXPECT_FALSE(fs::exists(directory.path() / "preferences/.hidden.plist"));
}

TEST_F(Defaults, DomainsOfOtherScriptsAreFileNames) {
  UserDefaults other("com.Gr\u00FC\u00DFe \u263A");
  other.setObject("Key", PropertyList("value"));
  EXPECT_TRUE(other.synchronize());
  EXPECT_TRUE(fs::exists(file("com.Gr\u00FC\u00DFe \u263A")));
}

TEST_F(Defaults, AValueThatCannotBeStoredIsRefused) {
  defaults.setObject("Key", PropertyList("good"));
  EXPECT_FALSE(defaults.setObject("Key", PropertyList("\xFF")));
  EXPECT_FALSE(defaults.setObject("Key", PropertyList(std::string("a\0b", 3))));
  EXPECT_FALSE(defaults.setObject("Key", PropertyList(PropertyList::Array{"\x01"})));
  EXPECT_FALSE(defaults.setObject("Key\xFF", PropertyList("value")));
  EXPECT_FALSE(defaults.setObject("Key\xFF", std::nullopt));
  EXPECT_EQ(defaults.object("Key"), PropertyList("good"));
  EXPECT_EQ(defaults.object("Key\xFF"), std::nullopt);
  EXPECT_TRUE(defaults.synchronize());
  EXPECT_EQ(stored(), (Dictionary{{"Key", "good"}}));
}

TEST_F(Defaults, TheMainRunLoopStoresWhatNobodySynchronized) {
  defaults.setObject("Key", PropertyList("value"));
  defaults.setObject("Other", PropertyList("other"));
  RunLoop::main().perform([] { RunLoop::main().stop(); });
  RunLoop::main().run();
  EXPECT_EQ(stored(), (Dictionary{{"Key", "value"}, {"Other", "other"}}));
}

TEST_F(Defaults, TheMainRunLoopStoresForAnObjectThatIsGone) {
  std::thread([] { UserDefaults(domain).setObject("Key", PropertyList("value")); }).join();
  RunLoop::main().perform([] { RunLoop::main().stop(); });
  RunLoop::main().run();
  EXPECT_EQ(stored(), (Dictionary{{"Key", "value"}}));
}

TEST_F(Defaults, WithoutTheVariableTheyAreInTheHomeDirectory) {
  setenv("HOME", directory.path().c_str(), 1);
  for (const char* unusable : {static_cast<const char*>(nullptr), "", "relative/path"}) {
    fs::remove_all(directory.path() / ".config");
    unsetenv("XDG_CONFIG_HOME");
    if (unusable != nullptr) setenv("XDG_CONFIG_HOME", unusable, 1);
    UserDefaults other(domain);
    other.setObject("Key", PropertyList("value"));
    EXPECT_TRUE(other.synchronize());
    EXPECT_TRUE(
        fs::exists(directory.path() / ".config/preferences" / (std::string(domain) + ".plist")));
  }
}

TEST_F(Defaults, StandardIsOneObject) {
  EXPECT_EQ(&UserDefaults::standard(), &UserDefaults::standard());
}

}  // namespace
}  // namespace qbdkr
