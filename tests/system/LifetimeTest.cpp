// Tests a helper agent that ends by itself: when it is idle, and with its bus.

#include <gtest/gtest.h>
#include <signal.h>

#include <chrono>
#include <memory>
#include <string>

#include "Platform/Events/DBus/SdBus.h"
#include "support/BusConnection.h"
#include "support/Patience.h"
#include "support/Peer.h"
#include "support/ProcessEnd.h"
#include "support/Scene.h"

namespace qbdkr::test {
namespace {

class Lifetime : public testing::Test {
 protected:
  void start(const std::string& variable, const std::string& milliseconds) {
    scene.environment()[variable] = milliseconds;
    host = scene.startAndShare(scene.makeHost("Host", "1.0"));
    end = std::make_unique<ProcessEnd>(scene.helperProcess());
  }

  // Waits until the helper agent has outlived its time twice from here on.
  void awaitLife() {
    scene.transcript().waitForCount("lives", scene.transcript().count("lives") + 3);
  }

  Scene scene;
  std::unique_ptr<HostProcess> host;
  std::unique_ptr<ProcessEnd> end;  // of the helper agent
};

TEST_F(Lifetime, IdleHelperEndsWhenItsHostsAreGone) {
  start("QBDKR_PROBE_IDLE", "300");
  auto other = scene.start(scene.makeHostWithoutHelper("Other"));
  EXPECT_EQ(other->call("ask " + scene.helperID() + " Probe echo: x"), "0 x");
  awaitLife();
  EXPECT_FALSE(end->hasCome()) << "two hosts are there";
  host->quit();
  awaitLife();
  EXPECT_FALSE(end->hasCome()) << "a host is there";
  EXPECT_EQ(scene.transcript().count("is idle"), 0U);
  other->quit();
  EXPECT_TRUE(end->comesWithin(patience));
  EXPECT_EQ(scene.transcript().count("is idle"), 1U);
  EXPECT_EQ(scene.transcript().count(" ends"), 1U) << "main() did not return";
}

TEST_F(Lifetime, EventKeepsAHelperAliveThoughItsSenderIsGoneAtOnce) {
  scene.environment()["QBDKR_PROBE_IDLE"] = "1500";
  const TestBundle helper = scene.makeHelper("1.0", scene.installDirectory());
  ChildProcess process({helper.executable().string()}, scene.options());
  const auto peer = Peer::inBundle(scene);
  peer.awaitOwner(scene.helperID());
  const auto start = std::chrono::steady_clock::now();
  // The event comes in the last third of the time, so the end comes that much later.
  auto last = start;
  while (last - start < std::chrono::milliseconds(1000)) {
    EXPECT_EQ(peer.run({"call", scene.helperID(), "Probe", "echo:", "x"}), "result x");
    last = std::chrono::steady_clock::now();
  }
  EXPECT_EQ(process.wait(), 0);
  EXPECT_GE(std::chrono::steady_clock::now() - last, std::chrono::milliseconds(1400));
}

// No news of its end comes.
TEST_F(Lifetime, SenderThatWasGoneWhenItsEventCameKeepsNoHelperAlive) {
  start("QBDKR_PROBE_IDLE", "300");
  ::kill(scene.helperProcess(), SIGSTOP);
  auto sender = connectionTo(scene.bus());
  EXPECT_GE(sd_bus_call_method_async(sender.get(), nullptr, scene.helperID().c_str(),
                                     rpc::objectPath, rpc::interfaceName, rpc::callMember, nullptr,
                                     nullptr, "ssas", "Probe", "note:", 1, "x"),
            0);
  EXPECT_GE(sd_bus_flush(sender.get()), 0);
  sender.reset();
  // The bus has seen the end before it answers a new connection.
  static_cast<void>(connectionTo(scene.bus()));
  ::kill(scene.helperProcess(), SIGCONT);
  scene.transcript().waitFor({"note:"});
  host->quit();
  EXPECT_TRUE(end->comesWithin(soon));
}

// The bus tells of its end while the main thread handles an event for longer than the bus has time
// to grant a name.
TEST_F(Lifetime, SenderThatWasGoneBeforeALongEventKeepsNoHelperAlive) {
  start("QBDKR_PROBE_IDLE", "300");
  const auto call = [this](sd_bus* sender, const char* method) {
    const auto ignore = [](sd_bus_message*, void*, sd_bus_error*) { return 0; };
    EXPECT_GE(sd_bus_call_method_async(sender, nullptr, scene.helperID().c_str(), rpc::objectPath,
                                       rpc::interfaceName, rpc::callMember, ignore, nullptr, "ssas",
                                       "Probe", method, 0),
              0);
    EXPECT_GE(sd_bus_flush(sender), 0);
  };
  auto known = connectionTo(scene.bus());
  call(known.get(), "known");
  scene.transcript().waitFor({"known"});
  ::kill(scene.helperProcess(), SIGSTOP);
  auto sender = connectionTo(scene.bus());
  call(sender.get(), "gone");
  sender.reset();
  // The bus has seen the end before it answers a new connection.
  static_cast<void>(connectionTo(scene.bus()));
  call(known.get(), "wait");
  ::kill(scene.helperProcess(), SIGCONT);
  scene.transcript().waitFor({"wait"});
  EXPECT_FALSE(end->comesWithin(busPatience));
  ::kill(scene.helperProcess(), SIGUSR1);
  scene.transcript().waitFor({"gone"});
  known.reset();
  host->quit();
  EXPECT_TRUE(end->comesWithin(soon));
}

TEST_F(Lifetime, HostThatTheReceiverForgotIsStillThere) {
  start("QBDKR_PROBE_IDLE", "300");
  // More senders than are remembered make the receiver forget the host. Then they end.
  const auto crowd = Peer::inBundle(scene, "Crowd").begin({"crowd", scene.helperID(), "300"});
  crowd->waitForOutput([](const std::string& line) { return line == "reported"; });
  crowd->kill();
  awaitLife();
  EXPECT_FALSE(end->hasCome()) << "the host is there";
  host->quit();
  EXPECT_TRUE(end->comesWithin(patience));
}

TEST_F(Lifetime, HelperEndsWithItsBusAndANewOneComesWithTheNextBus) {
  start("QBDKR_PROBE_GRACE", "300");
  const pid_t first = scene.helperProcess();
  awaitLife();
  EXPECT_FALSE(end->hasCome()) << "the bus is there";
  scene.bus().kill();
  EXPECT_TRUE(end->comesWithin(patience));
  EXPECT_EQ(scene.transcript().count(" ends"), 1U) << "main() did not return";
  scene.bus().start();
  EXPECT_EQ(host->call("launch"), "yes");
  scene.fence(*host);
  EXPECT_NE(scene.helperProcess(), first);
}

TEST_F(Lifetime, HelperOutlivesABusThatComesBackInTime) {
  start("QBDKR_PROBE_GRACE", "2000");
  scene.bus().kill();
  scene.bus().start();
  Peer::inBundle(scene).awaitOwner(scene.helperID());
  awaitLife();
  EXPECT_FALSE(end->hasCome());
}

TEST_F(Lifetime, HelperThatFindsNoBusEnds) {
  scene.environment()["QBDKR_PROBE_GRACE"] = "300";
  scene.bus().kill();
  const TestBundle helper = scene.makeHelper("1.0", scene.installDirectory());
  ChildProcess process({helper.executable().string()}, scene.options());
  EXPECT_EQ(process.wait(), 0);
}

}  // namespace
}  // namespace qbdkr::test
