#pragma once

// Come first: clang's modules cannot import them after headers of GCC's C++ library.
// clang-format off
#include <ClientComm/Export.h>
#include <ClientComm/RecordedStep.h>
#include <ClientComm/TextValue.h>
// clang-format on

#include <sys/types.h>

#include <chrono>
#include <optional>
#include <string>
#include <vector>

#include <QBDKRProductClient/Finding.h>

namespace qbdkr {

// Tells why a host has no helper agent, or why that does not do as the host asks. A snapshot.
struct Diagnosis {
  // The likeliest thing to be wrong.
  struct Cause {
    std::string subject;  // a stable name for programs: that of a finding, or as in reference.md
    std::string text;     // one sentence, with the key, path, process or request
    std::string remedy;   // one sentence
  };

  // A process that runs the helper agent, or that its requests reach.
  struct Helper {
    pid_t processID = 0;     // of the system
    String version;          // absent without a bundle that has one
    std::string bundlePath;  // empty without a bundle
    std::optional<std::chrono::system_clock::time_point> since;  // absent if unknown
    bool isReached = false;  // requests of this process go to it: on Linux, over this bus
  };

  // A request of this process that waits for its answer.
  struct Waiting {
    std::string text;                  // the target, class and method
    std::chrono::milliseconds time{};  // so far
    bool isOnMainThread = false;       // which holds up the whole host
  };

  std::optional<Cause> cause;       // absent if nothing is wrong
  std::vector<Helper> helpers;      // those of this host
  std::vector<Waiting> waiting;     // those of this process, 16 at most
  std::vector<Finding> findings;    // of the examination of this host's bundle
  std::vector<RecordedStep> steps;  // the oldest first

  // Returns all of it in lines: the cause, the remedy, the helper agents, the findings that are
  // not in order, and the steps. Throws std::bad_alloc.
  [[nodiscard]] QBDKR_EXPORT std::string text() const;
};

}  // namespace qbdkr
