#pragma once

#include <cstddef>
#include <functional>
#include <memory>
#include <optional>
#include <string>

#include <ClientComm/PropertyList.h>

namespace qbdkr {

// Holds the result of reading a file.
struct DictionaryReading {
  std::optional<PropertyList::Dictionary> dictionary;  // absent if the file holds none
  // True if reading the unchanged file again would give the same result. False after a failure such
  // as a lack of descriptors.
  bool isConclusive = true;
};

// Caches the dictionaries of files that are read over and over. A file, even an unreadable one, is
// read again only after a change, or if it was read within 2 s of one. One thread at a time reads a
// file; the others wait for it and take its result. Any thread.
class DictionaryCache {
 public:
  // Reads a file. Called on a thread that asks for the file, without a lock held.
  using Read = std::function<DictionaryReading(const std::string& path)>;

  // Bounds the cache: the number of files, and the memory of their dictionaries in bytes. The
  // newest one is cached even if it alone takes more.
  struct Capacity {
    std::size_t files;
    std::size_t bytes;
  };

  DictionaryCache(Read read, Capacity capacity);
  DictionaryCache(const DictionaryCache&) = delete;
  DictionaryCache& operator=(const DictionaryCache&) = delete;
  ~DictionaryCache();

  // Returns the dictionary of a file: empty if the file holds none, null if the path leads to no
  // regular file. Blocks while the file is read, and throws what reading it throws.
  [[nodiscard]] std::shared_ptr<const PropertyList::Dictionary> at(const std::string& path);

 private:
  class State;
  const std::unique_ptr<State> state_;
};

// Returns the dictionary of one of the user's own files, such as settings, from a cache of the
// whole process. See DictionaryCache::at().
[[nodiscard]] std::shared_ptr<const PropertyList::Dictionary> cachedDictionary(
    const std::string& path);

}  // namespace qbdkr
