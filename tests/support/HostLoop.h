#pragma once

#include <memory>

namespace qbdkr::test {

// A main loop other than RunLoop, which watches the main run loop's descriptor, as a host has it
// that is made with GLib or Qt. Each HostLoop*.cpp has one kind. Main thread only.
class HostLoop {
 public:
  static std::unique_ptr<HostLoop> make();

  virtual ~HostLoop() = default;

  // Runs until stop(). May be called again inside, as by a modal dialog.
  virtual void run() = 0;
  // Ends the innermost run().
  virtual void stop() = 0;
};

}  // namespace qbdkr::test
