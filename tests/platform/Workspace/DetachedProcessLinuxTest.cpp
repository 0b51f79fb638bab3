#include <fcntl.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <signal.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <filesystem>
#include <sstream>
#include <stdexcept>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "Platform/Base/Descriptor.h"
#include "Platform/Processes/NativeProcesses.h"
#include "Platform/Workspace/DetachedProcessLinux.h"
#include "support/Environment.h"
#include "support/ForkedBody.h"
#include "support/RefusedCall.h"

namespace qbdkr {
namespace {

namespace fs = std::filesystem;
using test::readFile;
using test::TemporaryDirectory;
using test::writeFile;

bool hasEnded(const DetachedProcess& process, int milliseconds) {
  pollfd state{process.ended.get(), POLLIN, 0};
  return poll(&state, 1, milliseconds) == 1;
}

// Runs scripts that leave their output in a file.
class Detached : public testing::Test {
 protected:
  std::string script(const std::string& body) {
    const fs::path path = directory.path() / "script";
    writeFile(path, "#!/bin/sh\n" + body + "\n");
    fs::permissions(path, fs::perms(0755));
    return path;
  }
  // Runs a script to its end and returns the lines of its output.
  std::vector<std::string> linesOf(const std::string& body) {
    const auto process =
        startDetached(script("{\n" + body + "\n} > '" + output.string() + "' 2>&1"));
    EXPECT_TRUE(process.has_value());
    if (!process || !hasEnded(*process, 20'000)) return {"it did not end"};
    std::vector<std::string> lines;
    std::istringstream text(readFile(output));
    for (std::string line; std::getline(text, line);) lines.push_back(line);
    return lines;
  }

  TemporaryDirectory directory;
  const fs::path output = directory.path() / "output";
};

TEST_F(Detached, LeadsASessionOfItsOwn) {
  // Reads process ID, group, session and terminal from the kernel.
  const auto lines = linesOf("read -r stat < /proc/$$/stat; echo $$; echo ${stat##*)}");
  ASSERT_EQ(lines.size(), 2U);
  std::istringstream stat(lines[1]);
  std::string state;
  pid_t parent = 0;
  pid_t group = 0;
  pid_t session = 0;
  int terminal = -1;
  stat >> state >> parent >> group >> session >> terminal;
  const pid_t self = std::stoi(lines[0]);
  EXPECT_EQ(group, self);
  EXPECT_EQ(session, self);
  EXPECT_EQ(terminal, 0);
  EXPECT_NE(parent, getpid());
}

TEST_F(Detached, InheritsNoDescriptor) {
  const fs::path file = directory.path() / "open";
  writeFile(file, "");
  const int open = ::open(file.c_str(), O_RDONLY);  // not closed on exec
  const int high = fcntl(open, F_DUPFD, 500);
  ASSERT_GE(high, 500);
  const auto lines = linesOf("for fd in /proc/$$/fd/*; do readlink \"$fd\"; done");
  close(open);
  close(high);
  EXPECT_FALSE(lines.empty());
  EXPECT_EQ(std::ranges::find(lines, file.string()), lines.end());
  const auto pipes = std::ranges::count_if(
      lines, [](const std::string& line) { return line.starts_with("pipe:"); });
  EXPECT_EQ(pipes, 0);
}

TEST_F(Detached, HasNoInputAndTheRootAsItsDirectory) {
  EXPECT_EQ(linesOf("readlink /proc/$$/fd/0; pwd; echo $#"),
            (std::vector<std::string>{"/dev/null", "/", "0"}));
}

TEST_F(Detached, WritesErrorsToItsOutputIfTheyHaveNoStream) {
  StandardStreams streams{Descriptor(::open("/dev/null", O_RDONLY | O_CLOEXEC)),
                          Descriptor(::open(output.c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0600)),
                          Descriptor()};
  const auto process =
      startDetached({script("echo output; echo error >&2")}, {}, std::move(streams));
  ASSERT_TRUE(process.has_value());
  EXPECT_TRUE(hasEnded(*process, 20'000));
  EXPECT_EQ(readFile(output), "output\nerror\n");
}

TEST_F(Detached, HasNoSignalBlockedOrIgnored) {
  sigset_t all;
  sigset_t before;
  sigfillset(&all);
  pthread_sigmask(SIG_SETMASK, &all, &before);
  signal(SIGPIPE, SIG_IGN);
  signal(SIGTERM, SIG_IGN);
  const auto lines = linesOf("grep -E 'SigBlk|SigIgn' /proc/self/status");
  signal(SIGPIPE, SIG_DFL);
  signal(SIGTERM, SIG_DFL);
  pthread_sigmask(SIG_SETMASK, &before, nullptr);
  EXPECT_EQ(lines,
            (std::vector<std::string>{"SigBlk:\t0000000000000000", "SigIgn:\t0000000000000000"}));
}

TEST_F(Detached, TellsItsProcessIDAndItsEnd) {
  const fs::path fifo = directory.path() / "fifo";
  ASSERT_EQ(mkfifo(fifo.c_str(), 0600), 0);
  const auto process = startDetached(
      script("echo $$ > '" + output.string() + "'; read line < '" + fifo.string() + "'"));
  ASSERT_TRUE(process.has_value());
  const int writer = open(fifo.c_str(), O_WRONLY);  // waits until the script opens it
  ASSERT_GE(writer, 0);
  EXPECT_FALSE(hasEnded(*process, 0));
  EXPECT_EQ(readFile(output), std::to_string(process->processID) + '\n');
  close(writer);
  EXPECT_TRUE(hasEnded(*process, 20'000));
}

TEST_F(Detached, LeavesNoZombieAndNoChild) {
  const auto process = startDetached(script("exit 3"));
  ASSERT_TRUE(process.has_value());
  EXPECT_TRUE(hasEnded(*process, 20'000));
  EXPECT_EQ(waitpid(-1, nullptr, WNOHANG), -1);
  EXPECT_EQ(errno, ECHILD);
}

TEST_F(Detached, SurvivesTheProcessThatStartedIt) {
  const fs::path fifo = directory.path() / "fifo";
  ASSERT_EQ(mkfifo(fifo.c_str(), 0600), 0);
  const std::string path = script("read line < '" + fifo.string() + "'; echo \"$line\" > '" +
                                  output.string() + "'; echo done > '" + fifo.string() + "'");
  const int status = test::runForked([&path] {
    setsid();
    const auto process = startDetached(path);
    // Kills its whole process group.
    kill(0, process ? SIGKILL : SIGTERM);
    return false;
  });
  ASSERT_TRUE(WIFSIGNALED(status));
  ASSERT_EQ(WTERMSIG(status), SIGKILL);
  writeFile(fifo, "still here\n");  // waits until the script reads
  EXPECT_EQ(readFile(fifo), "done\n");
  EXPECT_EQ(readFile(output), "still here\n");
}

TEST_F(Detached, FailsForWhatCannotBeExecuted) {
  EXPECT_FALSE(startDetached(directory.path() / "missing").has_value());
  EXPECT_FALSE(startDetached(directory.path()).has_value());
  EXPECT_FALSE(startDetached("").has_value());
  const fs::path file = directory.path() / "not executable";
  writeFile(file, "#!/bin/sh\n");
  fs::permissions(file, fs::perms(0644));
  EXPECT_FALSE(startDetached(file).has_value());
  writeFile(file, "no program at all");
  fs::permissions(file, fs::perms(0755));
  EXPECT_FALSE(startDetached(file).has_value());
  writeFile(file, "#!/no/such/interpreter\n");
  EXPECT_FALSE(startDetached(file).has_value());
  EXPECT_EQ(waitpid(-1, nullptr, WNOHANG), -1);
  EXPECT_EQ(errno, ECHILD);
}

TEST_F(Detached, LeavesTheCallersSignalsAlone) {
  signal(SIGUSR2, SIG_IGN);
  EXPECT_TRUE(startDetached(script("exit 0")).has_value());
  EXPECT_EQ(signal(SIGUSR2, SIG_DFL), SIG_IGN);
}

// A host may count its children by their signal, and close its standard descriptors.
TEST_F(Detached, HostGetsNoSignalOfAChild) {
  static std::atomic<int> children;
  struct sigaction before {};
  struct sigaction counting {};
  counting.sa_handler = [](int) { ++children; };
  sigaction(SIGCHLD, &counting, &before);
  const auto process = startDetached(script("exit 0"));
  ASSERT_TRUE(process.has_value());
  EXPECT_TRUE(hasEnded(*process, 20'000));
  EXPECT_FALSE(startDetached(directory.path() / "missing").has_value());
  sigaction(SIGCHLD, &before, nullptr);
  EXPECT_EQ(children, 0);
}

TEST_F(Detached, HasStandardDescriptorsAlthoughTheHostClosedItsOwn) {
  const std::string path =
      script("for fd in 0 1 2; do readlink /proc/$$/fd/$fd; done > '" + output.string() + "'");
  const int status = test::runForked([&path] {
    for (const int standard : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO}) close(standard);
    const auto process = startDetached(path);
    return process && hasEnded(*process, 20'000);
  });
  EXPECT_EQ(status, 0);
  std::istringstream lines(readFile(output));
  std::string input;
  std::string ownOutput;  // redirected by the script
  std::string errors;
  std::getline(lines, input);
  std::getline(lines, ownOutput);
  std::getline(lines, errors);
  EXPECT_EQ(input, "/dev/null");
  EXPECT_TRUE(errors == "/dev/null" || errors.starts_with("socket:")) << errors;
}

TEST_F(Detached, LeavesNoDescriptorOpenInTheHost) {
  const auto openOnes = [] {
    const fs::directory_iterator entries("/proc/self/fd");
    return std::distance(begin(entries), end(entries));
  };
  const std::string program = script("exit 0");
  startDetached(program);  // may open what the process keeps
  const auto before = openOnes();
  for (int i = 0; i < 10; ++i) {
    startDetached(program);
    startDetached(directory.path() / "missing");
    startDetached(program, [](pid_t) {});
    startDetached(directory.path() / "missing", [](pid_t) {});
  }
  EXPECT_EQ(openOnes(), before);
}

// A process whose program is still that of this one has not been executed.
TEST_F(Detached, IsPlacedBeforeItIsExecuted) {
  pid_t placed = 0;
  std::string program;
  const auto process = startDetached(script("echo $$ > '" + output.string() + "'"), [&](pid_t id) {
    placed = id;
    program = fs::read_symlink("/proc/" + std::to_string(id) + "/exe");
  });
  ASSERT_TRUE(process.has_value());
  EXPECT_TRUE(hasEnded(*process, 20'000));
  EXPECT_EQ(placed, process->processID);
  EXPECT_EQ(program, fs::read_symlink("/proc/self/exe"));
  EXPECT_EQ(readFile(output), std::to_string(placed) + '\n');
}

// Returns the parent of a process.
pid_t parentOf(pid_t process) {
  const std::string stat = readFile("/proc/" + std::to_string(process) + "/stat");
  std::istringstream fields(stat.substr(std::min(stat.rfind(')') + 1, stat.size())));
  std::string state;
  pid_t parent = 0;
  fields >> state >> parent;
  return parent;
}

// A parent that waits for it would keep what this process has open, and have to wake up first.
TEST_F(Detached, LosesItsParentBeforeItIsExecuted) {
  bool isLost = false;
  const auto process = startDetached(script("exit 0"), [&](pid_t id) {
    const pid_t parent = parentOf(id);
    const Descriptor end = endOfProcess(parent);
    pollfd event{end.get(), POLLIN, 0};
    isLost = parentOf(parent) != getpid() || !end || poll(&event, 1, 5'000) == 1;
  });
  ASSERT_TRUE(process.has_value());
  EXPECT_TRUE(isLost);
  EXPECT_TRUE(hasEnded(*process, 20'000));
}

// Tells whether nothing but this process keeps a pipe open while a process is placed. The framework
// opens its descriptors in gaps between those of the pipe.
bool isPipeClosedMeanwhile(const std::string& program) {
  std::array<int, 2> ends{};
  if (pipe2(ends.data(), O_CLOEXEC) != 0) return false;
  const Descriptor reader(ends[0]);
  std::vector<Descriptor> writers;
  writers.emplace_back(ends[1]);
  std::vector<Descriptor> gaps;
  constexpr int many = 40;
  for (int i = 0; i < many; ++i) {
    writers.emplace_back(fcntl(ends[1], F_DUPFD_CLOEXEC, 0));
    gaps.emplace_back(fcntl(ends[1], F_DUPFD_CLOEXEC, 0));
  }
  gaps.clear();
  bool isClosed = false;
  const auto process = startDetached(program, [&](pid_t) {
    writers.clear();
    pollfd end{reader.get(), POLLIN, 0};
    isClosed = poll(&end, 1, 5'000) == 1;
  });
  return process && isClosed && hasEnded(*process, 20'000);
}

TEST_F(Detached, KeepsNoDescriptorOpenWhileItIsPlaced) {
  const std::string path = script("exit 0");
  // Comes first: the thread sanitizer lets no thread begin after a fork beside another one, which
  // the thread of a placement may still be for a moment.
  const int status = test::runForked([&path] {
    test::failCall(SYS_close_range, ENOSYS);
    return isPipeClosedMeanwhile(path);
  });
  EXPECT_EQ(status, 0);
  EXPECT_TRUE(isPipeClosedMeanwhile(path));
}

TEST_F(Detached, IsExecutedAlsoIfItCannotBePlaced) {
  const auto process =
      startDetached(script("exit 0"), [](pid_t) { throw std::runtime_error("no place"); });
  ASSERT_TRUE(process.has_value());
  EXPECT_TRUE(hasEnded(*process, 20'000));
}

TEST_F(Detached, TellsWhyItCouldNotBeHeldBackToBePlaced) {
  const std::string path = script("exit 0");
  for (const auto& [call, error] : {std::pair(SYS_socketpair, EMFILE), {SYS_clone3, EAGAIN}}) {
    const int status = test::runForked([&, call = call, error = error] {
      bool isPlaced = false;
      test::failCall(call, error);
      const auto process = startDetached(path, [&](pid_t) { isPlaced = true; });
      return process && process->notPlaced == error && !isPlaced && hasEnded(*process, 20'000);
    });
    EXPECT_EQ(status, 0) << call;
  }
  EXPECT_EQ(startDetached(path, [](pid_t) {})->notPlaced, 0);
  EXPECT_EQ(startDetached(path)->notPlaced, 0);
}

TEST_F(Detached, IsPlacedAlthoughTheHostClosedItsStandardDescriptors) {
  const std::string path = script("exit 0");
  const int status = test::runForked([&path] {
    for (const int standard : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO}) close(standard);
    pid_t placed = 0;
    const auto process = startDetached(path, [&](pid_t id) { placed = id; });
    return process && placed == process->processID && hasEnded(*process, 20'000);
  });
  EXPECT_EQ(status, 0);
}

TEST_F(Detached, TellsWhyItCannotBeExecutedAlsoWhenItWasPlaced) {
  pid_t placed = 0;
  EXPECT_FALSE(startDetached(directory.path() / "missing", [&](pid_t id) { placed = id; }));
  EXPECT_EQ(errno, ENOENT);
  EXPECT_GT(placed, 0);
}

// The workers hold the descriptors by which a process waits to be placed.
TEST_F(Detached, IsPlacedAlthoughThisProcessForksWorkersMeanwhile) {
  constexpr std::chrono::seconds shorterThanItWouldWait(8);
  const auto begin = std::chrono::steady_clock::now();
  std::vector<pid_t> workers;
  const std::string program = script("exit 0");
  for (const std::string& path : {program, (directory.path() / "missing").string()}) {
    const auto process = startDetached(path, [&](pid_t) {
      const pid_t worker = fork();
      if (worker == 0) {
        pause();
        _exit(0);
      }
      if (worker > 0) workers.push_back(worker);
    });
    EXPECT_EQ(process.has_value(), path == program);
  }
  EXPECT_EQ(workers.size(), 2U);
  EXPECT_LT(std::chrono::steady_clock::now() - begin, shorterThanItWouldWait);
  for (const pid_t worker : workers) {
    kill(worker, SIGKILL);
    waitpid(worker, nullptr, 0);
  }
}

// The other end of a pipe stands for what the host has open: its reader sees the end of the host.
TEST_F(Detached, IsExecutedAtOnceIfTheHostEndsWhileItIsPlaced) {
  constexpr int shorterThanItWouldWait = 8'000;
  std::array<int, 2> ends{};
  ASSERT_EQ(pipe2(ends.data(), O_CLOEXEC), 0);
  const Descriptor reader(ends[0]);
  Descriptor writer(ends[1]);
  const fs::path fifo = directory.path() / "fifo";
  ASSERT_EQ(mkfifo(fifo.c_str(), 0600), 0);
  const std::string path = script("echo started > '" + fifo.string() + "'");
  const int status = test::runForked([&path] {
    startDetached(path, [](pid_t) { kill(getpid(), SIGKILL); });
    return false;
  });
  ASSERT_TRUE(WIFSIGNALED(status));
  writer = Descriptor();
  pollfd end{reader.get(), POLLIN, 0};
  EXPECT_EQ(poll(&end, 1, shorterThanItWouldWait), 1);
  EXPECT_EQ(readFile(fifo), "started\n");
}

TEST_F(Detached, IsGivenUpIfThereIsNoProcessToPlace) {
  const std::string path = script("exit 0");
  const int status = test::runForked([&path] {
    bool isPlaced = false;
    test::failCall(SYS_clone, EAGAIN);
    const auto process = startDetached(path, [&](pid_t) { isPlaced = true; });
    return !process && errno == EAGAIN && !isPlaced;
  });
  EXPECT_EQ(status, 0);
}

// A fork would copy the page tables of the host, with its other threads at a standstill.
TEST_F(Detached, DoesNotForkTheHost) {
  static std::atomic<int> forks;
  ASSERT_EQ(pthread_atfork([] { ++forks; }, nullptr, nullptr), 0);
  EXPECT_TRUE(startDetached(script("exit 0")).has_value());
  EXPECT_EQ(forks, 0);
}

// The workers inherit the descriptors that are open at their fork, and hold them until they end.
TEST_F(Detached, StartsAlthoughThisProcessForksWorkersMeanwhile) {
  constexpr std::size_t most = 300;
  // Written before the fork: a file that a worker has open for writing cannot be executed.
  const std::string program = script("echo started >> '" + output.string() + "'");
  std::atomic<bool> done{false};
  std::vector<pid_t> workers;
  std::thread forking([&] {
    while (!done && workers.size() < most) {
      const pid_t worker = fork();
      if (worker == 0) {
        pause();
        _exit(0);
      }
      if (worker > 0) workers.push_back(worker);
    }
  });
  constexpr int times = 5;
  for (int i = 0; i < times; ++i) {
    const auto process = startDetached(program);
    ASSERT_TRUE(process.has_value());
    EXPECT_TRUE(hasEnded(*process, 20'000));
  }
  EXPECT_FALSE(startDetached((directory.path() / "missing").string()).has_value());
  done = true;
  forking.join();
  EXPECT_FALSE(workers.empty());
  for (const pid_t worker : workers) {
    kill(worker, SIGKILL);
    waitpid(worker, nullptr, 0);
  }
  const std::string lines = readFile(output);
  EXPECT_EQ(std::ranges::count(lines, '\n'), times);
}

}  // namespace
}  // namespace qbdkr
