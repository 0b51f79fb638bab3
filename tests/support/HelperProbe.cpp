// A helper agent for tests. It appends every event that it receives, as one line, to the file that
// QBDKR_PROBE_TRANSCRIPT names, and behaves as QBDKR_PROBE_MODE says:
//   exit-at-once    ends before it can be reached
//   exit-for-now    does so until a file TRANSCRIPT.settled exists
//   never-check-in  runs, but does not come to the bus before SIGUSR1
//   no-loop         comes to the bus, and does not run its main run loop
//   stubborn        does not end when it is asked to
//   stubborn-to-the-end  ignores SIGTERM as well
//   slow-exit       leaves the bus when it is asked to end, and ends at SIGUSR1
//   mute            answers no query before SIGUSR1
// QBDKR_PROBE_IDLE and QBDKR_PROBE_GRACE are the milliseconds after which it ends when it is idle,
// and without a bus; it then records every so many of them that it is alive. It ends when the
// process that QBDKR_PROBE_OWNER names ends, so that no test leaves one behind.

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <array>
#include <chrono>
#include <cstdlib>
#include <map>
#include <optional>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include <ClientComm/Bundle.h>
#include <ClientComm/HelperLifetime.h>
#include <ClientComm/RunLoop.h>

#include "Platform/Events/RPCTransport.h"
#include "support/AppendedLine.h"
#include "support/ProbeText.h"

namespace {

std::array<int, 2> released{};

std::string environment(const char* name) {
  const char* value = std::getenv(name);
  return value == nullptr ? "" : value;
}

void record(const std::string& text) {
  qbdkr::test::appendLine(environment("QBDKR_PROBE_TRANSCRIPT"),
                          std::to_string(getpid()) + ' ' + text);
}

const std::string& version() {
  static const auto& text = *new std::string(
      qbdkr::Bundle::main().infoString(qbdkr::kCFBundleVersionKey).value_or("none"));
  return text;
}

bool isSettled() {
  return ::access((environment("QBDKR_PROBE_TRANSCRIPT") + ".settled").c_str(), F_OK) == 0;
}

void release(int /*signal*/) { [[maybe_unused]] const auto written = ::write(released[1], "", 1); }

void waitForRelease() {
  char byte = 0;
  while (::read(released[0], &byte, 1) < 0) {
  }
}

// Checks that the numbers under each key come one after the other.
class Sequences {
 public:
  void take(const std::string& key, long number) {
    long& last = last_[key];
    if (number != last + 1) ++faults_;
    last = number;
  }

  [[nodiscard]] std::string summary() const {
    std::string text = std::to_string(faults_) + " faults";
    for (const auto& [key, last] : last_) text += ", " + key + ' ' + std::to_string(last);
    return text;
  }

 private:
  std::map<std::string, long> last_;
  unsigned faults_ = 0;
};

Sequences& sequences() {
  static auto& instance = *new Sequences;
  return instance;
}

std::string answer(const std::string& method, const std::vector<std::string>& arguments) {
  if (method == "echo:" && !arguments.empty()) return arguments.front();
  if (method == "sequences") return sequences().summary();
  if (method == "text:" && !arguments.empty()) return std::string(std::stoul(arguments[0]), 'x');
  if (method == "noncharacter") return "\uFFFF";
  if (method == "summary") return qbdkr::test::summary(arguments);
  if (method == "isNotFirstStart") return "not-the-first";
  if (method == "who:") return std::to_string(getpid()) + ' ' + version();
  if (method == "clientIDFormHelper") return "client-" + std::to_string(getpid());
  return "";
}

std::optional<std::string> handle(const qbdkr::RPCEvent& event,
                                  const std::optional<std::string>& sender) {
  static const std::string mode = environment("QBDKR_PROBE_MODE");
  const std::string method = event.methodName.value_or("");
  if (method == "next::" && event.arguments.size() >= 2) {  // too many to be recorded
    sequences().take(event.arguments[0], std::stol(event.arguments[1]));
    return event.arguments[1];
  }
  record("call " + event.className.value_or("") + ' ' + method + " from " +
         sender.value_or("nobody") + qbdkr::test::shown(event.arguments));
  if (method == "wait" || (mode == "mute" && method == "clientIDFormHelper")) waitForRelease();
  if (method == "fail") throw std::runtime_error("failed as it was asked to");
  if (method == "exitHelper:productVersion:" && !mode.starts_with("stubborn"))
    qbdkr::RunLoop::main().stop();
  return answer(method, event.arguments);
}

// Records that this process is alive, now and then: often enough for a test to see that it outlived
// the time after which it may end.
void recordLife(std::chrono::milliseconds time) {
  qbdkr::RunLoop::main().scheduleTimer(time, [](const qbdkr::RunLoopTimer&) { record("lives"); });
}

void endByItself() {
  const std::string idle = environment("QBDKR_PROBE_IDLE");
  const std::string grace = environment("QBDKR_PROBE_GRACE");
  if (!idle.empty()) {
    const std::chrono::milliseconds time(std::stoi(idle));
    qbdkr::endWhenIdle(time, [] {
      record("is idle");
      qbdkr::RunLoop::main().stop();
    });
    recordLife(time);
  }
  if (!grace.empty()) {
    const std::chrono::milliseconds time(std::stoi(grace));
    qbdkr::endWithBus(time);
    recordLife(time);
  }
}

void endWithOwner() {
  const std::string owner = environment("QBDKR_PROBE_OWNER");
  if (owner.empty()) return;
  const auto descriptor = static_cast<int>(syscall(SYS_pidfd_open, std::stoi(owner), 0));
  if (descriptor < 0) _exit(0);
  std::thread([descriptor] {
    pollfd ended{descriptor, POLLIN, 0};
    while (::poll(&ended, 1, -1) < 0) {
    }
    _exit(0);
  }).detach();
}

}  // namespace

int main() {
  const std::string mode = environment("QBDKR_PROBE_MODE");
  if (pipe2(released.data(), O_CLOEXEC) != 0) return 1;
  struct sigaction action {};
  action.sa_handler = release;
  sigaction(SIGUSR1, &action, nullptr);
  endWithOwner();
  record("started version " + version());
  if (mode == "exit-at-once") return 0;
  if (mode == "exit-for-now" && !isSettled()) return 0;
  if (mode == "never-check-in") waitForRelease();
  if (mode == "stubborn-to-the-end") ::signal(SIGTERM, SIG_IGN);

  endByItself();
  qbdkr::RPCTransport::shared().setHandler(handle);
  if (mode == "no-loop") waitForRelease();
  qbdkr::RunLoop::main().run();
  if (mode == "slow-exit") {
    qbdkr::RPCTransport::shared().removeHandler();
    qbdkr::RunLoop::main().dispatch();
    record("leaves");
    waitForRelease();
  }
  record("ends");
  return 0;
}
