#pragma once

#include <memory>
#include <utility>
#include <version>
#ifdef __cpp_lib_jthread
#include <stop_token>
#endif

#include <ClientComm/Export.h>

namespace qbdkr {

class CancellationState;

// Cancels requests. A handle: its copies cancel the same requests, those that were given one of
// them in their RequestLimits. Any thread, at any time; nothing waits. In a forked child it has no
// effect on the parent's requests.
class QBDKR_EXPORT Cancellation {
 public:
  // Makes a handle that cancels no request of another one. Throws std::bad_alloc.
  Cancellation();

#ifdef __cpp_lib_jthread
  // Makes a handle that is cancelled when a stop is requested of the token. Compiled into the
  // caller: the libraries themselves do not need <stop_token>.
  Cancellation(const std::stop_token& token) : Cancellation() {
    const Cancellation own = *this;
    auto stop = [own] { own.cancel(); };
    link_ = std::make_shared<std::stop_callback<decltype(stop)>>(token, std::move(stop));
  }
#endif

  // Ends the requests that were made with this handle or are made with it later. They end with
  // userCanceledErr; one that was not sent is not sent, and a later reply is dropped. Returns
  // before their completions are called. Has no effect on a request that has ended.
  void cancel() const noexcept;

  // Tells whether cancel() was called on a handle of these requests.
  [[nodiscard]] bool isCancelled() const noexcept;

 private:
  friend class CancellationState;

  std::shared_ptr<CancellationState> state_;
  std::shared_ptr<void> link_;  // the callback of a stop token
};

}  // namespace qbdkr
