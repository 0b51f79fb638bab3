#include "Platform/Bundles/DictionaryCacheLinux.h"

#include <sys/stat.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <condition_variable>
#include <cstdint>
#include <map>
#include <mutex>
#include <utility>
#include <variant>

#include "Platform/Base/ForkSafeMutex.h"
#include "Platform/Base/NeverDestroyed.h"
#include "Platform/PropertyLists/PropertyListBounds.h"
#include "Platform/PropertyLists/PropertyListReader.h"

namespace qbdkr {
namespace {

using Dictionary = PropertyList::Dictionary;
using Result = std::shared_ptr<const Dictionary>;

// Tells whether a file is still the one that was read.
class Signature {
 public:
  explicit Signature(const struct stat& status)
      : device_(status.st_dev),
        inode_(status.st_ino),
        size_(status.st_size),
        modified_(status.st_mtim),
        changed_(status.st_ctim) {}

  // A file that changed a moment ago may change again without looking different: time stamps are
  // coarse, and the number of a replaced file is soon used again.
  [[nodiscard]] bool isSettled() const {
    constexpr time_t seconds = 2;
    timespec now{};
    clock_gettime(CLOCK_REALTIME, &now);
    return now.tv_sec - changed_.tv_sec >= seconds;
  }

  bool operator==(const Signature& other) const {
    return device_ == other.device_ && inode_ == other.inode_ && size_ == other.size_ &&
           same(modified_, other.modified_) && same(changed_, other.changed_);
  }

 private:
  static bool same(const timespec& a, const timespec& b) {
    return a.tv_sec == b.tv_sec && a.tv_nsec == b.tv_nsec;
  }

  dev_t device_;
  ino_t inode_;
  off_t size_;
  timespec modified_;
  timespec changed_;
};

// The state of a file before it is read.
struct Look {
  Signature signature;
  bool isSettled;
};

// Absent if the path leads to no regular file.
std::optional<Look> lookAt(const std::string& path) {
  struct stat status {};
  if (stat(path.c_str(), &status) != 0 || !S_ISREG(status.st_mode)) return std::nullopt;
  const Signature signature(status);
  return Look{signature, signature.isSettled()};
}

// Estimates the memory of a value: its own size and what it has allocated.
std::size_t sizeInMemory(const Dictionary& dictionary);

struct AllocatedSize {
  std::size_t operator()(const std::string& text) const {
    return text.capacity() > std::string().capacity() ? text.capacity() : 0;
  }
  std::size_t operator()(const PropertyList::Data& data) const { return (*this)(data.bytes); }
  std::size_t operator()(const PropertyList::Array& array) const {
    std::size_t size = 0;
    for (const PropertyList& value : array) {
      size += sizeof value + std::visit(*this, value.value());
    }
    return size;
  }
  std::size_t operator()(const Dictionary& dictionary) const { return sizeInMemory(dictionary); }
  template <class Scalar>
  std::size_t operator()(const Scalar&) const {
    return 0;
  }
};

std::size_t sizeInMemory(const Dictionary& dictionary) {
  constexpr AllocatedSize allocated;
  std::size_t size = 0;
  for (const Dictionary::Entry& entry : dictionary) {
    size += sizeof entry + allocated(entry.first) + std::visit(allocated, entry.second.value());
  }
  return size;
}

}  // namespace

class DictionaryCache::State {
 public:
  State(Read read, Capacity capacity) : read_(std::move(read)), capacity_(capacity) {}

  Result at(const std::string& path) {
    const auto look = lookAt(path);
    if (!look) return nullptr;
    Lock lock(mutex_);
    if (auto known = remembered(path, *look)) return known;
    const Use use(turns(), path);
    Readings& readings = use.readings();
    // Only a reading that begins from now on shows the file as it is now.
    const auto wanted = readings.begun + 1;
    while (readings.ended < wanted || !readings.last) {
      if (readings.ended == readings.begun) {
        read(path, *look, use, lock);
        continue;
      }
      use.waitForEnd(lock,
                     [&] { return readings.ended >= wanted || readings.ended == readings.begun; });
      if (auto known = remembered(path, *look)) return known;
    }
    return readings.last;
  }

 private:
  using Lock = std::unique_lock<ForkSafeMutex>;

  struct Entry {
    Signature signature;
    Result dictionary;
    std::size_t bytes;
    std::uint64_t lastUse;
  };

  // The readings of one file, numbered; only one goes on at a time.
  struct Readings {
    std::uint64_t begun = 0;
    std::uint64_t ended = 0;
    Result last;  // of the last one that ended; null if it failed
    std::size_t users = 0;
  };

  // The readings in progress, and the condition on which threads wait for them.
  struct Turns {
    pid_t process = getpid();
    std::condition_variable_any readingEnded;
    std::map<std::string, Readings> readings;
  };

