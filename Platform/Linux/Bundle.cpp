#include "Platform/Bundle.h"

#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <climits>

#include "Platform/BundleState.h"
#include "Platform/Files.h"
#include "Platform/Linux/CachedDictionary.h"
#include "Platform/Linux/EnclosingBundle.h"
#include "Platform/Linux/Localization.h"

namespace qbdkr {
namespace {

using Dictionary = PropertyList::Dictionary;

constexpr std::string_view informationFile = "Contents/Info.plist";
constexpr std::string_view deletedMark = " (deleted)";

bool isDirectory(const std::string& path) {
  struct stat status {};
  return stat(path.c_str(), &status) == 0 && S_ISDIR(status.st_mode);
}

bool isRegularFile(const std::string& path) {
  struct stat status {};
  return stat(path.c_str(), &status) == 0 && S_ISREG(status.st_mode);
}

std::string runningExecutable() {
  std::array<char, PATH_MAX> target{};
  const auto size = readlink("/proc/self/exe", target.data(), target.size());
  return {target.data(), size > 0 ? static_cast<std::size_t>(size) : 0};
}

std::string_view withoutDeletedMark(std::string_view executable) {
  if (executable.ends_with(deletedMark)) executable.remove_suffix(deletedMark.size());
  return executable;
}

// A name that leads nowhere but into the directory it is looked up in.
bool isPlainName(std::string_view name) {
  return !name.empty() && name != "." && name != ".." &&
         name.find_first_of(std::string_view("/\0", 2)) == std::string_view::npos;
}

std::string resourcesOf(const std::string& bundlePath) {
  return appendPathComponent(bundlePath, "Contents/Resources");
}

std::string folderOf(const std::string& resources, const std::string& language) {
  return appendPathComponent(resources, language + ".lproj");
}

Dictionary localizedInfoAt(const std::string& bundlePath, Dictionary info) {
  const std::string resources = resourcesOf(bundlePath);
  const auto languages = preferredLanguages(localizationsIn(resources), info);
  if (languages.empty()) return info;
  const std::string folder = folderOf(resources, languages.front());
  const auto texts = readDictionaryFile(appendPathComponent(folder, "InfoPlist.strings"));
  return texts ? localizedInfo(std::move(info), *texts) : info;
}

}  // namespace

const Bundle& Bundle::main() {
  static const auto& bundle = *new Bundle([] {
    const std::string executable = runningExecutable();
    if (const auto enclosing = bundleOfExecutable(executable)) {
      return std::make_shared<const State>(
          State{enclosing->path, localizedInfoAt(enclosing->path, *enclosing->info), nullptr});
    }
    const auto slash = executable.rfind('/');
    return std::make_shared<const State>(
        State{slash == std::string::npos ? "/" : executable.substr(0, slash), {}, nullptr});
  }());
  return bundle;
}

std::optional<Bundle> Bundle::withPath(const std::string& path) {
  if (!isDirectory(path)) return std::nullopt;
  auto info = readDictionaryFile(appendPathComponent(path, informationFile));
  return Bundle(std::make_shared<const State>(
      State{path, localizedInfoAt(path, std::move(info).value_or(Dictionary())), nullptr}));
}

std::optional<std::string> Bundle::executablePath() const {
  const auto name = infoString(kCFBundleExecutableKey);
  if (!name || !isPlainName(*name)) return std::nullopt;
  std::string path =
      appendPathComponent(appendPathComponent(state_->path, "Contents/Linux"), *name);
  if (!isRegularFile(path)) return std::nullopt;
  return path;
}

std::optional<std::string> Bundle::pathForResource(std::string_view name,
                                                   std::string_view type) const {
  std::string file(name);
  if (!type.empty()) file.append(".").append(type);
  if (file.find('\0') != std::string::npos) return std::nullopt;
  const std::string resources = resourcesOf(state_->path);
  std::string path = appendPathComponent(resources, file);
  if (fileExists(path)) return path;
  for (const std::string& language : preferredLocalizations()) {
    path = appendPathComponent(folderOf(resources, language), file);
    if (fileExists(path)) return path;
  }
  return std::nullopt;
}

std::vector<std::string> Bundle::localizations() const {
  return localizationsIn(resourcesOf(state_->path));
}

std::vector<std::string> Bundle::preferredLocalizations() const {
  return preferredLanguages(localizations(), state_->info);
}

std::optional<EnclosingBundle> bundleOfExecutable(std::string_view executable) {
  const std::string place = pathBeforeRemoval(withoutDeletedMark(executable));
  executable = place;
  if (!executable.starts_with('/')) return std::nullopt;
  for (auto slash = executable.rfind('/'); slash != std::string_view::npos && slash > 0;
       slash = executable.rfind('/', slash - 1)) {
    std::string directory(executable.substr(0, slash));
    const std::string path = appendPathComponent(directory, informationFile);
    if (auto info = cachedDictionary(path))
      return EnclosingBundle{std::move(directory), std::move(info)};
  }
  return std::nullopt;
}

}  // namespace qbdkr
