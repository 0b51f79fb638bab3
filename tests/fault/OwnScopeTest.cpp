// Starts helper agents in scopes of their own: by a service manager, and by a program that stands
// in for one and does what no manager does. Each launch must succeed.

#include <gtest/gtest.h>
#include <sys/types.h>

#include <chrono>
#include <filesystem>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "Platform/Workspace/OwnScopeLinux.h"
#include "support/Environment.h"
#include "support/Peer.h"
#include "support/PrivateBus.h"
#include "support/ProcessEnd.h"
#include "support/Programs.h"
#include "support/Scene.h"
#include "support/ServiceManager.h"

namespace qbdkr::test {
namespace {

const InfoKeys ownScope{{"Helper in own scope", "1"}};

// Owns the manager's name, prints each call, and answers as its argument says. It is written with
// GDBus, which shares no code with the framework's bus library.
constexpr const char* standInProgram = R"python(
import os, sys
from gi.repository import Gio, GLib
mode = sys.argv[1]
path = "/org/freedesktop/systemd1"
interface = "org.freedesktop.systemd1.Manager"
node = Gio.DBusNodeInfo.new_for_xml('<node><interface name="' + interface + '">'
    '<method name="StartTransientUnit"><arg type="s"/><arg type="s"/><arg type="a(sv)"/>'
    '<arg type="a(sa(sv))"/><arg type="o" direction="out"/></method></interface></node>')
connection = Gio.bus_get_sync(Gio.BusType.SESSION)
loop = GLib.MainLoop()
def removed(unit, result):
    connection.emit_signal(None, path, interface, "JobRemoved",
                           GLib.Variant("(uoss)", (7, path + "/job/7", unit, result)))
def answer(sender, invocation, unit):
    job = GLib.Variant("(o)", (path + "/job/7",))
    if mode == "leaves":
        os._exit(0)
    if mode == "refuses":
        return invocation.return_dbus_error("org.freedesktop.systemd1.UnitExists", "not today")
    if mode == "refuses at length":
        return invocation.return_dbus_error("org.freedesktop.systemd1.No", "line\n" * 200000)
    if mode == "answers otherwise":
        connection.emit_signal(None, path, interface, "JobRemoved", GLib.Variant("(s)", ("x",)))
        for other in "", "\x01", "y" * 100000:
            removed(other, "done")
        reply = Gio.DBusMessage.new_method_reply(invocation.get_message())
        reply.set_body(GLib.Variant("(aai)", ([[1]],)))
        connection.send_message(reply, Gio.DBusSendMessageFlags.NONE)
        return removed(unit, "")
    if mode == "silent":
        return
    invocation.return_value(job)
    removed("another.scope", "failed")
    removed(unit, mode)
def called(connection, sender, path, interface, method, arguments, invocation):
    unit, how, properties, others = arguments.unpack()
    process = dict(properties)["PIDs"][0]
    program = os.path.basename(os.readlink("/proc/%d/exe" % process))
    print(method, unit, how, sorted(properties), others, program, flush=True)
    answer(sender, invocation, unit)
connection.register_object(path, node.interfaces[0], called)
Gio.bus_own_name_on_connection(connection, "org.freedesktop.systemd1", Gio.BusNameOwnerFlags.NONE,
                               lambda *_: print("ready", flush=True), None)
loop.run()
)python";

struct OwnScope : testing::Test {
  OwnScope() { scene.environment()["QBDKR_DEBUG"] = "1"; }

  std::unique_ptr<ChildProcess> standIn(const std::string& mode) {
    const auto program = scene.directory() / "manager.py";
    writeFile(program, standInProgram);
    auto process = std::make_unique<ChildProcess>(
        std::vector<std::string>{"/usr/bin/python3", program, mode}, scene.options());
    process->waitForOutput([](const std::string& line) { return line == "ready"; });
    return process;
  }

