#pragma once

#include <atomic>
#include <functional>

namespace qbdkr {

// Runs liveness checks on threads of their own, a few at a time. A host may ask for hundreds a
// second while each waits for a helper agent that starts slowly. Those beyond the limit are covered
// together by one more check, which begins after them.
class LivenessChecks {
 public:
  static constexpr unsigned mostAtOnce = 8;

  using StartThread = std::function<bool(std::function<void()> body)>;

  // The check runs on several threads at once, which startThread starts. An exception ends that run
  // of it and nothing else.
  LivenessChecks(std::function<void()> check, StartThread startThread);

  // Has a check begin after this call: on a new thread, or on one of those that check already when
  // it has finished. Does nothing if no thread can be made and none checks. Returns at once; any
  // thread. The object must outlive its checks.
  void request();

 private:
  struct State {
    unsigned running;
    unsigned wanted;  // 1 when a check must follow those that run, else 0
  };
  // A mutex could be held by another thread when the host forks, and the child would hang in it.
  static_assert(std::atomic<State>::is_always_lock_free);

  static State afterRequest(State state);
  static State afterCheck(State state);
  static State afterFailure(State state);

  // Applies a change at one stroke, and returns the state before it.
  State change(State (*changed)(State));
  void run();

  std::function<void()> check_;
  StartThread startThread_;
  std::atomic<State> state_{State{}};
};

}  // namespace qbdkr
