#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <climits>
#include <memory>
#include <mutex>
#include <optional>
#include <utility>

#include "Platform/FileTree.h"
#include "Platform/Files.h"
#include "Platform/Linux/CachedDictionary.h"
#include "Platform/Linux/EnclosingBundle.h"
#include "Platform/Linux/Localization.h"
#include "Platform/Linux/MemoryRelief.h"
#include "Platform/NativeBundle.h"
#include "Platform/PropertyListFile.h"

namespace qbdkr {
namespace {

using Dictionary = PropertyList::Dictionary;

constexpr std::string_view informationFile = "Contents/Info.plist";
constexpr std::string_view deletedMark = " (deleted)";

bool isRegularFile(const std::string& path) {
  struct stat status {};
  return stat(path.c_str(), &status) == 0 && S_ISREG(status.st_mode);
}

std::string runningExecutable() {
  std::array<char, PATH_MAX> target{};
  const auto size = readlink("/proc/self/exe", target.data(), target.size());
  return {target.data(), size > 0 ? static_cast<std::size_t>(size) : 0};
}

std::string directoryOf(const std::string& file) {
  const auto slash = file.rfind('/');
  return slash == std::string::npos ? "/" : file.substr(0, slash);
}

std::string_view withoutDeletedMark(std::string_view executable) {
  if (executable.ends_with(deletedMark)) executable.remove_suffix(deletedMark.size());
  return executable;
}

// Reads the information of any program's bundle. What such a file can cost is bounded, and paid
// once at a time: several threads may walk the table of processes, and meet different files.
DictionaryReading readForeignInformation(const std::string& path) {
  static auto& reading = *new std::mutex;
  const std::lock_guard lock(reading);
  auto contents = propertylist::contentsOfFile(path, propertylist::foreignBounds.bytes);
  if (!contents.bytes) return {std::nullopt, contents.isConclusive};
  const std::size_t size = contents.bytes->size();
  DictionaryReading result{propertylist::parseDictionary(*std::exchange(contents.bytes, {}),
                                                         propertylist::foreignBounds),
                           true};
  // Each thread that reads would keep as much for itself.
  releaseFreeMemoryAfterUseOf(size);
  return result;
}

std::shared_ptr<const Dictionary> foreignInformation(const std::string& path) {
  constexpr DictionaryCache::Capacity capacity{256, std::size_t{2} << 20};
  static auto& cache = *new DictionaryCache(readForeignInformation, capacity);
  return cache.at(path);
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

// A directory with its information in "Contents/Info.plist" and its resources in
// "Contents/Resources".
class DirectoryBundle final : public NativeBundle {
 public:
  DirectoryBundle(std::string path, Dictionary info)
      : path_(std::move(path)),
        resources_(appendPathComponent(path_, "Contents/Resources")),
        info_(std::move(info)) {}

  [[nodiscard]] std::string path() const override { return path_; }

  [[nodiscard]] Dictionary information() const override { return info_; }

  [[nodiscard]] Dictionary localizedTexts() const override {
    const auto languages = preferredLocalizations();
    if (languages.empty()) return {};
    const std::string folder = folderOf(languages.front());
    return readDictionaryFile(appendPathComponent(folder, "InfoPlist.strings"))
        .value_or(Dictionary());
  }

  [[nodiscard]] std::optional<std::string> executable(const std::string& name) const override {
    std::string path = appendPathComponent(appendPathComponent(path_, "Contents/Linux"), name);
    if (!isRegularFile(path)) return std::nullopt;
    return path;
  }

  [[nodiscard]] std::optional<std::string> resource(std::string_view name,
                                                    std::string_view type) const override {
    std::string file(name);
    if (!type.empty()) file.append(".").append(type);
    std::string path = appendPathComponent(resources_, file);
    if (fileExists(path)) return path;
    for (const std::string& language : preferredLocalizations()) {
      path = appendPathComponent(folderOf(language), file);
      if (fileExists(path)) return path;
    }
    return std::nullopt;
  }

  [[nodiscard]] std::vector<std::string> localizations() const override {
    return localizationsIn(resources_);
  }

  [[nodiscard]] std::vector<std::string> preferredLocalizations() const override {
    return preferredLanguages(localizations(), info_);
  }

 private:
  [[nodiscard]] std::string folderOf(const std::string& language) const {
    return appendPathComponent(resources_, language + ".lproj");
  }

  const std::string path_;
  const std::string resources_;
  const Dictionary info_;
};

}  // namespace

std::unique_ptr<const NativeBundle> openMainBundle() {
  const std::string executable = runningExecutable();
  if (const auto enclosing = enclosingBundle(executable, ownInformation)) {
    return std::make_unique<DirectoryBundle>(enclosing->path, *enclosing->info);
  }
  return std::make_unique<DirectoryBundle>(directoryOf(executable), Dictionary());
}

std::unique_ptr<const NativeBundle> openBundle(const std::string& path) {
  auto info = readDictionaryFile(appendPathComponent(path, informationFile));
  return std::make_unique<DirectoryBundle>(path, std::move(info).value_or(Dictionary()));
}

std::optional<EnclosingBundle> bundleOfExecutable(std::string_view executable) {
  return enclosingBundle(executable, foreignInformation);
}

std::string placeOfExecutable(std::string_view executable) {
  return pathBeforeRemoval(withoutDeletedMark(executable));
}

}  // namespace qbdkr
