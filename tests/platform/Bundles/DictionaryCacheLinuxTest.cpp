// Counts the readings to find out which files are cached. Only a file that has rested for a while
// is cached. A link can lead to another such file at once.

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <condition_variable>
#include <filesystem>
#include <memory>
#include <mutex>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "Platform/Bundles/DictionaryCacheLinux.h"
#include "platform/RestedFile.h"
#include "support/Environment.h"
#include "support/WatchedThread.h"

namespace qbdkr {
namespace {

namespace fs = std::filesystem;
using Dictionary = PropertyList::Dictionary;
using test::TemporaryDirectory;
using test::WatchedThread;
using test::writeFile;

std::string rested() { return test::restedFile("First.plist"); }
std::string otherRested() { return test::restedFile("Second.plist"); }
std::string thirdRested() { return test::restedFile("Third.plist"); }

// Reads each file as the number of the reading, unless a test sets another answer.
class CachedDictionaries : public testing::Test {
 protected:
  DictionaryCache cacheOf(DictionaryCache::Capacity capacity) {
    return {[this](const std::string& path) { return read(path); }, capacity};
  }

  DictionaryReading read(const std::string& path) {
    const int number = ++readings;
    const int here = ++reading;
    for (int most = mostAtATime; here > most && !mostAtATime.compare_exchange_weak(most, here);) {
    }
    auto result = answer(path, number);
    --reading;
    return result;
  }

  static DictionaryReading numbered(int number) {
    return {Dictionary{{"Number", std::to_string(number)}}, true};
  }

  static int numberOf(const std::shared_ptr<const Dictionary>& dictionary) {
    return std::stoi(dictionary->text("Number").value_or("0"));
  }

  // Makes a file, which has not rested.
  std::string fresh(const std::string& name = "fresh") const {
    const fs::path path = directory.path() / name;
    writeFile(path, "");
    return path;
  }

  std::string linkTo(const fs::path& target) const {
    const fs::path link = directory.path() / "link";
    fs::remove(link);
    fs::create_symlink(target, link);
    return link;
  }

  TemporaryDirectory directory;
  std::function<DictionaryReading(const std::string&, int)> answer =
      [](const std::string&, int number) { return numbered(number); };
  std::atomic<int> readings{0};
  std::atomic<int> reading{0};
  std::atomic<int> mostAtATime{0};
  DictionaryCache cache = cacheOf({64, 1 << 20});
};

// Blocks the threads that pass it until it is opened.
class Gate {
 public:
  void pass() {
    std::unique_lock lock(mutex_);
    opened_.wait(lock, [this] { return open_; });
  }
  void open() {
    {
      const std::lock_guard lock(mutex_);
      open_ = true;
    }
    opened_.notify_all();
  }

