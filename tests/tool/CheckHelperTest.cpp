// Tests that the tool accepts helper agents that keep the contract, and catches those that do not,
// each by the right check.

#include <gtest/gtest.h>
#include <signal.h>

#include <chrono>
#include <cstddef>
#include <cstdlib>
#include <filesystem>
#include <map>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "support/Environment.h"
#include "support/ForkedBody.h"
#include "support/OrdinaryUser.h"
#include "support/PageHelpers.h"
#include "support/Patience.h"
#include "support/Programs.h"
#include "support/Scene.h"
#include "tool/ToolRun.h"
#include "tools/qbhp/HeldSignals.h"

namespace qbdkr::test {
namespace {

namespace fs = std::filesystem;

// A fault, and the checks that catch it. All others succeed.
struct Fault {
  const char* name;
  std::vector<std::string> caughtBy;
  bool isUsual = false;  // made with all tests; the others by scripts/check-helpers
};

const std::vector<Fault> faults{
    {"claims-no-name", {"name"}},
    {"ends-at-once", {"name"}, true},
    {"no-report", {"start", "start-again"}},
    {"report-flag", {"start"}},
    {"report-class", {"start", "exit-report", "sigterm-report"}},
    {"short-report", {"start"}},
    {"reports-once", {"start-again"}},
    {"dies-at-second-start", {"start-again", "fewer-arguments"}},
    {"client-id-changes", {"client-id"}},
    {"client-id-is-lost", {"keeps-client-id"}, true},
    {"status-in-words", {"collect-status", "set-collect-status"}},
    {"status-is-fixed", {"set-collect-status"}},
    {"status-is-lost", {"keeps-collect-status"}},
    {"two-fields", {"reg-suite"}, true},
    {"width-in-words", {"unreg-suite"}},
    {"page-is-missing", {"error-page"}},
    {"page-is-relative", {"error-page"}},
    {"dies-at-hide", {"control"}},
    {"dies-at-a-directory", {"uploads"}},
    {"dies-without-a-type", {"usage-data"}},
    {"dies-at-ignore", {"upgrades"}},
    {"dies-at-customers", {"customers"}},
    {"answers-unknown-classes", {"unknown-class"}},
    {"answers-unknown-methods", {"unknown-method"}},
    {"answers-excess", {"more-arguments", "many-arguments"}},
    {"dies-of-many-arguments", {"many-arguments"}, true},
    {"hangs-at-long-texts", {"long-texts"}},
    {"dies-at-odd-texts", {"odd-texts"}},
    {"counts-slowly", {"burst"}},
    {"answers-strangers", {"stranger"}, true},
    {"ends-with-its-host", {"outlives-host"}},
    {"waits-for-a-start", {"without-start"}},
    {"ignores-exit", {"exit"}},
    {"ignores-sigterm", {"sigterm"}},
    {"no-exit-report", {"exit-report", "sigterm-report"}},
    {"no-report-of-sigterm", {"sigterm-report"}},
    {"dies-of-sigterm", {"sigterm-report"}, true},
};

// A fault of the helper agent in Python: texts, and those that take their places.
struct Change {
  std::vector<std::pair<std::string, std::string>> texts;
  std::vector<std::string> caughtBy;
  bool isUsual = false;
};

const std::vector<Change> changes{
    {{{"own_identifier = identifier_of(os.readlink(\"/proc/self/exe\"))",
       "own_identifier = \"com.Acme.PyHelper\""},
      {"\"$here/python3\"", "/usr/bin/python3"}},
     {"identity", "start", "exit-report", "sigterm-report"},
     true},
    {{{"request(host, *arguments)", "request(sender, *arguments)"}}, {"start"}},
    {{{"self.bus.send_message(call, Gio.DBusSendMessageFlags.NONE)",
       "self.bus.call_sync(host, PATH, INTERFACE, \"Call\", call.get_body(), None, 0, -1)"}},
     {"no-waiting", "fewer-arguments", "exit", "sigterm"}},
    {{{"BusNameOwnerFlags.NONE", "BusNameOwnerFlags.ALLOW_REPLACEMENT"}}, {"keeps-name"}},
    {{{"            return invocation.return_value(None)\n", "            return None\n"}},
     {"flush"}},
    {{{"            print(f\"{method_name}: {error}\", file=sys.stderr)\n",
       "            os._exit(3)\n"}},
     {"more-arguments", "many-arguments"}},
    {{{"        arguments += [", "        [] + ["},
      {"            print(f\"{method_name}: {error}\", file=sys.stderr)\n",
       "            os._exit(3)\n"}},
     {"more-arguments", "fewer-arguments", "many-arguments"}},
    {{{"            if host is not None and request is not None:\n",
       "            if request is None and \"o\" + \"Such\" in class_name + method_name:\n"
       "                return invocation.return_dbus_error(\"com.Acme.Unknown\", \"\")\n"
       "            if host is not None and request is not None:\n"}},
     {"unknown-class", "unknown-method"}},
    {{{"if host is not None and request", "if request"}}, {"stranger"}},
    {{{"        for interface in Gio.DBusNodeInfo",
       "        Gio.bus_own_name_on_connection(self.bus, self.identifier, 0, None, None)\n"
       "        self.bus.call_sync(\"org.freedesktop.DBus\", \"/\", \"org.freedesktop.DBus\",\n"
       "                           \"GetId\", None, None, 0, -1)\n"
       "        time.sleep(0.5)\n"
       "        for interface in Gio.DBusNodeInfo"}},
     {"name"}},
};

bool makesAll() { return std::getenv("QBDKR_EVERY_FAULT") != nullptr; }

std::vector<std::string> failedOf(const ToolResult& result) {
  std::vector<std::string> names;
  const JSON json = result.json();
  for (const auto& check : json["checks"]) {
    if (check["result"] == "failed") names.push_back(check["name"]);
  }
  return names;
}

struct ToolCheckHelper : testing::Test {
  // Checks a helper agent. No file and no process stays behind.
  [[nodiscard]] ToolResult check(const fs::path& helper, const std::string& fault = "",
                                 const std::string& time = "20") const {
    Environment environment = home.environment();
    environment["QBDKR_FAULT"] = fault;
    const TemporaryDirectory place;
    const Tool tool(place.path(), environment);
    auto result = tool.run({"check-helper", helper.string(), "--json", "--timeout", time});
    EXPECT_TRUE(fs::is_empty(place.path() / "tmp"));
    EXPECT_TRUE(Scene::processesIn(helper).empty());
    return result;
  }

