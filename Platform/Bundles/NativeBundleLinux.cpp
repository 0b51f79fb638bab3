#include <unistd.h>

#include <array>
#include <climits>
#include <memory>
#include <optional>
#include <utility>

#include "Platform/Bundles/EnclosingBundleLinux.h"
#include "Platform/Bundles/LocalizationLinux.h"
#include "Platform/Bundles/NativeBundle.h"
#include "Platform/Files/Files.h"
#include "Platform/PropertyLists/PropertyListReader.h"

namespace qbdkr {
namespace {

using Dictionary = PropertyList::Dictionary;

std::string runningExecutable() {
  std::array<char, PATH_MAX> target{};
  const auto size = readlink("/proc/self/exe", target.data(), target.size());
  return {target.data(), size > 0 ? static_cast<std::size_t>(size) : 0};
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
    std::string path = appendPathComponent(appendPathComponent(path_, programFolder), name);
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
  if (const auto enclosing = ownBundleOfExecutable(executable)) {
    return std::make_unique<DirectoryBundle>(enclosing->path, *enclosing->info);
  }
  return std::make_unique<DirectoryBundle>(std::string(directoryOf(executable)), Dictionary());
}

std::unique_ptr<const NativeBundle> openBundle(const std::string& path) {
  auto info = readDictionaryFile(appendPathComponent(path, informationFile));
  return std::make_unique<DirectoryBundle>(path, std::move(info).value_or(Dictionary()));
}

}  // namespace qbdkr
