#pragma once

#include <sys/types.h>

#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <map>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "Platform/AppleEvent.h"

namespace qbdkr::test {

// What the direct object of an RPC event says.
struct RPCEvent {
  std::string className;
  std::string methodName;
  std::vector<std::string> arguments;

  bool operator==(const RPCEvent&) const = default;
};

// Throws std::logic_error for an event of any other form.
RPCEvent rpcEventOf(const AppleEvent& event);

// An event as it comes in from a process.
AppleEvent inboundEvent(const RPCEvent& content, pid_t sender);

// Stands in for the road between processes: keeps every event that is sent, answers as it is told,
// and delivers events to the handler that is installed here. Any thread.
class RecordingTransport final : public AppleEventTransport {
 public:
  struct Sent {
    AppleEvent event;
    std::int32_t mode = 0;
    long timeout = 0;
  };
  struct Answer {
    OSErr status = noErr;
    std::optional<std::string> text;
  };
  using Answerer = std::function<Answer(const Sent&)>;

  // The transport of this process, put in the place of the platform's on the first call. It lives
  // as long as the process, because detached threads may still be sending.
  static RecordingTransport& installed();

  // Forgets what was sent, and answers 0 without text from now on. Handlers stay.
  void reset();

  // The answer to every event that has none of its own.
  void answerWith(Answer answer);
  // The answer to the events of one method.
  void answer(std::string_view methodName, Answer answer);
  // Called on the sending thread, without a lock held: it may send, deliver and wait.
  void answer(std::string_view methodName, Answerer answerer);

  [[nodiscard]] std::vector<Sent> sent() const;
  // What the events of the form said, in the order in which they were sent.
  [[nodiscard]] std::vector<RPCEvent> sentRPCEvents() const;
  [[nodiscard]] std::vector<std::string> sentMethods() const;
  [[nodiscard]] std::size_t countOf(std::string_view methodName) const;

  // Waits until a method was sent so many times, and for that no longer than the deadline.
  bool waitForMethod(std::string_view methodName, std::size_t count = 1,
                     std::chrono::milliseconds patience = std::chrono::seconds(20));

  // Hands an event to the installed handler on the calling thread, and returns the reply. What the
  // handler throws reaches the caller; without a handler std::logic_error is thrown.
  AppleEvent deliver(const AppleEvent& event);

  [[nodiscard]] bool hasHandler(FourCharCode eventClass, FourCharCode eventID) const;

  OSErr sendMessage(const AppleEvent& event, AppleEvent& reply, std::int32_t sendMode,
                    long timeout) override;
  void setEventHandler(FourCharCode eventClass, FourCharCode eventID,
                       EventHandler handler) override;
  void removeEventHandler(FourCharCode eventClass, FourCharCode eventID) override;

 private:
  using HandlerKey = std::pair<FourCharCode, FourCharCode>;

  [[nodiscard]] std::size_t countOfLocked(std::string_view methodName) const;

  mutable std::mutex mutex_;
  std::condition_variable changed_;
  std::vector<Sent> sent_;
  Answer answer_;
  std::map<std::string, Answerer, std::less<>> answerers_;
  std::map<HandlerKey, EventHandler> handlers_;
};

}  // namespace qbdkr::test
