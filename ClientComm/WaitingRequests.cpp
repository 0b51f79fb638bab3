#include "ClientComm/WaitingRequests.h"

#include <algorithm>
#include <array>
#include <mutex>
#include <optional>

#include "ClientComm/RequestRecord.h"
#include "Platform/Base/DropExceptions.h"
#include "Platform/Base/ForkSafeMutex.h"
#include "Platform/Base/NeverDestroyed.h"
#include "Platform/Loop/MainThread.h"

namespace qbdkr {
namespace {

using Clock = std::chrono::steady_clock;

constexpr std::size_t mostInView = 16;

struct Place {
  MethodText target;
  MethodText method;
  Clock::time_point begin;
  bool isOnMainThread;
};

struct Places {
  ForkSafeMutex mutex;
  std::array<std::optional<Place>, mostInView> places;
};

Places& places() {
  static NeverDestroyed instance([] { return Places(); });
  return *instance;
}

// Returns the place that was taken; beyond the last one if all are taken, or memory runs out.
std::size_t takePlace(Text bundleID, Text className, Text methodName) noexcept {
  thread_local const bool isMain = isOnMainThread();
  std::size_t free = mostInView;
  dropExceptions([&] {
    const Place place{MethodText(bundleID.value_or(""), ""),
                      MethodText(className.value_or(""), methodName.value_or("")), Clock::now(),
                      isMain};
    auto& [mutex, all] = places();
    const std::lock_guard lock(mutex);
    const auto isFree = [](const auto& used) { return !used; };
    free = static_cast<std::size_t>(std::ranges::find_if(all, isFree) - all.begin());
    if (free < mostInView) all[free] = place;
  });
  return free;
}

}  // namespace

WaitingRequest::WaitingRequest(Text bundleID, Text className, Text methodName) noexcept
    : place_(takePlace(bundleID, className, methodName)) {}

WaitingRequest::~WaitingRequest() {
  if (place_ == mostInView) return;
  auto& [mutex, all] = places();
  const std::lock_guard lock(mutex);
  all[place_].reset();
}

std::vector<WaitingRequest::View> WaitingRequest::all() {
  std::array<std::optional<Place>, mostInView> waiting;
  {
    auto& [mutex, all] = places();
    const std::lock_guard lock(mutex);
    waiting = all;
  }
  std::vector<View> views;
  for (const auto& place : waiting) {
    if (!place) continue;
    views.push_back({std::string(place->target.text()), std::string(place->method.text()),
                     std::chrono::floor<std::chrono::milliseconds>(Clock::now() - place->begin),
                     place->isOnMainThread});
  }
  std::ranges::sort(views, std::ranges::greater(), &View::time);
  return views;
}

}  // namespace qbdkr
