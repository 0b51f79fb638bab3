// Tests a delegate that opens a modal dialog, and so runs the main run loop inside its call.

#include <gtest/gtest.h>
#include <signal.h>

#include <memory>
#include <ostream>
#include <sstream>
#include <string>
#include <vector>

#include "support/Peer.h"
#include "support/Programs.h"
#include "support/Scene.h"

namespace qbdkr::test {
namespace {

// The kind of the host's own loop, and whether main() and the delegate run that one ("embedded") or
// the main run loop ("run").
struct Loops {
  HostProbe host;
  std::string outer;
  std::string inner;
};

std::string nameOf(const Loops& loops) {
  return loops.host.name + "_" + loops.outer + "Then" + loops.inner;
}

void PrintTo(const Loops& loops, std::ostream* stream) { *stream << nameOf(loops); }

std::vector<Loops> loopsOfDialogs() {
  std::vector<Loops> all;
  for (const HostProbe& host : hostProbes()) {
    if (all.empty()) all.push_back({host, "run", "run"});
    all.push_back({host, "run", "embedded"});
    all.push_back({host, "embedded", "run"});
    all.push_back({host, "embedded", "embedded"});
  }
  return all;
}

void awaitReported(ChildProcess& peer, std::size_t from) {
  peer.waitForOutput([](const std::string& line) { return line == "reported"; }, from);
}

class Dialog : public testing::TestWithParam<Loops> {
 protected:
  Dialog() {
    scene.useHostProbe(GetParam().host);
    scene.environment()["QBDKR_PROBE_LOOP"] = GetParam().outer;
    host = scene.startAndShare(scene.makeHost("Host", "1.0"));
    peer.awaitOwner(scene.hostID());
  }

  [[nodiscard]] std::unique_ptr<ChildProcess> report(const Peer& from, int count = 1) const {
    return from.begin({"post", scene.hostID(), std::to_string(count), "QBHPHelperControl",
                       "checkServerOpenCallBack::::", "x", "1", "0", ""});
  }

  Scene scene;
  const Peer peer = Peer::inBundle(scene);
  std::unique_ptr<HostProcess> host;
};

INSTANTIATE_TEST_SUITE_P(InEachLoop, Dialog, testing::ValuesIn(loopsOfDialogs()),
                         [](const auto& loops) { return nameOf(loops.param); });

TEST_P(Dialog, ReportsTimersAndRequestsGoOnInsideADelegateCallWhichSleepsMeanwhile) {
  // The sender of the report that opens the dialog is known already.
  const auto sender = peer.begin({"report-twice", scene.hostID()});
  awaitReported(*sender, 0);
  host->call("dialog " + GetParam().inner);
  sender->write("\n");
  host->waitForReport("dialog opened");
  const auto same = report(peer, 5);
  host->call("reports 7");
  const auto other = report(Peer::inBundle(scene, "Other"));
  host->call("reports 8");
  EXPECT_NE(host->call("senders").find(scene.identifier("Other")), std::string::npos);
  EXPECT_EQ(host->call("ask " + scene.helperID() + " Probe echo: thread"), "0 thread");
  EXPECT_EQ(host->call("ask-on-main " + scene.helperID() + " Probe echo: main"), "0 main");
  EXPECT_EQ(host->call("flush 20000"), "0");
  EXPECT_EQ(host->reportsWith("dialog closed"), 0U);
  host->call("close-dialog");
  std::istringstream closed(host->waitForReport("dialog closed").substr(16));
  int milliseconds = 0;
  int ticks = 0;
  closed >> milliseconds >> ticks;
  EXPECT_LT(milliseconds, 200) << "of processor time";
  EXPECT_GE(ticks, 2);
  // Outside the dialog all goes on. The report that opened it is answered.
  awaitReported(*sender, 1);
  const auto later = report(peer);
  host->call("reports 9");
  EXPECT_EQ(host->call("ask-on-main " + scene.helperID() + " Probe echo: after"), "0 after");
}

TEST_P(Dialog, ReportsThatCameWithTheFirstOneOfANewSenderAreHandledInsideItsCall) {
  host->call("dialog " + GetParam().inner);
  const auto sender = report(peer, 5);
  host->call("reports 5");
  EXPECT_EQ(host->reportsWith("dialog closed"), 0U);
  host->call("close-dialog");
  host->waitForReport("dialog closed");
}

}  // namespace
}  // namespace qbdkr::test
