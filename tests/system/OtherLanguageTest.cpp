// Runs the helper agents in Python and in C from docs/helper-agents.md.

#include <gtest/gtest.h>
#include <signal.h>

#include <filesystem>
#include <memory>
#include <ostream>
#include <sstream>
#include <string>
#include <vector>

#include "support/PageHelpers.h"
#include "support/Peer.h"
#include "support/ProcessEnd.h"
#include "support/Programs.h"
#include "support/Scene.h"

namespace qbdkr::test {
namespace {

namespace fs = std::filesystem;

struct Language {
  const char* name;
  const char* helperName;
  TestBundle (*make)(const fs::path& directory, const std::string& identifier);
};

void PrintTo(const Language& language, std::ostream* stream) { *stream << language.name; }

const Language inPython{"Python", "PyHelper",
                        [](const fs::path& directory, const std::string& identifier) {
                          return makePythonHelper(directory, identifier);
                        }};
const Language inC{"C", "CHelper", makeCHelper};

// A host with such a helper agent among its resources.
class HostOfHelper {
 public:
  explicit HostOfHelper(const Language& language)
      : bundle_(scene.makeHostWithoutHelper("Host", {{"Helepr App name", language.helperName}})) {
    language.make(bundle_.resources(), scene.helperID());
    host = scene.start(bundle_);
  }

  [[nodiscard]] pid_t helper() const {
    const auto processes = Scene::processesIn(scene.installDirectory());
    return processes.size() == 1 ? processes.front() : 0;
  }
  void launch() const {
    host->call("share");
    ASSERT_EQ(host->call("launch"), "yes");
  }

  // One of the requests that have an answer, which names its first text.
  [[nodiscard]] std::string request() const {
    return scene.helperID() + " QBHPUploadByHelper unRegSuiteInfo:version:";
  }
  static std::string answerFor(const std::string& product) {
    return "https://acme.example/offer/" + product + "###300###200";
  }

  Scene scene;
  std::unique_ptr<HostProcess> host;