  // Launches the helper agent, which must come to the bus in any case.
  std::unique_ptr<HostProcess> launched(const InfoKeys& keys = ownScope,
                                        const std::string& name = "Host") {
    auto host = scene.start(scene.makeHost(name, "1.0", keys));
    host->call("share");
    EXPECT_EQ(host->call("launch"), "yes");
    EXPECT_EQ(host->call("ask " + scene.helperID() + " Probe echo: x"), "0 x");
    return host;
  }

  // Launches it, and waits for what the record says of a helper agent that was not moved.
  void expectLeftBecause(const std::string& reason) {
    const auto host = launched();
    host->process().waitForLog("QBDKR_DEBUG: \"" + scene.helperID() + "\", process " +
                               std::to_string(scene.helperProcess()) +
                               ", stays in the unit of the host: " + reason);
    EXPECT_EQ(host->call("diagnose"), "none");
  }

  // Starts one that ends at once, so that nothing shows that it has checked in.
  void expectLogAtAShortStart(const std::string& text) {
    scene.environment()["QBDKR_PROBE_MODE"] = "exit-at-once";
    const auto host = scene.start(scene.makeHost("Host", "1.0", ownScope));
    host->call("share");
    host->process().waitForLog(text);
    scene.transcript().waitFor({"started version 1.0"});
  }

