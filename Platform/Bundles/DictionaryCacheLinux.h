#pragma once

#include <cstddef>
#include <functional>
#include <memory>
#include <optional>
#include <string>

#include "Platform/Base/Export.h"
#include "Platform/PropertyLists/PropertyList.h"

namespace qbdkr {

// Holds the result of reading a file.
struct DictionaryReading {
  std::optional<PropertyList::Dictionary> dictionary;  // absent when the file holds none
  // Whether the same file would give the same again. A failure for want of a descriptor would not.
  bool isConclusive = true;
};

// The dictionaries of files that are asked for over and over. A file is read anew only when it has
// changed, even if it cannot be read. One thread at a time reads a file; the others wait for it and
// take its result. Any thread.
class QBDKR_EXPORT DictionaryCache {
 public:
  // Reads a file, on a thread that asks for it and without a lock held.
  using Read = std::function<DictionaryReading(const std::string& path)>;

  // Bounds what is remembered: a number of files, and the memory that their dictionaries take. The
  // newest one is remembered even if it alone takes more.
  struct Capacity {
    std::size_t files;
    std::size_t bytes;
  };

  DictionaryCache(Read read, Capacity capacity);
  DictionaryCache(const DictionaryCache&) = delete;
  DictionaryCache& operator=(const DictionaryCache&) = delete;
  ~DictionaryCache();

  // Empty when the file holds no dictionary, null when there is no regular file. Blocks while the
  // file is read, and throws what reading it throws.
  [[nodiscard]] std::shared_ptr<const PropertyList::Dictionary> at(const std::string& path);

 private:
  class State;
  const std::unique_ptr<State> state_;
};

// The dictionary of one of the user's own files, settings for instance. As DictionaryCache::at().
[[nodiscard]] std::shared_ptr<const PropertyList::Dictionary> cachedDictionary(
    const std::string& path);

}  // namespace qbdkr
