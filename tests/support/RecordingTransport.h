#pragma once

#include <sys/types.h>

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <functional>
#include <map>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include <ClientComm/AppleEvent.h>

#include "Platform/Events/RPCTransport.h"
#include "support/Patience.h"

namespace qbdkr::test {

// Makes an RPC event as it arrives from a process on macOS.
AppleEvent inboundAppleEvent(const RPCEvent& event, pid_t sender);

// The bundle identifier of an application that sends reports.
inline constexpr const char* someSender = "com.Example.Sender";

// Stands in for the platform's transport: keeps every event that is sent, answers as it is told,
// and delivers events to the handler that is installed here. Any thread.
class RecordingTransport final : public RPCTransport {
 public:
  enum class Kind { post, ask, start };
  struct Sent {
    Kind kind = Kind::post;
    RPCTarget target;
    RPCEvent event;
  };
  using Answerer = std::function<Answer(const Sent&)>;

  // Returns the transport of this process. The first call installs it in place of the platform's.
  // It is never destroyed, because detached threads may still be sending.
  static RecordingTransport& installed();

  // Forgets the events sent so far, and answers 0 without text from now on. Keeps the handlers.
  void reset();

  // Sets the answer to every event whose method has no answer of its own.
  void answerWith(Answer answer);
  // Sets the answer to the events of one method.
  void answer(std::string_view methodName, Answer answer);
  // Called on the sending thread without a lock: it may send, deliver and wait.
  void answer(std::string_view methodName, Answerer answerer);

  [[nodiscard]] std::vector<Sent> sent() const;
  // Returns the same without their targets, in the order in which they were sent.
  [[nodiscard]] std::vector<RPCEvent> sentEvents() const;
  [[nodiscard]] std::vector<std::string> sentMethods() const;
  [[nodiscard]] std::size_t countOf(std::string_view methodName) const;

  // Waits until a method was sent that many times. Returns false at the deadline.
  bool waitForMethod(std::string_view methodName, std::size_t count = 1,
                     std::chrono::milliseconds time = patience);

  // Sets the status of a flush, and returns the deadline of the last one.
  void answerFlushWith(OSErr status);
  [[nodiscard]] std::chrono::steady_clock::time_point flushDeadline() const;

  // Hands an event to the installed handler on the calling thread, and returns the result. Lets the
  // handler's exceptions through. Throws std::logic_error without a handler.
  std::optional<std::string> deliver(const RPCEvent& event,
                                     const std::optional<std::string>& sender = someSender);

  [[nodiscard]] bool hasHandler() const;

  // Whether start() can have its thread.
  std::atomic<bool> canStart{true};

  OSErr post(const RPCTarget& target, const RPCEvent& event) override;
  Answer ask(const RPCTarget& target, const RPCEvent& event) override;
  // Records the request unless it has passed its limits. A thread that is made for it answers it
  // like any other event.
  bool start(const RPCTarget& target, RPCEvent event, const RequestLimits& limits,
             Completion completion) override;
  // Keeps the deadline and returns the status that it was told.
  OSErr flush(std::chrono::steady_clock::time_point deadline) override;
  void setHandler(Handler handler) override;
  void removeHandler() override;

 private:
  Answer send(Sent sent);
  [[nodiscard]] std::size_t countOfLocked(std::string_view methodName) const;

  mutable std::mutex mutex_;
  std::condition_variable changed_;
  std::vector<Sent> sent_;
  Answer answer_;
  std::map<std::string, Answerer, std::less<>> answerers_;
  Handler handler_;
  OSErr flushStatus_ = noErr;
  std::chrono::steady_clock::time_point flushDeadline_;
};

}  // namespace qbdkr::test
