// Runs the sample host and helper agent as shipped, and a program in plain C beside them.

#include <gtest/gtest.h>
#include <signal.h>

#include <string>

#include "support/Peer.h"
#include "support/ProcessEnd.h"
#include "support/Sample.h"
#include "support/Scene.h"

namespace qbdkr::test {
namespace {

ChildProcess::LineTest holding(const std::string& part) {
  return [part](const std::string& line) { return line.find(part) != std::string::npos; };
}

// Makes the helper agent report once more when the host owns its name: its first report is lost if
// it comes before.
void waitForServerReport(Scene& scene, const Peer& peer, ChildProcess& host) {
  peer.awaitOwner(scene.hostID());
  scene.transcript().waitFor({"clientIDFormHelper"});
  host.write("stopHelper\n");
  scene.transcript().waitFor({"stop:prodeuctVersion:"});
  host.write("startHelper\n");
  scene.transcript().waitForCount("start:prodeuctVersion:", 2);
  host.waitForOutput(holding("delegate told that the helper's server is open"));
}

TEST(Sample, HelperIsInstalledStartedAskedAndStopped) {
  Scene scene;
  const auto peer = Peer::inBundle(scene);
  const Sample sample(scene);
  const auto host = sample.start();
  const std::string product = ":prodeuctVersion: \"1001\" \"" + std::string(Sample::hostVersion) +
                              "\" from " + scene.hostID();
  scene.transcript().waitFor({"QBHPHelperControl start" + product});
  waitForServerReport(scene, peer, *host);
  host->write("clientIDFormHelper\n");
  const auto line = host->waitForOutput(holding("clientIDFormHelper: "));
  const auto stored = scene.preferences(scene.helperID());
  ASSERT_NE(stored.find("\"ClientID\": \""), std::string::npos) << stored;
  const auto identifier = stored.substr(stored.find(": \"") + 3, 32);
  EXPECT_NE(line.find(identifier), std::string::npos) << line << stored;
  EXPECT_EQ(scene.transcript().count("QBHPHelperControl stop" + product), 1U);
  // A check that comes between the two commands starts it as well.
  EXPECT_GE(scene.transcript().count("QBHPHelperControl start" + product), 2U);
  host->write("quit\n");
  EXPECT_TRUE(host->succeeds());
}

TEST(Sample, HelperThatIsToldToEndReportsItAndIsFollowedByTheNextOne) {
  Scene scene;
  const auto peer = Peer::inBundle(scene);
  const Sample sample(scene);
  const auto host = sample.start();
  waitForServerReport(scene, peer, *host);
  EXPECT_EQ(scene.transcript().count("helper 1.0: started, process"), 1U);
  const pid_t helper = scene.helperProcess();
  const ProcessEnd end(helper);
  ::kill(helper, SIGTERM);
  ASSERT_TRUE(end.comesWithin(patience));
  host->waitForOutput(holding("delegate told that the helper will exit"));
  // The host supervises it, and starts the next one by itself.
  scene.transcript().waitForCount("helper 1.0: started, process", 2);
}

TEST(Sample, PlainCProgramDrivesTheHelper) {
  Scene scene;
  const auto peer = Peer::inBundle(scene);
  const Sample sample(scene);
  const auto host = sample.start();
  scene.transcript().waitFor({"clientIDFormHelper"});
  EXPECT_NE(peer.run({"introspect", scene.helperID()}).find("QBHP.RPCEvent1"), std::string::npos);
  const auto answer =
      peer.run({"call", scene.helperID(), "QBHPGetDataByHelper", "clientIDFormHelper"});
  const auto stored = scene.preferences(scene.helperID());
  ASSERT_EQ(answer.size(), std::string("result ").size() + 32) << answer;
  EXPECT_NE(stored.find(answer.substr(7)), std::string::npos) << stored;
  EXPECT_EQ(
      peer.run({"call", scene.helperID(), "QBHPHelperControl", "show:prodeuctVersion:", "9", "8"}),
      "result ");
  scene.transcript().waitFor(
      {"QBHPHelperControl show:prodeuctVersion: \"9\" \"8\" from " + scene.identifier("Peer")});

  const auto outside = Peer::outsideBundles(scene);
  EXPECT_EQ(outside.run({"call", scene.helperID(), "QBHPGetDataByHelper", "clientIDFormHelper"}),
            "result ");
}

}  // namespace
}  // namespace qbdkr::test
