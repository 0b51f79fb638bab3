// Reaches the bus through another process, as from inside a sandbox.

#include <gtest/gtest.h>
#include <signal.h>

#include <chrono>
#include <filesystem>
#include <memory>
#include <stdexcept>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "support/Environment.h"
#include "support/Patience.h"
#include "support/Peer.h"
#include "support/Scene.h"

namespace qbdkr::test {
namespace {

// Passes on every byte, even the greeting: the bus takes the proxy for the sender.
constexpr const char* proxyProgram = R"(
import os, socket, sys, threading
listener = socket.socket(socket.AF_UNIX)
listener.bind(sys.argv[2])
listener.listen(16)
print("ready", flush=True)
def copy(source, target):
    try:
        while data := source.recv(65536):
            target.sendall(data)
        target.shutdown(socket.SHUT_WR)
    except OSError:
        pass
while True:
    client = listener.accept()[0]
    bus = socket.socket(socket.AF_UNIX)
    try:
        bus.connect(sys.argv[1])
    except OSError:
        client.close()
        continue
    for ends in (client, bus), (bus, client):
        threading.Thread(target=copy, args=ends, daemon=True).start()
)";

struct BehindAProxy : Scene {
  BehindAProxy() {
    const auto program = directory() / "proxy.py";
    writeFile(program, proxyProgram);
    const std::string behind = bus().address().substr(std::string("unix:path=").size());
    const std::string front = directory() / "proxy";
    proxy = std::make_unique<ChildProcess>(
        std::vector<std::string>{"/usr/bin/python3", program, behind, front}, options());
    proxy->waitForOutput([](const std::string& line) { return line == "ready"; });
    environment()["DBUS_SESSION_BUS_ADDRESS"] = "unix:path=" + front;
  }

  std::unique_ptr<ChildProcess> proxy;
};

constexpr const char* theLine = "the bus knows this process as ";

TEST(Proxy, IsLoggedOnceAndCanBeAskedFor) {
  BehindAProxy scene;
  const auto host = scene.start(scene.makeHostWithoutHelper("Host"));
  EXPECT_EQ(host->call("obstacle"), "none") << "nothing was sent yet";
  EXPECT_EQ(host->call("send " + scene.identifier("Missing") + " Probe note: x"), "-600");
  const std::string obstacle = theLine + std::to_string(scene.proxy->processID()) +
                               ": behind a proxy, events may not arrive";
  host->process().waitForLog(obstacle);
  EXPECT_EQ(host->call("obstacle"), obstacle);
  for (int i = 0; i < 10; ++i) {  // often enough for a direct connection, which is not offered
    EXPECT_EQ(host->call("ask " + scene.identifier("Missing") + " Probe note: x"), "-600 ~");
  }
  // A new connection asks the bus again.
  scene.bus().kill();
  EXPECT_EQ(host->call("send " + scene.identifier("Missing") + " Probe note: x"), "-609");
  scene.bus().start();
  EXPECT_EQ(host->call("send " + scene.identifier("Missing") + " Probe note: x"), "-600");
  EXPECT_EQ(host->call("obstacle"), obstacle);
  EXPECT_EQ(host->process().logLinesWith(theLine), 1U);
}

TEST(Proxy, IsLoggedByARequestThatAsksAsWell) {
  BehindAProxy scene;
  const auto host = scene.start(scene.makeHostWithoutHelper("Host"));
  EXPECT_EQ(host->call("ask " + scene.identifier("Missing") + " Probe note: x"), "-600 ~");
  host->process().waitForLog(theLine);
}

TEST(Proxy, StatusOfAPostStays) {
  BehindAProxy scene;
  const std::string name = scene.identifier("Served");
  const auto served = Peer::inBundle(scene).begin({"serve", name, "1"});
  served->waitForOutput([](const std::string& line) { return line == "ready"; });
  const auto host = scene.start(scene.makeHostWithoutHelper("Host"));
  EXPECT_EQ(host->call("send " + name + " Probe note: x"), "0");
  EXPECT_TRUE(served->succeeds());
}

TEST(Proxy, WithoutOneNothingIsSaid) {
  Scene scene;
  const auto host = scene.start(scene.makeHostWithoutHelper("Host"));
  EXPECT_EQ(host->call("send " + scene.identifier("Missing") + " Probe note: x"), "-600");
  EXPECT_EQ(host->call("ask " + scene.identifier("Missing") + " Probe note: x"), "-600 ~");
  EXPECT_EQ(host->call("obstacle"), "none");
  EXPECT_EQ(host->process().logLinesWith(theLine), 0U);
}

// Stands behind the proxy that sandboxes have, with rules of that proxy. Processes that are started
// from here on do; earlier ones stand outside.
class BehindASandboxsProxy : public Scene {
 public:
  static constexpr const char* program = "/usr/bin/xdg-dbus-proxy";

  explicit BehindASandboxsProxy(std::string executable = program)
      : program_(std::move(executable)) {}

