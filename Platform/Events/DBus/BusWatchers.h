#pragma once

#include <functional>
#include <utility>

#include "Platform/Events/DBus/SdBus.h"

namespace qbdkr {

// Knows whether another process watches the events on the bus, as the companion tool does: then all
// of them go there. Used under the lock of the connection.
class BusWatchers {
 public:
  // Calls the function, under the lock, each time when the bus tells that there is a watcher.
  explicit BusWatchers(std::function<void()> onWatcher) : onWatcher_(std::move(onWatcher)) {}
  BusWatchers(const BusWatchers&) = delete;
  BusWatchers& operator=(const BusWatchers&) = delete;
  ~BusWatchers() = default;

  // Asks the bus, and for news of it from then on. Does nothing if it was asked before.
  void ask(sd_bus* bus);
  // Forgets what the bus said, whose connection ends.
  void forgetBus();

  // Returns true as well until the bus has answered.
  [[nodiscard]] bool mayBeThere() const { return mayBeThere_; }

 private:
  void set(bool areThere);
  static int onAnswer(sd_bus_message* message, void* self, sd_bus_error* error);
  static int onChange(sd_bus_message* message, void* self, sd_bus_error* error);

  const std::function<void()> onWatcher_;
  bool mayBeThere_ = true;
  BusSlot watch_;
  BusSlot question_;
};

}  // namespace qbdkr
