#pragma once

#include <functional>
#include <mutex>

#include <ClientComm/TextValue.h>

namespace qbdkr {

// Reads the names in a bundle identifier, com.MAKER.PRODUCT, and caches each. Any thread.
class HostNames {
 public:
  // Takes a function that returns the bundle identifier; absent if the host has none. It is called
  // until both names are cached.
  explicit HostNames(std::function<String()> bundleIdentifier);

  // Return the names as QBHPConfig does.
  String brandName();
  String helperName();

 private:
  std::function<String()> bundleIdentifier_;
  std::mutex mutex_;
  String brandName_;
  String helperName_;
};

}  // namespace qbdkr
