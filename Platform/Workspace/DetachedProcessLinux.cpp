#include "Platform/Workspace/DetachedProcessLinux.h"

#include <fcntl.h>
#include <linux/futex.h>
#include <poll.h>
#include <sched.h>
#include <signal.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <cerrno>
#include <climits>
#include <cstddef>
#include <ctime>
#include <future>
#include <memory>
#include <string_view>
#include <utility>
#include <vector>

#define SD_JOURNAL_SUPPRESS_LOCATION
#include <systemd/sd-journal.h>

#include "Platform/Base/ArgumentPointers.h"
#include "Platform/Base/BlockedSignals.h"
#include "Platform/Base/DetachedThread.h"
#include "Platform/Base/DropExceptions.h"
#include "Platform/Processes/NativeProcesses.h"
#include "Platform/Record/Record.h"

// The functions below that bear this mark run in a new process on the memory of this one. Checks
// that a compiler adds would record there what is not true of this process.
#define IN_NEW_PROCESS __attribute__((no_sanitize("address", "thread", "undefined")))

// The C library's clone(), by its other name: the thread sanitizer of clang takes the plain one for
// a fork, and stops a process that shares its memory.
extern "C" int cloneUnobserved(int (*body)(void*), void* stack, int flags, void* argument,
                               ...) __asm__("__clone");

namespace qbdkr {
namespace {

// Longer than any placement takes.
constexpr time_t gateSeconds = 10;

// Two processes are started in a row: a parent, and the application as its child. The parent ends
// at once, and the application then belongs to init. Neither copies this process: both run on its
// memory, with the thread that starts them suspended, until one ends and the other is executed.
// They make system calls and nothing else, since any other thread of this process may hold any
// lock. The C library's own functions for these calls are not used either: they, or a checking
// tool in their place, may keep records in that memory.
//
// Only that thread waits until the application is executed. A parent that did as well would have to
// be scheduled first, on a processor that the application may use by then.
struct Start {  // NOLINT(cppcoreguidelines-pro-type-member-init): the stacks stay as they are
  static constexpr std::size_t stackSize = 32768;  // bytes
  struct alignas(16) Stack {
    std::array<std::byte, stackSize> bytes;  // not filled: that would touch each page
    void* top() { return &bytes + 1; }
  };

  char* const* arguments = nullptr;  // the first is the path of the executable
  char* const* environment = nullptr;
  int input = -1;
  int output = -1;
  int error = -1;
  int gate = -1;     // the application waits here before it is executed; -1 for none
  int hostEnd = -1;  // shows the end of this process, which ends that wait; -1 for none
  Stack parentsStack;
  Stack applicationsStack;

