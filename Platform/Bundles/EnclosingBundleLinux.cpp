#include "Platform/Bundles/EnclosingBundleLinux.h"

#include <mutex>
#include <utility>

#include "Platform/Base/FreeMemoryLinux.h"
#include "Platform/Base/NeverDestroyed.h"
#include "Platform/Bundles/DictionaryCacheLinux.h"
#include "Platform/Files/FileTree.h"
#include "Platform/Files/Files.h"
#include "Platform/PropertyLists/PropertyListBounds.h"
#include "Platform/PropertyLists/PropertyListReader.h"

namespace qbdkr {
namespace {

using Dictionary = PropertyList::Dictionary;

constexpr std::string_view deletedMark = " (deleted)";

std::string_view withoutDeletedMark(std::string_view executable) {
  if (executable.ends_with(deletedMark)) executable.remove_suffix(deletedMark.size());
  return executable;
}

// Reads the information of any program's bundle. What such a file can cost is bounded, and paid
// once at a time: several threads may walk the table of processes, and meet different files.
DictionaryReading readForeignInformation(const std::string& path) {
  static NeverDestroyed reading([] { return std::mutex(); });
  const std::lock_guard lock(*reading);
  auto contents = propertylist::contentsOfFile(path, propertylist::foreignBounds.bytes);
  if (!contents.bytes) return {std::nullopt, contents.isConclusive};
  const std::size_t size = contents.bytes->size();
  DictionaryReading result{propertylist::parseDictionary(*std::exchange(contents.bytes, {}),
                                                         propertylist::foreignBounds),
                           true};
  // Each thread that reads would keep as much for itself.
  if (size >= memoryPeak) releaseFreeMemory();
  return result;
}

std::shared_ptr<const Dictionary> foreignInformation(const std::string& path) {
  static constexpr DictionaryCache::Capacity capacity{256, std::size_t{2} << 20};
  static NeverDestroyed cache([] { return DictionaryCache(readForeignInformation, capacity); });
  return cache->at(path);
}

// Within the bounds of one's own files.
std::shared_ptr<const Dictionary> ownInformation(const std::string& path) {
  if (!isRegularFile(path)) return nullptr;
  return std::make_shared<const Dictionary>(readDictionaryFile(path).value_or(Dictionary()));
}

// The bundle of the nearest directory above an executable that has an information file.
template <class Information>
std::optional<EnclosingBundle> enclosingBundle(std::string_view executable,
                                               Information information) {
  // A path may have two thousand directories, and is followed anew for each.
  constexpr int furthest = 64;
  const std::string place = pathBeforeRemoval(withoutDeletedMark(executable));
  if (!place.starts_with('/')) return std::nullopt;
  std::string directory = directoryOf(place);
  for (int distance = 1; !directory.empty() && distance <= furthest; ++distance) {
    if (auto info = information(appendPathComponent(directory, informationFile))) {
      return EnclosingBundle{std::move(directory), std::move(info)};
    }
    directory = directoryOf(directory);
  }
  return std::nullopt;
}

}  // namespace

std::string directoryOf(const std::string& file) {
  const auto slash = file.rfind('/');
  return slash == std::string::npos ? "/" : file.substr(0, slash);
}

std::optional<EnclosingBundle> bundleOfExecutable(std::string_view executable) {
  return enclosingBundle(executable, foreignInformation);
}

std::optional<EnclosingBundle> ownBundleOfExecutable(std::string_view executable) {
  return enclosingBundle(executable, ownInformation);
}

std::string placeOfExecutable(std::string_view executable) {
  return pathBeforeRemoval(withoutDeletedMark(executable));
}

}  // namespace qbdkr
