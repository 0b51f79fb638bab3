#pragma once

#include <sys/types.h>

#include <filesystem>
#include <functional>
#include <string>
#include <vector>

namespace qbdkr::test {

// The tests' own executable, started again for a task in a process of its own:
//   hold PATH               locks a path, says "locked", and waits for the end of its input
//   wait                    says "waiting", and waits for the end of its input
//   set DOMAIN KEY N        stores KEY0 to KEY(N-1) in a domain, one after the other
//   main-bundle             shows what its main bundle is
// main() calls this first.
bool isTask(int argc, char** argv);
int runTask(int argc, char** argv);

// The running executable.
std::filesystem::path ownExecutable();
// Puts the running executable at another path.
void putOwnExecutable(const std::filesystem::path& path);

// A process with pipes to and from it. It is ended, by the end of its input, when this is
// destroyed.
class Process {
 public:
  explicit Process(std::vector<std::string> arguments,
                   const std::filesystem::path& executable = ownExecutable());
  Process(const Process&) = delete;
  Process& operator=(const Process&) = delete;
  ~Process();

  [[nodiscard]] pid_t processID() const { return processID_; }
  // The next line of its output, without its end; "" at the end of the output.
  std::string readLine();
  std::string readAll();
  void kill();
  // Ends its input and waits for its end; the wait status.
  int finish();

 private:
  pid_t processID_ = 0;
  int input_ = -1;
  int output_ = -1;
};

// Runs a body in a child process, as a user without privileges where this one has them. True when
// the body says so.
bool asOrdinaryUser(const std::function<bool()>& body);

// Gives a tree to that user.
void giveToOrdinaryUser(const std::filesystem::path& root);

}  // namespace qbdkr::test