  Scene scene;
};

std::string callLine(ChildProcess& standIn) {
  return standIn.waitForOutput(
      [](const std::string& line) { return line.starts_with("StartTransientUnit "); });
}

TEST_F(OwnScope, IsAskedForBeforeTheHelperAgentIsExecuted) {
  const auto manager = standIn("done");
  const auto host = launched();
  const std::string call = callLine(*manager);
  const std::string process = std::to_string(scene.helperProcess());
  const std::string start = "StartTransientUnit app-" + scene.helperID() + '-';
  ASSERT_TRUE(call.starts_with(start)) << call;
  const auto random = call.substr(start.size(), call.find('.', start.size()) - start.size());
  EXPECT_EQ(random.size(), 32U) << call;
  EXPECT_EQ(random.find_first_not_of("0123456789abcdef"), std::string::npos) << call;
  // The last word is the program of the process at that time: still the host's.
  EXPECT_EQ(call.substr(start.size() + random.size()),
            ".scope fail [('CollectMode', 'inactive-or-failed'), ('Description', 'Helper agent " +
                scene.helperID() + "'), ('PIDs', [" + process + "]), ('Slice', 'app.slice')] [] " +
                scene.makeHost("Other", "1.0").executable().filename().string());
  host->process().waitForLog("QBDKR_DEBUG: process " + process +
                             " runs in a scope of its own, app-" + scene.helperID() + '-' + random +
                             ".scope");
}

TEST_F(OwnScope, IsNotAskedForWithoutTheKey) {
  const auto manager = standIn("done");
  scene.killHelper(*launched({}));
  scene.killHelper(*launched({{"Helper in own scope", "0"}}, "Other"));
  EXPECT_EQ(manager->output(), std::vector<std::string>{"ready"});
}

TEST_F(OwnScope, IsAskedForWithEveryStart) {
  const auto manager = standIn("done");
  const auto host = launched();
  const std::string first = callLine(*manager);
  scene.killHelper(*host);
  EXPECT_EQ(host->call("launch"), "yes");
  const std::string second = manager->waitForOutput([&](const std::string& line) {
    return line.starts_with("StartTransientUnit ") && line != first;
  });
  EXPECT_NE(second.substr(0, second.find(".scope")), first.substr(0, first.find(".scope")));
}

TEST_F(OwnScope, NoManagerLeavesTheHelperAgentInTheUnitOfTheHost) {
  expectLeftBecause("neither the session's bus nor the user's has a service manager");
}

TEST_F(OwnScope, NoManagerIsStartedForIt) {
  const auto started = scene.directory() / "started";
  writeFile(scene.bus().serviceDirectory() / "org.freedesktop.systemd1.service",
            "[D-BUS Service]\nName=org.freedesktop.systemd1\nExec=/usr/bin/touch " +
                started.string() + '\n');
  scene.bus().kill();
  scene.bus().start();  // the bus reads the service files when it starts
  expectLeftBecause("neither the session's bus nor the user's has a service manager");
  EXPECT_FALSE(std::filesystem::exists(started));
}

TEST_F(OwnScope, NoBusAtAllLeavesIt) {
  scene.environment().erase("DBUS_SESSION_BUS_ADDRESS");
  scene.environment().erase("XDG_RUNTIME_DIR");
  expectLogAtAShortStart("stays in the unit of the host: ");
}

TEST_F(OwnScope, IsGivenToAHelperAgentThatEndsAtOnce) {
  const auto manager = standIn("done");
  expectLogAtAShortStart(" runs in a scope of its own, ");
}

TEST_F(OwnScope, RefusalLeavesIt) {
  const auto manager = standIn("refuses");
  expectLeftBecause("not today");
}

TEST_F(OwnScope, RefusalOfAnyLengthLeavesIt) {
  const auto manager = standIn("refuses at length");
  expectLeftBecause("line");
}

TEST_F(OwnScope, JobThatFailsLeavesIt) {
  const auto manager = standIn("failed");
  expectLeftBecause("the start of its scope: failed");
}

TEST_F(OwnScope, AnswersOfOtherTypesLeaveIt) {
  const auto manager = standIn("answers otherwise");
  expectLeftBecause("the start of its scope: ");
}

TEST_F(OwnScope, ManagerThatEndsMeanwhileLeavesIt) {
  const auto manager = standIn("leaves");
  expectLeftBecause("");
}

TEST_F(OwnScope, ManagerThatDoesNotAnswerHoldsTheStartUpForALimitedTime) {
  const auto manager = standIn("silent");
  const auto begin = std::chrono::steady_clock::now();
  expectLeftBecause("the service manager does not answer");
  EXPECT_LT(std::chrono::steady_clock::now() - begin, soon);
}

TEST_F(OwnScope, ManagerIsFoundOnTheBusOfTheUserIfTheSessionHasAnother) {
  const PrivateBus userBus(scene.directory() / "runtime-of-the-user");
  const std::string sessionBus = scene.environment()["DBUS_SESSION_BUS_ADDRESS"];
  scene.environment()["DBUS_SESSION_BUS_ADDRESS"] = userBus.address();
  const auto manager = standIn("done");
  scene.environment()["DBUS_SESSION_BUS_ADDRESS"] = sessionBus;
  scene.environment()["XDG_RUNTIME_DIR"] = scene.directory() / "runtime-of-the-user";
  const auto host = launched();
  EXPECT_NE(callLine(*manager).find(scene.helperID()), std::string::npos);
  host->process().waitForLog(" runs in a scope of its own, ");
}

TEST_F(OwnScope, HelperAgentThatCannotBeExecutedFailsAsEver) {
  const auto manager = standIn("done");
  const auto bundle = scene.makeHost("Host", "1.0", ownScope);
  const auto program =
      bundle.resources() / "ProbeHelper.app/Contents/Linux" / helperProbe().filename();
  std::filesystem::remove(program);
  writeFile(program, "no program at all");
  std::filesystem::permissions(program, std::filesystem::perms(0755));
  const auto host = scene.start(bundle);
  host->call("share");
  EXPECT_EQ(host->call("launch"), "no");
  host->process().waitForLog(program.filename().string() + ": Exec format error");
}

TEST(ScopeName, IsEscapedAsUnitsAre) {
  EXPECT_EQ(scopeNameFor("com.Acme.Helper_7", "ab"), "app-com.Acme.Helper_7-ab.scope");
  EXPECT_EQ(scopeNameFor("com.a-b/c \xc3\xa9", "1"),
            "app-com.a\\x2db\\x2fc\\x20\\xc3\\xa9-1.scope");
  EXPECT_EQ(scopeNameFor("", "1"), "app--1.scope");
}

TEST(ScopeName, HasTheLengthThatUnitsMayHave) {
  for (const char* part : {"a", "-", "ab-"}) {
    std::string identifier;
    while (identifier.size() < 5000) identifier += part;
    const std::string random(32, 'f');
    const std::string name = scopeNameFor(identifier, random);
    EXPECT_LE(name.size(), 255U);
    EXPECT_TRUE(name.ends_with('-' + random + ".scope")) << name;
    EXPECT_EQ(name.find("\\x2-"), std::string::npos) << "a byte was cut";
  }
}

// Runs the host as a service of a service manager, as users have one.
struct HostAsAService : OwnScope {
  void SetUp() override {
    const std::string obstacle = ServiceManager::obstacle();
    if (!obstacle.empty()) GTEST_SKIP() << obstacle;
  }

