#pragma once

#include <functional>

#include <ClientComm/Status.h>

namespace qbdkr {

// Holds the outcome of a request: a status of QBHPAppleEventSender, and the value that was
// answered. The value is the empty one unless the status is 0.
template <class Value>
struct Answer {
  OSErr status = noErr;  // how the request ended
  Value value{};         // what was answered

  bool operator==(const Answer&) const = default;
};

// Called with the answer of an asynchronous request.
template <class Value>
using Completion = std::function<void(Answer<Value>)>;

// Runs a task, now or later, on a thread of its choice. It must run each task once, and should hand
// it on instead of running it: all answers of the process wait until it returns.
using Executor = std::function<void(std::function<void()>)>;

}  // namespace qbdkr