  [[nodiscard]] TestBundle faulty() const {
    return {directory.path(),
            "Faulty",
            {{"CFBundleIdentifier", "com.Acme.Faulty"}, {"CFBundleVersion", "1.0"}},
            QBDKR_FAULTY_HELPER};
  }

  TemporaryDirectory directory;
  Home home{directory.path() / "home"};
};

TEST_F(ToolCheckHelper, AcceptsTheSample) {
  const fs::path sample = sampleHost() / "Contents/Resources/AcmeHelper.app";
  const auto result = check(sample);
  EXPECT_EQ(result.code, 0) << result.output << result.errors;
  EXPECT_EQ(result.json()["skipped"], 0) << result.output;
}

TEST_F(ToolCheckHelper, AcceptsAHelperAgentWithoutAFault) {
  const auto result = check(faulty().path());
  EXPECT_EQ(result.code, 0) << result.output << result.errors;
  EXPECT_EQ(result.json()["skipped"], 0) << result.output;
}

TEST_F(ToolCheckHelper, CatchesEachFaultByItsCheck) {
  const TestBundle helper = faulty();
  for (const Fault& fault : faults) {
    if (!fault.isUsual && !makesAll()) continue;
    const auto result = check(helper.path(), fault.name, "4");
    EXPECT_EQ(result.code, 1) << fault.name << result.errors;
    EXPECT_EQ(failedOf(result), fault.caughtBy) << fault.name << '\n' << result.output;
  }
}

TEST_F(ToolCheckHelper, AcceptsTheHelperAgentInPython) {
  const auto result = check(makePythonHelper(directory.path(), "com.Acme.PyHelper").path());
  EXPECT_EQ(result.code, 0) << result.output << result.errors;
  EXPECT_EQ(result.json()["skipped"], 1) << result.output;  // the page, which is not there
}

TEST_F(ToolCheckHelper, AcceptsTheHelperAgentInC) {
  const auto result = check(makeCHelper(directory.path(), "com.Acme.CHelper").path());
  EXPECT_EQ(result.code, 0) << result.output << result.errors;
}

TEST_F(ToolCheckHelper, CatchesFaultsOfTheHelperAgentInPython) {
  for (std::size_t i = 0; i < changes.size(); ++i) {
    const auto& [changed, caughtBy, isUsual] = changes[i];
    const auto& texts = changed;  // a lambda takes this, and not part of a binding
    if (!isUsual && !makesAll()) continue;
    std::size_t made = 0;
    const auto helper = makePythonHelper(directory.path() / std::to_string(i), "com.Acme.PyHelper",
                                         [&](std::string& text) {
                                           for (const auto& [from, to] : texts) {
                                             const auto at = text.find(from);
                                             if (at == std::string::npos) continue;
                                             text.replace(at, from.size(), to);
                                             ++made;
                                           }
                                         });
    ASSERT_EQ(made, texts.size()) << texts.front().first;
    const auto result = check(helper.path(), "", "4");
    EXPECT_EQ(result.code, 1) << texts.front().first << result.errors;
    EXPECT_EQ(failedOf(result), caughtBy) << texts.front().first << '\n' << result.output;
  }
}

TEST_F(ToolCheckHelper, FormsAgree) {
  const TestBundle helper = faulty();
  Environment environment = home.environment();
  environment["QBDKR_FAULT"] = "two-fields";
  const Tool tool(directory.path(), environment);
  const std::string junit = (directory.path() / "junit.xml").string();
  const std::vector<std::string> words{
      "check-helper", helper.path().string(), "--only", "reg-suite", "--only", "description"};
  auto tap = words;
  tap.insert(tap.end(), {"--tap", "--junit", junit});
  const auto result = tool.run(tap);
  EXPECT_EQ(result.code, 1);
  EXPECT_EQ(result.output,
            "TAP version 13\n1..2\n"
            "not ok 1 - reg-suite: URL, width and height, joined by \\#\\#\\#\n  ---\n"
            "  message: \"answered \\\"https://acme.example###300\\\": 2 of 3 fields, an "
            "exception in the host\"\n  ...\n"
            "ok 2 - description: the object describes its interface\n");
  const std::string xml = readFile(junit);
  EXPECT_NE(xml.find("tests=\"2\" failures=\"1\""), std::string::npos) << xml;
  EXPECT_NE(xml.find("&quot;https://acme.example###300&quot;"), std::string::npos) << xml;
  const auto table = tool.run(words);
  EXPECT_EQ(table.output,
            "CHECK                 RESULT   SEEN\n"
            "reg-suite             failed   answered \"https://acme.example###300\": 2 of 3\n"
            "                               fields, an exception in the host\n"
            "description           ok       Call has ssas in, s out\n\n"
            "1 ok, 1 failed, 0 skipped\n");
  auto unwritable = words;
  unwritable.insert(unwritable.end(), {"--junit", "/no/such/folder"});
  EXPECT_EQ(tool.run(unwritable).output, table.output);
  auto wrong = words;
  wrong.back() = "no-check";
  EXPECT_EQ(tool.run(wrong).code, 2);
  EXPECT_EQ(tool.run({"check-helper"}).code, 2);
  EXPECT_EQ(tool.run({"check-helper", helper.path().string(), "--tap", "--json"}).code, 2);
  EXPECT_NE(tool.run({"check-helper", "--list"}).output.find("\nkeeps-client-id  "),
            std::string::npos);
}

TEST_F(ToolCheckHelper, MissingBundleFails) {
  const auto result = check(directory.path() / "none");
  EXPECT_EQ(result.code, 1);
  EXPECT_EQ(failedOf(result), (std::vector<std::string>{"bundle", "name"})) << result.output;
}

TEST_F(ToolCheckHelper, NamesThatBelongToOthersFail) {
  const Tool tool(directory.path(), home.environment());
  for (const auto& [identifier, seen] :
       std::map<std::string, std::string>{{"qbdkr.qbhp", "its identifier is that of this tool"},
                                          {"org.freedesktop.DBus", "its name stays owned"}}) {
    const TestBundle helper(directory.path(), identifier, {{"CFBundleIdentifier", identifier}},
                            QBDKR_FAULTY_HELPER);
    const auto result = tool.run(
        {"check-helper", helper.path().string(), "--only", "name", "--timeout", "0.1", "--json"});
    EXPECT_EQ(result.code, 1) << result.errors;
    EXPECT_TRUE(result.json()["checks"][0]["seen"].get<std::string>().starts_with(seen))
        << result.output;
  }
}

TEST_F(ToolCheckHelper, LastWordsAreShort) {
  const auto result = check(faulty().path(), "ends-with-a-long-line");
  const std::string seen = result.json()["checks"][1]["seen"];
  EXPECT_TRUE(seen.ends_with("before it had its name: " + std::string(200, 'x'))) << seen;
}

TEST_F(ToolCheckHelper, TemporaryFilesMayLieAnywhere) {
  const TestBundle helper = faulty();
  const Tool tool(directory.path(), home.environment());
  const auto result =
      tool.runShell("cd '" + directory.path().string() +
                    "' && mkdir 'a <b>&;,%' && TMPDIR='a <b>&;,%' qbhp check-helper " +
                    helper.path().string() + " --only name");
  EXPECT_EQ(result.code, 0) << result.output << result.errors;
}

TEST_F(ToolCheckHelper, FoldersThatMayNotBeEnteredAreRemoved) {
  const TestBundle helper = faulty();
  Environment environment = home.environment();
  environment["QBDKR_FAULT"] = "locks-a-folder";
  const Tool tool(directory.path(), environment);
  giveToOrdinaryUser(directory.path());
  EXPECT_TRUE(asOrdinaryUser([&] {
    return tool.run({"check-helper", helper.path().string(), "--only", "name"}).code == 0;
  }));
  EXPECT_TRUE(fs::is_empty(directory.path() / "tmp"));
}

TEST(ToolHeldSignals, LeaveOutAnIgnoredOne) {
  EXPECT_EQ(runForked([] {
              ::signal(SIGHUP, SIG_IGN);
              const tool::HeldSignals signals;
              ::raise(SIGHUP);
              ::raise(SIGTERM);
              return signals.next() == SIGTERM;
            }),
            0);
}

TEST_F(ToolCheckHelper, SignalEndsAndRemovesAll) {
  const TestBundle helper = faulty();
  Environment environment = home.environment();
  environment["QBDKR_FAULT"] = "claims-no-name";
  const Tool tool(directory.path(), environment);
  for (const int number : {SIGINT, SIGTERM}) {
    const auto run = tool.begin({"check-helper", helper.path().string(), "--timeout", "600"});
    run->waitForOutput([](const std::string& line) { return line.starts_with("bundle  "); });
    const auto deadline = std::chrono::steady_clock::now() + patience;
    while (Scene::processesIn(helper.path()).empty() &&
           std::chrono::steady_clock::now() < deadline) {
      std::this_thread::sleep_for(std::chrono::milliseconds(5));
    }
    run->signal(number);
    EXPECT_EQ(run->wait(), number);
    EXPECT_TRUE(Scene::processesIn(helper.path()).empty());
    EXPECT_TRUE(fs::is_empty(directory.path() / "tmp"));
  }
}

}  // namespace
}  // namespace qbdkr::test
