#include "support/ChildProcess.h"

#include <fcntl.h>
#include <linux/capability.h>
#include <poll.h>
#include <signal.h>
#include <sys/eventfd.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <stdexcept>
#include <system_error>
#include <utility>

#include "Platform/Base/ArgumentPointers.h"
#include "support/ProcessEnd.h"

namespace qbdkr::test {
namespace {

using Clock = std::chrono::steady_clock;

[[noreturn]] void fail(const std::string& what) {
  throw std::system_error(errno, std::generic_category(), what);
}

std::pair<Descriptor, Descriptor> makePipe() {
  std::array<int, 2> ends{};
  if (pipe2(ends.data(), O_CLOEXEC) != 0) fail("pipe");
  return {Descriptor(ends[0]), Descriptor(ends[1])};
}

struct Plan {
  char* const* arguments;
  char* const* environment;
  int input;
  int output;
  int error;
  pid_t parent;
  bool obeyFilePermissions;
  const rlimit* largestFile;
  const std::function<void()>* beforeExec;
};

// Runs between fork and exec: calls only async-signal-safe functions.
[[noreturn]] void become(const Plan& plan) {
  prctl(PR_SET_PDEATHSIG, SIGKILL);
  if (getppid() != plan.parent) _exit(127);
  dup2(plan.input, STDIN_FILENO);
  dup2(plan.output, STDOUT_FILENO);
  dup2(plan.error, STDERR_FILENO);
  signal(SIGPIPE, SIG_DFL);
  if (plan.obeyFilePermissions) {  // fails without that privilege, which is fine
    for (const int capability : {CAP_DAC_OVERRIDE, CAP_DAC_READ_SEARCH, CAP_FOWNER}) {
      prctl(PR_CAPBSET_DROP, capability);
    }
  }
  if (plan.largestFile != nullptr) {
    signal(SIGXFSZ, SIG_IGN);
    setrlimit(RLIMIT_FSIZE, plan.largestFile);
  }
  if (*plan.beforeExec) (*plan.beforeExec)();
  execve(plan.arguments[0], plan.arguments, plan.environment);
  _exit(127);
}

}  // namespace

Environment ownEnvironment() {
  Environment variables;
  for (char** setting = environ; *setting != nullptr; ++setting) {
    const std::string text = *setting;
    const auto end = text.find('=');
    if (end != std::string::npos) variables.emplace(text.substr(0, end), text.substr(end + 1));
  }
  return variables;
}

ChildProcess::ChildProcess(const std::vector<std::string>& command, const SpawnOptions& options)
    : name_(command.at(0)) {
  auto texts = options.runner;
  texts.insert(texts.end(), command.begin(), command.end());
  std::vector<std::string> settings;
  for (const auto& [key, value] : options.environment) settings.push_back(key + '=' + value);
  const auto arguments = pointersTo(texts);
  const auto environment = pointersTo(settings);
  auto [inputRead, inputWrite] = makePipe();
  auto [outputRead, outputWrite] = makePipe();
  auto [errorRead, errorWrite] = makePipe();
  const rlimit limit{options.largestFile.value_or(0), options.largestFile.value_or(0)};
  const Plan plan{arguments.data(),
                  environment.data(),
                  inputRead.get(),
                  outputWrite.get(),
                  errorWrite.get(),
                  getpid(),
                  options.obeyFilePermissions,
                  options.largestFile ? &limit : nullptr,
                  &options.beforeExec};
  processID_ = fork();
  if (processID_ < 0) fail("fork");
  if (processID_ == 0) become(plan);
  input_ = std::move(inputWrite);
  output_.descriptor = std::move(outputRead);
  error_.descriptor = std::move(errorRead);
  stopPump_ = Descriptor(eventfd(0, EFD_CLOEXEC));
  pump_ = std::thread([this] { pump(); });
}

ChildProcess::~ChildProcess() {
  kill();
  const std::uint64_t one = 1;
  [[maybe_unused]] const auto written = ::write(stopPump_.get(), &one, sizeof one);
  pump_.join();
}

void ChildProcess::pump() {
  const std::array<Stream*, 2> streams{&output_, &error_};
  std::array<char, 65536> buffer{};
  while (!output_.ended || !error_.ended) {
    std::array<pollfd, 3> events{{{output_.ended ? -1 : output_.descriptor.get(), POLLIN, 0},
                                  {error_.ended ? -1 : error_.descriptor.get(), POLLIN, 0},
                                  {stopPump_.get(), POLLIN, 0}}};
    if (::poll(events.data(), events.size(), -1) < 0) continue;
    bool idle = true;
    for (std::size_t i = 0; i < streams.size(); ++i) {
      if (events[i].revents == 0) continue;
      idle = false;
      Stream& stream = *streams[i];
      const auto size = ::read(stream.descriptor.get(), buffer.data(), buffer.size());
      const std::lock_guard lock(mutex_);
      if (size <= 0) {
        stream.ended = true;
        if (!stream.partial.empty()) stream.lines.push_back(std::exchange(stream.partial, {}));
        continue;
      }
      stream.partial.append(buffer.data(), static_cast<std::size_t>(size));
      std::size_t start = 0;
      for (auto end = stream.partial.find('\n'); end != std::string::npos;
           end = stream.partial.find('\n', start)) {
        stream.lines.push_back(stream.partial.substr(start, end - start));
        start = end + 1;
      }
      stream.partial.erase(0, start);
    }
    changed_.notify_all();
    if (idle && events[2].revents != 0) return;
  }
}

void ChildProcess::write(const std::string& text) {
  ::signal(SIGPIPE, SIG_IGN);  // write() reports a child that has ended
  std::size_t done = 0;
  while (done < text.size()) {
    const auto written = ::write(input_.get(), text.data() + done, text.size() - done);
    if (written < 0 && errno == EINTR) continue;
    if (written < 0) fail("write to " + name_);
    done += static_cast<std::size_t>(written);
  }
}

std::string ChildProcess::everything() const {
  std::string text = name_ + "\n--- output\n";
  const auto add = [&text](const std::vector<std::string>& lines) {
    constexpr std::size_t most = 60;
    const std::size_t from = lines.size() > most ? lines.size() - most : 0;
    for (std::size_t i = from; i < lines.size(); ++i) text += lines[i].substr(0, 300) + '\n';
  };
  add(output_.lines);
  text += "--- log\n";
  add(error_.lines);
  return text;
}

std::string ChildProcess::waitFor(Stream& stream, const LineTest& accepts, std::size_t from,
                                  std::chrono::milliseconds time, const std::string& what) {
  const auto deadline = Clock::now() + time;
  std::unique_lock lock(mutex_);
  for (std::size_t next = from;;) {
    for (; next < stream.lines.size(); ++next) {
      if (accepts(stream.lines[next])) return stream.lines[next];
    }
    if (stream.ended) {
      const std::string all = everything();
      lock.unlock();
      throw std::runtime_error(what + ": it ended " + howItEnded() + ": " + all);
    }
    if (changed_.wait_until(lock, deadline) == std::cv_status::timeout) {
      throw std::runtime_error(what + ": not in time: " + everything());
    }
  }
}

std::string ChildProcess::howItEnded() {
  constexpr std::chrono::seconds moment(5);
  if (!status_ && !ProcessEnd(processID_).comesWithin(moment)) return "while the process goes on";
  const int status = wait();
  if (WIFSIGNALED(status)) return "by signal " + std::to_string(WTERMSIG(status));
  return "with status " + std::to_string(WEXITSTATUS(status));
}

std::string ChildProcess::waitForOutput(const LineTest& accepts, std::size_t from,
                                        std::chrono::milliseconds time) {
  return waitFor(output_, accepts, from, time, "waiting for a line of output");
}

std::string ChildProcess::firstLine(std::chrono::milliseconds time) {
  return waitForOutput([](const std::string&) { return true; }, 0, time);
}

std::string ChildProcess::waitForLog(const LineTest& accepts, std::chrono::milliseconds time) {
  return waitFor(error_, accepts, 0, time, "waiting for a line of the log");
}

std::string ChildProcess::waitForLog(const std::string& part, std::chrono::milliseconds time) {
  return waitFor(
      error_, [&](const std::string& line) { return line.find(part) != std::string::npos; }, 0,
      time, "waiting for \"" + part + "\" in the log");
}

std::vector<std::string> ChildProcess::outputToItsEnd(std::chrono::milliseconds time) {
  return linesToTheEnd(output_, time);
}

std::vector<std::string> ChildProcess::logToItsEnd(std::chrono::milliseconds time) {
  return linesToTheEnd(error_, time);
}

std::vector<std::string> ChildProcess::linesToTheEnd(const Stream& stream,
                                                     std::chrono::milliseconds time) {
  std::unique_lock lock(mutex_);
  if (!changed_.wait_for(lock, time, [&stream] { return stream.ended; })) {
    throw std::runtime_error("waiting for the end of the output: not in time: " + everything());
  }
  return stream.lines;
}

std::vector<std::string> ChildProcess::output() const {
  const std::lock_guard lock(mutex_);
  return output_.lines;
}

std::vector<std::string> ChildProcess::log() const {
  const std::lock_guard lock(mutex_);
  return error_.lines;
}

std::size_t ChildProcess::logLinesWith(const std::string& part) const {
  const auto lines = log();
  return static_cast<std::size_t>(std::ranges::count_if(
      lines, [&](const std::string& line) { return line.find(part) != std::string::npos; }));
}

void ChildProcess::signal(int number) const {
  if (!status_) ::kill(processID_, number);
}

int ChildProcess::wait(std::chrono::milliseconds time) {
  if (status_) return *status_;
  if (!ProcessEnd(processID_).comesWithin(time)) {
    const std::lock_guard lock(mutex_);
    throw std::runtime_error("waiting for the end: not in time: " + everything());
  }
  int status = 0;
  if (waitpid(processID_, &status, 0) != processID_) fail("waitpid");
  status_ = status;
  return status;
}

int ChildProcess::finish(std::chrono::milliseconds time) {
  closeInput();
  return wait(time);
}

void ChildProcess::kill() {
  if (status_) return;
  ::kill(processID_, SIGKILL);
  wait();
}

std::string outputOf(const std::vector<std::string>& command, const Environment& environment) {
  ChildProcess child(command, {.environment = environment});
  child.closeInput();
  if (const int status = child.wait(); status != 0) {
    throw std::runtime_error(command.at(0) + " failed with status " + std::to_string(status));
  }
  std::string text;
  for (const std::string& line : child.outputToItsEnd()) text += line + '\n';
  return text;
}

}  // namespace qbdkr::test
