#pragma once

#include <sys/types.h>

#include <filesystem>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "Platform/Events/DBus/SdBus.h"
#include "support/BusPolicy.h"
#include "support/ChildProcess.h"

namespace qbdkr::test {

// Runs a session bus by dbus-broker at a socket, and does for it what the system's service manager
// does on a desktop: hands it the socket and the policy, and starts the services.
class MessageBroker {
 public:
  // The services are the "NAME.service" files of the directory. Returns once it takes connections.
  MessageBroker(const std::filesystem::path& socket, const std::filesystem::path& services,
                const BusPolicy& policy);
  MessageBroker(const MessageBroker&) = delete;
  MessageBroker& operator=(const MessageBroker&) = delete;
  ~MessageBroker();

  [[nodiscard]] pid_t processID() const { return broker_->processID(); }

 private:
  void addListener(const std::filesystem::path& socket, const BusPolicy& policy);
  void addServices(const std::filesystem::path& directory);
  void run();
  static int onActivate(sd_bus_message* message, void* self, sd_bus_error* error);

  std::vector<std::vector<std::string>> commands_;  // of the services
  std::unique_ptr<ChildProcess> broker_;
  UniqueBus controller_;
  std::thread thread_;
};

}  // namespace qbdkr::test
