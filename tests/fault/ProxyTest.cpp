// Reaches the bus through another process, as from inside a sandbox.

#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

#include "support/Environment.h"
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
  for (int i = 0; i < 3; ++i) {
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

}  // namespace
}  // namespace qbdkr::test
