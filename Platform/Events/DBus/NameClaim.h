#pragma once

#include <chrono>
#include <condition_variable>
#include <functional>
#include <optional>

#include "Platform/Base/ForkSafeMutex.h"
#include "Platform/Events/DBus/SdBus.h"

namespace qbdkr {

// Opens the connection on which this process receives, and claims the name of its bundle identifier
// on it. The main run loop does so when it begins. A thread that is about to send what is answered
// to that name may do so earlier: the bus keeps the answer until the loop reads it.
class NameClaim {
 public:
  // Gives the connection: the one that a thread has opened, or a new one. Null if there is no bus;
  // absent while a thread opens it, which tells when it has. Main thread only; waits as
  // openSessionBus() does.
  [[nodiscard]] std::optional<UniqueBus> take();

  // Waits until the bus has answered the claim. If there is no connection, opens one first, and
  // calls whenOpen at the end. Returns at the deadline, and at once without a bus. Any thread, the
  // main one only while it has no connection.
  void await(std::chrono::steady_clock::time_point deadline, const std::function<void()>& whenOpen);

  // Tells that the connection that was taken is closed, or could not be had. Closes one that was
  // opened, or is being opened, and not taken. Returns whether the name was had. Main thread only.
  bool close();

 private:
  UniqueBus open();
  void answer(bool isGranted);
  [[nodiscard]] bool isAwaited() const;
  [[nodiscard]] bool process(sd_bus* bus, std::chrono::steady_clock::time_point deadline);
  static int onAnswer(sd_bus_message* message, void* self, sd_bus_error* error);

  mutable ForkSafeMutex mutex_;  // guards all
  std::condition_variable_any changed_;
  bool isOpening_ = false;         // by a thread
  bool isOpen_ = false;            // or the main loop opens it
  bool isClosed_ = false;          // while a thread opened it
  std::optional<bool> isGranted_;  // absent until the bus has answered
  UniqueBus opened_;               // by a thread, and not taken
};

}  // namespace qbdkr
