#pragma once

#include <chrono>
#include <memory>
#include <string>

#include <ClientComm/Export.h>

namespace qbdkr {

// Watches one application from a thread of its own, without the main run loop. Call every member on
// that thread unless it says otherwise.
class QBDKR_EXPORT PeerWatch {
 public:
  using Clock = std::chrono::steady_clock;
  // The outcome of a wait: the deadline passed, events can reach the application (again), they
  // cannot any more, wake() was called, or the machine goes on after it was suspended.
  enum class News { none, appeared, vanished, woken, resumed };

  // Watches the application of a bundle identifier. Null if it cannot be watched: the identifier is
  // invalid, or the process is out of descriptors.
  [[nodiscard]] static std::unique_ptr<PeerWatch> make(const std::string& bundleID);

  virtual ~PeerWatch() = default;

  // Waits for news until the deadline. The first news says whether the application is there: it has
  // appeared, or vanished.
  [[nodiscard]] virtual News wait(Clock::time_point deadline) = 0;

  // Ends the wait, or the next one if none is under way. Any thread.
  virtual void wake() = 0;

  // Asks the application for a sign of life, which its event loop gives without its own code.
  virtual void ping() = 0;
  // Tells whether the last ping was answered, or could not be sent.
  [[nodiscard]] virtual bool isAnswered() const = 0;
};

}  // namespace qbdkr
