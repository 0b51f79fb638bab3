#pragma once

#include <functional>
#include <optional>
#include <string>

#include "Platform/Base/ForkSafeMutex.h"
#include "Platform/Events/DBus/SdBus.h"

namespace qbdkr {

// Answers processes of the same user that ask for the diagnosis of this one. Belongs to the main
// run loop but for setDiagnoser(). The diagnosis takes a second or two, so it is made on a thread
// of its own; the connection and its messages stay on the main run loop. Never destroyed: that
// thread comes back to it.
class DiagnosisService {
 public:
  // Sets the function that makes the text. Any thread. Without one the text is the record of this
  // process.
  void setDiagnoser(std::function<std::string()> diagnoser);

  // Adds its interface to the object of a connection; false on failure.
  [[nodiscard]] bool attach(sd_bus* bus);
  // Leaves the connection. A question that waits stays without an answer.
  void detach();

 private:
  void takeQuestion(sd_bus_message* message);
  void takeUser(sd_bus_message* message);
  [[nodiscard]] std::string makeText();
  void answer(const std::optional<std::string>& text);
  void refuse(const char* error, const char* text);

  static int onQuestion(sd_bus_message* message, void* self, sd_bus_error* error);
  static int onUser(sd_bus_message* message, void* self, sd_bus_error* error);
  static const sd_bus_vtable methods[];

  ForkSafeMutex mutex_;
  std::function<std::string()> diagnoser_;  // guarded by the mutex

  // Main thread only.
  BusSlot object_;
  BusSlot inquiry_;
  BusMessage question_;
  bool isDiagnosing_ = false;  // also while a question is not wanted any more
};

}  // namespace qbdkr
