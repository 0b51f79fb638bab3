#include "Platform/Bundles/EnclosingBundleLinux.h"

#include <fcntl.h>
#include <unistd.h>

#include <array>
#include <filesystem>
#include <mutex>
#include <system_error>
#include <utility>

#include <ClientComm/Bundle.h>

#include "Platform/Base/Descriptor.h"
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

// Reads the information of any program's bundle. The cost of such a file is bounded, and only one
// is read at a time: several threads may walk the process table, and find different files.
DictionaryReading readForeignInformation(const std::string& path) {
  static NeverDestroyed reading([] { return std::mutex(); });
  const std::lock_guard lock(*reading);
  auto contents = propertylist::contentsOfFile(path, propertylist::foreignBounds.bytes);
  if (!contents.bytes) return {std::nullopt, contents.isConclusive};
  const std::size_t size = contents.bytes->size();
  DictionaryReading result{propertylist::parseDictionary(*std::exchange(contents.bytes, {}),
                                                         propertylist::foreignBounds),
                           true};
  // Otherwise each thread that reads would keep as much for itself.
  if (size >= memoryPeak) releaseFreeMemory();
  return result;
}

std::shared_ptr<const Dictionary> foreignInformation(const std::string& path) {
  static constexpr DictionaryCache::Capacity capacity{256, std::size_t{2} << 20};
  static NeverDestroyed cache([] { return DictionaryCache(readForeignInformation, capacity); });
  return cache->at(path);
}

// The path comes from another program's bundle: opening a device may have effects.
bool isScript(const std::string& path) {
  if (!isRegularFile(path)) return false;
  const Descriptor file(::open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY));
  std::array<char, 2> start{};
  return file && ::read(file.get(), start.data(), start.size()) == 2 && start[0] == '#' &&
         start[1] == '!';
}

// Applies the bounds for a host's own files.
std::shared_ptr<const Dictionary> ownInformation(const std::string& path) {
  if (!isRegularFile(path)) return nullptr;
  return std::make_shared<const Dictionary>(readDictionaryFile(path).value_or(Dictionary()));
}

void addTo(PlacesOutsideBundles& outside, std::string_view directory) {
  constexpr std::size_t most = 512;
  constexpr std::size_t longest = 256;
  if (outside.size() < most && directory.size() <= longest) outside.emplace(directory);
}

// Returns the bundle of the nearest directory above an executable that has an information file.
template <class Information>
std::optional<EnclosingBundle> enclosingBundle(std::string_view executable,
                                               const Information& information,
                                               PlacesOutsideBundles& outside) {
  // A path may have two thousand directories, and is resolved anew for each.
  constexpr int furthest = 64;
  const std::string place = pathBeforeRemoval(withoutDeletedMark(executable));
  if (!place.starts_with('/')) return std::nullopt;
  const auto nearest = directoryOf(place);
  auto directory = nearest;
  for (int distance = 1; !directory.empty() && !outside.contains(directory); ++distance) {
    if (distance > furthest) return std::nullopt;
    if (auto info = information(appendPathComponent(std::string(directory), informationFile))) {
      return EnclosingBundle{std::string(directory), std::move(info)};
    }
    directory = directoryOf(directory);
  }
  for (auto one = nearest; one != directory; one = directoryOf(one)) addTo(outside, one);
  return std::nullopt;
}

}  // namespace

std::string_view directoryOf(std::string_view file) {
  const auto slash = file.rfind('/');
  return slash == std::string_view::npos ? "/" : file.substr(0, slash);
}

std::optional<EnclosingBundle> bundleOfExecutable(std::string_view executable) {
  PlacesOutsideBundles none;
  return bundleOfExecutable(executable, none);
}

std::optional<EnclosingBundle> bundleOfExecutable(std::string_view executable,
                                                  PlacesOutsideBundles& outside) {
  return enclosingBundle(executable, foreignInformation, outside);
}

std::optional<EnclosingBundle> ownBundleOfExecutable(std::string_view executable) {
  PlacesOutsideBundles none;
  return enclosingBundle(executable, ownInformation, none);
}

bool isApplication(const EnclosingBundle& bundle, std::string_view executable) {
  const auto name = bundle.info->text(kCFBundleExecutableKey);
  if (!name || name->find('/') != std::string::npos) return true;
  const std::string own =
      appendPathComponent(appendPathComponent(bundle.path, programFolder), *name);
  const std::string place = placeOfExecutable(executable);
  if (place == own) return true;
  std::error_code error;
  const auto resolved = std::filesystem::canonical(own, error);
  return !error && (resolved == place || isScript(own));
}

std::string placeOfExecutable(std::string_view executable) {
  return pathBeforeRemoval(withoutDeletedMark(executable));
}

}  // namespace qbdkr
