#include <poll.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cstdint>
#include <optional>
#include <utility>

#include "Platform/Base/Descriptor.h"
#include "Platform/Events/DBus/BusName.h"
#include "Platform/Events/DBus/SdBus.h"
#include "Platform/Events/NativePeerWatch.h"

namespace qbdkr {
namespace {

constexpr std::chrono::milliseconds firstRetryDelay(100);
constexpr std::chrono::milliseconds longestRetryDelay(5000);

// Watches the owner of a name on a connection of its own, which is made again if it is lost.
class NameWatch final : public PeerWatch {
 public:
  NameWatch(std::string name, Descriptor wake) : name_(std::move(name)), wake_(std::move(wake)) {}

  News wait(Clock::time_point deadline) override {
    for (;;) {
      connect();
      readBus();
      if (isPresent_ != wasPresent_) {
        wasPresent_ = isPresent_;
        return *isPresent_ ? News::appeared : News::vanished;
      }
      if (takeWakeUp()) return News::woken;
      if (Clock::now() >= deadline) return News::none;
      pollUntil(deadline);
    }
  }

  void wake() override {
    constexpr std::uint64_t once = 1;
    [[maybe_unused]] const auto written = ::write(wake_.get(), &once, sizeof once);
  }

  void ping() override {
    pong_.reset();
    isAnswered_ = true;
    sd_bus_message* made = nullptr;
    if (!bus_ || sd_bus_message_new_method_call(bus_.get(), &made, name_.c_str(), "/",
                                                "org.freedesktop.DBus.Peer", "Ping") < 0) {
      return;
    }
    const BusMessage message(made);
    sd_bus_slot* slot = nullptr;
    if (sd_bus_message_set_auto_start(made, 0) < 0 ||
        sd_bus_call_async(bus_.get(), &slot, made, onPong, this, UINT64_MAX) < 0) {
      return;
    }
    pong_.reset(slot);
    isAnswered_ = false;
  }

  [[nodiscard]] bool isAnswered() const override { return isAnswered_; }

 private:
  void connect() {
    if (bus_ || Clock::now() < retryAt_) return;
    retryDelay_ = std::clamp(retryDelay_ * 2, firstRetryDelay, longestRetryDelay);
    retryAt_ = Clock::now() + retryDelay_;
    sd_bus* opened = nullptr;
    if (sd_bus_open_user(&opened) < 0) return;
    bus_.reset(opened);
    // Its first answer is news again: the application may have ended with the bus.
    isPresent_.reset();
    wasPresent_.reset();
    if (sd_bus_add_match_async(opened, nullptr, bus::ownerMatch(name_).c_str(), onOwnerChanged,
                               nullptr, this) < 0 ||
        sd_bus_call_method_async(opened, nullptr, bus::service, bus::objectPath, bus::interfaceName,
                                 "NameHasOwner", onAnswer, this, "s", name_.c_str()) < 0) {
      disconnect();
    }
  }

  void disconnect() {
    pong_.reset();
    bus_.reset();
    if (isPresent_) isPresent_ = false;
    isAnswered_ = true;
  }

  // Stops at a change, which the caller must learn before the next one.
  void readBus() {
    while (bus_ && isPresent_ == wasPresent_) {
      const int result = sd_bus_process(bus_.get(), nullptr);
      if (result < 0) return disconnect();
      if (result == 0) return;
    }
  }

  bool takeWakeUp() {
    std::uint64_t count = 0;
    return ::read(wake_.get(), &count, sizeof count) > 0;
  }

  void pollUntil(Clock::time_point deadline) {
    std::array<pollfd, 2> events{{{wake_.get(), POLLIN, 0}, {-1, POLLIN, 0}}};
    if (bus_) {
      events[1].fd = sd_bus_get_fd(bus_.get());
      events[1].events = static_cast<short>(sd_bus_get_events(bus_.get()));
    } else {
      deadline = std::min(deadline, retryAt_);
    }
    int timeout = -1;
    if (deadline != Clock::time_point::max()) {
      const auto left = std::chrono::ceil<std::chrono::milliseconds>(deadline - Clock::now());
      timeout = static_cast<int>(std::clamp<std::int64_t>(left.count(), 0, 3'600'000));
    }
    ::poll(events.data(), events.size(), timeout);
  }

  static int onOwnerChanged(sd_bus_message* message, void* self, sd_bus_error* /*error*/) {
    const char* name = nullptr;
    const char* before = nullptr;
    const char* after = nullptr;
    if (sd_bus_message_read(message, "sss", &name, &before, &after) > 0) {
      static_cast<NameWatch*>(self)->isPresent_ = *after != '\0';
    }
    return 0;
  }

  static int onAnswer(sd_bus_message* message, void* self, sd_bus_error* /*error*/) {
    int present = 0;
    if (sd_bus_message_read(message, "b", &present) > 0) {
      auto& watch = *static_cast<NameWatch*>(self);
      watch.isPresent_ = present != 0;
      watch.retryDelay_ = std::chrono::milliseconds(0);
    }
    return 0;
  }

  // An error is an answer as well: of a program that does not know pings, or of the bus.
  static int onPong(sd_bus_message* /*message*/, void* self, sd_bus_error* /*error*/) {
    static_cast<NameWatch*>(self)->isAnswered_ = true;
    return 0;
  }

  const std::string name_;
  const Descriptor wake_;
  UniqueBus bus_;
  BusSlot pong_;
  std::optional<bool> isPresent_;   // absent before the first answer of the bus
  std::optional<bool> wasPresent_;  // as the caller knows it
  bool isAnswered_ = true;
  std::chrono::milliseconds retryDelay_{0};
  Clock::time_point retryAt_;
};

}  // namespace

std::unique_ptr<PeerWatch> makeNativePeerWatch(const std::string& bundleID) {
  auto name = busNameOfIdentifier(bundleID);
  Descriptor wake(::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK));
  if (!name || !wake) return nullptr;
  return std::make_unique<NameWatch>(std::move(*name), std::move(wake));
}

}  // namespace qbdkr
