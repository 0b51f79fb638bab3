// Lets four supervised hosts call their helper agent for an hour, while it is killed and upgraded
// again and again. Checks that nothing acknowledged is lost, that nothing is served twice, that two
// helper agents never serve at the same time, that one always answers again soon, and that the
// resources of the hosts do not grow.

#include <signal.h>

#include <algorithm>
#include <chrono>
#include <cstddef>
#include <iterator>
#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

#include "support/Ledger.h"
#include "support/LongRun.h"
#include "support/Patience.h"
#include "support/ResourceUse.h"
#include "support/Scene.h"

namespace qbdkr::test {
namespace {

using Clock = std::chrono::steady_clock;
using std::chrono::milliseconds;
using std::chrono::seconds;

constexpr std::size_t hostCount = 4;
constexpr seconds upgradePatience(30);

// Comes again and again.
class Schedule {
 public:
  Schedule(Clock::time_point first, Clock::duration interval) : next_(first), interval_(interval) {}

  bool isDue() {
    if (Clock::now() < next_) return false;
    next_ += interval_;
    return true;
  }

 private:
  Clock::time_point next_;
  Clock::duration interval_;
};

using Samples = std::vector<ResourceFigures>;

struct Resource {
  const char* name;
  std::size_t ResourceFigures::*figure;
  long allowedGrowth;
};
// A host remembers the information of up to 256 bundles whose processes it has met, those of the
// upgrades and of other programs: that much memory may be added after the first quarter. Its share
// of common pages grows when other programs end.
constexpr Resource resources[] = {
    {"share of memory, kB", &ResourceFigures::share, 2048},
    {"anonymous memory, kB", &ResourceFigures::anonymous, 512},
    {"threads", &ResourceFigures::threads, 0},
    {"descriptors", &ResourceFigures::descriptors, 0},
};

// Returns the median of the samples between two parts of the run.
long medianOf(const Samples& samples, const Resource& resource, double from, double to) {
  const auto place = [&](double part) {
    return static_cast<std::ptrdiff_t>(part * static_cast<double>(samples.size()));
  };
  std::vector<long> values;
  std::transform(
      samples.begin() + place(from), samples.begin() + place(to), std::back_inserter(values),
      [&](const ResourceFigures& figures) { return static_cast<long>(figures.*resource.figure); });
  return quantile(values, 0.5);
}

class Soak {
 public:
  explicit Soak(const Options& options)
      : options_(options), ledger_(scene_.directory() / "served"), samples_(hostCount) {
    scene_.environment()["QBDKR_PROBE_TRANSCRIPT"] = (scene_.directory() / "served").string();
  }

  std::vector<std::string> run() {
    start();
    const auto begin = Clock::now();
    const auto end = begin + std::chrono::minutes(options_.at("--minutes"));
    const seconds killInterval(options_.at("--kill-every"));
    const seconds upgradeInterval(options_.at("--upgrade-every"));
    Schedule kills(begin + killInterval / 2, killInterval);
    Schedule upgrades(begin + upgradeInterval, upgradeInterval);
    Schedule samples(begin, seconds(1));
    Schedule reports(begin + std::chrono::minutes(1), std::chrono::minutes(1));
    while (Clock::now() < end) {
      rest(milliseconds(100));
      ledger_.update();
      if (kills.isDue()) kill();
      if (upgrades.isDue() && !upgrading_) beginUpgrade();
      finishUpgrade();
      if (samples.isDue()) sample();
      if (reports.isDue()) report();
    }
    stop();
    return judged();
  }

 private:
  void start() {
    for (std::size_t i = 0; i < hostCount; ++i) startHost("Host" + std::to_string(i));
    const auto interval = hostCount * 1'000'000 / options_.at("--rate");
    for (const auto& host : hosts_) {
      host->call("supervise 30000");
      loads_.push_back(host->begin("load " + scene_.helperID() + ' ' +
                                   ledger_.add(host->identifier()) + ' ' +
                                   std::to_string(interval) + " 1"));
    }
    for (const auto deadline = Clock::now() + patience; ledger_.latest().process == 0;) {
      if (Clock::now() > deadline) throw std::runtime_error("no helper agent answers");
      rest(milliseconds(10));
      ledger_.update();
    }
    static_cast<void>(ledger_.takeLongestGap());
  }

  // Lets the host start the helper agent once: it keeps a descriptor of the last one that it
  // started.
  void startHost(const std::string& name) {
    hosts_.push_back(scene_.start(
        scene_.makeHost(name, "1.0", {{"CFBundleIdentifier", scene_.identifier(name)}})));
    HostProcess& host = *hosts_.back();
    host.call("share");
    if (host.call("launch") != "yes") throw std::runtime_error("no helper agent can be started");
    scene_.killHelper(host);
    if (host.call("restart") != "0") throw std::runtime_error("no helper agent can be restarted");
  }

  void kill() {
    for (const pid_t process : Scene::processesIn(scene_.installDirectory())) {
      ::kill(process, SIGKILL);
      ++kills_;
    }
  }

