#pragma once

#include <atomic>
#include <functional>

namespace qbdkr {

// Runs liveness checks on threads of their own, a few at a time. A host may request hundreds a
// second while each waits for a helper agent that starts slowly. One more check covers all requests
// beyond the limit, and begins after them.
class LivenessChecks {
 public:
  static constexpr unsigned mostAtOnce = 8;

  using StartThread = std::function<bool(std::function<void()> body)>;

  // Takes the check, which runs on several threads at once, and the function that starts these
  // threads. An exception ends only that run of the check.
  LivenessChecks(std::function<void()> check, StartThread startThread);

  // Makes a check begin after this call: on a new thread, or on one that is checking, when that has
  // finished. Does nothing if no thread can be made and no check runs. Returns at once. Any thread.
  // The object must outlive its checks.
  void request();

 private:
  // Aligned as one word, or clang calls a library for each access when it compiles for size.
  struct alignas(2 * sizeof(unsigned)) State {
    unsigned running;
    unsigned wanted;  // 1 if another check must follow those that run, else 0
  };
  // A mutex could be held by another thread when the host forks, and the child would hang in it.
  static_assert(std::atomic<State>::is_always_lock_free);

  static State afterRequest(State state);
  static State afterCheck(State state);
  static State afterFailure(State state);

  // Applies a change atomically, and returns the state before it.
  State change(State (*changed)(State));
  void run();

  std::function<void()> check_;
  StartThread startThread_;
  std::atomic<State> state_{State{}};
};

}  // namespace qbdkr
