#pragma once

#include <sys/types.h>

#include <map>
#include <optional>
#include <string>

#include "Platform/Base/Descriptor.h"
#include "Platform/Base/ForkSafeMutex.h"
#include "Platform/Workspace/NativeWorkspace.h"
#include "Platform/Workspace/RestartDamping.h"

namespace qbdkr {

// Remembers the applications that this process has started, by the paths of their bundles. Knows
// which of them run, whatever they execute and whether or not they have an identifier. Holds back
// one that ended before it could be reached, five times within 10 s: its next start may come after
// 1 s, then after 2 s, up to 60 s, until it can be reached or its bundle is replaced. Any thread.
class OpeningHistory {
 public:
  using Clock = RestartDamping::Clock;

  // Tells whether the process that was started last from a bundle still runs.
  [[nodiscard]] bool isRunning(const std::string& bundlePath) const;

  // Returns the time before which a bundle must not be opened again; absent if it may be now.
  [[nodiscard]] std::optional<Clock::time_point> pausedUntil(const std::string& bundlePath,
                                                             Clock::time_point now);

  // Records the start of an application.
  void add(const std::string& bundlePath, Opening opening, Clock::time_point now);

 private:
  // A bundle at a path, which is another one after an upgrade.
  struct Place {
    dev_t device = 0;
    ino_t number = 0;

    static Place of(const std::string& bundlePath);
    bool operator==(const Place&) const = default;
  };
  struct Record {
    Place place;
    Presence presence = Presence::running;  // ended: counted as a failure
    Descriptor end;
    RestartDamping damping;

    void fail(Clock::time_point now);
  };

  mutable ForkSafeMutex mutex_;
  std::map<std::string, Record> records_;
};

}  // namespace qbdkr
