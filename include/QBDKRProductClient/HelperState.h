#pragma once

// Comes first: clang's modules cannot import it after headers of GCC's C++ library.
// clang-format off
#include <ClientComm/TextValue.h>
// clang-format on

#include <sys/types.h>

#include <chrono>
#include <cstdint>
#include <functional>
#include <variant>

namespace qbdkr {

// The states of the helper agent, for a host's user interface. Plain values. Each says when it is
// told without supervision, and with it if that differs.

// A copy of the helper agent is being made in its place: the first one, a newer one while the older
// one goes on, or a repair under supervision. Told every 50 ms at most, and at the end; nothing
// else is told before that. The total is 0 while it is unknown, which the first report may be. A
// copy that is complete is still flushed to the disk. A copy that fails is followed by the next
// state that is found.
struct HelperInstalling {
  std::uint64_t bytesDone = 0;   // copied so far
  std::uint64_t bytesTotal = 0;  // to copy; 0: unknown

  bool operator==(const HelperInstalling&) const = default;
};

// This host starts it. Stays the state of one that runs and cannot be reached.
struct HelperLaunching {
  bool operator==(const HelperLaunching&) const = default;
};

// It can be reached. Told after a launch or a check that found it; under supervision also as soon
// as it can be reached, whichever host started it. A check that finds another process tells again
// if the one before has ended.
struct HelperRunning {
  String version;       // CFBundleVersion of the installed copy; absent if that has none
  pid_t processID = 0;  // that of the process that requests reach

  bool operator==(const HelperRunning&) const = default;
};

// It cannot be reached any more: a check got -600, or a launch has failed. Under supervision also
// told as soon as it leaves the bus, or the bus ends. Is not told during a launch, nor for an exit
// that an upgrade by this host asked for.
struct HelperLost {
  bool operator==(const HelperLost&) const = default;
};

// It is not started again before this time, because it keeps ending or cannot be started:
// launchPausedUntil(). A check after this time starts it: at once under supervision, else within
// 60 s. Under supervision also told for one that keeps being lost: supervision waits until then,
// and only a check or a request that comes earlier starts it before. A later time may follow.
struct HelperPaused {
  std::chrono::steady_clock::time_point until;  // the end of the pause

  bool operator==(const HelperPaused&) const = default;
};

// This host has exchanged the installed copy for a newer one. The older helper agent has ended, or
// was asked to, which is not told as a loss; the next launch starts the newer one. Under
// supervision also told when a check ends one whose files another host has replaced.
struct HelperReplaced {
  bool operator==(const HelperReplaced&) const = default;
};

// Its server is switched off: a check or the start-up found "QBHPServerClosed" in its user
// defaults. Nothing starts it until a check finds that gone.
struct HelperClosed {
  bool operator==(const HelperClosed&) const = default;
};

// One of the states.
using HelperState = std::variant<HelperInstalling, HelperLaunching, HelperRunning, HelperLost,
                                 HelperPaused, HelperReplaced, HelperClosed>;

// Receives a state on the main run loop.
using HelperStateHandler = std::function<void(const HelperState& state)>;

}  // namespace qbdkr
