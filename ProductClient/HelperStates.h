#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <memory>
#include <optional>

#include <QBDKRProductClient/HelperState.h>

#include "Platform/Base/ForkSafeMutex.h"

namespace qbdkr {

// Hands the states of the helper agent to the host's handler on the main run loop, in their order,
// and drops one that equals the last. Keeps the latest ones for a main run loop that is busy. Any
// thread; no call waits, and those that tell throw nothing: a state is lost if memory runs out.
// Owned by a shared pointer.
class HelperStates : public std::enable_shared_from_this<HelperStates> {
 public:
  // A point in the order of the states.
  using Moment = std::uint64_t;
  // The states that wait for the main run loop. An older one gives way to a newer one.
  static constexpr std::size_t mostWaiting = 16;

  // Sets the handler, which gets the latest state first; an empty one turns the states off. True if
  // the handler waits for that state: it is to be found out. On the main thread the one before is
  // not called any more; elsewhere it may be running.
  bool setHandler(HelperStateHandler handler);
  // Tells whether there is a handler. Without one only states that cost nothing are told.
  [[nodiscard]] bool areWanted() const { return areWanted_; }

  [[nodiscard]] Moment moment() const;
  // Returns the latest state; absent if it is unknown. Throws std::bad_alloc.
  [[nodiscard]] std::optional<HelperState> latest() const;

  // Tells a state; during an installation only its progress and HelperReplaced count.
  void tell(const HelperState& state) noexcept;
  // Does so if nothing was told since: the state was found out in between, and may be outdated.
  void tellUnlessOutdated(Moment since, const HelperState& state) noexcept;
  // Tells HelperLost if the helper agent ran or the state is unknown.
  void tellLoss() noexcept;
  void tellLossUnlessOutdated(Moment since) noexcept;
  // Makes the state unknown: it has changed, and without a handler it is not found out.
  void forget() noexcept;

  void beginInstallation() noexcept;
  void endInstallation() noexcept;

 private:
  // The functions below are called with the mutex held.
  void add(const HelperState& state);
  [[nodiscard]] bool mayBeLost() const;

  template <class Change>
  void apply(const Change& change) noexcept;
  void wakeMainLoop();
  void deliver();

  std::atomic<bool> areWanted_{false};

  mutable ForkSafeMutex mutex_;
  std::shared_ptr<const HelperStateHandler> handler_;
  std::optional<HelperState> latest_;
  bool isInstalling_ = false;
  Moment moment_ = 0;
  std::deque<HelperState> waiting_;
  std::size_t wakeUps_ = 0;  // tasks of the main run loop; each delivers one state
};

}  // namespace qbdkr
