#include <poll.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cstdint>
#include <optional>
#include <utility>

#include "Platform/Base/Descriptor.h"
#include "Platform/Base/ResumeTimerLinux.h"
#include "Platform/Events/DBus/BusName.h"
#include "Platform/Events/DBus/NameOwner.h"
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
      if (isPresent() != wasPresent_) {
        wasPresent_ = isPresent();
        return *wasPresent_ ? News::appeared : News::vanished;
      }
      if (takeWakeUp()) return News::woken;
      if (resumeTimer_.hasResumed()) return News::resumed;
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
    if (bus() == nullptr ||
        sd_bus_message_new_method_call(bus(), &made, name_.c_str(), "/",
                                       "org.freedesktop.DBus.Peer", "Ping") < 0) {
      return;
    }
    const BusMessage message(made);
    sd_bus_slot* slot = nullptr;
    if (sd_bus_message_set_auto_start(made, 0) < 0 ||
        sd_bus_call_async(bus(), &slot, made, onPong, this, UINT64_MAX) < 0) {
      return;
    }
    pong_.reset(slot);
    isAnswered_ = false;
  }

  [[nodiscard]] bool isAnswered() const override { return isAnswered_ || bus() == nullptr; }

 private:
  [[nodiscard]] sd_bus* bus() const { return owner_ ? owner_->bus() : nullptr; }
  [[nodiscard]] std::optional<bool> isPresent() const {
    return owner_ ? owner_->isThere() : std::nullopt;
  }

  void connect() {
    if (bus() != nullptr || Clock::now() < retryAt_) return;
    retryDelay_ = std::clamp(retryDelay_ * 2, firstRetryDelay, longestRetryDelay);
    retryAt_ = Clock::now() + retryDelay_;
    pong_.reset();
    // Its first answer is news again: the application may have ended with the bus.
    wasPresent_.reset();
    owner_.emplace(name_);
  }

  // Stops at a change, which the caller must learn before the next one.
  void readBus() {
    while (isPresent() == wasPresent_ && bus() != nullptr && owner_->readOne()) {
    }
    if (isPresent() && bus() != nullptr) retryDelay_ = {};
  }

  bool takeWakeUp() {
    std::uint64_t count = 0;
    return ::read(wake_.get(), &count, sizeof count) > 0;
  }

  void pollUntil(Clock::time_point deadline) {
    std::array<pollfd, 3> events{
        {{wake_.get(), POLLIN, 0}, {-1, 0, 0}, {resumeTimer_.descriptor(), POLLIN, 0}}};
    if (bus() != nullptr) {
      events[1] = owner_->event();
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

  // An error is an answer as well: of a program that does not know pings, or of the bus.
  static int onPong(sd_bus_message* /*message*/, void* self, sd_bus_error* /*error*/) {
    static_cast<NameWatch*>(self)->isAnswered_ = true;
    return 0;
  }

  const std::string name_;
  const Descriptor wake_;
  ResumeTimer resumeTimer_;
  std::optional<NameOwner> owner_;
  BusSlot pong_;
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
