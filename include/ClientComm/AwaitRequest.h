#pragma once

#include <version>
#ifdef __cpp_impl_coroutine
#if __has_include(<coroutine>)
#include <coroutine>
#endif
#endif

#include <optional>
#include <utility>

#include <ClientComm/Request.h>

#ifdef __cpp_lib_coroutine

namespace qbdkr {

// Sends a request for a coroutine: co_await gives the Answer. The coroutine resumes on the main run
// loop, or where the executor runs it. It must not be destroyed while it waits: cancel the request
// instead. An exception that leaves it after it was resumed is dropped.
template <class Value>
class AwaitedRequest {
 public:
  AwaitedRequest(Request<Value> request, RequestLimits limits, Executor executor)
      : request_(std::move(request)), limits_(std::move(limits)), executor_(std::move(executor)) {}

  [[nodiscard]] bool await_ready() const noexcept { return false; }

  // The coroutine may go on, and destroy this object, before start() returns.
  void await_suspend(std::coroutine_handle<> waiting) {
    const auto request = std::move(request_);
    const auto limits = std::move(limits_);
    const auto executor = std::move(executor_);
    request.start(
        limits,
        [this, waiting](Answer<Value> answer) {
          answer_ = std::move(answer);
          waiting.resume();
        },
        executor);
  }

  [[nodiscard]] Answer<Value> await_resume() { return std::move(*answer_); }

 private:
  Request<Value> request_;
  RequestLimits limits_;
  Executor executor_;
  std::optional<Answer<Value>> answer_;
};

// Returns an object to co_await. Throws as Request::start() does, when it is awaited.
template <class Value>
[[nodiscard]] AwaitedRequest<Value> within(RequestLimits limits, Request<Value> request,
                                           Executor executor = nullptr) {
  return {std::move(request), std::move(limits), std::move(executor)};
}

// Awaits a request without limits.
template <class Value>
[[nodiscard]] AwaitedRequest<Value> operator co_await(Request<Value> request) {
  return {std::move(request), {}, nullptr};
}

}  // namespace qbdkr

#endif
