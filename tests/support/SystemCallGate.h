#pragma once

#include <cstddef>
#include <filesystem>
#include <string>
#include <vector>

#include "support/ChildProcess.h"

namespace qbdkr::test {

// Describes a system call that changes a directory or an entry below it.
struct GatedCall {
  std::string name;
  std::filesystem::path path;
  bool writes = false;      // writes or copies bytes, and can be done by half
  bool needsSpace = false;  // fails on a full disk
};

// Describes a failure, and the call at which it happens.
struct Fault {
  enum class Kind {
    none,
    kill,         // the process is killed before the call
    fail,         // this one call fails, and changes nothing
    killHalfWay,  // the process is killed when half of its bytes are written
    fillHalfWay,  // half of its bytes are written, and the disk is full from then on
  };
  Kind kind = Kind::none;
  std::size_t at = 0;  // the first call is 1
  int error = 0;       // the errno value of a call that fails
};

struct GatedRun {
  std::vector<GatedCall> calls;  // in their order, the one at fault included
  int status = 0;                // of waitpid()
  std::vector<std::string> log;  // standard error
};

// Runs programs and decides on each of their system calls that changes something below a directory.
// The kernel stops the program at the call, so no call is missed and nothing depends on time. All
// other calls go through.
//
// Skips a flush and reports it as done: it changes nothing that a killed process leaves, and a busy
// disk takes seconds for it.
class SystemCallGate {
 public:
  explicit SystemCallGate(const std::filesystem::path& directory);

  // Runs a program to its end. Throws if the system has no such gates, or at the deadline.
  [[nodiscard]] GatedRun run(const std::vector<std::string>& command, SpawnOptions options,
                             const Fault& fault = {}) const;

 private:
  std::filesystem::path directory_;
};

}  // namespace qbdkr::test
