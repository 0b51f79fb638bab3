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

// Keeps the records of starts in the host's user defaults. Every call blocks for the settings as
// UserDefaults does. Any thread.
class StartRecords {
 public:
  StartRecords(HostConfiguration host, UserDefaults& settings, std::function<std::time_t()> now);

  // Records the starting product: its identifier, its version and the bundle's path.
  void recordProduct();

  // Returns the product identifier of the first start ever. The first call records the current one.
  String firstStartPID();

  // Return and set the product identifier under which usage data is collected; that of the first
  // start unless another one is set. An absent identifier removes the record.
  String collectDataPID();
  void setCollectDataPID(Text productID);

  // Records the folder for usage data. Stored on return unless others hold the settings.
  void recordDataFolder(const std::string& folder);

  // Records the time of the first start, once in the life of the settings. Does nothing while
  // another thread does so.
  void recordInstallTime();

 private:
  HostConfiguration host_;
  UserDefaults& settings_;
  std::function<std::time_t()> now_;
  std::atomic_flag recordsInstallTime_;
};

// Makes the folder Log in a directory, and returns the path of the folder Data in it. Absent if
// that exists, or if the directory is absent or empty. Blocks for the file system. Any thread.
[[nodiscard]] std::optional<std::string> missingDataFolder(Text directory);

}  // namespace qbdkr