  // Left by the new processes.
  pid_t processID = -1;
  int ended = -1;   // becomes readable when the application ends
  int failure = 0;  // an errno value if it is not executed
  // Cleared by the kernel, which wakes the thread, when the application is executed or ends.
  std::atomic<int> isOnThisMemory = 1;
};

IN_NEW_PROCESS void resetSignals() {
  // The kernel's form of an action: all zero is the default. Larger than it is on any processor.
  const std::array<unsigned long, 8> defaultAction{};
  constexpr std::size_t maskSize = 8;
  const unsigned long none = 0;
  for (int number = 1; number < NSIG; ++number) {
    syscall(SYS_rt_sigaction, number, &defaultAction, nullptr, maskSize);
  }
  syscall(SYS_rt_sigprocmask, SIG_SETMASK, &none, nullptr, maskSize);
}

IN_NEW_PROCESS void closeDescriptors(int first, int last) {
  if (first > last) return;
  constexpr unsigned noFlags = 0;
  if (syscall(SYS_close_range, first, last, noFlags) == 0) return;
  constexpr int most = 65536;
  for (int descriptor = first; descriptor <= last && descriptor < most; ++descriptor) {
    syscall(SYS_close, descriptor);
  }
}

// Closes from the first descriptor up to one that is kept. Returns the next one after it.
IN_NEW_PROCESS int closeDescriptorsBelow(int kept, int first) {
  if (kept < first) return first;
  closeDescriptors(first, kept - 1);
  return kept + 1;
}

// Keeps the standard streams, and two descriptors that are closed on exec. The others are not left
// to that: the host may close its own while the application waits at the gate.
IN_NEW_PROCESS void closeInheritedDescriptors(int kept, int otherKept) {
  int first = STDERR_FILENO + 1;
  first = closeDescriptorsBelow(kept < otherKept ? kept : otherKept, first);
  first = closeDescriptorsBelow(kept < otherKept ? otherKept : kept, first);
  closeDescriptors(first, INT_MAX);
}

// Tells the process ID, and waits until the gate is opened or the host ends. The end of the host
// alone need not open it: a process that it forked may hold the gate's other end as well.
IN_NEW_PROCESS void waitAtGate(int gate, int hostEnd) {
  const auto self = static_cast<pid_t>(syscall(SYS_getpid));
  if (syscall(SYS_write, gate, &self, sizeof self) != sizeof self) return;
  constexpr int maskSize = 8;
  std::array<pollfd, 2> events{{{gate, POLLIN, 0}, {hostEnd, POLLIN, 0}}};
  timespec patience{gateSeconds, 0};
  syscall(SYS_ppoll, &events, sizeof events / sizeof(pollfd), &patience, nullptr, maskSize);
}

IN_NEW_PROCESS int becomeApplication(void* argument) {
  auto& start = *static_cast<Start*>(argument);
  syscall(SYS_setsid);
  syscall(SYS_dup3, start.input, STDIN_FILENO, 0);
  syscall(SYS_dup3, start.output, STDOUT_FILENO, 0);
  syscall(SYS_dup3, start.error, STDERR_FILENO, 0);
  closeInheritedDescriptors(start.gate, start.hostEnd);
  if (start.gate >= 0) waitAtGate(start.gate, start.hostEnd);
  if (syscall(SYS_chdir, "/") == 0) {
    resetSignals();
    syscall(SYS_execve, start.arguments[0], start.arguments, start.environment);
  }
  start.failure = errno;
  return 127;
}

// Shares this process's table of descriptors: the one that shows the end of the application
// arrives in it, and can be of no other process. Shares the rest as well, which is faster than a
// copy: it changes nothing, and what it starts gets copies.
IN_NEW_PROCESS int becomeParent(void* argument) {
  auto& start = *static_cast<Start*>(argument);
  constexpr int flags = CLONE_VM | CLONE_PIDFD | CLONE_CHILD_CLEARTID | SIGCHLD;
  start.processID = cloneUnobserved(becomeApplication, start.applicationsStack.top(), flags,
                                    argument, &start.ended, nullptr, &start.isOnThisMemory);
  if (start.processID < 0) start.failure = errno;
  return 0;
}

// Returns when the application is executed, or cannot be. The parent sends no signal when it ends,
// and only waitpid() with __WCLONE sees it: the host may count its own children.
bool run(Start& start) {
  const auto blocked = BlockedSignals::all();
  constexpr int flags =
      CLONE_VM | CLONE_VFORK | CLONE_FILES | CLONE_FS | CLONE_SIGHAND | CLONE_SYSVSEM;
  const pid_t parent = cloneUnobserved(becomeParent, start.parentsStack.top(), flags, &start);
  if (parent < 0) {
    start.failure = errno;
    return false;
  }
  constexpr int withoutSignal = static_cast<int>(__WCLONE);
  while (waitpid(parent, nullptr, withoutSignal) < 0 && errno == EINTR) {
  }
  while (start.processID > 0 && start.isOnThisMemory != 0) {
    syscall(SYS_futex, &start.isOnThisMemory, FUTEX_WAIT, 1, nullptr, nullptr, 0);
  }
  return start.failure == 0;
}

// Moves a descriptor out of the way of the three standard ones, which a host may have closed.
Descriptor aboveStandardOnes(Descriptor descriptor) {
  if (descriptor.get() > STDERR_FILENO) return descriptor;
  return Descriptor(fcntl(descriptor.get(), F_DUPFD_CLOEXEC, STDERR_FILENO + 1));
}

// Holds a process back before it is executed, while a thread places it: the thread that starts the
// process is suspended until then.
class Gate {
 public:
  explicit Gate(const std::function<void(pid_t)>& place) {
    if (place && !close(place)) failure_ = errno;
  }
  Gate(const Gate&) = delete;
  Gate& operator=(const Gate&) = delete;
  // If no process came to it, the thread ends now, although a forked child may hold the descriptor.
  ~Gate() {
    const int error = errno;
    ::shutdown(end_.get(), SHUT_RDWR);
    if (placed_.valid()) placed_.wait();
    errno = error;
  }

  [[nodiscard]] int end() const { return end_.get(); }
  [[nodiscard]] int hostEnd() const { return hostEnd_.get(); }
  // Returns an errno value if there is no gate although there should be one.
  [[nodiscard]] int failure() const { return failure_; }

 private:
  // The thread's. Its end, however that comes, closes the descriptor and then keeps the promise.
  struct Placing {
    std::promise<void> finished;
    Descriptor end;
  };

