// Tests how the tool asks a process for its diagnosis.

#include <gtest/gtest.h>
#include <signal.h>
#include <unistd.h>

#include <chrono>
#include <memory>
#include <regex>
#include <string>
#include <vector>

#include "support/BusMonitor.h"
#include "support/Peer.h"
#include "support/Programs.h"
#include "support/Sample.h"
#include "support/Scene.h"
#include "tool/ToolRun.h"

namespace qbdkr::test {
namespace {

struct ToolBesideAHost : Scene {
  ToolBesideAHost() : tool(directory(), environment()) {}

  [[nodiscard]] ToolResult ask(const std::string& target) const {
    return tool.run({"doctor", "--live", target});
  }
  [[nodiscard]] ToolResult ask(const HostProcess& host) const {
    return ask(std::to_string(host.processID()));
  }

  Tool tool;
};

TEST(ToolLiveDiagnosis, HostIsFoundByItsProcessAndItsIdentifier) {
  ToolBesideAHost scene;
  const auto host = scene.startAndShare(scene.makeHost("Host", "1.0"));
  const std::string process = std::to_string(scene.helperProcess());
  for (const auto& target : {std::to_string(host->processID()), scene.hostID()}) {
    const auto asked = scene.ask(target);
    EXPECT_EQ(asked.code, 0) << asked.errors;
    EXPECT_TRUE(asked.output.starts_with("Nothing is wrong.\nHelper agent: version 1.0, process " +
                                         process + ","))
        << asked.output;
    EXPECT_NE(asked.output.find("\nStep: "), std::string::npos) << asked.output;
  }
  const auto json = scene.tool.run({"doctor", "--live", scene.hostID(), "--json"}).json();
  EXPECT_EQ(json["process"], host->processID());
  EXPECT_TRUE(json["text"].get<std::string>().starts_with("Nothing is wrong.\n"));
}

TEST(ToolLiveDiagnosis, SecondProcessOfAHostIsAskedByItsProcess) {
  ToolBesideAHost scene;
  const auto bundle = scene.makeHost("Host", "1.0");
  const auto first = scene.startAndShare(bundle);
  const auto second = scene.start(bundle);
  second->call("share");
  const auto asked =
      scene.tool.run({"doctor", "--live", std::to_string(second->processID()), "--json"});
  EXPECT_EQ(asked.code, 0) << asked.errors;
  EXPECT_EQ(asked.json()["process"], second->processID());
  EXPECT_EQ(scene.tool.run({"doctor", "--live", scene.hostID(), "--json"}).json()["process"],
            first->processID());
}

TEST(ToolLiveDiagnosis, CauseComesFirst) {
  ToolBesideAHost scene;
  const auto host = scene.startAndShare(scene.makeHost("Host", "1.0"));
  EXPECT_EQ(host->call("ask " + scene.identifier("None") + " Class method"), "-600 ~");
  const auto asked = scene.ask(*host);
  EXPECT_EQ(asked.code, 0) << asked.errors;
  EXPECT_TRUE(asked.output.starts_with("Cause: ")) << asked.output;
  EXPECT_NE(asked.output.find("\nRemedy: "), std::string::npos) << asked.output;
}

TEST(ToolLiveDiagnosis, HelperAgentAnswersWithItsRecord) {
  ToolBesideAHost scene;
  const Sample sample(scene);
  const auto host = sample.start();
  scene.transcript().waitFor({"clientIDFormHelper"});
  (void)Peer::outsideBundles(scene).run({"call", scene.helperID(), "Class", "method"});
  const auto asked = scene.ask(scene.helperID());
  EXPECT_EQ(asked.code, 0) << asked.errors;
  EXPECT_TRUE(asked.output.starts_with(
      "This process is no host, or has made no communicator. Its record:\nStep: 20"))
      << asked.output;
  EXPECT_NE(asked.output.find("class \"Class\" is unknown"), std::string::npos) << asked.output;
}

TEST(ToolLiveDiagnosis, HelperAgentThatDidNothingHasAnEmptyRecord) {
  ToolBesideAHost scene;
  const TestBundle bundle = scene.makeHelper("1.0", scene.directory() / "Helpers");
  const ChildProcess helper({bundle.executable().string()}, scene.options());
  Peer::inBundle(scene).awaitOwner(scene.helperID());
  EXPECT_EQ(scene.ask(scene.helperID()).output,
            "This process is no host, or has made no communicator. Its record is empty.\n");
}

TEST(ToolLiveDiagnosis, LinesFit80ColumnsOnATerminal) {
  ToolBesideAHost scene;
  const auto host = scene.startAndShare(scene.makeHost("Host", "1.0"));
  const auto shown =
      scene.tool.runOnTerminal("doctor --live " + scene.hostID(), {{"NO_COLOR", "1"}}).output;
  EXPECT_TRUE(std::regex_search(shown, std::regex("\nHelper agent: version 1.0, process \\d+")));
  EXPECT_TRUE(
      std::regex_search(shown, std::regex("\nStep: .{20}\n      /\\S+\n      could be reached")))
      << shown;
  EXPECT_FALSE(std::regex_search(shown, std::regex("\n[^\n]{60}[^\n]* [^\n]{20}"))) << shown;
}

TEST(ToolLiveDiagnosis, HostWhoseMainRunLoopStandsStillIsNamed) {
  ToolBesideAHost scene;
  const auto host = scene.startAndShare(scene.makeHost("Host", "1.0"));
  host->call("block-main");
  const auto start = std::chrono::steady_clock::now();
  const auto asked = scene.ask(*host);
  EXPECT_GE(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(800))
      << "a host that is busy for a moment is not stuck";
  host->call("release-main");
  EXPECT_EQ(asked.code, 1);
  EXPECT_EQ(asked.output, "");
  EXPECT_EQ(asked.errors,
            "qbhp doctor: process " + std::to_string(host->processID()) +
                " does not answer within 0.8 s: its main run loop is busy or does not run\n");
  EXPECT_EQ(scene.ask(*host).code, 0) << "after a question that was given up";
}

TEST(ToolLiveDiagnosis, HelperAgentThatAStuckHostMayWaitForIsNamed) {
  ToolBesideAHost scene;
  const auto host = scene.startAndShare(scene.makeHost("Host", "1.0"));
  const pid_t helper = scene.helperProcess();
  ::kill(helper, SIGSTOP);
  host->begin("ask-on-main " + scene.helperID() + " Probe echo: x");
  const auto asked = scene.ask(*host);
  EXPECT_EQ(asked.code, 1);
  EXPECT_TRUE(asked.errors.ends_with(
      "its main run loop is busy or does not run. Its helper agent, process " +
      std::to_string(helper) +
      ", does not answer either: the host may wait for it on the main thread\n"))
      << asked.errors;
}

TEST(ToolLiveDiagnosis, OneIsMadeAtATimeAndOthersAreRefused) {
  ToolBesideAHost scene;
  const auto host = scene.startAndShare(scene.makeHost("Host", "1.0"));
  const auto peer = Peer::inBundle(scene);
  BusMonitor monitor(peer);
  const std::vector<std::string> question{"raw", scene.hostID(), "/QBHP/RPCEvent",
                                          "QBHP.Diagnosis1.Text"};
  // The questions wait while the process is stopped, and are read together.
  host->process().signal(SIGSTOP);
  const auto first = peer.begin(question);
  const auto second = peer.begin(question);
  monitor.waitForMember("QBHP.Diagnosis1 Text", 2);
  host->process().signal(SIGCONT);
  const std::string answers = first->firstLine() + second->firstLine();
  EXPECT_NE(answers.find("result Nothing"), std::string::npos) << answers;
  EXPECT_NE(answers.find("error org.freedesktop.DBus.Error.LimitsExceeded"), std::string::npos)
      << answers;
  EXPECT_EQ(scene.ask(*host).code, 0);
}

TEST(ToolLiveDiagnosis, TextOfAnotherProcessIsBounded) {
  ToolBesideAHost scene;
  const std::string name = scene.identifier("Large");
  const auto peer = Peer::inBundle(scene, "Large").begin({"diagnose", name, "5000000"});
  EXPECT_EQ(peer->firstLine(), "ready");
  const auto asked = scene.ask(name);
  EXPECT_EQ(asked.code, 0) << asked.errors;
  EXPECT_EQ(asked.output.size(), (std::size_t{1} << 20U) + 1);
}

TEST(ToolLiveDiagnosis, TargetThatCannotBeAskedIsToldInOneSentence) {
  ToolBesideAHost scene;
  const std::string none = scene.identifier("None");
  EXPECT_EQ(scene.ask(none).errors,
            "qbhp doctor: " + none + " takes no events on this session bus\n");
  EXPECT_EQ(scene.ask(none).code, 1);
  EXPECT_EQ(scene.ask("com").errors,
            "qbhp doctor: com cannot be the identifier of an application\n");
  const std::string own = std::to_string(::getpid());
  EXPECT_EQ(scene.ask(own).errors,
            "qbhp doctor: process " + own + " runs no application, or has ended\n");
  EXPECT_EQ(scene.tool.run({"doctor"}).code, 2);
  EXPECT_EQ(scene.tool.run({"doctor", "x.app", "--live", none}).errors,
            "qbhp doctor: either HOST or --live is required (see --help)\n");
  const std::string answering = scene.identifier("Answering");
  const auto peer = Peer::inBundle(scene, "Answering").begin({"answer", answering, "1"});
  EXPECT_EQ(peer->firstLine(), "ready");
  EXPECT_EQ(scene.ask(answering).errors,
            "qbhp doctor: process " + std::to_string(peer->processID()) + " offers no diagnosis\n");
  scene.bus().kill();
  EXPECT_TRUE(namesMissingBus(scene.ask(none).errors, scene.bus().address()));
  const auto lost = scene.tool.runShell(
      "env -u DBUS_SESSION_BUS_ADDRESS -u XDG_RUNTIME_DIR qbhp doctor --live " + none);
  EXPECT_TRUE(lost.errors.starts_with(
      "qbhp doctor: the session bus cannot be reached: neither DBUS_SESSION_BUS_ADDRESS nor"
      " XDG_RUNTIME_DIR is set. Run this in the session"))
      << lost.errors;
}

}  // namespace
}  // namespace qbdkr::test
