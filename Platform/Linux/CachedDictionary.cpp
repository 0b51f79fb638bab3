#include "Platform/Linux/CachedDictionary.h"

#include <sys/stat.h>
#include <time.h>

#include <map>
#include <mutex>
#include <utility>

namespace qbdkr {
namespace {

using Dictionary = PropertyList::Dictionary;

constexpr std::size_t capacity = 64;

// What tells that a file is still the one that was read.
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

struct Entry {
  Signature signature;
  std::shared_ptr<const Dictionary> dictionary;
};

struct Cache {
  std::mutex mutex;
  std::map<std::string, Entry, std::less<>> entries;
};

Cache& cache() {
  static auto& instance = *new Cache;
  return instance;
}

}  // namespace

std::shared_ptr<const Dictionary> cachedDictionary(const std::string& path) {
  struct stat status {};
  if (stat(path.c_str(), &status) != 0 || !S_ISREG(status.st_mode)) return nullptr;
  const Signature signature(status);
  {
    const std::lock_guard lock(cache().mutex);
    const auto known = cache().entries.find(path);
    if (known != cache().entries.end() && known->second.signature == signature) {
      return known->second.dictionary;
    }
  }
  // A file that is replaced between the look and the read is only remembered under the old look,
  // and read again the next time.
  auto read = readDictionaryFile(path);
  const bool whole = read.has_value();  // or it may have failed for want of a descriptor
  auto dictionary = std::make_shared<const Dictionary>(std::move(read).value_or(Dictionary()));
  const std::lock_guard lock(cache().mutex);
  if (!signature.isSettled()) {
    // What cannot be read may be half written right now; what it was before still holds then.
    const auto known = cache().entries.find(path);
    return !whole && known != cache().entries.end() ? known->second.dictionary : dictionary;
  }
  if (!whole) return dictionary;
  if (cache().entries.size() >= capacity) cache().entries.clear();
  cache().entries.insert_or_assign(path, Entry{signature, dictionary});
  return dictionary;
}

}  // namespace qbdkr
