#pragma once

#include <condition_variable>
#include <mutex>
#include <optional>
#include <utility>

#include "Platform/Events/CancellationState.h"
#include "Platform/Events/RPCTransport.h"

namespace qbdkr {

// Hands the answer of a request to the thread that waits for it. The first one counts.
class AwaitedAnswer final : public CancellationListener {
 public:
  void set(RPCTransport::Answer answer) {
    const std::lock_guard lock(mutex_);
    if (!answer_) answer_ = std::move(answer);
    isSet_.notify_one();
  }

  void onCancel() noexcept override { set({userCanceledErr, {}}); }

  // Blocks until an answer is set. Call it once.
  RPCTransport::Answer get() {
    std::unique_lock lock(mutex_);
    isSet_.wait(lock, [this] { return answer_.has_value(); });
    return *answer_;
  }

 private:
  std::mutex mutex_;
  std::condition_variable isSet_;
  std::optional<RPCTransport::Answer> answer_;
};

}  // namespace qbdkr
