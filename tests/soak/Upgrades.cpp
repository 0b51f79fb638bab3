// Upgrades the helper agent a thousand times in a row, and kills the upgrading host, the helper
// agent, or both at random moments of some. The host of the version before is alive all the time.
// Checks after each round that one helper agent runs, that it is the installed one, and that the
// installed copy is whole. Measures for how long no helper agent answers.

#include <signal.h>

#include <algorithm>
#include <chrono>
#include <cstddef>
#include <filesystem>
#include <memory>
#include <optional>
#include <random>
#include <stdexcept>
#include <string>
#include <vector>

#include "support/Ledger.h"
#include "support/LongRun.h"
#include "support/Patience.h"
#include "support/ProbeText.h"
#include "support/Programs.h"
#include "support/Scene.h"

namespace qbdkr::test {
namespace {

namespace fs = std::filesystem;
using Clock = std::chrono::steady_clock;
using std::chrono::milliseconds;

constexpr std::chrono::seconds settlingPatience(20);
// Of an upgrade without a kill, beside the time in which the helper agent itself starts.
constexpr long longestHandOver = 150;
// The upgrade of a host is about over within this time, in milliseconds, on a quiet machine.
constexpr int killRange = 60;

// The moments of a round at which processes are killed, counted from the host's start-up on; of the
// new helper agent, from its start on.
struct Plan {
  std::optional<milliseconds> host;
  std::optional<milliseconds> helper;
  std::optional<milliseconds> newHelper;

  [[nodiscard]] bool kills() const { return host || helper || newHelper; }
};

class Upgrades {
 public:
  explicit Upgrades(const Options& options)
      : rounds_(options.at("--upgrades")),
        ledger_(scene_.directory() / "served"),
        alone_(scene_.directory() / "Alone", "Alone",
               {{"CFBundleIdentifier", scene_.identifier("Alone")}}, helperProbe()),
        aloneLedger_(alonePath()),
        random_(options.at("--seed")) {
    scene_.environment()["QBDKR_PROBE_TRANSCRIPT"] = (scene_.directory() / "served").string();
  }

  std::vector<std::string> run() {
    startPoller();
    current_ = makeHost("1.0");
    newHost_ = start(*current_);
    awaitSettled("1.0", Clock::now());
    host_ = std::move(newHost_);
    for (round_ = 1; round_ <= rounds_; ++round_) {
      if (round_ % 10 == 1) measureStart();
      upgrade("1." + std::to_string(round_));
      if (round_ % 100 == 0) say("round " + std::to_string(round_));
    }
    poller_->call("end-load");
    return judged();
  }

 private:
  void startPoller() {
    const auto bundle = scene_.makeHostWithoutHelper(
        "Poller", {{"CFBundleIdentifier", scene_.identifier("Poller")}});
    poller_ = scene_.start(bundle);
    poll(scene_.helperID(), ledger_.add(bundle.identifier()));
    poll(alone_.identifier(), aloneLedger_.add(bundle.identifier()));
  }

  void poll(const std::string& identifier, const std::string& file) {
    poller_->begin("load " + identifier + ' ' + file + " 2000 0");  // microseconds, no posts
  }

  // Measures how long a helper agent takes from its start to its first answer, by itself: as one of
  // another product, on the same machine under the same load.
  void measureStart() {
    auto options = scene_.options();
    options.environment["QBDKR_PROBE_TRANSCRIPT"] = alonePath().string();
    const auto begin = Clock::now();
    const ChildProcess process({alone_.executable().string()}, options);
    awaitTrue([&] {
      aloneLedger_.update();
      return aloneLedger_.latest().process == process.processID();
    });
    starts_.push_back(inMilliseconds(aloneLedger_.latest().time - begin));
  }

  [[nodiscard]] fs::path alonePath() const { return scene_.directory() / "served-alone"; }

  TestBundle makeHost(const std::string& version) {
    auto bundle = scene_.makeHost("Host-" + version, version, {{"Helper is supervised", "1"}});
    constexpr std::size_t size = 300'000;
    writeFile(helperOf(bundle) / "Contents/Resources/data",
              patternText(size, static_cast<unsigned>(round_)));
    return bundle;
  }

  static fs::path helperOf(const TestBundle& host) { return host.resources() / "ProbeHelper.app"; }

  std::unique_ptr<HostProcess> start(const TestBundle& bundle) {
    auto host = scene_.start(bundle);
    host->begin("share");
    return host;
  }

