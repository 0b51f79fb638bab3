#include "ProductClient/LivenessChecks.h"

#include <utility>

#include "Platform/Base/DropExceptions.h"

namespace qbdkr {

LivenessChecks::LivenessChecks(std::function<void()> check, StartThread startThread)
    : check_(std::move(check)), startThread_(std::move(startThread)) {}

void LivenessChecks::request() {
  if (change(afterRequest).running == mostAtOnce) return;
  if (!startThread_([this] { run(); })) change(afterFailure);
}

void LivenessChecks::run() {
  do {
    dropExceptions(check_);
  } while (change(afterCheck).wanted != 0);
}

LivenessChecks::State LivenessChecks::afterRequest(State state) {
  return state.running == mostAtOnce ? State{mostAtOnce, 1}
                                     : State{state.running + 1, state.wanted};
}

// If another check is wanted, the same thread runs it.
LivenessChecks::State LivenessChecks::afterCheck(State state) {
  return State{state.running - (1 - state.wanted), 0};
}

// If no thread can be made, a thread that is checking covers the request.
LivenessChecks::State LivenessChecks::afterFailure(State state) {
  return State{state.running - 1, state.running > 1 ? 1U : 0U};
}

LivenessChecks::State LivenessChecks::change(State (*changed)(State)) {
  State before = state_.load();
  while (!state_.compare_exchange_weak(before, changed(before))) {
  }
  return before;
}

}  // namespace qbdkr