  // False with errno without a descriptor or a thread for it.
  [[nodiscard]] bool close(const std::function<void(pid_t)>& place) {
    std::array<int, 2> ends{};
    if (::socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends.data()) != 0) return false;
    const auto placing = std::make_shared<Placing>();
    placing->end = Descriptor(ends[0]);
    placed_ = placing->finished.get_future();
    Descriptor gate = aboveStandardOnes(Descriptor(ends[1]));
    const bool isWatched =
        gate && detachNewThread([placing, &place] {
          const int end = placing->end.get();
          pid_t process = 0;
          if (::recv(end, &process, sizeof process, MSG_WAITALL) != sizeof process) return;
          dropExceptions([&] { place(process); });
          ::send(end, "", 1, MSG_NOSIGNAL);
        });
    if (!isWatched) return false;
    end_ = std::move(gate);
    hostEnd_ = aboveStandardOnes(endOfProcess(::getpid()));
    return true;
  }

  Descriptor end_;
  Descriptor hostEnd_;
  int failure_ = 0;
  std::future<void> placed_;
};

// Finds the variables by which the service manager speaks to this process alone.
bool isForThisProcessOnly(std::string_view variable) {
  constexpr std::array<std::string_view, 7> names{
      "JOURNAL_STREAM=", "NOTIFY_SOCKET=", "LISTEN_PID=",   "LISTEN_FDS=",
      "LISTEN_FDNAMES=", "WATCHDOG_PID=",  "WATCHDOG_USEC="};
  return std::ranges::any_of(names,
                             [&](std::string_view name) { return variable.starts_with(name); });
}

// Returns the environment of an application whose output goes to this descriptor.
std::vector<std::string> environmentFor(const Descriptor& output) {
  std::vector<std::string> variables;
  for (char** variable = environ; variable != nullptr && *variable != nullptr; ++variable) {
    if (!isForThisProcessOnly(*variable)) variables.emplace_back(*variable);
  }
  struct stat status {};
  if (fstat(output.get(), &status) == 0 && S_ISSOCK(status.st_mode)) {
    variables.push_back("JOURNAL_STREAM=" + std::to_string(status.st_dev) + ':' +
                        std::to_string(status.st_ino));
  }
  return variables;
}

Descriptor noFile(int access) { return Descriptor(::open("/dev/null", access | O_CLOEXEC)); }

// Both outputs go to the journal. If that is missing they are dropped, but for the standard error
// of an application whose host is being debugged.
StandardStreams streamsFor(const std::string& executable) {
  const std::string name(std::string_view(executable).substr(executable.rfind('/') + 1));
  constexpr int notice = 5;
  StandardStreams streams{noFile(O_RDONLY),
                          Descriptor(sd_journal_stream_fd(name.c_str(), notice, 0)), Descriptor()};
  if (streams.output) return streams;
  streams.output = noFile(O_RDWR);
  if (isDebugging()) streams.error = Descriptor(fcntl(STDERR_FILENO, F_DUPFD_CLOEXEC, 0));
  return streams;
}

std::optional<DetachedProcess> startBehind(const Gate& gate, std::vector<std::string> command,
                                           std::vector<std::string> environment,
                                           StandardStreams streams) {
  for (Descriptor* stream : {&streams.input, &streams.output, &streams.error}) {
    if (*stream) *stream = aboveStandardOnes(std::move(*stream));
  }
  if (!streams.input || !streams.output) return std::nullopt;
  const auto arguments = pointersTo(command);
  const auto variables = pointersTo(environment);
  const std::unique_ptr<Start> start(new Start);  // leaves the stacks as they are
  start->arguments = arguments.data();
  start->environment = variables.data();
  start->input = streams.input.get();
  start->output = streams.output.get();
  start->error = streams.error ? streams.error.get() : streams.output.get();
  start->gate = gate.end();
  start->hostEnd = gate.hostEnd();
  const bool isExecuted = run(*start);
  DetachedProcess process{start->processID, Descriptor(start->ended), gate.failure()};
  if (!isExecuted || !process.ended) {
    errno = start->failure;
    return std::nullopt;
  }
  return process;
}

}  // namespace

std::optional<DetachedProcess> startDetached(std::vector<std::string> command,
                                             std::vector<std::string> environment,
                                             StandardStreams streams) {
  return startBehind(Gate(nullptr), std::move(command), std::move(environment), std::move(streams));
}

std::optional<DetachedProcess> startDetached(const std::string& executable,
                                             const std::function<void(pid_t)>& place) {
  auto streams = streamsFor(executable);
  auto environment = environmentFor(streams.output);
  const Gate gate(place);
  return startBehind(gate, {executable}, std::move(environment), std::move(streams));
}

}  // namespace qbdkr
