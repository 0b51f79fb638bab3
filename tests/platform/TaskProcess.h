#pragma once

#include <filesystem>
#include <string>
#include <vector>

#include "support/ChildProcess.h"
#include "support/OwnExecutable.h"

namespace qbdkr::test {

// Runs the tests' own executable again, for a task:
//   hold PATH               locks a path, says "locked", and waits for the end of its input
//   wait                    says "waiting", and waits for the end of its input
//   hide USER               becomes a user, hides its files in /proc from that user, says
//                           "hidden", and waits for the end of its input
//   set DOMAIN KEY N        stores KEY0 to KEY(N-1) in a domain, one after the other
//   main-bundle             prints path, identifier, name and executable of its main bundle
class TaskProcess : public ChildProcess {
 public:
  explicit TaskProcess(const std::vector<std::string>& arguments,
                       const std::filesystem::path& executable = ownExecutable());
};

// Call these first in main().
bool isTask(int argc, char** argv);
int runTask(int argc, char** argv);

}  // namespace qbdkr::test
