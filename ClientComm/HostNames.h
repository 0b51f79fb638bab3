#pragma once

#include <functional>
#include <mutex>

#include <ClientComm/TextValue.h>

namespace qbdkr {

// The names that a bundle identifier holds: com.MAKER.PRODUCT. Each is kept from the first call
// that has a value. Any thread.
class HostNames {
 public:
  // Gives the bundle identifier, absent if the host has none. Called until the names are kept.
  explicit HostNames(std::function<String()> bundleIdentifier);

  // As QBHPConfig says.
  String brandName();
  String helperName();

 private:
  std::function<String()> bundleIdentifier_;
  std::mutex mutex_;
  String brandName_;
  String helperName_;
};

}  // namespace qbdkr
