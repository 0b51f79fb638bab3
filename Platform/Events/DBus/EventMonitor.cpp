#include "Platform/Events/DBus/EventMonitor.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <system_error>
#include <vector>

#include "Platform/Events/DBus/BusName.h"

namespace qbdkr {
namespace {

constexpr std::size_t mostAwaited = 1024;
constexpr std::size_t mostAwaitedBytes = std::size_t{16} << 20U;
constexpr std::chrono::seconds longestAnswer(10);
constexpr const char* lateReason = "no answer within 10 s";
constexpr const char* crowdReason = "too many events wait for answers";
constexpr const char* senderReason = "the sender left the bus";
constexpr const char* endReason = "no answer before the watch ended";
constexpr const char* lossReason = "no answer before the bus went away";

std::string failureText(const char* attempt, int error) {
  return std::string(attempt) + ": " + std::generic_category().message(-error);
}

// Returns the event of a call; one without names if no application would take it.
RPCEvent eventOf(sd_bus_message* message) {
  RPCEvent event;
  EventAllowance allowance;
  const char* className = nullptr;
  const char* methodName = nullptr;
  if (sd_bus_message_has_signature(message, rpc::callSignature) <= 0 ||
      sd_bus_message_read(message, "ss", &className, &methodName) <= 0 ||
      !allowance.takeName(className) || !allowance.takeName(methodName) ||
      sd_bus_message_enter_container(message, SD_BUS_TYPE_ARRAY, "s") <= 0) {
    return event;
  }
  const char* text = nullptr;
  while (sd_bus_message_read_basic(message, SD_BUS_TYPE_STRING, &text) > 0) {
    if (!allowance.takeArgument(text)) return {};
    event.arguments.emplace_back(text);
  }
  event.className = className;
  event.methodName = methodName;
  return event;
}

// Returns the memory that an event takes, roughly.
std::size_t sizeOf(const RPCEvent& event) {
  std::size_t size = event.className.value_or("").size() + event.methodName.value_or("").size();
  for (const std::string& text : event.arguments) size += sizeof(std::string) + text.size();
  return size;
}

}  // namespace

std::optional<std::string> EventMonitor::run() {
  if (auto obstacle = open()) return obstacle;
  peers_->learnAll();
  if (watch_->onReady) watch_->onReady();
  return follow();
}

std::optional<std::string> EventMonitor::open() {
  sd_bus* opened = nullptr;
  int result = sd_bus_open_user(&opened);
  if (result < 0) return failureText("cannot connect to the session bus", result);
  UniqueBus asking(opened);
  // As long as it has an owner, no event takes a direct connection, where none could be watched.
  sd_bus_request_name(opened, rpc::watchName, SD_BUS_NAME_QUEUE);
  const char* address = nullptr;
  sd_bus* made = nullptr;
  result = sd_bus_get_address(opened, &address);
  if (result >= 0) result = sd_bus_new(&made);
  bus_.reset(made);
  if (result >= 0) result = sd_bus_set_address(made, address);
  if (result >= 0) result = sd_bus_set_bus_client(made, 1);
  if (result >= 0) result = sd_bus_set_monitor(made, 1);
  if (result >= 0) result = sd_bus_start(made);
  if (result < 0) return failureText("cannot connect to the session bus", result);
  peers_.emplace(std::move(asking));
  return becomeMonitor();
}

std::optional<std::string> EventMonitor::becomeMonitor() {
  const std::string calls =
      std::string("type='method_call',interface='") + rpc::interfaceName + '\'';
  const std::string owners = bus::ownerMatch();
  sd_bus_message* made = nullptr;
  int result = sd_bus_message_new_method_call(bus_.get(), &made, bus::service, bus::objectPath,
                                              "org.freedesktop.DBus.Monitoring", "BecomeMonitor");
  const BusMessage message(made);
  // No rule can select answers by the interface of their call.
  if (result >= 0) {
    result = sd_bus_message_append(made, "asu", 4, calls.c_str(), "type='method_return'",
                                   "type='error'", owners.c_str(), 0U);
  }
  sd_bus_error error{};
  if (result >= 0)
    result = sd_bus_call(bus_.get(), made, asMicroseconds(busPatience), &error, nullptr);
  std::optional<std::string> obstacle;
  if (result < 0) {
    if (sd_bus_error_has_name(&error, SD_BUS_ERROR_ACCESS_DENIED) > 0) {
      obstacle = "the session bus does not let this user watch it";
    } else if (sd_bus_error_has_name(&error, SD_BUS_ERROR_UNKNOWN_METHOD) > 0 ||
               sd_bus_error_has_name(&error, SD_BUS_ERROR_UNKNOWN_INTERFACE) > 0) {
      obstacle = "the session bus offers no monitors";
    } else {
      obstacle = failureText("cannot watch the session bus", result);
    }
  }
  sd_bus_error_free(&error);
  return obstacle;
}

std::optional<std::string> EventMonitor::follow() {
  bool isIdle = false;
  while (!isOver_ && wait(isIdle)) {
    giveUpLateOnes();
    sd_bus_message* read = nullptr;
    const int result = sd_bus_process(bus_.get(), &read);
    const BusMessage message(read);
    if (result < 0 || (message && sd_bus_message_is_signal(read, "org.freedesktop.DBus.Local",
                                                           "Disconnected") > 0)) {
      giveUpAll(lossReason);
      return "the session bus ended the watch";
    }
    if (message && !isOver_) take(read);
    isIdle = result == 0;
  }
  giveUpAll(endReason);
  return std::nullopt;
}

bool EventMonitor::wait(bool isIdle) const {
  const auto now = Clock::now();
  if (watch_->deadline && now >= *watch_->deadline) return false;
  std::vector<pollfd> events = watch_->stops;
  events.push_back(
      {sd_bus_get_fd(bus_.get()), static_cast<short>(sd_bus_get_events(bus_.get())), 0});
  std::chrono::milliseconds time(isIdle ? 60'000 : 0);
  const auto until = [&](Clock::time_point end) {
    const auto left = std::chrono::ceil<std::chrono::milliseconds>(end - now);
    time = std::clamp(left, std::chrono::milliseconds(0), time);
  };
  if (watch_->deadline) until(*watch_->deadline);
  if (!awaited_.empty()) until(awaited_.front().start + longestAnswer);
  if (::poll(events.data(), events.size(), static_cast<int>(time.count())) <= 0) return true;
  events.pop_back();
  return std::ranges::none_of(events, [](const pollfd& stop) { return stop.revents != 0; });
}

void EventMonitor::take(sd_bus_message* message) {
  if (sd_bus_message_is_method_call(message, rpc::interfaceName, rpc::callMember) > 0) {
    takeCall(message);
  } else if (sd_bus_message_is_signal(message, bus::interfaceName, "NameOwnerChanged") > 0) {
    takeOwner(message);
  } else if (!awaited_.empty()) {
    takeAnswer(message);
  }
}

void EventMonitor::takeCall(sd_bus_message* message) {
  const char* sender = sd_bus_message_get_sender(message);
  const char* target = sd_bus_message_get_destination(message);
  std::uint64_t number = 0;
  if (sender == nullptr || target == nullptr || sd_bus_message_get_cookie(message, &number) < 0) {
    return;
  }
  Awaited call{{sender, number}, {}, Clock::now(), 0};
  call.event.time = std::chrono::system_clock::now();
  call.event.sender = peers_->of(sender);
  call.event.target = peers_->of(target);
  call.event.event = eventOf(message);
  if (!isWanted(call.event)) return;
  if (sd_bus_message_get_expect_reply(message) <= 0) return tell(call.event);
  call.size = sizeOf(call.event.event);
  keep(std::move(call));
}

bool EventMonitor::isWanted(const WatchedEvent& event) const {
  const auto agrees = [](const std::string& wanted, const std::optional<std::string>& name) {
    return wanted.empty() || name == wanted;
  };
  const std::string& application = watch_->application;
  return agrees(watch_->className, event.event.className) &&
         agrees(watch_->methodName, event.event.methodName) &&
         (application.empty() || event.sender.identifier == application ||
          event.target.identifier == application ||
          event.target.name == busNameOfIdentifier(application));
}

void EventMonitor::keep(Awaited&& awaited) {
  // A sender that uses a number again while the first call waits would hide that.
  if (const auto same = places_.find(awaited.call); same != places_.end()) {
    giveUp(same->second, crowdReason);
  }
  size_ += awaited.size;
  awaited_.push_back(std::move(awaited));
  places_.emplace(awaited_.back().call, std::prev(awaited_.end()));
  while (!awaited_.empty() && (awaited_.size() > mostAwaited || size_ > mostAwaitedBytes)) {
    giveUp(awaited_.begin(), crowdReason);
  }
}

void EventMonitor::takeAnswer(sd_bus_message* message) {
  std::uint64_t number = 0;
  const char* caller = sd_bus_message_get_destination(message);
  if (caller == nullptr || sd_bus_message_get_reply_cookie(message, &number) < 0) return;
  const auto found = places_.find({caller, number});
  if (found == places_.end()) return;
  WatchedEvent& event = found->second->event;
  if (const sd_bus_error* error = sd_bus_message_get_error(message)) {
    event.outcome = WatchedEvent::Outcome::failed;
    event.error = error->name == nullptr ? "" : error->name;
    event.text = error->message == nullptr ? "" : error->message;
  } else {
    event.outcome = WatchedEvent::Outcome::answered;
    const char* text = nullptr;
    if (sd_bus_message_read(message, rpc::resultSignature, &text) > 0) event.text = text;
  }
  conclude(found->second);
}

void EventMonitor::takeOwner(sd_bus_message* message) {
  const char* name = nullptr;
  const char* before = nullptr;
  const char* after = nullptr;
  if (sd_bus_message_read(message, "sss", &name, &before, &after) <= 0) return;
  peers_->change(name, after);
  if (*after != '\0') return;
  for (auto call = places_.lower_bound({name, 0});
       call != places_.end() && call->first.first == name; call = places_.lower_bound({name, 0})) {
    giveUp(call->second, senderReason);
  }
}

void EventMonitor::tell(const WatchedEvent& event) {
  if (!isOver_ && !watch_->onEvent(event)) isOver_ = true;
}

// Tells an event whose outcome is known, and removes it.
void EventMonitor::conclude(List::iterator awaited) {
  awaited->event.duration =
      std::chrono::duration_cast<std::chrono::microseconds>(Clock::now() - awaited->start);
  places_.erase(awaited->call);
  size_ -= awaited->size;
  const Awaited concluded = std::move(*awaited);
  awaited_.erase(awaited);
  tell(concluded.event);
}

void EventMonitor::giveUp(List::iterator awaited, const char* reason) {
  awaited->event.outcome = WatchedEvent::Outcome::unanswered;
  awaited->event.text = reason;
  conclude(awaited);
}

void EventMonitor::giveUpLateOnes() {
  const auto latest = Clock::now() - longestAnswer;
  while (!awaited_.empty() && awaited_.front().start <= latest)
    giveUp(awaited_.begin(), lateReason);
}

void EventMonitor::giveUpAll(const char* reason) {
  while (!awaited_.empty()) giveUp(awaited_.begin(), reason);
}

}  // namespace qbdkr
