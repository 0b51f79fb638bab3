#pragma once

#include <filesystem>
#include <memory>
#include <string>

#include "support/ChildProcess.h"

namespace qbdkr::test {

// A session bus of its own, at a socket in a directory.
class PrivateBus {
 public:
  // The policy rules are XML that goes behind "everything is allowed"; services are the files that
  // the bus may start on demand.
  PrivateBus(std::filesystem::path directory, std::string policy = "");

  [[nodiscard]] const std::string& address() const { return address_; }
  // Where "NAME.service" files are looked up.
  [[nodiscard]] std::filesystem::path serviceDirectory() const { return directory_ / "services"; }

  [[nodiscard]] pid_t daemonProcess() const { return daemon_->processID(); }

  // Ends the daemon without any farewell.
  void kill();
  // Starts it at the same address, and returns when it can be connected to.
  void start();

 private:
  std::filesystem::path directory_;
  std::string policy_;
  std::string address_;
  std::unique_ptr<ChildProcess> daemon_;
};

}  // namespace qbdkr::test
