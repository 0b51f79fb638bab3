// Measures the framework against references in the same run, and says whether the ratios hold.
//
// Rows of two processes run pinned to one processor, bus and peer included.

#include <sched.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <functional>
#include <string>
#include <utility>
#include <vector>

#include <ClientComm/Bundle.h>
#include <ClientComm/QBHPAppleEventSender.h>
#include <ClientComm/QBHPProcessList.h>

#include "Measure.h"
#include "Reference.h"

namespace {

using namespace qbdkr::bench;
using qbdkr::QBHPAppleEventSender;

constexpr const char* peer = "com.Acme.EchoAgent";

// A child process that ends with this one.
class Child {
 public:
  explicit Child(const std::function<void()>& body) : process_(fork()) {
    if (process_ != 0) return;
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    body();
    _exit(127);
  }
  Child(const Child&) = delete;
  Child& operator=(const Child&) = delete;
  Child(Child&& other) noexcept : process_(std::exchange(other.process_, 0)) {}
  Child& operator=(Child&&) = delete;
  ~Child() { end(); }

  void end() {
    if (process_ <= 0) return;
    kill(process_, SIGKILL);
    waitpid(std::exchange(process_, 0), nullptr, 0);
  }

 private:
  pid_t process_;
};

void pinToOneProcessor() {
  cpu_set_t processors;
  CPU_ZERO(&processors);
  CPU_SET(0, &processors);
  if (sched_setaffinity(0, sizeof processors, &processors) != 0) fail("cannot pin to a processor");
}

void unpin(const cpu_set_t& before) { sched_setaffinity(0, sizeof before, &before); }

const std::string text = "eleven text";
const std::array<std::string_view, 1> arguments{text};

void waitForPeer() {
  qbdkr::String answer;
  const auto deadline = Clock::now() + std::chrono::seconds(10);
  while (QBHPAppleEventSender::share().sendEvnet(peer, "Echo", "echo:", arguments, answer) != 0) {
    if (Clock::now() > deadline) fail("the peer does not answer");
    sched_yield();
  }
  if (answer != text) fail("the peer answers something else");
}

void ask() {
  qbdkr::String answer;
  if (QBHPAppleEventSender::share().sendEvnet(peer, "Echo", "echo:", arguments, answer) != 0) {
    fail("a request was not answered");
  }
}

bool measureRequests(const std::string& agent) {
  Child process([&] { execl(agent.c_str(), agent.c_str(), nullptr); });
  waitForPeer();
  BareConnection bare(peer);
  const auto nothing = [] {};
  const Row waiting = measure(
      {"waiting request", "sd_bus_call", 0, 0, 1.10}, 60, 200, ask,
      [&] {
        if (!bare.call("echo:", text)) fail("the bare call failed");
      },
      nothing);
  print(waiting);
  // Waits between the samples until the posted events are handled: otherwise the bus would fill up.
  const Row posting = measure(
      {"request without reply", "sd_bus_send", 0, 0, 1 / 0.80}, 100, 200,
      [&] {
        if (QBHPAppleEventSender::share().sendEvnet(peer, "Echo", "take:", arguments) != 0) {
          fail("a post failed");
        }
      },
      [&] {
        if (!bare.post("take:", text)) fail("the bare post failed");
      },
      [&] {
        ask();
        bare.call("echo:", text);
      });
  print(posting);
  process.end();
  qbdkr::OSErr status = 0;
  const auto deadline = Clock::now() + std::chrono::seconds(10);
  while (status == 0 && Clock::now() < deadline) {
    status = QBHPAppleEventSender::share().sendEvnet(peer, "Echo", "take:", arguments);
  }
  std::printf("%-34s %9d     %s\n", "a post when the peer is gone", status,
              status == qbdkr::procNotFound ? "holds" : "MISSED");
  return waiting.holds() && posting.holds() && status == qbdkr::procNotFound;
}

bool measureProcessList() {
  constexpr int processes = 300;
  std::vector<Child> children;
  children.reserve(processes);
  for (int i = 0; i < processes; ++i) children.emplace_back([] { pause(); });
  const Row row = measure(
      {"applicationIsRunning, 300 processes", "pgrep -x", 0, 0, 0.20}, 30, 3,
      [] {
        if (qbdkr::QBHPProcessList::share().applicationIsRunning("com.Acme.NotThere", "/")) {
          fail("found what is not there");
        }
      },
      [] {
        if (!qbdkr::bench::runPgrep("NotThere")) fail("pgrep did not run");
      },
      [] {});
  print(row);
  return row.holds();
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 2) fail("usage: Bench PATH-OF-THE-ECHO-AGENT");
  cpu_set_t before;
  sched_getaffinity(0, sizeof before, &before);
  pinToOneProcessor();
  // Starts a bus of its own, pinned like every process that is started from here on.
  const char* address = "unix:path=/tmp/qbdkr-bench-bus";
  unlink("/tmp/qbdkr-bench-bus");
  Child bus([&] {
    freopen("/dev/null", "w", stderr);
    execlp("dbus-daemon", "dbus-daemon", "--session", "--nofork", "--address", address, nullptr);
  });
  setenv("DBUS_SESSION_BUS_ADDRESS", address, 1);
  const bool requests = measureRequests(argv[1]);
  unpin(before);
  // Runs last: a bundle that was just built is read anew for each process in its first two seconds.
  const bool processList = measureProcessList();
  return processList && requests ? 0 : 1;
}
