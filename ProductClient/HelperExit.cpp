#include "ProductClient/HelperExit.h"

#include <signal.h>

#include <chrono>
#include <utility>

#include "Platform/Record/Record.h"

namespace qbdkr {
namespace {

using std::chrono::milliseconds;

constexpr milliseconds exitPatience(5000);
constexpr milliseconds exitPatienceBeforeForce(2000);
constexpr milliseconds terminationPatience(1500);
constexpr milliseconds killPatience(1000);  // a process may be in a call of the kernel

}  // namespace

HelperExit::HelperExit(HostConfiguration configuration, SystemCalls system,
                       std::function<void()> ask)
    : configuration_(std::move(configuration)), system_(std::move(system)), ask_(std::move(ask)) {}

void HelperExit::end() {
  const auto identifier = configuration_.helperIdentifier();
  const auto installed = configuration_.installedHelper().value_or("");
  if (!system_.isRunning(view(identifier), installed)) return;
  if (isForceAllowed_ && endByForce(WhichProcesses::all)) return;
  ask_();
  system_.waitForEnd(view(identifier), installed, exitPatience);
}

bool HelperExit::endByForce(WhichProcesses which, const std::function<void()>& onFound) {
  const auto installed = configuration_.installedHelper();
  if (!installed) return false;
  const auto processes = HeldProcess::ofApplication(*installed, which);
  if (processes.empty()) return false;
  record(StepKind::helperEnded, *installed,
         which == WhichProcesses::replaced ? "its files were replaced"
                                           : "it does not answer, or gives way to an upgrade");
  onFound();
  ask_();
  if (HeldProcess::waitForEnd(processes, exitPatienceBeforeForce)) return true;
  HeldProcess::signal(processes, SIGTERM);
  if (HeldProcess::waitForEnd(processes, terminationPatience)) return true;
  HeldProcess::signal(processes, SIGKILL);
  static_cast<void>(HeldProcess::waitForEnd(processes, killPatience));
  return true;
}

}  // namespace qbdkr
