#include "Platform/Bundle.h"

#include <sys/stat.h>

#include <mutex>
#include <utility>

#include "Platform/BundleState.h"
#include "Platform/macOS/CoreFoundationText.h"
#include "Platform/macOS/PropertyListConversion.h"

namespace qbdkr {
namespace {

using Dictionary = PropertyList::Dictionary;

// Two bundles of ours may be one object of the system's, which nothing promises to be usable from
// two threads at a time.
std::mutex& oneAtATime() {
  static auto& mutex = *new std::mutex;
  return mutex;
}

bool isDirectory(const std::string& path) {
  struct stat status {};
  return stat(path.c_str(), &status) == 0 && S_ISDIR(status.st_mode);
}

std::shared_ptr<const void> keep(CFRef<CFBundleRef> bundle) {
  auto kept = std::make_shared<const CFRef<CFBundleRef>>(std::move(bundle));
  return {kept, kept->get()};
}

CFBundleRef bundleOf(const std::shared_ptr<const void>& native) {
  return static_cast<CFBundleRef>(const_cast<void*>(native.get()));
}

Dictionary withLocalTexts(CFBundleRef bundle, CFDictionaryRef info) {
  const auto texts = dictionaryFrom(CFBundleGetLocalInfoDictionary(bundle));
  return localizedInfo(dictionaryFrom(info).value_or(Dictionary()), texts.value_or(Dictionary()));
}

std::vector<std::string> textsOf(CFArrayRef array) {
  std::vector<std::string> texts;
  const CFIndex count = array == nullptr ? 0 : CFArrayGetCount(array);
  for (CFIndex i = 0; i < count; ++i) {
    const void* item = CFArrayGetValueAtIndex(array, i);
    if (CFGetTypeID(item) == CFStringGetTypeID()) {
      texts.push_back(textFromString(static_cast<CFStringRef>(item)));
    }
  }
  return texts;
}

CFRef<CFArrayRef> localizationsOf(CFBundleRef bundle) {
  return CFRef<CFArrayRef>(bundle == nullptr ? nullptr : CFBundleCopyBundleLocalizations(bundle));
}

}  // namespace

const Bundle& Bundle::main() {
  static const auto& bundle = *new Bundle([] {
    const std::lock_guard lock(oneAtATime());
    auto native = CFRef<CFBundleRef>::retained(CFBundleGetMainBundle());
    if (!native) return std::make_shared<const State>(State{"/", {}, nullptr});
    const CFRef<CFURLRef> url(CFBundleCopyBundleURL(native.get()));
    auto info = withLocalTexts(native.get(), CFBundleGetInfoDictionary(native.get()));
    return std::make_shared<const State>(
        State{pathFromURL(url.get()).value_or("/"), std::move(info), keep(std::move(native))});
  }());
  return bundle;
}

std::optional<Bundle> Bundle::withPath(const std::string& path) {
  const auto url = directoryURL(path);
  if (!url || !isDirectory(path)) return std::nullopt;
  const std::lock_guard lock(oneAtATime());
  CFRef<CFBundleRef> native(CFBundleCreate(kCFAllocatorDefault, url.get()));
  if (!native) return std::nullopt;
  // Not the bundle's own dictionary: an object that somebody has kept would still have the one of
  // the files that have been replaced since.
  const CFRef<CFDictionaryRef> read(CFBundleCopyInfoDictionaryInDirectory(url.get()));
  auto info = withLocalTexts(native.get(), read.get());
  return Bundle(
      std::make_shared<const State>(State{path, std::move(info), keep(std::move(native))}));
}

std::optional<std::string> Bundle::executablePath() const {
  auto* const native = bundleOf(state_->native);
  if (native == nullptr || !infoString(kCFBundleExecutableKey)) return std::nullopt;
  const std::lock_guard lock(oneAtATime());
  const CFRef<CFURLRef> url(CFBundleCopyExecutableURL(native));
  return pathFromURL(url.get());
}

std::optional<std::string> Bundle::pathForResource(std::string_view name,
                                                   std::string_view type) const {
  auto* const native = bundleOf(state_->native);
  const auto resource = stringFromText(name);
  const auto extension = type.empty() ? CFRef<CFStringRef>() : stringFromText(type);
  if (native == nullptr || !resource || (!type.empty() && !extension)) return std::nullopt;
  if (name.find('\0') != std::string_view::npos || type.find('\0') != std::string_view::npos) {
    return std::nullopt;
  }
  const std::lock_guard lock(oneAtATime());
  const CFRef<CFURLRef> url(
      CFBundleCopyResourceURL(native, resource.get(), extension.get(), nullptr));
  return pathFromURL(url.get());
}

std::vector<std::string> Bundle::localizations() const {
  const std::lock_guard lock(oneAtATime());
  return textsOf(localizationsOf(bundleOf(state_->native)).get());
}

std::vector<std::string> Bundle::preferredLocalizations() const {
  const std::lock_guard lock(oneAtATime());
  const auto all = localizationsOf(bundleOf(state_->native));
  if (!all) return {};
  const CFRef<CFArrayRef> preferred(CFBundleCopyPreferredLocalizationsFromArray(all.get()));
  return textsOf(preferred.get());
}

}  // namespace qbdkr
