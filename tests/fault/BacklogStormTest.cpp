// Sends more than the host reads: the backlog stays on the bus and costs the host no memory.

#include <gtest/gtest.h>
#include <signal.h>

#include <chrono>
#include <memory>
#include <string>
#include <vector>

#include "support/BusGate.h"
#include "support/Peer.h"
#include "support/Programs.h"
#include "support/ResourceUse.h"
#include "support/Sanitizers.h"
#include "support/Scene.h"

namespace qbdkr::test {
namespace {

constexpr std::size_t megabyte = 1'000'000;
constexpr std::chrono::seconds longWhile(100);  // the work takes long on a busy machine

void awaitPosted(ChildProcess& peer) {
  peer.waitForOutput([](const std::string& line) { return line == "posted"; }, 0, longWhile);
}

// Runs a host that receives reports. The memory peak of its start is over.
class BacklogStorm : public testing::Test {
 protected:
  std::unique_ptr<HostProcess> startHost() {
    auto host = scene.start(scene.makeHostWithoutHelper("Host"));
    host->call("share");
    host->call("quiet");
    Peer::outsideBundles(scene).awaitOwner(scene.hostID());
    return host;
  }

  std::unique_ptr<ChildProcess> flood(const std::string& name, int count, std::size_t size) {
    return Peer::inBundle(scene, name)
        .begin({"flood", scene.hostID(), std::to_string(count), std::to_string(size)});
  }

  Scene scene;
};

TEST_F(BacklogStorm, OfOneNewSenderStaysOnTheBus) {
  const auto host = startHost();
  const ResourceUse use(host->processID());
  ::kill(host->processID(), SIGSTOP);
  const auto peer = flood("Peer", 300, megabyte);
  awaitPosted(*peer);
  ::kill(host->processID(), SIGCONT);
  host->call("reports 1", longWhile);
  EXPECT_NE(host->call("senders").find(scene.identifier("Peer")), std::string::npos);
  use.expectModest();
}

TEST_F(BacklogStorm, OfManyNewSendersStaysOnTheBus) {
  const auto host = startHost();
  const ResourceUse use(host->processID());
  ::kill(host->processID(), SIGSTOP);
  constexpr int senders = 30;
  std::vector<std::unique_ptr<ChildProcess>> peers;
  for (int i = 0; i < senders; ++i) {
    peers.push_back(flood("Peer" + std::to_string(i), 5, megabyte));
    awaitPosted(*peers.back());
  }
  ::kill(host->processID(), SIGCONT);
  host->call("reports " + std::to_string(senders), longWhile);
  use.expectModest();
}

TEST_F(BacklogStorm, StaysOnTheBusForAsLongAsTheSenderIsAskedFor) {
  BusGate gate(scene.directory(), scene.bus().address());
  scene.environment()["DBUS_SESSION_BUS_ADDRESS"] = gate.address();
  const auto host = startHost();
  scene.environment()["DBUS_SESSION_BUS_ADDRESS"] = scene.bus().address();
  const ResourceUse use(host->processID());
  gate.hold();
  const auto peer = flood("Peer", 100, megabyte);
  awaitPosted(*peer);
  gate.awaitHeldAnswer();
  // By the end of these turns the main thread has read all that can be read.
  for (int turn = 0; turn < 100; ++turn) EXPECT_EQ(host->call("share"), "shared");
  use.expectModest();
  gate.release();
  host->call("reports 1", longWhile);
  use.expectModest();
}

TEST_F(BacklogStorm, OfUnknownProcessesStaysOnTheBus) {
  const auto host = startHost();
  const ResourceUse use(host->processID());
  ::kill(host->processID(), SIGSTOP);
  const auto outside =
      Peer::outsideBundles(scene).begin({"flood", scene.hostID(), "100", std::to_string(megabyte)});
  awaitPosted(*outside);
  const auto peer = flood("Peer", 1, 1);
  awaitPosted(*peer);
  ::kill(host->processID(), SIGCONT);
  host->call("reports 1", longWhile);
  EXPECT_EQ(host->call("senders"), scene.identifier("Peer") + ' ');
  use.expectModest();
}

TEST_F(BacklogStorm, OfReportsUnderHugeIdentifiersIsNotRemembered) {
  const auto host = startHost();
  const ResourceUse use(host->processID());
  constexpr int senders = 60;
  constexpr std::size_t size = 900'000;  // nearly the bound of an Info.plist
  for (int i = 0; i < senders; ++i) {
    const std::string name = "Peer" + std::to_string(i);
    const std::string start = scene.identifier(name) + '.';
    const TestBundle bundle(scene.directory() / "Peers", name,
                            {{"CFBundleIdentifier", start + std::string(size, 'a')}},
                            libdbusClient());
    EXPECT_EQ(outputOf({bundle.executable(), "call", scene.hostID(), "QBHPHelperControl",
                        "checkServerOpenCallBack::::", "x", "1", "0", ""},
                       scene.environment()),
              "result \n");
  }
  EXPECT_EQ(host->call("senders"), "none");
  use.expectModest();
}

TEST_F(BacklogStorm, MemoryIsGivenBackAfterAPeak) {
  if (hasSanitizer) GTEST_SKIP() << "a sanitizer keeps what was freed";
  const auto host = startHost();
  const ResourceUse use(host->processID());
  const std::size_t modest = use.megabytes() + 4;
  int reports = 0;
  for (const std::size_t size : {40 * megabyte, 20 * megabyte, 10 * megabyte}) {
    const auto peer = flood("Peer" + std::to_string(size), 3, size);
    awaitPosted(*peer);
    host->call("reports " + std::to_string(++reports), longWhile);
    // The host gives memory back when it is idle.
    const auto end = std::chrono::steady_clock::now() + patience;
    while (use.megabytes() > modest && std::chrono::steady_clock::now() < end)
      EXPECT_EQ(host->call("share"), "shared");
    EXPECT_LE(use.megabytes(), modest) << size;
  }
  EXPECT_GT(use.peakMegabytes(), 40U);
}

}  // namespace
}  // namespace qbdkr::test