  // Keeps the readings of a file while a thread needs them. Made and destroyed under the lock.
  class Use {
   public:
    Use(Turns& turns, const std::string& path)
        : turns_(turns), place_(turns.readings.try_emplace(path).first) {
      ++place_->second.users;
    }
    Use(const Use&) = delete;
    Use& operator=(const Use&) = delete;
    ~Use() {
      if (--place_->second.users == 0) turns_.readings.erase(place_);
    }
    [[nodiscard]] Readings& readings() const { return place_->second; }

    template <class Condition>
    void waitForEnd(Lock& lock, Condition condition) const {
      turns_.readingEnded.wait(lock, condition);
    }
    void end(Result result) const {
      readings().last = std::move(result);
      readings().ended = readings().begun;
      turns_.readingEnded.notify_all();
    }

   private:
    Turns& turns_;
    std::map<std::string, Readings>::iterator place_;
  };

  // Starts afresh in a forked child: it has none of the threads that were reading or waiting, and
  // must not touch the condition that they wait on.
  Turns& turns() {
    if (turns_->process != getpid()) static_cast<void>(turns_.release());
    if (!turns_) turns_ = std::make_unique<Turns>();
    return *turns_;
  }

  // Releases the lock while it reads.
  void read(const std::string& path, const Look& look, const Use& use, Lock& lock) {
    ++use.readings().begun;
    try {
      lock.unlock();
      DictionaryReading reading = read_(path);
      const bool isWhole = reading.dictionary.has_value();
      auto dictionary =
          std::make_shared<const Dictionary>(std::move(reading.dictionary).value_or(Dictionary()));
      const std::size_t bytes = sizeInMemory(*dictionary);
      lock.lock();
      Result result = dictionary;
      if (!look.isSettled && !isWhole) {
        // An unreadable file may be half written right now; its last contents still count then.
        if (auto before = lastRemembered(path)) result = std::move(before);
      } else if (look.isSettled && (isWhole || reading.isConclusive)) {
        remember(path, Entry{look.signature, std::move(dictionary), bytes, ++uses_});
      }
      use.end(std::move(result));
    } catch (...) {
      if (!lock.owns_lock()) lock.lock();
      use.end(nullptr);
      throw;
    }
  }

  Result remembered(const std::string& path, const Look& look) {
    const auto known = entries_.find(path);
    if (known == entries_.end() || !(known->second.signature == look.signature)) return nullptr;
    known->second.lastUse = ++uses_;
    return known->second.dictionary;
  }

  // Returns the last dictionary, even if the file has changed since.
  [[nodiscard]] Result lastRemembered(const std::string& path) const {
    const auto known = entries_.find(path);
    return known == entries_.end() ? nullptr : known->second.dictionary;
  }

  // A file that is replaced between the look and the reading is remembered under the old look, and
  // read again the next time.
  void remember(const std::string& path, Entry entry) {
    forget(entries_.find(path));
    while (!entries_.empty() &&
           (entries_.size() >= capacity_.files || bytes_ + entry.bytes > capacity_.bytes)) {
      forget(std::ranges::min_element(entries_, {},
                                      [](const auto& known) { return known.second.lastUse; }));
    }
    const std::size_t bytes = entry.bytes;
    entries_.emplace(path, std::move(entry));
    bytes_ += bytes;
  }

  void forget(std::map<std::string, Entry>::iterator entry) {
    if (entry == entries_.end()) return;
    bytes_ -= entry->second.bytes;
    entries_.erase(entry);
  }

  const Read read_;
  const Capacity capacity_;
  ForkSafeMutex mutex_;
  std::unique_ptr<Turns> turns_ = std::make_unique<Turns>();
  std::map<std::string, Entry> entries_;
  std::uint64_t uses_ = 0;
  std::size_t bytes_ = 0;  // of the entries
};

namespace {

DictionaryReading readOwnDictionary(const std::string& path) {
  const auto contents = propertylist::contentsOfFile(path, propertylist::maximumBytes);
  if (!contents.bytes) return {std::nullopt, contents.isConclusive};
  return {propertylist::parseDictionary(*contents.bytes, {}), true};
}

}  // namespace

DictionaryCache::DictionaryCache(Read read, Capacity capacity)
    : state_(std::make_unique<State>(std::move(read), capacity)) {}

DictionaryCache::~DictionaryCache() = default;

Result DictionaryCache::at(const std::string& path) { return state_->at(path); }

Result cachedDictionary(const std::string& path) {
  static constexpr DictionaryCache::Capacity capacity{64, std::size_t{64} << 20};
  static NeverDestroyed cache([] { return DictionaryCache(readOwnDictionary, capacity); });
  return cache->at(path);
}

}  // namespace qbdkr
