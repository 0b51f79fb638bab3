#pragma once

#include <string>
#include <utility>

#include <ClientComm/PropertyList.h>

#include "macos/doubles/CFObject.h"

namespace doubles {

// Holds an integer of more than 64 bits or a real number, as the system does.
struct CFNumber final : CFObject {
  explicit CFNumber(qbdkr::PropertyList::Integer value)
      : CFObject(CFKind::number), integer(value) {}
  explicit CFNumber(double value) : CFObject(CFKind::number), isReal(true), real(value) {}
  const bool isReal = false;
  const qbdkr::PropertyList::Integer integer;
  const double real = 0;
};

struct CFData final : CFObject {
  explicit CFData(std::string contents) : CFObject(CFKind::data), bytes(std::move(contents)) {}
  const std::string bytes;
};

}  // namespace doubles