  void upgrade(const std::string& version) {
    const TestBundle bundle = makeHost(version);
    plan_ = makePlan();
    static_cast<void>(ledger_.takeLongestGap());
    newHost_ = start(bundle);
    const auto killed = carryOutPlan();
    if (plan_.host) {
      awaitSettled("", killed);
      noteInterrupted(bundle);
      newHost_ = start(bundle);
    }
    awaitSettled(version, killed);
    auto& gaps = plan_.kills() ? gapsWithKills_ : gaps_;
    const auto gap = ledger_.takeLongestGap();
    gaps.push_back(gap.count());
    if (gap > longestGap) fail("none answered for " + std::to_string(gap.count()) + " ms");
    if (treeDigest(scene_.installedHelper()) != treeDigest(helperOf(bundle))) {
      fail("the installed copy is not that of the host");
    }
    host_->quit();
    fs::remove_all(current_->path());
    host_ = std::move(newHost_);
    current_ = bundle;
  }

  Plan makePlan() {
    const auto moment = [this] { return milliseconds(drawn(killRange)); };
    constexpr int startRange = 10;
    Plan plan;
    switch (drawn(8)) {
      case 0:
        plan.host = moment();
        break;
      case 1:
        plan.helper = moment();
        break;
      case 2:
        plan.host = moment();
        plan.helper = moment();
        break;
      case 3:
        plan.newHelper = milliseconds(drawn(startRange));
        break;
      default:
        break;
    }
    return plan;
  }

  // Does not depend on the library's distributions: a seed gives the same run everywhere.
  int drawn(int end) { return static_cast<int>(random_() % static_cast<unsigned>(end)); }

  // Returns the time of the last kill.
  Clock::time_point carryOutPlan() {
    const auto begin = Clock::now();
    const auto await = [begin](milliseconds moment) {
      rest(std::chrono::ceil<milliseconds>(begin + moment - Clock::now()));
    };
    const bool helperIsFirst = plan_.helper && (!plan_.host || *plan_.helper <= *plan_.host);
    if (plan_.newHelper) {
      awaitTrue([this, old = ledger_.latest().process] {
        const auto processes = helperProcesses();
        return !processes.empty() && processes.back() != old;
      });
      rest(*plan_.newHelper);
      killHelper();
    }
    if (helperIsFirst) {
      await(*plan_.helper);
      killHelper();
    }
    if (plan_.host) {
      await(*plan_.host);
      newHost_->process().kill();
    }
    if (plan_.helper && !helperIsFirst) {
      await(*plan_.helper);
      killHelper();
    }
    return Clock::now();
  }

  void killHelper() const {
    for (const pid_t process : helperProcesses()) ::kill(process, SIGKILL);
  }

  [[nodiscard]] std::vector<pid_t> helperProcesses() const {
    return Scene::processesIn(scene_.installDirectory());
  }

  // Notes which copy a killed host has left. It may have left unfinished work beside it, too.
  void noteInterrupted(const TestBundle& bundle) {
    const auto installed = treeDigest(scene_.installedHelper());
    if (installed == treeDigest(helperOf(bundle))) {
      ++leftNew_;
    } else if (installed == treeDigest(helperOf(*current_))) {
      ++leftOld_;
    } else {
      fail("the installed copy is damaged");
    }
    if (!scene_.stagingLeftovers().empty()) ++leftWork_;
  }

  // Waits until one helper agent runs and answers, and is the installed one; and if a version is
  // given, until it has that version and nothing else is left of its installation.
  void awaitSettled(const std::string& version, Clock::time_point since) {
    awaitTrue([&] {
      ledger_.update();
      return isSettled(version, since);
    });
    if (version.empty()) return;
    // Waits for the lock of what this host still does to the installed copy.
    newHost_->call("extract");
    if (!isSettled(version, since)) fail("not settled any more");
  }

  [[nodiscard]] bool isSettled(const std::string& version, Clock::time_point since) const {
    const auto& latest = ledger_.latest();
    const bool isWanted =
        version.empty() || (latest.version == version && scene_.stagingLeftovers().empty());
    return latest.time > since && isWanted && latest.version == installedVersion() &&
           helperProcesses() == std::vector{latest.process} && isInstalled(latest.process);
  }