  // Starts a host with a newer helper agent, as after an update of that product.
  void beginUpgrade() {
    newVersion_ = "1." + std::to_string(upgrades_ + 1);
    const std::string name = "Upgrade" + std::to_string(upgrades_ + 1);
    upgrading_ = scene_.start(scene_.makeHost(
        name, newVersion_,
        {{"CFBundleIdentifier", scene_.identifier(name)}, {"Helper is supervised", "1"}}));
    upgrading_->call("share");
    upgradeDeadline_ = Clock::now() + upgradePatience;
  }

  void finishUpgrade() {
    if (!upgrading_) return;
    if (ledger_.latest().version != newVersion_) {
      if (Clock::now() < upgradeDeadline_) return;
      throw std::runtime_error("version " + newVersion_ + " does not answer");
    }
    upgrading_->quit();
    upgrading_.reset();
    ++upgrades_;
  }

  void sample() {
    mostProcesses_ = std::max(mostProcesses_, Scene::processesIn(scene_.installDirectory()).size());
    for (std::size_t i = 0; i < hostCount; ++i) {
      samples_[i].push_back(resourceFigures(hosts_[i]->processID()));
    }
  }

  void noteGap() {
    gaps_.push_back(ledger_.takeLongestGap().count());
    if (milliseconds(gaps_.back()) <= longestGap) return;
    failures_.push_back("none answered for " + std::to_string(gaps_.back()) + " ms in minute " +
                        std::to_string(gaps_.size()));
  }

  [[nodiscard]] std::size_t anonymousMemory() const {
    std::size_t sum = 0;
    for (const Samples& samples : samples_) sum += samples.back().anonymous;
    return sum;
  }

  void report() {
    noteGap();
    const auto& counts = ledger_.counts();
    say("minute " + std::to_string(gaps_.size()) + ": served " + std::to_string(counts.served) +
        ", kills " + std::to_string(kills_) + ", upgrades " + std::to_string(upgrades_) +
        ", longest gap " + std::to_string(gaps_.back()) + " ms, memory of the hosts " +
        std::to_string(anonymousMemory()) + " kB, faults " +
        std::to_string(ledger_.faults().size()));
  }

  void stop() {
    noteGap();
    for (const auto& host : hosts_) host->call("end-load");
    for (std::size_t i = 0; i < hostCount; ++i) hosts_[i]->finish(loads_[i]);
    ledger_.update();
    for (const auto& host : hosts_) host->quit();
  }

  void judgeResource(const Resource& resource, std::size_t host) {
    const long before = medianOf(samples_[host], resource, 0.1, 0.25);
    const long after = medianOf(samples_[host], resource, 0.85, 1);
    const std::string what = "host " + std::to_string(host) + ", " + resource.name;
    const std::string figures = std::to_string(before) + " -> " + std::to_string(after);
    sayFigure(what, figures);
    if (before == 0 || after > before + resource.allowedGrowth) {
      failures_.push_back(what + ": " + figures);
    }
  }

  std::vector<std::string> judged() {
    const auto& counts = ledger_.counts();
    sayFigure("minutes, kills, upgrades", std::to_string(options_.at("--minutes")) + ", " +
                                              std::to_string(kills_) + ", " +
                                              std::to_string(upgrades_));
    sayFigure("requests that were answered", std::to_string(counts.answered));
    sayFigure("posts that were taken", std::to_string(counts.taken));
    sayFigure("requests that were served", std::to_string(counts.served));
    for (const auto& [status, count] : counts.failed) {
      sayFigure("requests that failed with " + status, std::to_string(count));
      if (status != "-600" && status != "-609") failures_.push_back("a status of " + status);
    }
    sayFigure("starts of the helper agent", std::to_string(counts.starts));
    sayFigure("processes of the helper agent, at most", std::to_string(mostProcesses_));
    sayFigure("longest gap, ms: median, most of a minute",
              std::to_string(quantile(gaps_, 0.5)) + ", " + std::to_string(quantile(gaps_, 1)));
    for (std::size_t host = 0; host < hostCount; ++host) {
      for (const Resource& resource : resources) judgeResource(resource, host);
    }
    const auto& faults = ledger_.faults();
    failures_.insert(failures_.end(), faults.begin(), faults.end());
    if (kills_ == 0 || counts.taken == 0) failures_.emplace_back("too little has happened");
    if (failures_.empty()) say("soak passed");
    return failures_;
  }

  Options options_;
  Scene scene_;
  Ledger ledger_;
  std::vector<std::unique_ptr<HostProcess>> hosts_;
  std::vector<std::string> loads_;
  std::vector<Samples> samples_;
  std::unique_ptr<HostProcess> upgrading_;
  std::string newVersion_;
  Clock::time_point upgradeDeadline_;
  std::size_t kills_ = 0;
  std::size_t upgrades_ = 0;
  std::size_t mostProcesses_ = 0;
  std::vector<long> gaps_;  // the longest of each minute
  std::vector<std::string> failures_;
};

}  // namespace
}  // namespace qbdkr::test

int main(int argc, char** argv) {
  using namespace qbdkr::test;
  return runLong([&] {
    const auto options = parsedOptions(
        {argv + 1, argv + argc},
        {{"--minutes", 60}, {"--kill-every", 30}, {"--upgrade-every", 300}, {"--rate", 200}});
    return Soak(options).run();
  });
}
