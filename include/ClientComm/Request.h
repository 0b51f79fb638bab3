#pragma once

#include <functional>
#include <memory>
#include <utility>

#include <ClientComm/Answer.h>
#include <ClientComm/Export.h>
#include <ClientComm/RequestLimits.h>
#include <ClientComm/TextValue.h>

namespace qbdkr {

struct RequestContent;

// A request for a text that was made and not sent yet; the part of every Request. An immutable
// value, cheap to copy. Sending it again sends another event.
class QBDKR_EXPORT TextRequest {
 public:
  // Do what the functions of Request do.
  [[nodiscard]] Answer<String> wait(const RequestLimits& limits) const;
  void start(const RequestLimits& limits, Completion<String> completion,
             const Executor& executor) const;

 private:
  friend class QBHPAppleEventSender;
  explicit TextRequest(std::shared_ptr<const RequestContent> content)
      : content_(std::move(content)) {}

  std::shared_ptr<const RequestContent> content_;
};

// A request for a value, made by a call whose name begins with "ask". It is sent by wait() or
// start(), within limits, or by co_await (AwaitRequest.h). Any thread.
//
// The answer's status is one of QBHPAppleEventSender, and besides:
//   errAETimeout     the deadline has passed
//   userCanceledErr  the request was cancelled
//   paramErr         the pending requests of the process reached their bounds: 32,768 requests, and
//                    256 MiB of texts; or the thread for them cannot be made
// A request that passed its limits before it was sent is not sent. One that was sent reaches the
// helper agent, which may answer in vain.
template <class Value>
class Request {
 public:
  // Reads the value from the text that is answered.
  using Read = std::function<Answer<Value>(Answer<String>)>;

  // Makes a request whose value is read from the text that is answered, as readBy() does.
  Request(TextRequest text, Read read) : text_(std::move(text)), read_(std::move(read)) {}

  // Sends the request and blocks until it is answered or passes its limits. Throws nothing.
  [[nodiscard]] Answer<Value> wait(const RequestLimits& limits = {}) const {
    return read_(text_.wait(limits));
  }

  // Sends the request and returns at once, also if the bus is missing or stuck. The completion is
  // called exactly once, never from inside this call: on the main run loop, while that runs, or by
  // the executor. An exception that leaves it is dropped.
  //
  // One thread's requests and posts are sent in the order in which it made them, whichever way it
  // sends each. Completions come in the order of the answers. A post or a waiting request that
  // follows is sent by its own thread, after those that were started before.
  //
  // In a forked child the completions of the parent's requests are never called. Throws, and calls
  // nothing, std::bad_alloc, or std::runtime_error as RunLoop::main() does.
  void start(const RequestLimits& limits, Completion<Value> completion,
             const Executor& executor = nullptr) const {
    text_.start(limits, ReadCompletion{read_, std::move(completion)}, executor);
  }

  // Returns the same request for another value, which is read from the answer to this one. The
  // reader may run on any thread, and must not throw.
  template <class Other>
  [[nodiscard]] Request<Other> readBy(std::function<Answer<Other>(Answer<Value>)> reader) const {
    return {text_, ReadTwice<Other>{read_, std::move(reader)}};
  }

 private:
  // Functions of their own: GCC's Objective-C++ cannot read a lambda that captures by moving.
  struct ReadCompletion {
    void operator()(Answer<String> answer) const { completion(read(std::move(answer))); }
    Read read;
    Completion<Value> completion;
  };
  template <class Other>
  struct ReadTwice {
    Answer<Other> operator()(Answer<String> answer) const { return then(first(std::move(answer))); }
    Read first;
    std::function<Answer<Other>(Answer<Value>)> then;
  };

  TextRequest text_;
  Read read_;
};

}  // namespace qbdkr