  template <class Condition>
  void awaitTrue(Condition holds) {
    for (const auto deadline = Clock::now() + settlingPatience; !holds();) {
      if (Clock::now() > deadline) throw std::runtime_error(described("not settled"));
      rest(milliseconds(2));
    }
  }

  [[nodiscard]] bool isInstalled(pid_t process) const {
    std::error_code gone;
    return fs::read_symlink("/proc/" + std::to_string(process) + "/exe", gone) ==
           scene_.installedHelper() / "Contents/Linux/HelperProbe";
  }

  [[nodiscard]] std::string installedVersion() const {
    const std::string text = readFile(scene_.installedHelper() / "Contents/Info.plist");
    const std::string start = "<key>CFBundleVersion</key><string>";
    const auto place = text.find(start);
    if (place == std::string::npos) return "none";
    const auto from = place + start.size();
    return text.substr(from, text.find('<', from) - from);
  }

  [[nodiscard]] std::string described(const std::string& what) const {
    std::string text = "round " + std::to_string(round_) + ": " + what + "; installed " +
                       installedVersion() + ", answered by " + ledger_.latest().version +
                       ", processes";
    for (const pid_t process : helperProcesses()) {
      text += ' ' + std::to_string(process) + (isInstalled(process) ? "" : " (replaced)");
    }
    for (const auto& name : scene_.stagingLeftovers()) text += ", " + name;
    if (plan_.host) text += "\n  host killed at " + std::to_string(plan_.host->count()) + " ms";
    if (plan_.helper)
      text += "\n  helper killed at " + std::to_string(plan_.helper->count()) + " ms";
    for (HostProcess* host : {host_.get(), newHost_.get()}) {
      if (host == nullptr) continue;
      for (const auto& line : host->process().log()) text += "\n  " + line;
    }
    return text;
  }

  void fail(const std::string& what) { failures_.push_back(described(what)); }

  static long inMilliseconds(Clock::duration time) {
    return std::chrono::duration_cast<milliseconds>(time).count();
  }

  static void sayTimes(const std::string& name, const std::vector<long>& times) {
    sayFigure(name + " (" + std::to_string(times.size()) + ")",
              std::to_string(quantile(times, 0.5)) + ", " + std::to_string(quantile(times, 0.95)) +
                  ", " + std::to_string(quantile(times, 1)));
  }

  std::vector<std::string> judged() {
    say("In milliseconds: median, 95th percentile, longest");
    sayTimes("start of the helper agent by itself", starts_);
    sayTimes("no answer, upgrade without a kill", gaps_);
    sayTimes("no answer, upgrade with kills", gapsWithKills_);
    sayFigure("a killed host left the old copy, the new one",
              std::to_string(leftOld_) + ", " + std::to_string(leftNew_));
    sayFigure("a killed host left unfinished work", std::to_string(leftWork_));
    sayFigure("requests that were answered", std::to_string(ledger_.counts().answered));
    sayFigure("starts of the helper agent", std::to_string(ledger_.counts().starts));
    if (quantile(gaps_, 0.95) > longestHandOver + quantile(starts_, 0.95)) {
      failures_.emplace_back("the hand-over takes too long");
    }
    const auto& faults = ledger_.faults();
    failures_.insert(failures_.end(), faults.begin(), faults.end());
    if (failures_.empty()) say("upgrades passed");
    return failures_;
  }

  unsigned long rounds_;
  unsigned long round_ = 0;
  Scene scene_;
  Ledger ledger_;
  TestBundle alone_;
  Ledger aloneLedger_;
  std::mt19937_64 random_;
  std::unique_ptr<HostProcess> poller_;
  std::optional<TestBundle> current_;
  std::unique_ptr<HostProcess> host_;
  std::unique_ptr<HostProcess> newHost_;
  Plan plan_;
  std::vector<long> starts_;
  std::vector<long> gaps_;
  std::vector<long> gapsWithKills_;
  std::size_t leftOld_ = 0;
  std::size_t leftNew_ = 0;
  std::size_t leftWork_ = 0;
  std::vector<std::string> failures_;
};

}  // namespace
}  // namespace qbdkr::test

// A seed repeats the plans of all rounds, not the speed of the processes.
int main(int argc, char** argv) {
  using namespace qbdkr::test;
  return runLong([&] {
    const auto options = parsedOptions({argv + 1, argv + argc},
                                       {{"--upgrades", 1000}, {"--seed", std::random_device()()}});
    say("seed " + std::to_string(options.at("--seed")));
    return Upgrades(options).run();
  });
}
