#include "Platform/Workspace/OpeningHistory.h"

#include <sys/stat.h>

#include <cstddef>
#include <mutex>
#include <utility>

namespace qbdkr {
namespace {

constexpr std::size_t mostRecords = 64;  // a host opens one application, seldom two

}  // namespace

bool OpeningHistory::isRunning(const std::string& bundlePath) const {
  const std::lock_guard lock(mutex_);
  const auto found = records_.find(bundlePath);
  return found != records_.end() && found->second.end && !found->second.end.isReadable();
}

std::optional<OpeningHistory::Clock::time_point> OpeningHistory::pausedUntil(
    const std::string& bundlePath, Clock::time_point now) {
  const Place place = Place::of(bundlePath);
  const std::lock_guard lock(mutex_);
  const auto found = records_.find(bundlePath);
  if (found == records_.end()) return std::nullopt;
  Record& record = found->second;
  if (record.place != place) {
    record.place = place;
    record.damping.clear();
  } else if (record.presence == Presence::running && record.end.isReadable()) {
    // It could not be reached when it was started, and nothing tells whether it could be later.
    record.fail(now);
  }
  const auto pauseEnd = record.damping.pauseEnd();
  return pauseEnd > now ? std::optional(pauseEnd) : std::nullopt;
}

void OpeningHistory::add(const std::string& bundlePath, Opening opening, Clock::time_point now) {
  const Place place = Place::of(bundlePath);
  const std::lock_guard lock(mutex_);
  if (records_.size() >= mostRecords && !records_.contains(bundlePath)) records_.clear();
  Record& record = records_[bundlePath];
  record.place = place;
  record.presence = opening.presence;
  record.end = std::move(opening.end);
  if (opening.presence == Presence::ended) record.fail(now);
  if (opening.presence == Presence::reachable) record.damping.clear();
}

OpeningHistory::Place OpeningHistory::Place::of(const std::string& bundlePath) {
  struct stat status {};
  if (::stat(bundlePath.c_str(), &status) != 0) return {};
  return {status.st_dev, status.st_ino};
}

void OpeningHistory::Record::fail(Clock::time_point now) {
  presence = Presence::ended;
  damping.fail(now);
}

}  // namespace qbdkr
