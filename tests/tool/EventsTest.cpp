// Tests how the tool sends events, and how it acts for a host.

#include <gtest/gtest.h>
#include <signal.h>

#include <filesystem>
#include <string>
#include <vector>

#include "support/Peer.h"
#include "support/ProcessEnd.h"
#include "support/Programs.h"
#include "support/Scene.h"
#include "tool/ToolRun.h"

namespace qbdkr::test {
namespace {

namespace fs = std::filesystem;

// Runs a helper agent on the bus.
struct ToolWithAHelper : Scene {
  ToolWithAHelper()
      : bundle(makeHelper("1.5", directory() / "Helpers")),
        helper({bundle.executable().string()}, options()),
        tool(directory(), environment()) {
    Peer::inBundle(*this).awaitOwner(helperID());
  }

  // Makes a host whose directory must stay as it is.
  TestBundle host() { return makeHostWithoutHelper("Host"); }
  [[nodiscard]] std::vector<std::string> temporaryNames() const {
    return namesIn(directory() / "tmp");
  }
  TestBundle bundle;
  ChildProcess helper;
  Tool tool;
};

TEST(ToolEvents, AnswerIsPrinted) {
  ToolWithAHelper scene;
  const auto asked = scene.tool.run({"ask", scene.helperID(), "Probe", "echo:", "[a,\nb]"});
  EXPECT_EQ(asked.code, 0) << asked.errors;
  EXPECT_EQ(asked.output, "[a,\nb]\n");
  EXPECT_EQ(asked.errors, "");
  scene.transcript().waitFor({"call Probe echo: from qbdkr.qbhp "});
  EXPECT_EQ(scene.tool.run({"ask", scene.helperID(), "Probe", "echo:", "x", "--json"}).json(),
            JSON({{"status", 0}, {"meaning", "success"}, {"result", "x"}}));
  const auto empty = scene.tool.run({"ask", scene.helperID(), "Probe", "echo:", "--", ""});
  EXPECT_EQ(empty.code, 0);
  EXPECT_EQ(empty.output, "");
  EXPECT_EQ(empty.errors,
            "qbhp ask: answered without a text: it is empty, or the method is unknown there\n");
}

TEST(ToolEvents, PostIsTakenBeforeTheToolEnds) {
  ToolWithAHelper scene;
  const auto sent = scene.tool.run({"send", scene.helperID(), "Probe", "note:", "first", "--x"});
  EXPECT_EQ(sent.code, 2) << "an option that does not exist";
  const auto posted =
      scene.tool.run({"send", scene.helperID(), "Probe", "note:", "--json", "--", "first", "--x"});
  EXPECT_EQ(posted.code, 0) << posted.errors;
  EXPECT_EQ(posted.json(), JSON({{"posted", true}, {"status", 0}, {"meaning", "success"}}));
  // The event was handed to the handler before the tool ended; the line follows at once.
  scene.transcript().waitFor({"call Probe note: from qbdkr.qbhp first --x"});
}

TEST(ToolEvents, FailuresAreToldWithTheirMeaning) {
  ToolWithAHelper scene;
  const std::string none = scene.identifier("None");
  const auto missing = scene.tool.run({"ask", none, "Probe", "echo:", "x"});
  EXPECT_EQ(missing.code, 1);
  EXPECT_EQ(missing.output, "");
  EXPECT_EQ(missing.errors, "qbhp ask: status -600: the target is not running\n");
  EXPECT_EQ(scene.tool.run({"send", none, "Probe", "x"}).errors,
            "qbhp send: status -600: the target is not running\n");
  const auto json = scene.tool.run({"send", none, "Probe", "x", "--json"});
  EXPECT_EQ(json.code, 1);
  EXPECT_EQ(json.json(),
            JSON({{"posted", false}, {"status", -600}, {"meaning", "the target is not running"}}));
  EXPECT_TRUE(scene.tool.run({"ask", scene.helperID(), "Probe", "echo:", "\xff"})
                  .errors.starts_with("qbhp ask: status -50: a text is not valid UTF-8"));
  ::kill(scene.helper.processID(), SIGSTOP);
  const auto late =
      scene.tool.run({"ask", scene.helperID(), "Probe", "echo:", "x", "--timeout", "0.05"});
  EXPECT_EQ(late.code, 1);
  EXPECT_EQ(late.errors, "qbhp ask: status -1712: not answered in time\n");
  EXPECT_EQ(scene.tool.run({"send", scene.helperID(), "Probe", "x", "--timeout", "0.05"}).errors,
            "qbhp send: posted, but not taken in time (status -1712)\n");
  ::kill(scene.helper.processID(), SIGCONT);
  scene.bus().kill();
  const auto unsent = scene.tool.run({"ask", scene.helperID(), "Probe", "echo:", "x"});
  EXPECT_TRUE(unsent.errors.starts_with("qbhp ask: status -609: ")) << unsent.errors;
  EXPECT_TRUE(namesMissingBus(unsent.errors, scene.bus().address())) << unsent.errors;
}

TEST(ToolEvents, TargetThatGoesAwayIsNotTakenForAMissingBus) {
  ToolWithAHelper scene;
  const auto asking = scene.tool.begin({"ask", scene.helperID(), "Probe", "wait"});
  scene.transcript().waitFor({"Probe wait"});
  ::kill(scene.helper.processID(), SIGKILL);
  EXPECT_EQ(asking->logToItsEnd().front(),
            "qbhp ask: status -609: no bus, or the target went away");
}

TEST(ToolEvents, ActsForAHostAndLeavesNothingBehind) {
  ToolWithAHelper scene;
  const auto host = scene.host();
  const std::string before = treeDigest(host.path());
  const auto asked = scene.tool.run(
      {"ask", scene.helperID(), "Probe", "echo:", "-x", "--as", host.path().string()});
  EXPECT_EQ(asked.code, 2) << "an option that does not exist";
  const auto acted = scene.tool.run({"ask", "--as", host.path().string(), "--timeout", "9.5",
                                     "--json", "--", scene.helperID(), "Probe", "echo:", "-x"});
  EXPECT_EQ(acted.code, 0) << acted.errors;
  EXPECT_EQ(acted.json()["result"], "-x");
  EXPECT_EQ(acted.errors, "qbhp ask: acts for " + scene.hostID() + "\n");
  scene.transcript().waitFor({"call Probe echo: from " + scene.hostID() + " -x"});
  EXPECT_EQ(
      scene.tool
          .run({"send", scene.helperID(), "Probe", "note:", "y", "--as", host.path().string()})
          .code,
      0);
  scene.transcript().waitFor({"call Probe note: from " + scene.hostID() + " y"});
  const auto failed =
      scene.tool.run({"ask", scene.identifier("None"), "Probe", "x", "--as", host.path().string()});
  EXPECT_EQ(failed.code, 1);
  EXPECT_NE(failed.errors.find("status -600"), std::string::npos);
  EXPECT_EQ(scene.temporaryNames(), std::vector<std::string>());
  EXPECT_EQ(treeDigest(host.path()), before);
  EXPECT_FALSE(fs::exists(scene.home().preferencesFile(scene.hostID())));
}

TEST(ToolEvents, ActsUnderTheHostsRuleForItsHelperAgent) {
  ToolWithAHelper scene;
  auto host = scene.host();
  host.setKeys({{"Helper must be installed copy", "1"}});
  const auto refused = scene.tool.run(
      {"ask", scene.helperID(), "Probe", "echo:", "x", "--as", host.path().string()});
  EXPECT_EQ(refused.code, 1);
  EXPECT_NE(refused.errors.find("status -1743: the bus or the user refuses"), std::string::npos)
      << refused.errors;
}

TEST(ToolEvents, ThatActsForNoHostFails) {
  ToolWithAHelper scene;
  const auto directory = scene.directory().string();
  const std::vector<std::string> words{"ask", scene.helperID(), "Probe", "echo:", "x", "--as"};
  auto wrong = words;
  wrong.push_back(directory + "/none");
  EXPECT_EQ(scene.tool.run(wrong).errors,
            "qbhp ask: " + directory + "/none is no bundle: it has no Contents/Info.plist\n");
  EXPECT_EQ(scene.tool.run(wrong).code, 1);
  const TestBundle nameless(scene.directory(), "Nameless", {{"CFBundleName", "x"}});
  wrong.back() = nameless.path().string();
  EXPECT_NE(scene.tool.run(wrong).errors.find("has no CFBundleIdentifier"), std::string::npos);
  writeFile(nameless.infoFile(), "<plist><dict>\n<key>a</kex></dict></plist>");
  EXPECT_EQ(scene.tool.run(wrong).errors,
            "qbhp ask: " + nameless.infoFile().string() +
                " is no property list with a dictionary: line 2: mismatched tag\n");
  EXPECT_EQ(scene.temporaryNames(), std::vector<std::string>());
}

TEST(ToolEvents, SignalEndsTheToolThatActsAndRemovesItsBundle) {
  ToolWithAHelper scene;
  const auto host = scene.host();
  for (const int number : {SIGINT, SIGTERM}) {
    const auto asking = scene.tool.begin({"ask", scene.helperID(), "Probe", "wait", "--timeout",
                                          "900", "--as", host.path().string()});
    scene.transcript().waitForCount("Probe wait", number == SIGINT ? 1 : 2);
    const auto names = scene.temporaryNames();
    ASSERT_EQ(names.size(), 1U);
    EXPECT_EQ(modeOf(scene.directory() / "tmp" / names.front()), mode_t{0700});
    const auto copies = Scene::processesIn(scene.directory() / "tmp");
    ASSERT_EQ(copies.size(), 1U);
    const ProcessEnd end(copies.front());
    asking->signal(number);
    EXPECT_EQ(asking->wait(), number);
    EXPECT_TRUE(end.comesWithin(patience));
    EXPECT_EQ(scene.temporaryNames(), std::vector<std::string>());
    ::kill(scene.helper.processID(), SIGUSR1);
  }
}

}  // namespace
}  // namespace qbdkr::test
