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
  // Makes a process of root obey the permissions of files.
  bool obeyFilePermissions = false;
  std::optional<std::size_t> largestFile = {};
  // The words before the command, of a program that runs it.
  std::vector<std::string> runner = {};
  // Runs in the child right before exec(). May call only async-signal-safe functions.
  std::function<void()> beforeExec = {};
};

// Owns a child process with pipes for its three standard streams. The child is killed with its
// owner, and at the end of the thread that started it.
class ChildProcess {
 public:
  ChildProcess(const std::vector<std::string>& command, const SpawnOptions& options);
  ChildProcess(const ChildProcess&) = delete;
  ChildProcess& operator=(const ChildProcess&) = delete;
  ~ChildProcess();

  [[nodiscard]] pid_t processID() const { return processID_; }

  void write(const std::string& text);
  void closeInput() { input_ = Descriptor(); }

  // Waits for a line of standard output, or of standard error, and returns it. Skips the lines
  // before FROM. Throws an error with the last lines of both at the deadline, or at EOF.
  using LineTest = std::function<bool(const std::string&)>;
  std::string waitForOutput(const LineTest& accepts, std::size_t from = 0,
                            std::chrono::milliseconds time = patience);
  // Waits for the first line of standard output and returns it.
  std::string firstLine(std::chrono::milliseconds time = patience);
  std::string waitForLog(const LineTest& accepts, std::chrono::milliseconds time = patience);
  std::string waitForLog(const std::string& part, std::chrono::milliseconds time = patience);

  // Waits for EOF of standard output, or of standard error, and returns all lines.
  std::vector<std::string> outputToItsEnd(std::chrono::milliseconds time = patience);
  std::vector<std::string> logToItsEnd(std::chrono::milliseconds time = patience);

  [[nodiscard]] std::vector<std::string> output() const;
  [[nodiscard]] std::vector<std::string> log() const;
  [[nodiscard]] std::size_t logLinesWith(const std::string& part) const;

  void signal(int number) const;
  // Waits for the end and returns the wait status. Throws at the deadline.
  int wait(std::chrono::milliseconds time = patience);
  // Ends the child's input, then waits as wait() does. For a child that ends at EOF.
  int finish(std::chrono::milliseconds time = patience);
  // Waits for the end and returns whether the exit status is 0.
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

// Runs a program and returns its standard output. Throws unless the exit status is 0.
std::string outputOf(const std::vector<std::string>& command, const Environment& environment);

}  // namespace qbdkr::test
