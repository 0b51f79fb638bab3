#pragma once

#include <cstddef>
#include <filesystem>
#include <string>
#include <vector>

#include "support/ChildProcess.h"

namespace qbdkr::test {

// A system call that changes a directory or something below it.
struct GatedCall {
  std::string name;
  std::filesystem::path path;
  bool writes = false;      // writes or copies bytes, which can also be done by half
  bool needsSpace = false;  // fails on a full disk
};

// What goes wrong, and at which call.
struct Fault {
  enum class Kind {
    none,
    kill,         // the process ends before the call
    fail,         // this one call fails, and changes nothing
    killHalfWay,  // the process ends when half of its bytes are written
    fillHalfWay,  // half of its bytes are written, and there is no space from then on
  };
  Kind kind = Kind::none;
  std::size_t at = 0;  // the first call is 1
  int error = 0;       // what a call that fails says
};

struct GatedRun {
  std::vector<GatedCall> calls;  // in their order, the one at fault included
  int status = 0;                // of waitpid()
  std::vector<std::string> log;  // standard error
};

// Runs programs whose every change below a directory asks here first. The kernel stops the program
// at the call, so nothing is missed and nothing depends on time. Calls on anything else go through.
//
// Flushing is skipped and reported as done: it changes nothing that a killed process leaves, and a
// busy disk takes seconds for it.
class SystemCallGate {
 public:
  explicit SystemCallGate(const std::filesystem::path& directory);

  // Runs a program to its end. Throws when the system has no such gates, or at the deadline.
  [[nodiscard]] GatedRun run(const std::vector<std::string>& command, SpawnOptions options,
                             const Fault& fault = {}) const;

 private:
  std::filesystem::path directory_;
};

}  // namespace qbdkr::test
