// Measures how long a killed helper agent is missed: from SIGKILL to the next answer, under
// supervision, and, in the same run, under a bare loop that executes the program and waits for it.

#include <signal.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <chrono>
#include <cstdio>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

#include "Platform/Base/ArgumentPointers.h"
#include "support/LongRun.h"
#include "support/Patience.h"
#include "support/ProcessEnd.h"
#include "support/Scene.h"

namespace qbdkr::test {
namespace {

using Clock = std::chrono::steady_clock;
using Microseconds = std::vector<long>;

// More would be held back.
constexpr int killsOfOneScene = 4;

const std::string clientIdentifier = " QBHPGetDataByHelper clientIDFormHelper";

// Starts a program again and again, as long as this object lives.
class BareLoop {
 public:
  BareLoop(const std::string& program, const Environment& environment) : process_(fork()) {
    if (process_ != 0) return;
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    std::vector<std::string> texts;
    for (const auto& [name, value] : environment) texts.push_back(name + '=' + value);
    const auto variables = pointersTo(texts);
    std::string path = program;
    std::array<char*, 2> arguments{path.data(), nullptr};
    for (;;) {
      const pid_t child = vfork();
      if (child == 0) {
        execve(arguments[0], arguments.data(), variables.data());
        _exit(127);
      }
      waitpid(child, nullptr, 0);
    }
  }
  BareLoop(const BareLoop&) = delete;
  BareLoop& operator=(const BareLoop&) = delete;
  ~BareLoop() {
    ::kill(process_, SIGKILL);
    waitpid(process_, nullptr, 0);
  }

 private:
  pid_t process_;
};

class Recovery {
 public:
  explicit Recovery(bool isSupervised)
      : host_(scene_.startAndShare(
            scene_.makeHost("Host", "1.0", {{"Helper is supervised", isSupervised ? "1" : "0"}}))),
        asker_(scene_.start(scene_.makeHostWithoutHelper("Asker"))) {
    if (isSupervised) return;
    host_->quit();
    const ProcessEnd end(scene_.helperProcess());
    ::kill(scene_.helperProcess(), SIGKILL);
    if (!end.comesWithin(patience)) throw std::runtime_error("the helper agent does not end");
    loop_.emplace((scene_.installedHelper() / "Contents/Linux/HelperProbe").string(),
                  scene_.options().environment);
    scene_.transcript().waitForCount(" started version", 2);
    const auto deadline = Clock::now() + patience;
    while (!answer().starts_with("0 ")) {
      if (Clock::now() > deadline) throw std::runtime_error("the bare loop gives no answer");
    }
  }

  // Kills the helper agent, and stores how long no other one answered.
  void measure(Microseconds& times) {
    const pid_t helper = scene_.helperProcess();
    asker_->call("watch-for-return " + scene_.helperID());
    const auto asking = asker_->begin("ask-at-return " + scene_.helperID() + clientIdentifier);
    const auto begin = Clock::now();
    ::kill(helper, SIGKILL);
    const auto next = asker_->finish(asking);
    const auto time = Clock::now() - begin;
    if (!next.starts_with("0 ")) throw std::runtime_error("no answer after the return: " + next);
    times.push_back(std::chrono::ceil<std::chrono::microseconds>(time).count());
  }

 private:
  std::string answer() { return asker_->call("ask " + scene_.helperID() + clientIdentifier); }

  Scene scene_;
  std::unique_ptr<HostProcess> host_;
  std::unique_ptr<HostProcess> asker_;
  std::optional<BareLoop> loop_;
};

std::string milliseconds(const Microseconds& times) {
  std::array<char, 64> text{};
  std::snprintf(text.data(), text.size(), "%.2f ms (quartiles %.2f and %.2f, %zu kills)",
                static_cast<double>(quantile(times, 0.5)) / 1000,
                static_cast<double>(quantile(times, 0.25)) / 1000,
                static_cast<double>(quantile(times, 0.75)) / 1000, times.size());
  return text.data();
}

std::vector<std::string> run(unsigned long scenes) {
  Microseconds supervised;
  Microseconds bare;
  for (; scenes > 0; --scenes) {
    Recovery ours(true);
    Recovery theirs(false);
    for (int kills = 0; kills < killsOfOneScene; ++kills) {
      ours.measure(supervised);
      theirs.measure(bare);
    }
    rest({});
  }
  sayFigure("under supervision", milliseconds(supervised));
  sayFigure("under a bare loop", milliseconds(bare));
  const double ratio =
      static_cast<double>(quantile(supervised, 0.5)) / static_cast<double>(quantile(bare, 0.5));
  sayFigure("ratio of the medians", std::to_string(ratio).substr(0, 4));
  return {};
}

}  // namespace
}  // namespace qbdkr::test

int main(int argc, char** argv) {
  using namespace qbdkr::test;
  return runLong([&] {
    const auto options = parsedOptions({argv + 1, argv + argc}, {{"--recovery", 10}});
    return run(options.at("--recovery"));
  });
}
