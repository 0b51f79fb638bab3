#pragma once

#include <filesystem>
#include <memory>
#include <string>
#include <vector>

#include "support/ChildProcess.h"

namespace qbdkr::test {

// Runs a service manager of a user, apart from that of the machine: systemd in mounts and a control
// group of its own, with no units but a bus and those that a test starts. Needs root. Its
// destructor kills all that it runs.
class ServiceManager {
 public:
  // Returns why it cannot be run here; empty if it can.
  [[nodiscard]] static std::string obstacle();

  // Runs it, with the bus of the user, in an environment. DIRECTORY is for its own files.
  ServiceManager(const std::filesystem::path& directory, const Environment& environment);
  ServiceManager(const ServiceManager&) = delete;
  ServiceManager& operator=(const ServiceManager&) = delete;
  ~ServiceManager();

  // Returns the address of the bus of the user, which the manager is on.
  [[nodiscard]] std::string busAddress() const;
  // Returns options that run a program as a service of the manager, in the environment that they
  // have.
  [[nodiscard]] SpawnOptions asService(const std::string& name, SpawnOptions options) const;
  // Stops a unit, and returns when its last process has ended.
  void stop(const std::string& unit) const;
  // Returns the control group of a process, below that of the manager.
  [[nodiscard]] std::string placeOf(pid_t process) const;

 private:
  [[nodiscard]] bool isReady() const;

  Environment environment_;
  std::string group_;
  std::unique_ptr<ChildProcess> process_;
};

}  // namespace qbdkr::test
