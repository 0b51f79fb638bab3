#include <mutex>
#include <utility>

#include "Platform/Base/NeverDestroyed.h"
#include "Platform/Bundles/NativeBundle.h"
#include "Platform/Files/Files.h"
#include "Platform/PropertyLists/PropertyListConversionMacOS.h"
#include "Platform/Text/CoreFoundationTextMacOS.h"

namespace qbdkr {
namespace {

using Dictionary = PropertyList::Dictionary;

// Two of our bundles may share one object of the system, which is not documented as safe to use
// from two threads at a time.
std::mutex& oneAtATime() {
  static NeverDestroyed mutex([] { return std::mutex(); });
  return *mutex;
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

// The system's bundle of a directory. A program outside any bundle has one, too.
class SystemBundle final : public NativeBundle {
 public:
  SystemBundle(CFRef<CFBundleRef> bundle, std::string path, Dictionary info)
      : bundle_(std::move(bundle)), path_(std::move(path)), info_(std::move(info)) {}
  SystemBundle(const SystemBundle&) = delete;
  SystemBundle& operator=(const SystemBundle&) = delete;
  ~SystemBundle() override {
    const std::lock_guard lock(oneAtATime());
    bundle_ = {};
  }

  [[nodiscard]] std::string path() const override { return path_; }

  [[nodiscard]] Dictionary information() const override { return info_; }

  [[nodiscard]] Dictionary localizedTexts() const override {
    const std::lock_guard lock(oneAtATime());
    return dictionaryFrom(CFBundleGetLocalInfoDictionary(bundle_.get())).value_or(Dictionary());
  }

  // The system looks the name up itself, perhaps in an older dictionary than ours: the names must
  // agree.
  [[nodiscard]] std::optional<std::string> executable(const std::string& name) const override {
    const std::lock_guard lock(oneAtATime());
    const CFRef<CFURLRef> url(CFBundleCopyExecutableURL(bundle_.get()));
    auto path = pathFromURL(url.get());
    return path && lastPathComponent(*path) == name ? std::move(path) : std::nullopt;
  }

  [[nodiscard]] std::optional<std::string> resource(std::string_view name,
                                                    std::string_view type) const override {
    const auto resource = stringFromText(name);
    const auto extension = type.empty() ? CFRef<CFStringRef>() : stringFromText(type);
    if (!resource || (!type.empty() && !extension)) return std::nullopt;
    const std::lock_guard lock(oneAtATime());
    const CFRef<CFURLRef> url(
        CFBundleCopyResourceURL(bundle_.get(), resource.get(), extension.get(), nullptr));
    return pathFromURL(url.get());
  }

  [[nodiscard]] std::vector<std::string> localizations() const override {
    const std::lock_guard lock(oneAtATime());
    return textsOf(CFRef<CFArrayRef>(CFBundleCopyBundleLocalizations(bundle_.get())).get());
  }

  [[nodiscard]] std::vector<std::string> preferredLocalizations() const override {
    const std::lock_guard lock(oneAtATime());
    const CFRef<CFArrayRef> all(CFBundleCopyBundleLocalizations(bundle_.get()));
    if (!all) return {};
    const CFRef<CFArrayRef> preferred(CFBundleCopyPreferredLocalizationsFromArray(all.get()));
    return textsOf(preferred.get());
  }

 private:
  CFRef<CFBundleRef> bundle_;
  const std::string path_;
  const Dictionary info_;
};

}  // namespace

std::unique_ptr<const NativeBundle> openMainBundle() {
  const std::lock_guard lock(oneAtATime());
  auto bundle = CFRef<CFBundleRef>::retained(CFBundleGetMainBundle());
  if (!bundle) return nullptr;
  const CFRef<CFURLRef> url(CFBundleCopyBundleURL(bundle.get()));
  auto info = dictionaryFrom(CFBundleGetInfoDictionary(bundle.get()));
  return std::make_unique<SystemBundle>(std::move(bundle), pathFromURL(url.get()).value_or("/"),
                                        std::move(info).value_or(Dictionary()));
}

std::unique_ptr<const NativeBundle> openBundle(const std::string& path) {
  const auto url = directoryURL(path);
  if (!url) return nullptr;
  const std::lock_guard lock(oneAtATime());
  CFRef<CFBundleRef> bundle(CFBundleCreate(kCFAllocatorDefault, url.get()));
  if (!bundle) return nullptr;
  // Reads the directory, not the bundle's own dictionary: an object that is kept elsewhere would
  // still have the dictionary of files that were replaced since.
  const CFRef<CFDictionaryRef> info(CFBundleCopyInfoDictionaryInDirectory(url.get()));
  return std::make_unique<SystemBundle>(std::move(bundle), path,
                                        dictionaryFrom(info.get()).value_or(Dictionary()));
}

}  // namespace qbdkr
