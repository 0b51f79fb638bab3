#pragma once

#include <atomic>
#include <ctime>
#include <functional>
#include <optional>
#include <string>

#include <ClientComm/TextValue.h>

#include "ClientComm/HostConfiguration.h"

namespace qbdkr {

class UserDefaults;

// The records that starts leave in the host's user defaults. Every call blocks for the settings, as
// UserDefaults says. Any thread.
class StartRecords {
 public:
  StartRecords(HostConfiguration host, UserDefaults& settings, std::function<std::time_t()> now);

  // Records the product that starts: its identifier, its version and the bundle's path.
  void recordProduct();

  // The product identifier of the first start ever; the first call records its own.
  String firstStartPID();

  // The product identifier under which usage data is collected: the one that was set, or else that
  // of the first start.
  String collectDataPID();
  void setCollectDataPID(Text productID);

  // Records the folder for usage data. Stored on return unless another process holds the settings.
  void recordDataFolder(const std::string& folder);

  // Records the time of the first start, once in the life of the settings. Does nothing while
  // another thread is at it.
  void recordInstallTime();

 private:
  HostConfiguration host_;
  UserDefaults& settings_;
  std::function<std::time_t()> now_;
  std::atomic_flag recordsInstallTime_;
};

// Makes the folder Log in a directory, and returns the path of the folder Data in it if that is
// missing. Absent without a directory. Blocks for the file system.
[[nodiscard]] std::optional<std::string> missingDataFolder(Text directory);

}  // namespace qbdkr
