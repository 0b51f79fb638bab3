#pragma once

#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "Platform/PropertyLists/PropertyList.h"

namespace qbdkr {

// What Bundle.cpp asks of the system about one bundle. Any thread.
class NativeBundle {
 public:
  virtual ~NativeBundle() = default;

  [[nodiscard]] virtual std::string path() const = 0;

  // The information dictionary of the file, and the texts of the preferred localization that stand
  // over it. Asked for once, when the bundle is opened.
  [[nodiscard]] virtual PropertyList::Dictionary information() const = 0;
  [[nodiscard]] virtual PropertyList::Dictionary localizedTexts() const = 0;

  // The executable of the bundle, which has that plain name.
  [[nodiscard]] virtual std::optional<std::string> executable(const std::string& name) const = 0;

  // A resource NAME.TYPE, or NAME for an empty type. Neither holds a NUL.
  [[nodiscard]] virtual std::optional<std::string> resource(std::string_view name,
                                                            std::string_view type) const = 0;

  [[nodiscard]] virtual std::vector<std::string> localizations() const = 0;
  [[nodiscard]] virtual std::vector<std::string> preferredLocalizations() const = 0;
};

// The bundle around the running executable, and that of a directory that exists. Null when the
// system can make none.
[[nodiscard]] std::unique_ptr<const NativeBundle> openMainBundle();
[[nodiscard]] std::unique_ptr<const NativeBundle> openBundle(const std::string& path);

}  // namespace qbdkr
