#include <utility>

#include <ClientComm/Bundle.h>

#include "Platform/Base/NeverDestroyed.h"
#include "Platform/Bundles/NativeBundle.h"
#include "Platform/Files/Files.h"
#include "Platform/PropertyLists/FileRewrite.h"

namespace qbdkr {
namespace {

using Dictionary = PropertyList::Dictionary;

bool hasNUL(std::string_view text) { return text.find('\0') != std::string_view::npos; }

// Accepts only a name that cannot lead out of the directory in which it is looked up.
bool isPlainName(std::string_view name) {
  return !name.empty() && name != "." && name != ".." && !hasNUL(name) &&
         name.find('/') == std::string_view::npos;
}

// Returns the information dictionary, in which localized texts replace its own.
Dictionary localizedInfo(const NativeBundle& bundle) {
  Dictionary info = bundle.information();
  const Dictionary texts = bundle.localizedTexts();
  if (texts.empty()) return info;
  std::vector<Dictionary::Entry> entries(info.begin(), info.end());
  entries.insert(entries.end(), texts.begin(), texts.end());
  return Dictionary::fromEntries(std::move(entries));
}

// Restores files first: a process that was killed while it wrote switches may have damaged the
// bundle's information, or the localized texts, which are read after this.
std::unique_ptr<const NativeBundle> openRecoveredMainBundle() {
  auto native = openMainBundle();
  if (!native) return nullptr;
  const std::string contents = appendPathComponent(native->path(), "Contents");
  if (recoverFilesIn(contents)) native = openMainBundle();
  if (!native) return nullptr;
  for (const std::string& language : native->preferredLocalizations()) {
    recoverFilesIn(appendPathComponent(contents, "Resources/" + language + ".lproj"));
  }
  return native;
}

}  // namespace

struct Bundle::State {
  explicit State(std::unique_ptr<const NativeBundle> opened)
      : native(std::move(opened)),
        path(native ? native->path() : "/"),
        info(native ? localizedInfo(*native) : Dictionary()) {}

  const std::unique_ptr<const NativeBundle> native;  // null if the process has none
  const std::string path;
  const Dictionary info;
};

const Bundle& Bundle::main() {
  static NeverDestroyed bundle(
      [] { return Bundle(std::make_shared<const State>(openRecoveredMainBundle())); });
  return *bundle;
}

std::optional<Bundle> Bundle::withPath(const std::string& path) {
  if (hasNUL(path) || !isDirectory(path)) return std::nullopt;
  auto native = openBundle(path);
  if (!native) return std::nullopt;
  return Bundle(std::make_shared<const State>(std::move(native)));
}

const std::string& Bundle::bundlePath() const { return state_->path; }

const PropertyList* Bundle::objectForInfoDictionaryKey(std::string_view key) const {
  return state_->info.find(key);
}

std::optional<std::string> Bundle::infoString(std::string_view key) const {
  return state_->info.text(key);
}

std::optional<std::string> Bundle::executablePath() const {
  const auto name = infoString(kCFBundleExecutableKey);
  if (!state_->native || !name || !isPlainName(*name)) return std::nullopt;
  return state_->native->executable(*name);
}

std::optional<std::string> Bundle::pathForResource(std::string_view name,
                                                   std::string_view type) const {
  if (!state_->native || hasNUL(name) || hasNUL(type)) return std::nullopt;
  return state_->native->resource(name, type);
}

std::vector<std::string> Bundle::localizations() const {
  if (!state_->native) return {};
  return state_->native->localizations();
}

std::vector<std::string> Bundle::preferredLocalizations() const {
  if (!state_->native) return {};
  return state_->native->preferredLocalizations();
}

}  // namespace qbdkr
