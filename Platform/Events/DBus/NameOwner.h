#pragma once

#include <poll.h>

#include <optional>
#include <string>

#include "Platform/Events/DBus/SdBus.h"

namespace qbdkr {

// Follows whether a name has an owner, on a connection of its own. Asks without waiting: a bus that
// is stuck costs nothing but the answer. One thread.
class NameOwner {
 public:
  explicit NameOwner(const std::string& name);
  NameOwner(const NameOwner&) = delete;
  NameOwner& operator=(const NameOwner&) = delete;
  ~NameOwner() = default;

  // Returns the connection; null if there was none, or it has ended.
  [[nodiscard]] sd_bus* bus() const { return bus_.get(); }
  // Tells whether the name has an owner; absent until the bus has said so. False after the end of
  // a connection that was asked with success.
  [[nodiscard]] std::optional<bool> isThere() const { return isThere_; }

  // Reads one message of the bus; false if none has come.
  bool readOne();
  // Reads all that have come.
  void read() {
    while (readOne()) {
    }
  }
  // Returns the event to poll for.
  [[nodiscard]] pollfd event() const;

 private:
  static int onOwnerChanged(sd_bus_message* message, void* self, sd_bus_error* error);
  static int onAnswer(sd_bus_message* message, void* self, sd_bus_error* error);

  UniqueBus bus_;
  std::optional<bool> isThere_;
};

}  // namespace qbdkr
