#include "Platform/Events/DBus/NameClaim.h"

#include <cerrno>
#include <mutex>
#include <utility>

#include <ClientComm/Bundle.h>
#include <ClientComm/LogHandler.h>

#include "Platform/Base/DropExceptions.h"
#include "Platform/Events/DBus/BusName.h"
#include "Platform/Events/DBus/SessionBus.h"

namespace qbdkr {

using Clock = std::chrono::steady_clock;

std::optional<UniqueBus> NameClaim::take() {
  {
    const std::lock_guard lock(mutex_);
    if (isOpening_) return std::nullopt;
    isOpen_ = true;
    if (opened_) return std::move(opened_);
  }
  return open();
}

void NameClaim::await(Clock::time_point deadline, const std::function<void()>& whenOpen) {
  {
    std::unique_lock lock(mutex_);
    if (isOpening_ || isOpen_) {
      changed_.wait_until(lock, deadline,
                          [this] { return isGranted_ || (!isOpening_ && !isOpen_); });
      return;
    }
    isOpening_ = true;
    isClosed_ = false;
  }
  UniqueBus bus;
  dropExceptions([&] { bus = open(); });
  if (bus && !process(bus.get(), deadline)) bus.reset();
  {
    const std::lock_guard lock(mutex_);
    isOpening_ = false;
    isOpen_ = bus != nullptr && !isClosed_;
    if (isOpen_)
      opened_ = std::move(bus);
    else
      isGranted_.reset();
  }
  bus.reset();
  changed_.notify_all();
  whenOpen();
}

bool NameClaim::close() {
  std::optional<bool> wasGranted;
  UniqueBus unused;
  {
    const std::lock_guard lock(mutex_);
    isClosed_ = true;
    isOpen_ = false;
    unused.swap(opened_);
    wasGranted.swap(isGranted_);
  }
  changed_.notify_all();
  return wasGranted.value_or(false);
}

// Opens a connection and sends the claim. Null if that fails.
UniqueBus NameClaim::open() {
  UniqueBus bus = openSessionBus();
  if (!bus || sd_bus_set_method_call_timeout(bus.get(), asMicroseconds(busPatience)) < 0) return {};
  const auto identifier = Bundle::main().infoString(kCFBundleIdentifierKey);
  const auto name = identifier ? busNameOfIdentifier(*identifier) : std::nullopt;
  if (!name) {
    answer(false);
    return bus;
  }
  // With this flag the bus queues this connection behind the owner that the name may have.
  if (sd_bus_request_name_async(bus.get(), nullptr, name->c_str(), SD_BUS_NAME_QUEUE, onAnswer,
                                this) < 0) {
    return {};
  }
  return bus;
}

// Reads the connection until the bus has answered the claim. No event comes before that: the name
// has no owner yet. False if the connection has ended.
bool NameClaim::process(sd_bus* bus, Clock::time_point deadline) {
  int done = 0;
  while (done >= 0 && isAwaited()) {
    done = sd_bus_process(bus, nullptr);
    if (done != 0) continue;
    const auto left = std::chrono::ceil<std::chrono::microseconds>(deadline - Clock::now());
    if (left.count() <= 0) break;
    done = sd_bus_wait(bus, asMicroseconds(left));
    if (done == -EINTR) done = 0;
  }
  return done >= 0;
}

bool NameClaim::isAwaited() const {
  const std::lock_guard lock(mutex_);
  return !isGranted_ && !isClosed_;
}

void NameClaim::answer(bool isGranted) {
  {
    const std::lock_guard lock(mutex_);
    isGranted_ = isGranted;
  }
  changed_.notify_all();
}

int NameClaim::onAnswer(sd_bus_message* message, void* self, sd_bus_error*) {
  const sd_bus_error* error = sd_bus_message_get_error(message);
  static_cast<NameClaim*>(self)->answer(error == nullptr);
  if (sd_bus_error_has_name(error, SD_BUS_ERROR_ACCESS_DENIED) > 0) {
    dropExceptions([] {
      log(LogLevel::error, LogCategory::bus, "the bus does not let this application have its name",
          {});
    });
  }
  return 0;
}

}  // namespace qbdkr
