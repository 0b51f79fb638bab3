#pragma once

#include <chrono>
#include <memory>
#include <optional>
#include <string>

#include <ClientComm/Status.h>

#include "Platform/Events/DBus/SdBus.h"

namespace qbdkr {

// Asks the bus for the owner of a name, and finds out whether its executable lies in a directory,
// without waiting: the answers come while the connection is processed. Used under the lock of the
// connection.
class OwnerInquiry {
 public:
  using Clock = std::chrono::steady_clock;

  OwnerInquiry(std::shared_ptr<sd_bus> bus, std::string name, std::string directory);
  OwnerInquiry(const OwnerInquiry&) = delete;
  OwnerInquiry& operator=(const OwnerInquiry&) = delete;
  ~OwnerInquiry() = default;

  [[nodiscard]] bool isAbout(const std::string& name, const std::string& directory) const {
    return name == name_ && directory == directory_;
  }

  // Returns the status: 0 if the owner's executable lies there. Absent until it is known.
  [[nodiscard]] std::optional<OSErr> outcome() const { return outcome_; }
  // Returns the owner's address, which stays the one of the process that was checked.
  [[nodiscard]] const std::string& address() const { return address_; }
  // Returns when the bus has had its time.
  [[nodiscard]] Clock::time_point deadline() const { return deadline_; }

 private:
  void ask(const char* method, const std::string& name, sd_bus_message_handler_t onAnswer);
  static int onAddress(sd_bus_message* message, void* self, sd_bus_error* error);
  static int onProcess(sd_bus_message* message, void* self, sd_bus_error* error);

  const std::shared_ptr<sd_bus> bus_;  // outlives the slot
  const std::string name_;
  const std::string directory_;
  const Clock::time_point deadline_;
  std::string address_;
  std::optional<OSErr> outcome_;
  BusSlot slot_;
};

}  // namespace qbdkr
