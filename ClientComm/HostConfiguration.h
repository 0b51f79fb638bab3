#pragma once

#include <string_view>

#include <ClientComm/Bundle.h>
#include <ClientComm/Export.h>
#include <ClientComm/TextValue.h>

namespace qbdkr {

// Reads a host's configuration of the product and the helper agent from the information dictionary
// of its bundle, which is in memory: no call blocks unless it says so. A plain value. Any thread.
class QBDKR_EXPORT HostConfiguration {
 public:
  explicit HostConfiguration(Bundle host = Bundle::main());

  [[nodiscard]] const Bundle& host() const { return host_; }
  [[nodiscard]] String productID() const;
  [[nodiscard]] String productVersion() const;

  [[nodiscard]] String helperIdentifier() const;
  // Returns the name of the helper agent's bundle, without ".app".
  [[nodiscard]] String helperName() const;
  // Returns the path of the helper agent's bundle among the host's resources; absent if it is
  // missing. Blocks for the file system.
  [[nodiscard]] String helperResource() const;
  // Returns the directory to install the helper agent into, a leading "~" expanded.
  [[nodiscard]] String installDirectory() const;
  // Returns the path of the installed copy, there or not; absent if the configuration lacks its
  // name or directory.
  [[nodiscard]] String installedHelper() const;
  // Tells whether requests may reach only the installed copy.
  [[nodiscard]] bool requiresInstalledHelper() const;
  // Tells whether the helper agent is supervised from the start.
  [[nodiscard]] bool supervisesHelper() const;
  // Tells whether the helper agent is started in a scope of its own, where the system has those.
  [[nodiscard]] bool putsHelperInOwnScope() const;

  // Adds to the record how each key was read, with its spelling.
  void recordKeys() const;

 private:
  [[nodiscard]] bool flag(std::string_view key) const;

  Bundle host_;
};

}  // namespace qbdkr
