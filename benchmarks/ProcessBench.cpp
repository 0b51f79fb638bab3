// Measures how long it takes to find out that an application does not run, among so many processes,
// and prints the samples.

#include <dirent.h>
#include <signal.h>
#include <spawn.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <climits>
#include <cstdlib>
#include <string_view>
#include <vector>

#include <ClientComm/QBHPProcessList.h>

#include "Samples.h"

namespace {

using namespace qbdkr::bench;

// Children that do nothing until this object ends them.
class Crowd {
 public:
  explicit Crowd(int count) {
    for (int i = 0; i < count; ++i) {
      const pid_t process = fork();
      if (process < 0) fail("no more processes");
      if (process == 0) {
        prctl(PR_SET_PDEATHSIG, SIGKILL);
        for (;;) pause();
      }
      processes_.push_back(process);
    }
  }
  Crowd(const Crowd&) = delete;
  Crowd& operator=(const Crowd&) = delete;
  ~Crowd() {
    for (const pid_t process : processes_) kill(process, SIGKILL);
    for (const pid_t process : processes_) waitpid(process, nullptr, 0);
  }

 private:
  std::vector<pid_t> processes_;
};

void findApplication() {
  if (qbdkr::QBHPProcessList::share().applicationIsRunning("com.Acme.NotThere", "/")) {
    fail("found what is not there");
  }
}

void runPgrep() {
  pid_t process = 0;
  const std::array<const char*, 4> arguments{"pgrep", "-x", "NotThere", nullptr};
  int status = 0;
  if (posix_spawnp(&process, "pgrep", nullptr, nullptr, const_cast<char**>(arguments.data()),
                   environ) != 0 ||
      waitpid(process, &status, 0) != process || !WIFEXITED(status) || WEXITSTATUS(status) != 1) {
    fail("pgrep did not run");
  }
}

void walk() {
  DIR* table = opendir("/proc");
  if (table == nullptr) fail("no /proc");
  std::array<char, PATH_MAX> target{};
  while (const dirent* entry = readdir(table)) {
    if (entry->d_name[0] < '1' || entry->d_name[0] > '9') continue;
    const std::string link = std::string("/proc/") + entry->d_name + "/exe";
    if (readlink(link.c_str(), target.data(), target.size()) > 0 && target[0] != '/') {
      fail("a process has no executable");
    }
  }
  closedir(table);
}

}  // namespace

int main(int argc, char** argv) {
  const std::string_view reference = argc > 2 ? argv[2] : "";
  if (reference != "pgrep" && reference != "walk") fail("usage: ProcessBench COUNT pgrep|walk");
  const Crowd crowd(std::atoi(argv[1]));
  alternate(30, 3, findApplication, reference == "pgrep" ? runPgrep : walk);
}
