#pragma once

#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include <ClientComm/PropertyList.h>

namespace qbdkr {

// One bundle of the system, as Bundle.cpp needs it. Any thread.
class NativeBundle {
 public:
  virtual ~NativeBundle() = default;

  [[nodiscard]] virtual std::string path() const = 0;

  // Return the information dictionary of the file, and the texts of the preferred localization that
  // replace its own. Called once, when the bundle is opened.
  [[nodiscard]] virtual PropertyList::Dictionary information() const = 0;
  [[nodiscard]] virtual PropertyList::Dictionary localizedTexts() const = 0;

  // Returns the path of the bundle's executable; absent if it does not have this plain name.
  [[nodiscard]] virtual std::optional<std::string> executable(const std::string& name) const = 0;

  // Returns the path of a resource NAME.TYPE, or NAME if the type is empty. Neither holds a NUL.
  [[nodiscard]] virtual std::optional<std::string> resource(std::string_view name,
                                                            std::string_view type) const = 0;

  [[nodiscard]] virtual std::vector<std::string> localizations() const = 0;
  [[nodiscard]] virtual std::vector<std::string> preferredLocalizations() const = 0;
};

// Open the bundle around the running executable, and that of an existing directory. Null if the
// system cannot open one.
[[nodiscard]] std::unique_ptr<const NativeBundle> openMainBundle();
[[nodiscard]] std::unique_ptr<const NativeBundle> openBundle(const std::string& path);

}  // namespace qbdkr
