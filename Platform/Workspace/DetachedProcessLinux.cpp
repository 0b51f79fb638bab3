#include "Platform/Workspace/DetachedProcessLinux.h"

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <string_view>
#include <vector>

#define SD_JOURNAL_SUPPRESS_LOCATION
#include <systemd/sd-journal.h>

namespace qbdkr {
namespace {

// Two sockets that are connected to each other.
struct Conversation {
  Descriptor ours;
  Descriptor theirs;

  static std::optional<Conversation> open() {
    std::array<int, 2> ends{};
    if (socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends.data()) != 0) return std::nullopt;
    return Conversation{Descriptor(ends[0]), Descriptor(ends[1])};
  }
};

// Waits until one of two descriptors (-1 leaves one out) is readable, for a limited time in
// milliseconds: the other side's end does not show while a process that was forked in between holds
// it open.
void waitForWord(int descriptor, int other, int patience) {
  std::array<pollfd, 2> words{{{descriptor, POLLIN, 0}, {other, POLLIN, 0}}};
  while (::poll(words.data(), words.size(), patience) < 0 && errno == EINTR) {
  }
}

// Takes an integer that has arrived; false if none has.
bool takeInteger(int descriptor, int& value) {
  return ::recv(descriptor, &value, sizeof value, MSG_DONTWAIT) ==
         static_cast<ssize_t>(sizeof value);
}

bool readInteger(int descriptor, int& value) {
  constexpr int patience = 10'000;  // milliseconds
  waitForWord(descriptor, -1, patience);
  return takeInteger(descriptor, value);
}

void writeInteger(int descriptor, int value) {
  [[maybe_unused]] const auto sent = ::send(descriptor, &value, sizeof value, MSG_NOSIGNAL);
}

// Holds everything that the child needs, made before the fork: between fork and exec only calls
// that a signal handler may make are safe in a process with threads.
struct Plan {
  const char* executable;
  char* const* environment;
  int input;
  int output;
  // The child sends its process id here and waits for a word before it goes on: its parent watches
  // it by then. If it cannot be executed, it sends the error.
  int parent;
  int parentsEnd;
};

void resetSignals() {
  struct sigaction action {};
  action.sa_handler = SIG_DFL;
  for (int number = 1; number < NSIG; ++number) sigaction(number, &action, nullptr);
  sigset_t none;
  sigemptyset(&none);
  sigprocmask(SIG_SETMASK, &none, nullptr);
}

void markInheritedDescriptorsCloseOnExec() {
  constexpr unsigned closeRangeCloexec = 4;
  if (syscall(SYS_close_range, 3U, ~0U, closeRangeCloexec) == 0) return;
  for (int descriptor = 3; descriptor < 65536; ++descriptor) fcntl(descriptor, F_SETFD, FD_CLOEXEC);
}

[[noreturn]] void becomeApplication(const Plan& plan) {
  // Closes the parent's end: otherwise the child would wait for a word from a parent that is gone.
  close(plan.parentsEnd);
  setsid();
  resetSignals();
  writeInteger(plan.parent, getpid());
  int go = 0;
  if (!readInteger(plan.parent, go)) _exit(127);
  dup2(plan.input, STDIN_FILENO);
  dup2(plan.output, STDOUT_FILENO);
  dup2(plan.output, STDERR_FILENO);
  markInheritedDescriptorsCloseOnExec();
  if (chdir("/") == 0) {
    const std::array<char*, 2> arguments{const_cast<char*>(plan.executable), nullptr};
    execve(plan.executable, arguments.data(), plan.environment);
  }
  writeInteger(plan.parent, errno);
  _exit(127);
}

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

std::vector<char*> pointersTo(std::vector<std::string>& texts) {
  std::vector<char*> pointers;
  pointers.reserve(texts.size() + 1);
  for (std::string& text : texts) pointers.push_back(text.data());
  pointers.push_back(nullptr);
  return pointers;
}

// Makes the application the child of a process that ends at once: it then belongs to init, not to
// the caller.
bool forkTwice(const Plan& plan) {
  const pid_t child = fork();
  if (child < 0) return false;
  if (child == 0) {
    const pid_t application = fork();
    if (application == 0) becomeApplication(plan);
    _exit(application < 0 ? 1 : 0);
  }
  while (waitpid(child, nullptr, 0) < 0 && errno == EINTR) {
  }
  return true;
}

Descriptor outputForApplication(const std::string& executable) {
  const std::string name(std::string_view(executable).substr(executable.rfind('/') + 1));
  constexpr int notice = 5;
  Descriptor journal(sd_journal_stream_fd(name.c_str(), notice, 0));
  if (journal) return journal;
  return Descriptor(::open("/dev/null", O_RDWR | O_CLOEXEC));
}

}  // namespace

std::optional<DetachedProcess> startDetached(const std::string& executable) {
  auto conversation = Conversation::open();
  const Descriptor input(::open("/dev/null", O_RDONLY | O_CLOEXEC));
  const Descriptor output = outputForApplication(executable);
  if (!conversation || !input || !output) return std::nullopt;
  auto variables = environmentFor(output);
  const auto environment = pointersTo(variables);
  if (!forkTwice({executable.c_str(), environment.data(), input.get(), output.get(),
                  conversation->theirs.get(), conversation->ours.get()})) {
    return std::nullopt;
  }
  conversation->theirs = Descriptor();
  const int child = conversation->ours.get();

  DetachedProcess process;
  if (!readInteger(child, process.processID)) return std::nullopt;
  process.ended = Descriptor(static_cast<int>(syscall(SYS_pidfd_open, process.processID, 0)));
  if (!process.ended) return std::nullopt;
  writeInteger(child, 1);
  // A word is an error; EOF or silence means that the application is executed.
  constexpr int patience = 1000;  // milliseconds
  waitForWord(child, process.ended.get(), patience);
  int error = 0;
  if (takeInteger(child, error)) return std::nullopt;
  return process;
}

}  // namespace qbdkr
