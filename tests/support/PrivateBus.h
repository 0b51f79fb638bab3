#pragma once

#include <filesystem>
#include <memory>
#include <string>

#include "support/ChildProcess.h"

namespace qbdkr::test {

// Runs a session bus at a socket in a directory.
class PrivateBus {
 public:
  // The policy is XML with rules after those that allow everything.
  PrivateBus(std::filesystem::path directory, std::string policy = "");

  [[nodiscard]] const std::string& address() const { return address_; }
  // Returns the directory of the "NAME.service" files, the services that the bus starts on demand.
  [[nodiscard]] std::filesystem::path serviceDirectory() const { return directory_ / "services"; }

  [[nodiscard]] pid_t daemonProcess() const { return daemon_->processID(); }

  // Kills the daemon.
  void kill();
  // Starts the daemon at the same address, and returns once it accepts connections.
  void start();

 private:
  std::filesystem::path directory_;
  std::string policy_;
  std::string address_;
  std::unique_ptr<ChildProcess> daemon_;
};

}  // namespace qbdkr::test
