// Starts several products with the same helper agent at the same moment.

#include <gtest/gtest.h>
#include <signal.h>

#include <memory>
#include <string>
#include <vector>

#include "support/Scene.h"

namespace qbdkr::test {
namespace {

TEST(ManyHosts, StartedAtOnceShareOneInstalledCopyAndOneProcess) {
  Scene scene;
  constexpr int hostCount = 10;
  std::vector<TestBundle> bundles;
  for (int i = 0; i < hostCount; ++i) {
    const std::string name = "Host" + std::to_string(i);
    bundles.push_back(
        scene.makeHost(name, "1.0", {{"CFBundleIdentifier", scene.identifier(name)}}));
    // Large enough that the copies overlap.
    writeFile(bundles.back().resources() / "ProbeHelper.app/Contents/Resources/data",
              std::string(2'000'000, 'd'));
  }
  std::vector<std::unique_ptr<HostProcess>> hosts;
  for (const auto& bundle : bundles) hosts.push_back(scene.start(bundle));
  std::vector<std::string> tags;
  for (const auto& host : hosts) tags.push_back(host->begin("share"));
  for (std::size_t i = 0; i < hosts.size(); ++i) EXPECT_EQ(hosts[i]->finish(tags[i]), "shared");
  for (const auto& host : hosts) {
    scene.transcript().waitFor({"start:prodeuctVersion: from " + host->identifier() + ' '});
    scene.fence(*host);
  }
  EXPECT_EQ(scene.transcript().count(" started version"), 1U);
  EXPECT_EQ(scene.transcript().count("start:prodeuctVersion:"), hosts.size());
  const std::string client = "client-" + std::to_string(scene.helperProcess());
  for (const auto& host : hosts) EXPECT_EQ(host->call("fetch-client"), client);
  EXPECT_EQ(treeDigest(scene.installedHelper()),
            treeDigest(bundles.front().resources() / "ProbeHelper.app"));
  EXPECT_EQ(scene.stagingLeftovers(), std::vector<std::string>());

  // Now all of them bring back a killed helper agent at the same moment.
  scene.killHelper(*hosts.front());
  for (std::size_t i = 0; i < hosts.size(); ++i) tags[i] = hosts[i]->begin("restart");
  for (std::size_t i = 0; i < hosts.size(); ++i) EXPECT_EQ(hosts[i]->finish(tags[i]), "0");
  EXPECT_EQ(scene.transcript().count(" started version"), 2U);
  EXPECT_GT(scene.helperProcess(), 0);
  for (const auto& host : hosts) host->quit();
}

TEST(ManyHosts, SecondWaitsForTheHelperThatTheFirstIsOpening) {
  Scene scene;
  scene.environment()["QBDKR_PROBE_MODE"] = "never-check-in";  // before SIGUSR1
  const auto first = scene.start(scene.makeHost("First", "1.0"));
  first->call("share");
  scene.transcript().waitFor({" started version"});
  const auto second = scene.start(
      scene.makeHost("Second", "1.0", {{"CFBundleIdentifier", scene.identifier("Second")}}));
  const auto launch = second->begin("launch");
  for (int i = 0; i < 10; ++i) EXPECT_EQ(second->call("running " + scene.helperID()), "yes");
  ::kill(scene.helperProcess(), SIGUSR1);
  EXPECT_EQ(second->finish(launch), "yes");
  for (const auto* host : {first.get(), second.get()}) {
    scene.transcript().waitFor({"start:prodeuctVersion: from " + host->identifier() + ' '});
  }
  EXPECT_EQ(scene.transcript().count(" started version"), 1U);
}

TEST(ManyHosts, OfDifferentVersionsEndWithTheNewest) {
  Scene scene;
  std::vector<TestBundle> bundles;
  for (const std::string version : {"1.0", "1.2", "1.1", "1.3", "1.3b1"}) {
    const std::string name = "Host" + std::to_string(bundles.size());
    bundles.push_back(
        scene.makeHost(name, version, {{"CFBundleIdentifier", scene.identifier(name)}}));
  }
  std::vector<std::unique_ptr<HostProcess>> hosts;
  for (const auto& bundle : bundles) hosts.push_back(scene.start(bundle));
  std::vector<std::string> tags;
  for (const auto& host : hosts) tags.push_back(host->begin("share"));
  for (std::size_t i = 0; i < hosts.size(); ++i) hosts[i]->finish(tags[i]);
  for (const auto& host : hosts) host->call("extract");
  EXPECT_EQ(treeDigest(scene.installedHelper()),
            treeDigest(bundles[3].resources() / "ProbeHelper.app"));
  EXPECT_EQ(scene.stagingLeftovers(), std::vector<std::string>());
}

}  // namespace
}  // namespace qbdkr::test