  // The session has the bus of the user, or one of its own.
  void beginManager(bool sharesBus = true) {
    manager = std::make_unique<ServiceManager>(scene.directory(), scene.environment());
    auto& address = scene.environment()["DBUS_SESSION_BUS_ADDRESS"];
    const std::string own = std::exchange(address, manager->busAddress());
    Peer::outsideBundles(scene).awaitOwner("org.freedesktop.systemd1");
    if (!sharesBus) address = own;
  }

  // Starts a host as the service "host", with its helper agent.
  std::unique_ptr<HostProcess> service(const InfoKeys& keys) {
    auto host = scene.start(scene.makeHost("Host", "1.0", keys),
                            manager->asService("host", scene.options()));
    host->call("share");
    EXPECT_EQ(host->call("launch"), "yes");
    return host;
  }

  std::unique_ptr<ServiceManager> manager;
};

TEST_F(HostAsAService, TakesItsHelperAgentAlongWhenItIsStopped) {
  beginManager();
  const auto host = service({});
  const pid_t helper = scene.helperProcess();
  EXPECT_EQ(manager->placeOf(helper), "/app.slice/host.service");
  const ProcessEnd end(helper);
  manager->stop("host.service");
  EXPECT_TRUE(end.comesWithin(patience));
}

TEST_F(HostAsAService, LeavesAHelperAgentInItsOwnScopeRunning) {
  beginManager();
  const auto host = service(ownScope);
  const pid_t helper = scene.helperProcess();
  const std::string place = manager->placeOf(helper);
  EXPECT_TRUE(place.starts_with("/app.slice/app-" + scene.helperID() + '-')) << place;
  EXPECT_TRUE(place.ends_with(".scope")) << place;
  const ProcessEnd end(helper);
  manager->stop("host.service");
  EXPECT_FALSE(end.hasCome());
  const auto next = scene.start(scene.makeHostWithoutHelper("Next"));
  EXPECT_EQ(next->call("ask " + scene.helperID() + " Probe echo: x"), "0 x");
  EXPECT_EQ(scene.helperProcess(), helper);
  // The scope is a unit like others.
  manager->stop(place.substr(std::string("/app.slice/").size()));
  EXPECT_TRUE(end.comesWithin(patience));
}

TEST_F(HostAsAService, LeavesItRunningAlsoIfTheSessionHasABusOfItsOwn) {
  constexpr bool sharesBus = false;
  beginManager(sharesBus);
  const auto host = service(ownScope);
  const pid_t helper = scene.helperProcess();
  const ProcessEnd end(helper);
  manager->stop("host.service");
  EXPECT_FALSE(end.hasCome());
  EXPECT_TRUE(manager->placeOf(helper).ends_with(".scope")) << manager->placeOf(helper);
}

}  // namespace
}  // namespace qbdkr::test