  void enter(const std::vector<std::string>& rules = {}) {
    const auto socket = directory() / "sandbox";
    std::vector<std::string> command{program_, bus().address(), socket.string()};
    command.insert(command.end(), rules.begin(), rules.end());
    std::filesystem::remove(socket);
    proxy_.reset();
    proxy_ = std::make_unique<ChildProcess>(command, options());
    // It does not say when it listens.
    const auto deadline = std::chrono::steady_clock::now() + patience;
    while (!std::filesystem::exists(socket)) {
      if (std::chrono::steady_clock::now() >= deadline) throw std::runtime_error("no proxy");
      std::this_thread::yield();
    }
    environment()["DBUS_SESSION_BUS_ADDRESS"] = "unix:path=" + socket.string();
  }

  ChildProcess& proxy() { return *proxy_; }

 private:
  std::string program_;
  std::unique_ptr<ChildProcess> proxy_;
};

struct SandboxProxy : testing::Test {
  void SetUp() override {
    if (!std::filesystem::exists(BehindASandboxsProxy::program)) {
      GTEST_SKIP() << "xdg-dbus-proxy is not installed";
    }
  }
};

std::unique_ptr<ChildProcess> serve(const Peer& peer, const std::string& name, int calls) {
  auto served = peer.begin({"serve", name, std::to_string(calls)});
  served->waitForOutput([](const std::string& line) { return line == "ready"; });
  return served;
}

TEST_F(SandboxProxy, PassesRequestsPostsAndTheHostsName) {
  BehindASandboxsProxy scene;
  const std::string name = scene.identifier("Served");
  const auto outside = Peer::inBundle(scene);
  const auto served = serve(outside, name, 2);
  scene.enter();
  const auto host = scene.start(scene.makeHostWithoutHelper("Host"));
  EXPECT_EQ(host->call("share"), "shared");
  outside.awaitOwner(scene.hostID());
  EXPECT_EQ(host->call("ask " + scene.identifier("Missing") + " Probe note: x", soon), "-600 ~");
  EXPECT_EQ(host->call("ask " + name + " Probe note: x", soon), "0 served");
  EXPECT_EQ(host->call("send " + name + " Probe note: x", soon), "0");
  EXPECT_TRUE(served->succeeds());
  EXPECT_EQ(host->call("obstacle"), theLine + std::to_string(scene.proxy().processID()) +
                                        ": behind a proxy, events may not arrive");
}

// A sandbox mounts the socket at another place, which only the address names.
TEST_F(SandboxProxy, IsFoundWhereTheAddressSays) {
  BehindASandboxsProxy scene;
  scene.enter();
  const auto moved = scene.directory() / "run %,;flatpak";
  std::filesystem::create_directory(moved);
  std::filesystem::rename(scene.directory() / "sandbox", moved / "bus");
  scene.environment()["DBUS_SESSION_BUS_ADDRESS"] =
      "unix:path=" + scene.directory().string() +
      "/missing;unix:path=" + scene.directory().string() + "/run %25%2c%3Bflatpak/bus";
  const auto host = scene.start(scene.makeHostWithoutHelper("Host"));
  EXPECT_EQ(host->call("send " + scene.identifier("Missing") + " Probe note: x", soon), "-600");
}

TEST_F(SandboxProxy, PassesOnlyWhatItsRulesAllow) {
  BehindASandboxsProxy scene;
  const std::string allowed = scene.identifier("Allowed");
  const std::string hidden = scene.identifier("Hidden");
  const auto outside = Peer::inBundle(scene);
  const auto servedAllowed = serve(outside, allowed, 1);
  const auto servedHidden = serve(outside, hidden, 1);
  scene.enter({"--filter", "--own=" + scene.hostID(), "--talk=" + allowed});
  const auto host = scene.start(scene.makeHostWithoutHelper("Host"));
  EXPECT_EQ(host->call("share"), "shared");
  outside.awaitOwner(scene.hostID());
  EXPECT_EQ(host->call("ask " + allowed + " Probe note: x", soon), "0 served");
  EXPECT_EQ(host->call("ask " + hidden + " Probe note: x", soon), "-600 ~");
  EXPECT_EQ(host->call("send " + hidden + " Probe note: x", soon), "-600");
}

TEST_F(SandboxProxy, EndsRequestsWithItsEndAndIsUsedAgain) {
  BehindASandboxsProxy scene;
  const std::string name = scene.identifier("Served");
  const auto served = serve(Peer::inBundle(scene), name, 2);
  scene.enter();
  const auto host = scene.start(scene.makeHostWithoutHelper("Host"));
  EXPECT_EQ(host->call("ask " + name + " Probe note: x", soon), "0 served");
  scene.proxy().kill();
  EXPECT_EQ(host->call("ask " + name + " Probe note: x", soon), "-609 ~");
  scene.enter();
  EXPECT_EQ(host->call("ask " + name + " Probe note: x", soon), "0 served");
}

TEST_F(SandboxProxy, ThatIsStuckHoldsARequestUpForAMoment) {
  BehindASandboxsProxy scene;
  scene.enter();
  const auto host = scene.start(scene.makeHostWithoutHelper("Host"));
  scene.proxy().signal(SIGSTOP);
  EXPECT_EQ(host->call("send " + scene.identifier("Missing") + " Probe note: x", soon), "-609");
  scene.proxy().signal(SIGCONT);
  EXPECT_EQ(host->call("send " + scene.identifier("Missing") + " Probe note: x", soon), "-600");
}

// The proxy's own process must not pass for the sender, even if it belongs to a bundle.
TEST_F(SandboxProxy, HidesSendersWhichAreRefused) {
  Scene elsewhere;
  const TestBundle bundle(elsewhere.directory(), "xdg-dbus-proxy",
                          {{"CFBundleIdentifier", elsewhere.identifier("Bystander")}},
                          BehindASandboxsProxy::program);
  BehindASandboxsProxy scene(bundle.executable().string());
  scene.enter();
  const auto peer = Peer::inBundle(scene);
  const auto host = scene.start(scene.makeHost("Host", "1.0"));
  EXPECT_EQ(host->call("share"), "shared");
  peer.awaitOwner(scene.hostID());
  EXPECT_EQ(peer.run({"call", scene.hostID(), "QBHPHelperControl",
                      "checkServerOpenCallBack::::", "x", "1", "0", ""}),
            "result ");
  EXPECT_EQ(host->reportsWith("server"), 0U);
  EXPECT_EQ(host->call("senders"), "none");
  peer.awaitOwner(scene.helperID());
  EXPECT_EQ(host->call("ask " + scene.helperID() + " Probe echo: x", soon), "0 x");
  EXPECT_TRUE(host->call("diagnose").starts_with("proxy: the bus knows this process as "));
}

// A sandbox's rules, with a name of a kind: the proxy then has questions of its own for the bus.
std::vector<std::string> rulesOfASandbox(const Scene& scene) {
  return {"--filter", "--own=" + scene.hostID(), "--own=" + scene.helperID(),
          "--own=" + scene.identifier("Second"), "--talk=org.example.*"};
}

// The filter hides the connections on which they send.
TEST_F(SandboxProxy, LetsHostAndHelperAgentBehindItKnowEachOther) {
  BehindASandboxsProxy scene;
  scene.enter(rulesOfASandbox(scene));
  const auto host = scene.startAndShare(scene.makeHost("Host", "1.0"));
  scene.transcript().waitFor({"call QBHPHelperControl start:", "from " + scene.hostID()});
  EXPECT_TRUE(host->call("ask " + scene.helperID() + " Probe echo: x", soon).starts_with("0 "));
  scene.transcript().waitFor({"call Probe echo: from " + scene.hostID()});
  const auto second = scene.start(
      scene.makeHostWithoutHelper("Second", {{"CFBundleIdentifier", scene.identifier("Second")}}));
  const std::string report = " QBHPHelperControl checkServerOpenCallBack:::: x 1 0 -";
  EXPECT_TRUE(second->call("ask " + scene.hostID() + report, soon).starts_with("0 "));
  EXPECT_EQ(host->reportsWith("server"), 1U);
  EXPECT_EQ(host->call("senders"), scene.identifier("Second") + ' ');
  EXPECT_EQ(host->call("diagnose", soon), "none");
}

// Events that are on their way when a name changes its owner reach the new one before the sender
// can introduce itself to that.
TEST_F(SandboxProxy, KnowsASenderThatIntroducesItselfLate) {
  BehindASandboxsProxy scene;
  const auto outside = Peer::inBundle(scene);
  scene.enter(rulesOfASandbox(scene));
  const auto host = scene.startAndShare(scene.makeHost("Host", "1.0"));
  const auto bundle =
      scene.makeHostWithoutHelper("Second", {{"CFBundleIdentifier", scene.identifier("Second")}});
  const std::string report =
      scene.identifier("Second") + " QBHPHelperControl checkServerOpenCallBack:::: x 1 0 -";
  const auto owner = scene.start(bundle);
  EXPECT_EQ(owner->call("share"), "shared");
  outside.awaitOwner(scene.identifier("Second"));
  EXPECT_EQ(host->call("ask " + report, soon), "0 ~");
  EXPECT_NE(owner->call("senders").find(scene.hostID()), std::string::npos);
  const auto heir = scene.start(bundle);
  EXPECT_EQ(heir->call("share"), "shared");
  const auto posts =
      host->begin("burst " + scene.identifier("Second") + " Nobody nothing:: 1 20000");
  owner->process().kill();
  host->finish(posts, patience);
  outside.awaitOwner(scene.identifier("Second"));
  EXPECT_EQ(host->call("ask " + report, soon), "0 ~");
  EXPECT_NE(heir->call("senders").find(scene.hostID()), std::string::npos);
}

}  // namespace
}  // namespace qbdkr::test