 private:
  std::mutex mutex_;
  std::condition_variable opened_;
  bool open_ = false;
};

TEST_F(CachedDictionaries, AFileIsReadAnewOnlyWhenItIsAnotherOne) {
  const std::string link = linkTo(rested());
  EXPECT_EQ(numberOf(cache.at(link)), 1);
  EXPECT_EQ(numberOf(cache.at(link)), 1);
  linkTo(otherRested());
  EXPECT_EQ(numberOf(cache.at(link)), 2);
  EXPECT_EQ(numberOf(cache.at(link)), 2);
  EXPECT_EQ(numberOf(cache.at(rested())), 3);
}

TEST_F(CachedDictionaries, AFileThatChangedJustNowIsReadEachTime) {
  const std::string path = fresh();
  EXPECT_EQ(numberOf(cache.at(path)), 1);
  EXPECT_EQ(numberOf(cache.at(path)), 2);
}

TEST_F(CachedDictionaries, WithoutARegularFileNothingIsRead) {
  EXPECT_EQ(cache.at(directory.path() / "none"), nullptr);
  EXPECT_EQ(cache.at(directory.path()), nullptr);
  EXPECT_EQ(cache.at("/dev/null"), nullptr);
  EXPECT_EQ(readings, 0);
}

TEST_F(CachedDictionaries, AFileThatCannotBeReadIsRememberedAsEmpty) {
  answer = [](const std::string&, int) { return DictionaryReading{std::nullopt, true}; };
  for (int call = 0; call < 3; ++call) EXPECT_EQ(*cache.at(rested()), Dictionary());
  EXPECT_EQ(readings, 1);
}

TEST_F(CachedDictionaries, AFailureThatSaysNothingOfTheFileIsNotRemembered) {
  answer = [](const std::string&, int number) {
    return number < 3 ? DictionaryReading{std::nullopt, false} : numbered(number);
  };
  EXPECT_EQ(*cache.at(rested()), Dictionary());
  EXPECT_EQ(*cache.at(rested()), Dictionary());
  EXPECT_EQ(numberOf(cache.at(rested())), 3);
  EXPECT_EQ(numberOf(cache.at(rested())), 3);
}

TEST_F(CachedDictionaries, WhatIsHalfWrittenCountsAsBefore) {
  const std::string link = linkTo(rested());
  EXPECT_EQ(numberOf(cache.at(link)), 1);
  answer = [](const std::string&, int) { return DictionaryReading{std::nullopt, true}; };
  linkTo(fresh());
  EXPECT_EQ(numberOf(cache.at(link)), 1);
  EXPECT_EQ(readings, 2);
  linkTo(otherRested());
  EXPECT_EQ(*cache.at(link), Dictionary());
}

TEST_F(CachedDictionaries, ManyThreadsReadABadFileOnce) {
  Gate gate;
  answer = [&gate](const std::string&, int) {
    gate.pass();
    return DictionaryReading{std::nullopt, true};
  };
  std::vector<std::unique_ptr<WatchedThread>> threads;
  for (int thread = 0; thread < 8; ++thread) {
    threads.push_back(std::make_unique<WatchedThread>([this] {
      for (int call = 0; call < 20; ++call) EXPECT_EQ(*cache.at(rested()), Dictionary());
    }));
    EXPECT_TRUE(threads.back()->waits());
  }
  gate.open();
  threads.clear();
  EXPECT_EQ(readings, 1);
}

TEST_F(CachedDictionaries, ThreadsThatWaitTakeOneReadingThatBeganAfterTheyCame) {
  Gate gate;
  answer = [&gate](const std::string&, int number) {
    gate.pass();
    return numbered(number);
  };
  const std::string path = fresh();
  WatchedThread first([&] { EXPECT_EQ(numberOf(cache.at(path)), 1); });
  EXPECT_TRUE(first.waits());
  std::vector<std::unique_ptr<WatchedThread>> threads;
  for (int thread = 0; thread < 8; ++thread) {
    threads.push_back(
        std::make_unique<WatchedThread>([&] { EXPECT_EQ(numberOf(cache.at(path)), 2); }));
    EXPECT_TRUE(threads.back()->waits());
  }
  gate.open();
  threads.clear();
  EXPECT_EQ(readings, 2);
  EXPECT_EQ(mostAtATime, 1);
}

TEST_F(CachedDictionaries, AFileThatIsSlowToReadHoldsUpNoOther) {
  Gate gate;
  answer = [&gate](const std::string& path, int number) {
    if (path == rested()) gate.pass();
    return numbered(number);
  };
  WatchedThread slow([this] { EXPECT_EQ(numberOf(cache.at(rested())), 1); });
  EXPECT_TRUE(slow.waits());
  EXPECT_EQ(numberOf(cache.at(otherRested())), 2);
  gate.open();
}

TEST_F(CachedDictionaries, AReadingThatThrowsLeavesTheFileToTheNext) {
  Gate gate;
  answer = [&gate](const std::string&, int number) {
    if (number > 1) return numbered(number);
    gate.pass();
    throw std::runtime_error("no memory");
  };
  WatchedThread first([this] { EXPECT_THROW((void)cache.at(rested()), std::runtime_error); });
  EXPECT_TRUE(first.waits());
  WatchedThread second([this] { EXPECT_EQ(numberOf(cache.at(rested())), 2); });
  EXPECT_TRUE(second.waits());
  gate.open();
  first.join();
  second.join();
  EXPECT_EQ(numberOf(cache.at(rested())), 2);
}

TEST_F(CachedDictionaries, AfterAReadingThatThrewAnEarlierOneIsNotTaken) {
  Gate gate;
  answer = [&gate](const std::string&, int number) {
    gate.pass();
    if (number == 2) throw std::runtime_error("no memory");
    return numbered(number);
  };
  const std::string path = fresh();
  std::atomic<int> thrown{0};
  std::vector<std::unique_ptr<WatchedThread>> threads;
  for (int thread = 0; thread < 3; ++thread) {
    threads.push_back(std::make_unique<WatchedThread>([&, thread] {
      try {
        EXPECT_EQ(numberOf(cache.at(path)), thread == 0 ? 1 : 3);
      } catch (const std::runtime_error&) {
        ++thrown;
      }
    }));
    EXPECT_TRUE(threads.back()->waits());
  }
  gate.open();
  threads.clear();
  EXPECT_EQ(thrown, 1);
}

TEST_F(CachedDictionaries, BeyondItsFilesItForgetsTheOneThatIsUnusedForLongest) {
  DictionaryCache two = cacheOf({2, 1 << 20});
  EXPECT_EQ(numberOf(two.at(rested())), 1);
  EXPECT_EQ(numberOf(two.at(otherRested())), 2);
  EXPECT_EQ(numberOf(two.at(rested())), 1);
  EXPECT_EQ(numberOf(two.at(thirdRested())), 3);
  EXPECT_EQ(numberOf(two.at(rested())), 1);
  EXPECT_EQ(numberOf(two.at(otherRested())), 4);
}

TEST_F(CachedDictionaries, BeyondItsMemoryItKeepsTheNewest) {
  constexpr std::size_t large = 3000;
  const std::vector<PropertyList> values = {
      std::string(large, 'x'), PropertyList::Data{std::string(large, 'x')},
      PropertyList::Array(large / sizeof(PropertyList), 1),
      Dictionary{{"Inner", Dictionary{{std::string(large, 'k'), std::string()}}}}};
  for (const PropertyList& value : values) {
    answer = [&value](const std::string&, int number) {
      return DictionaryReading{Dictionary{{"Number", number}, {"Large", value}}, true};
    };
    const int before = readings;
    DictionaryCache one = cacheOf({64, 2 * large - 100});
    EXPECT_EQ(numberOf(one.at(rested())), before + 1);
    EXPECT_EQ(numberOf(one.at(rested())), before + 1);
    EXPECT_EQ(numberOf(one.at(otherRested())), before + 2);
    EXPECT_EQ(numberOf(one.at(rested())), before + 3);
    EXPECT_EQ(numberOf(one.at(rested())), before + 3);

    DictionaryCache both = cacheOf({64, 3 * large});
    EXPECT_EQ(numberOf(both.at(rested())), before + 4);
    EXPECT_EQ(numberOf(both.at(otherRested())), before + 5);
    EXPECT_EQ(numberOf(both.at(rested())), before + 4);

    DictionaryCache less = cacheOf({64, large / 2});
    EXPECT_EQ(numberOf(less.at(rested())), before + 6);
    EXPECT_EQ(numberOf(less.at(rested())), before + 6);
  }
}

// A file that replaces another again and again takes up its room only once.
TEST_F(CachedDictionaries, AFileThatChangesCountsOnce) {
  constexpr std::size_t large = 3000;
  answer = [](const std::string&, int number) {
    return DictionaryReading{Dictionary{{"Number", number}, {"Large", std::string(large, 'x')}},
                             true};
  };
  DictionaryCache two = cacheOf({64, 3 * large});
  EXPECT_EQ(numberOf(two.at(thirdRested())), 1);
  for (int change = 0; change < 5; ++change) {
    (void)two.at(linkTo(change % 2 == 0 ? rested() : otherRested()));
  }
  EXPECT_EQ(readings, 6);
  EXPECT_EQ(numberOf(two.at(thirdRested())), 1);
}

}  // namespace
}  // namespace qbdkr
