// Lets two hosts, one of them supervised, make 200 guarded requests a second each for five minutes,
// while their helper agents exit at once. Counts how often these are started.

#include <array>
#include <chrono>
#include <cstddef>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "support/LongRun.h"
#include "support/Scene.h"

namespace qbdkr::test {
namespace {

using Clock = std::chrono::steady_clock;

// For five minutes: five at first, one after 1 s, after 2 s more, and so on up to 60 s.
constexpr std::size_t mostStarts = 15;

class Host {
 public:
  explicit Host(std::string supervision) : supervision_(std::move(supervision)) {
    scene_.environment()["QBDKR_PROBE_MODE"] = "exit-at-once";
    host_ = scene_.start(scene_.makeHost("Host", "1.0", {{"Helper is supervised", supervision_}}));
    host_->call("share");
  }

  void request(const std::string& count) {
    host_->call("guarded " + count);
    requests_ += std::stoul(count);
  }

  // Returns the failures.
  std::vector<std::string> judged() {
    const auto starts = scene_.transcript().count(" started version");
    const std::string name = supervision_ == "1" ? "with supervision" : "without supervision";
    const std::string figures =
        std::to_string(requests_) + " requests, " + std::to_string(starts) + " starts";
    sayFigure(name, figures);
    if (starts > 1 && starts <= mostStarts) return {};
    return {name + ": " + figures};
  }

 private:
  std::string supervision_;
  Scene scene_;
  std::unique_ptr<HostProcess> host_;
  std::size_t requests_ = 0;
};

std::vector<std::string> run(std::chrono::minutes time) {
  constexpr std::chrono::milliseconds interval(50);
  std::array<Host, 2> hosts{Host("0"), Host("1")};
  const auto begin = Clock::now();
  for (auto next = begin; next < begin + time; next += interval) {
    rest(std::chrono::ceil<std::chrono::milliseconds>(next - Clock::now()));
    for (Host& host : hosts) host.request("10");
  }
  auto failures = hosts[0].judged();
  for (auto& failure : hosts[1].judged()) failures.push_back(std::move(failure));
  if (failures.empty()) say("crash loop passed");
  return failures;
}

}  // namespace
}  // namespace qbdkr::test

int main(int argc, char** argv) {
  using namespace qbdkr::test;
  return runLong([&] {
    const auto options = parsedOptions({argv + 1, argv + argc}, {{"--crash-loop", 5}});
    return run(std::chrono::minutes(options.at("--crash-loop")));
  });
}
