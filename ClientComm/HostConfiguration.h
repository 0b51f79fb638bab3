#pragma once

#include <string>

#include <ClientComm/Bundle.h>
#include <ClientComm/Export.h>
#include <ClientComm/TextValue.h>

namespace qbdkr {

// What a host's information dictionary says: of the product, and of the helper agent. Reads the
// dictionary that the bundle holds in memory, and no file unless a call says so. A plain value;
// usable from any thread.
class QBDKR_EXPORT HostConfiguration {
 public:
  explicit HostConfiguration(Bundle host = Bundle::main());

  [[nodiscard]] const Bundle& host() const { return host_; }
  [[nodiscard]] String productID() const;
  [[nodiscard]] String productVersion() const;

  [[nodiscard]] String helperIdentifier() const;
  // The helper agent's bundle among the host's resources; absent if it is missing. Blocks for the
  // file system.
  [[nodiscard]] String helperResource() const;
  // The directory to install the helper agent into, without a leading "~".
  [[nodiscard]] String installDirectory() const;
  // The path of the installed copy; absent if its name or the directory is missing.
  [[nodiscard]] String installedHelper() const;
  // Whether requests may reach the installed copy alone.
  [[nodiscard]] bool requiresInstalledHelper() const;

 private:
  [[nodiscard]] String helperName() const;

  Bundle host_;
};

}  // namespace qbdkr
