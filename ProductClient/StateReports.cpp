#include "ProductClient/StateReports.h"

#include <utility>
#include <variant>

#include "Platform/Base/DropExceptions.h"
#include "ProductClient/HelperInstaller.h"

namespace qbdkr {

StateReports::StateReports(HostConfiguration configuration, const SystemCalls& system,
                           HelperStates& states, Sources sources)
    : configuration_(std::move(configuration)),
      startThread_(system.startThread),
      reachedProcess_(system.reachedProcess),
      states_(states),
      sources_(std::move(sources)) {}

void StateReports::setHandler(HelperStateHandler handler) {
  // The start-up tells by itself.
  if (!states_.setHandler(std::move(handler)) || isStartingUp_) return;
  startThread_([this] {
    dropExceptions([this] {
      if (sources_.isServerClosed()) return states_.tell(HelperClosed());
      findOut();
    });
  });
}

void StateReports::answered(OSErr status, HelperStates::Moment before) noexcept {
  if (status == noErr) return find(before, [](HelperStates::Moment) {});
  if (status == procNotFound) states_.tellLossUnlessOutdated(before);
}

void StateReports::launchFailed() noexcept { findOut(); }

void StateReports::installed() noexcept {
  dropExceptions([this] {
    const auto latest = states_.latest();
    if (latest && std::holds_alternative<HelperInstalling>(*latest)) findOut();
  });
}

void StateReports::found() noexcept {
  find(states_.moment(), [](HelperStates::Moment) {});
}

void StateReports::launched() noexcept {
  find(states_.moment(), [this](HelperStates::Moment since) {
    states_.tellUnlessOutdated(since, HelperLaunching());
  });
}

void StateReports::findOut() noexcept {
  find(states_.moment(), [this](HelperStates::Moment since) {
    const auto pauseEnd = sources_.pausedUntil();
    states_.tellUnlessOutdated(
        since, pauseEnd ? HelperState(HelperPaused{*pauseEnd}) : HelperState(HelperLost()));
  });
}

// Tells the process, or calls a function if none is reached. Tells nothing if another state was
// told since that moment.
template <class Otherwise>
void StateReports::find(HelperStates::Moment since, const Otherwise& otherwise) noexcept {
  if (!states_.areWanted()) return states_.forget();
  dropExceptions([&] {
    if (isTold()) return;
    if (const auto running = process()) return states_.tellUnlessOutdated(since, *running);
    otherwise(since);
  });
}

bool StateReports::isTold() {
  const auto latest = states_.latest();
  const auto* const running = latest ? std::get_if<HelperRunning>(&*latest) : nullptr;
  const std::lock_guard lock(mutex_);
  return running != nullptr && held_ && held_->processID() == running->processID &&
         !held_->hasEnded();
}

std::optional<HelperRunning> StateReports::process() {
  const auto processID = reachedProcess_(configuration_.helperIdentifier().value_or(""));
  if (!processID) return std::nullopt;
  auto held = HeldProcess::of(*processID);
  const auto installed = configuration_.installedHelper();
  HelperRunning running{installed ? versionOfBundle(*installed) : std::nullopt, *processID};
  const std::lock_guard lock(mutex_);
  held_.swap(held);
  return running;
}

}  // namespace qbdkr
