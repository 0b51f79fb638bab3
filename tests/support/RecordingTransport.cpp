#include "support/RecordingTransport.h"

#include <algorithm>
#include <cstring>
#include <stdexcept>
#include <utility>

namespace qbdkr::test {
namespace {

std::string textAt(const AppleEventDescriptor& list, std::size_t index) {
  const AppleEventDescriptor* item = list.descriptorAtIndex(index);
  const auto text = item == nullptr ? std::nullopt : item->stringValue();
  if (!text) throw std::logic_error("no text at index " + std::to_string(index));
  return *text;
}

bool names(const AppleEvent& event, std::string_view methodName) {
  try {
    return rpcEventOf(event).methodName == methodName;
  } catch (const std::logic_error&) {
    return false;
  }
}

}  // namespace

RPCEvent rpcEventOf(const AppleEvent& event) {
  const AppleEventDescriptor* directObject = event.paramDescriptor(keyDirectObject);
  if (directObject == nullptr || directObject->numberOfItems() != 3) {
    throw std::logic_error("the direct object does not have three items");
  }
  const AppleEventDescriptor& arguments = *directObject->descriptorAtIndex(3);
  if (arguments.descriptorType() != typeAEList) {
    throw std::logic_error("the third item is not a list");
  }
  RPCEvent content{textAt(*directObject, 1), textAt(*directObject, 2), {}};
  for (std::size_t i = 1; i <= arguments.numberOfItems(); ++i) {
    content.arguments.push_back(textAt(arguments, i));
  }
  return content;
}

AppleEvent inboundEvent(const RPCEvent& content, pid_t sender) {
  auto arguments = AppleEventDescriptor::list();
  for (const std::string& argument : content.arguments) {
    arguments.insertDescriptor(AppleEventDescriptor::withString(argument), 0);
  }
  auto directObject = AppleEventDescriptor::list();
  directObject.insertDescriptor(AppleEventDescriptor::withString(content.className), 1);
  directObject.insertDescriptor(AppleEventDescriptor::withString(content.methodName), 2);
  directObject.insertDescriptor(std::move(arguments), 3);
  AppleEvent event(kCoreEventClass, kAECall, {}, kAutoGenerateReturnID, kAnyTransactionID);
  event.setParamDescriptor(keyDirectObject, std::move(directObject));

  const auto processID = static_cast<std::int32_t>(sender);
  std::string address(sizeof processID, '\0');
  std::memcpy(address.data(), &processID, sizeof processID);
  event.setAttributeDescriptor(keyAddressAttr,
                               AppleEventDescriptor::withBytes(typeKernelProcessID, address));
  return event;
}

RecordingTransport& RecordingTransport::installed() {
  static auto& transport = []() -> RecordingTransport& {
    auto& made = *new RecordingTransport;
    AppleEventTransport::replaceShared(&made);
    return made;
  }();
  return transport;
}

void RecordingTransport::reset() {
  const std::lock_guard lock(mutex_);
  sent_.clear();
  answerers_.clear();
  answer_ = {};
}

void RecordingTransport::answerWith(Answer answer) {
  const std::lock_guard lock(mutex_);
  answer_ = std::move(answer);
}

void RecordingTransport::answer(std::string_view methodName, Answer answer) {
  this->answer(methodName, Answerer([answer = std::move(answer)](const Sent&) { return answer; }));
}

void RecordingTransport::answer(std::string_view methodName, Answerer answerer) {
  const std::lock_guard lock(mutex_);
  answerers_.insert_or_assign(std::string(methodName), std::move(answerer));
}

std::vector<RecordingTransport::Sent> RecordingTransport::sent() const {
  const std::lock_guard lock(mutex_);
  return sent_;
}

std::vector<RPCEvent> RecordingTransport::sentRPCEvents() const {
  std::vector<RPCEvent> events;
  for (const Sent& sent : sent()) events.push_back(rpcEventOf(sent.event));
  return events;
}

std::vector<std::string> RecordingTransport::sentMethods() const {
  std::vector<std::string> methods;
  for (const RPCEvent& event : sentRPCEvents()) methods.push_back(event.methodName);
  return methods;
}

std::size_t RecordingTransport::countOfLocked(std::string_view methodName) const {
  return static_cast<std::size_t>(std::ranges::count_if(
      sent_, [&](const Sent& sent) { return names(sent.event, methodName); }));
}

std::size_t RecordingTransport::countOf(std::string_view methodName) const {
  const std::lock_guard lock(mutex_);
  return countOfLocked(methodName);
}

bool RecordingTransport::waitForMethod(std::string_view methodName, std::size_t count,
                                       std::chrono::milliseconds patience) {
  std::unique_lock lock(mutex_);
  return changed_.wait_for(lock, patience, [&] { return countOfLocked(methodName) >= count; });
}

AppleEvent RecordingTransport::deliver(const AppleEvent& event) {
  EventHandler handler;
  {
    const std::lock_guard lock(mutex_);
    const auto found = handlers_.find({event.eventClass(), event.eventID()});
    if (found == handlers_.end()) throw std::logic_error("no handler is installed");
    handler = found->second;
  }
  AppleEvent reply;
  handler(event, reply);
  return reply;
}

bool RecordingTransport::hasHandler(FourCharCode eventClass, FourCharCode eventID) const {
  const std::lock_guard lock(mutex_);
  return handlers_.contains({eventClass, eventID});
}

OSErr RecordingTransport::sendMessage(const AppleEvent& event, AppleEvent& reply,
                                      std::int32_t sendMode, long timeout) {
  const Sent sent{event, sendMode, timeout};
  Answerer answerer;
  Answer answer;
  {
    const std::lock_guard lock(mutex_);
    sent_.push_back(sent);
    answer = answer_;
    for (const auto& [methodName, found] : answerers_) {
      if (names(event, methodName)) answerer = found;
    }
    changed_.notify_all();
  }
  if (answerer) answer = answerer(sent);
  if (answer.text && sendMode == kAEWaitReply) {
    reply.setParamDescriptor(keyDirectObject, AppleEventDescriptor::withString(*answer.text));
  }
  return answer.status;
}

void RecordingTransport::setEventHandler(FourCharCode eventClass, FourCharCode eventID,
                                         EventHandler handler) {
  const std::lock_guard lock(mutex_);
  handlers_.insert_or_assign({eventClass, eventID}, std::move(handler));
}

void RecordingTransport::removeEventHandler(FourCharCode eventClass, FourCharCode eventID) {
  const std::lock_guard lock(mutex_);
  handlers_.erase({eventClass, eventID});
}

}  // namespace qbdkr::test