 private:
  TestBundle bundle_;
};

class OtherLanguage : public testing::TestWithParam<Language>, protected HostOfHelper {
 protected:
  OtherLanguage() : HostOfHelper(GetParam()) {}
};

TEST_P(OtherLanguage, HelperAgentIsInstalledOpenedStartedAndAsked) {
  launch();
  EXPECT_EQ(host->call("ask " + request() + " 7 1"), "0 " + answerFor("7"));
}

TEST_P(OtherLanguage, ReportsReachTheHostBecauseTheyComeFromABundle) {
  const auto peer = Peer::inBundle(scene);
  host->call("share");
  peer.awaitOwner(scene.hostID());
  EXPECT_EQ(host->call("launch"), "yes");
  EXPECT_EQ(host->waitForReport("server"), "! server open no-error main-thread");
  EXPECT_NE(host->call("senders").find(scene.helperID()), std::string::npos);
}

TEST_P(OtherLanguage, UnknownRequestsAndStrangersGetNothing) {
  launch();
  const std::string to = "ask " + scene.helperID();
  EXPECT_EQ(host->call(to + " QBHPUpgradeByHelper productUpgrade:versionID: 7 1"), "0 ~");
  EXPECT_EQ(host->call(to + " NoSuchClass start:prodeuctVersion: 7 1"), "0 ~");
  EXPECT_EQ(host->call(to + " QBHPHelperControl start:prodeuctVersion: 1 2 3 4"), "0 ~");
  EXPECT_NE(host->call("ask " + request() + " 7 1"), "0 ~");
  const auto outside = Peer::outsideBundles(scene);
  EXPECT_EQ(
      outside.run({"call", scene.helperID(), "QBHPUploadByHelper", "unRegSuiteInfo:version:", "7"}),
      "result ");
}

TEST_P(OtherLanguage, MissingArgumentsAreAbsent) {
  launch();
  EXPECT_EQ(host->call("ask " + request() + " 7"), "0 " + answerFor("7"));
  EXPECT_EQ(host->call("ask " + request()), "0 " + answerFor(""));
}

// It asks for a sender when it serves its event: the flush waits for that.
TEST_P(OtherLanguage, TheOnlyRequestOfAProcessThatFlushesIsHeard) {
  host->call("share");
  Peer::outsideBundles(scene).awaitOwner(scene.hostID());
  EXPECT_EQ(host->call("launch"), "yes");
  host->call("reports 1");
  // These are processes of the same product, so the helper agent's reports to them reach the host.
  const TestBundle bundle = scene.makeHostWithoutHelper("Ending");
  for (int i = 1; i <= 10; ++i) {
    const auto ending = scene.start(bundle);
    ending->begin("send-flush-exit " + scene.helperID() +
                  " QBHPHelperControl start:prodeuctVersion: 1 2");
    EXPECT_EQ(ending->process().wait(), 0);
    host->call("reports " + std::to_string(1 + i));
  }
}

TEST_P(OtherLanguage, HelperAgentEndsWhenItIsAskedTo) {
  launch();
  ASSERT_NE(helper(), 0);
  const ProcessEnd asked(helper());
  EXPECT_EQ(host->call("send " + scene.helperID() +
                       " QBHPHelperControl exitHelper:productVersion: 1001 2.0"),
            "0");
  EXPECT_TRUE(asked.comesWithin(patience));
  EXPECT_EQ(host->call("launch"), "yes");
  const pid_t next = helper();
  ASSERT_NE(next, 0);
  const ProcessEnd terminated(next);
  ::kill(next, SIGTERM);
  EXPECT_TRUE(terminated.comesWithin(patience));
}

// The inner bundle is the nearest, so the identifier of the outer one is not the sender's.
TEST_P(OtherLanguage, TheNearestBundleAloneNamesASender) {
  launch();
  const TestBundle outer(scene.directory(), "Outer",
                         {{"CFBundleIdentifier", scene.identifier("Outer")}});
  const TestBundle inner(outer.resources(), "Inner",
                         {{"CFBundleIdentifier", scene.identifier("Inner")}}, libdbusClient());
  const auto answer = [&] {
    return outputOf({inner.executable().string(), "call", scene.helperID(), "QBHPUploadByHelper",
                     "unRegSuiteInfo:version:", "7", "1"},
                    scene.environment());
  };
  EXPECT_EQ(answer(), "result " + answerFor("7") + '\n');
  const std::string identifier = "<key>CFBundleIdentifier</key>";
  for (const std::string& text :
       {std::string("no property list"), std::string(),
        "<plist><array>" + identifier + "<string>com.Acme.Array</string></array></plist>",
        "<plist><dict>" + identifier + "<integer>7</integer></dict></plist>",
        "<plist><dict>" + identifier + "<date>com.Acme.Date</date></dict></plist>",
        "<plist><dict>" + identifier + "<string>one</string></dict></plist>",
        std::string("<plist><dict><key>PID</key><string>7</string></dict></plist>")}) {
    writeFile(inner.infoFile(), text);
    EXPECT_EQ(answer(), "result \n") << text;
  }
  EXPECT_EQ(host->call("ask " + request() + " 7 1"), "0 " + answerFor("7"));
}

TEST_P(OtherLanguage, SendersThatLeftAreForgotten) {
  const auto peer = Peer::inBundle(scene);
  const auto monitor = peer.begin({"monitor", "all"});
  monitor->firstLine();
  launch();
  const std::string left = scene.identifier("Peer");
  ASSERT_EQ(
      peer.run({"call", scene.helperID(), "QBHPUploadByHelper", "unRegSuiteInfo:version:", "left"}),
      "result " + answerFor("left"));
  const auto sees = [&](const std::string& words) {
    return monitor->waitForOutput(
        [&](const std::string& line) { return line.find(words) != std::string::npos; });
  };
  // The words of the line are "call", the number of the message, and its sender.
  std::istringstream call(sees("[ left ]"));
  std::string name;
  call >> name >> name >> name;
  sees("NameOwnerChanged sss " + name + ' ' + name + " %");
  // This request comes after that news.
  EXPECT_EQ(host->call("ask " + request() + " 7 1"), "0 " + answerFor("7"));
  ::kill(helper(), SIGTERM);
  sees("NameOwnerChanged sss " + scene.helperID() + " :");  // it came
  sees(scene.hostID() +
       " /QBHP/RPCEvent QBHP.RPCEvent1 Call no-reply,no-auto-start ssas "
       "QBHPHelperControl helperExitNotify:");
  // Wait for its end: it has no owner any more.
  monitor->waitForOutput([&](const std::string& line) {
    return line.find("NameOwnerChanged sss " + scene.helperID() + " :") != std::string::npos &&
           line.ends_with(" %");
  });
  for (const std::string& line : monitor->output()) {
    EXPECT_EQ(line.find(' ' + left + " /QBHP/RPCEvent"), std::string::npos) << line;
  }
}

TEST_P(OtherLanguage, AHelperAgentWithoutAnIdentifierSaysSo) {
  const TestBundle helper = GetParam().make(scene.directory(), scene.identifier("Lone"));
  for (const std::string text : {"<plist><array/></plist>", "no property list"}) {
    writeFile(helper.infoFile(), text);
    ChildProcess process({helper.path() / "Contents/Linux" / GetParam().helperName},
                         scene.options());
    EXPECT_EQ(process.logToItsEnd(),
              std::vector<std::string>{"not in a bundle: hosts would not accept its reports"});
    EXPECT_NE(process.wait(), 0);
  }
}

INSTANTIATE_TEST_SUITE_P(, OtherLanguage, testing::Values(inPython, inC),
                         [](const auto& test) { return std::string(test.param.name); });

TEST(PythonHelper, ItsStateSurvivesAKill) {
  HostOfHelper product(inPython);
  HostProcess& host = *product.host;
  product.launch();
  const std::string client = host.call("fetch-client");
  EXPECT_EQ(client.size(), 32U) << client;
  const std::string upload = product.scene.helperID() + " QBHPUploadByHelper ";
  host.call("send " + upload + "setProductCollectStatus:version:status: 7 1 1");
  EXPECT_EQ(host.call("ask " + upload + "productCollectStatus:version: 7 1"), "0 1");
  product.scene.killHelper(host);
  EXPECT_EQ(host.call("launch"), "yes");
  EXPECT_EQ(host.call("fetch-client"), client);
  EXPECT_EQ(host.call("ask " + upload + "productCollectStatus:version: 7 1"), "0 1");
}

}  // namespace
}  // namespace qbdkr::test
