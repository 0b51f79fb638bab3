#pragma once

#include <memory>
#include <string>

#include "Platform/Bundle.h"

namespace qbdkr {

struct Bundle::State {
  std::string path;
  PropertyList::Dictionary info;
  // What the system itself holds of the bundle, where it has such a thing.
  std::shared_ptr<const void> native;
};

// The information dictionary with the texts of a language over its own.
[[nodiscard]] PropertyList::Dictionary localizedInfo(PropertyList::Dictionary info,
                                                     const PropertyList::Dictionary& texts);

}  // namespace qbdkr
