#pragma once

#include <sys/types.h>

#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <functional>
#include <map>
#include <mutex>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include "Platform/Base/Descriptor.h"
#include "support/Patience.h"

namespace qbdkr::test {

using Environment = std::map<std::string, std::string>;

// Returns the environment of this process.
Environment ownEnvironment();

struct SpawnOptions {
  Environment environment = {};
  // Root ignores the permissions of files; a process started so does not.
  bool obeyFilePermissions = false;
  std::optional<std::size_t> largestFile = {};
  // Called in the child as the last thing: only what a signal handler may call.
  std::function<void()> beforeExec = {};
};

// A child process with pipes for its three standard streams. It is killed with its object, and at
// the end of the thread that started it.
class ChildProcess {
 public:
  ChildProcess(const std::vector<std::string>& command, const SpawnOptions& options);
  ChildProcess(const ChildProcess&) = delete;
  ChildProcess& operator=(const ChildProcess&) = delete;
  ~ChildProcess();

  [[nodiscard]] pid_t processID() const { return processID_; }

  void write(const std::string& text);
  void closeInput() { input_ = Descriptor(); }

  // The first line of standard output, or of standard error, from the given one on that a test
  // accepts. Throws, with all that the process wrote, at the deadline or when its output ends.
  using LineTest = std::function<bool(const std::string&)>;
  std::string waitForOutput(const LineTest& accepts, std::size_t from = 0,
                            std::chrono::milliseconds time = patience);
  // The first line of standard output, whatever it says.
  std::string firstLine(std::chrono::milliseconds time = patience);
  std::string waitForLog(const std::string& part, std::chrono::milliseconds time = patience);

  // Everything up to the end of standard output, or of standard error, for which it waits.
  std::vector<std::string> outputToItsEnd(std::chrono::milliseconds time = patience);
  std::vector<std::string> logToItsEnd(std::chrono::milliseconds time = patience);

  [[nodiscard]] std::vector<std::string> output() const;
  [[nodiscard]] std::vector<std::string> log() const;
  [[nodiscard]] std::size_t logLinesWith(const std::string& part) const;

  void signal(int number) const;
  // The status of waitpid(); throws at the deadline.
  int wait(std::chrono::milliseconds time = patience);
  // Ends the child's input, for a child that ends with it, and waits.
  int finish(std::chrono::milliseconds time = patience);
  // Exit status 0, within the deadline.
  [[nodiscard]] bool succeeds() { return wait() == 0; }
  void kill();

 private:
  struct Stream {
    Descriptor descriptor;
    std::string partial;
    std::vector<std::string> lines;
    bool ended = false;
  };

  void pump();
  std::vector<std::string> linesToTheEnd(const Stream& stream, std::chrono::milliseconds time);
  std::string waitFor(Stream& stream, const LineTest& accepts, std::size_t from,
                      std::chrono::milliseconds time, const std::string& what);
  [[nodiscard]] std::string everything() const;  // with the lock held
  [[nodiscard]] std::string howItEnded();

  std::string name_;
  pid_t processID_ = -1;
  std::optional<int> status_;
  Descriptor input_;
  Descriptor stopPump_;
  mutable std::mutex mutex_;
  std::condition_variable changed_;
  Stream output_;
  Stream error_;
  std::thread pump_;
};

// Runs a program to its end and gives what it wrote to standard output. Throws unless it succeeds.
std::string outputOf(const std::vector<std::string>& command, const Environment& environment);

}  // namespace qbdkr::test
