#pragma once

#include <filesystem>
#include <memory>
#include <string>

#include "support/BusPolicy.h"
#include "support/ChildProcess.h"
#include "support/MessageBroker.h"

namespace qbdkr::test {

// Runs a session bus at a socket in a directory: dbus-daemon, or dbus-broker if QBDKR_TEST_BUS
// names that.
class PrivateBus {
 public:
  explicit PrivateBus(std::filesystem::path directory, BusPolicy policy = {});

  // Tells which of the two it is.
  [[nodiscard]] static bool isBroker();

  [[nodiscard]] const std::string& address() const { return address_; }
  // Returns the directory of the "NAME.service" files, the services that the bus starts on demand.
  [[nodiscard]] std::filesystem::path serviceDirectory() const { return directory_ / "services"; }

  [[nodiscard]] pid_t daemonProcess() const;

  // Kills the daemon.
  void kill();
  // Starts the daemon at the same address, and returns once it accepts connections.
  void start();

 private:
  void startDaemon();

  std::filesystem::path directory_;
  BusPolicy policy_;
  std::string address_;
  std::unique_ptr<ChildProcess> daemon_;
  std::unique_ptr<MessageBroker> broker_;
};

}  // namespace qbdkr::test
