// Measures the framework against references in the same run, and says whether the ratios hold.
//
// Rows of two processes run pinned to one processor, bus and peer included. Samples of a row and of
// its reference alternate: other load on the machine falls on both.

#include <sched.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <functional>
#include <string>
#include <vector>

#include <ClientComm/Bundle.h>
#include <ClientComm/QBHPAppleEventSender.h>
#include <ClientComm/QBHPProcessList.h>

#include "Reference.h"

namespace {

using Clock = std::chrono::steady_clock;
using qbdkr::QBHPAppleEventSender;
using qbdkr::bench::BareConnection;

constexpr const char* peer = "com.Acme.EchoAgent";

[[noreturn]] void fail(const char* what) {
  std::fprintf(stderr, "bench: %s\n", what);
  std::exit(1);
}

double microseconds(Clock::duration duration) {
  return std::chrono::duration<double, std::micro>(duration).count();
}

double median(std::vector<double> values) {
  std::ranges::sort(values);
  return values[values.size() / 2];
}

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

struct Row {
  const char* name;
  const char* reference;
  double ours;
  double theirs;
  double limit;  // of ours / theirs
};

void print(const Row& row) {
  const double ratio = row.ours / row.theirs;
  std::printf("%-34s %9.2f us  %-26s %9.2f us  ratio %5.2f (at most %.2f)  %s\n", row.name,
              row.ours, row.reference, row.theirs, ratio, row.limit,
              ratio <= row.limit ? "holds" : "MISSED");
}

// Alternates samples of both bodies, each of so many rounds. Stores the median time of one round.
Row measure(Row row, int samples, int rounds, const std::function<void()>& ours,
            const std::function<void()>& theirs, const std::function<void()>& between) {
  std::vector<double> oursTimes;
  std::vector<double> theirTimes;
  const auto sample = [&](const std::function<void()>& body, std::vector<double>& times) {
    const auto start = Clock::now();
    for (int i = 0; i < rounds; ++i) body();
    times.push_back(microseconds(Clock::now() - start) / rounds);
    between();
  };
  for (int i = 0; i < samples; ++i) {
    const bool oursFirst = i % 2 == 0;
    if (oursFirst) sample(ours, oursTimes);
    sample(theirs, theirTimes);
    if (!oursFirst) sample(ours, oursTimes);
  }
  row.ours = median(oursTimes);
  row.theirs = median(theirTimes);
  return row;
}

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
  return waiting.ours / waiting.theirs <= waiting.limit &&
         posting.ours / posting.theirs <= posting.limit && status == qbdkr::procNotFound;
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
  return row.ours / row.theirs <= row.limit;
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
