// Tests how the tool shows the events of other processes.

#include <gtest/gtest.h>
#include <signal.h>

#include <memory>
#include <string>
#include <vector>

#include "support/BusMonitor.h"
#include "support/Peer.h"
#include "support/Programs.h"
#include "support/ResourceUse.h"
#include "support/Sanitizers.h"
#include "support/Scene.h"
#include "tool/ToolRun.h"

namespace qbdkr::test {
namespace {

// Runs a helper agent on the bus.
struct ToolThatWatches : Scene {
  explicit ToolThatWatches(const BusPolicy& busPolicy = {})
      : Scene(busPolicy),
        bundle(makeHelper("1.5", directory() / "Helpers")),
        helper({bundle.executable().string()}, options()),
        tool(directory(), environment()),
        peer(Peer::inBundle(*this)) {
    peer.awaitOwner(helperID());
  }

  // Begins to watch, and returns when no later event is missed.
  [[nodiscard]] std::unique_ptr<ChildProcess> watch(std::vector<std::string> words = {}) const {
    words.insert(words.begin(), "watch");
    auto process = tool.begin(words);
    process->waitForLog("qbhp watch: watches the session bus");
    return process;
  }

  TestBundle bundle;
  ChildProcess helper;
  Tool tool;
  Peer peer;
};

// Returns a line from its target on, without its duration. The sender may have ended before it
// could be known.
std::string fromTarget(const std::string& line) {
  const auto target = line.find(" -> ");
  const auto duration = line.ends_with(" ms)") ? line.rfind(" (") : line.size();
  return line.substr(target + 4, duration - target - 4);
}

// Returns a line without its time of day and its duration.
std::string withoutTimes(const std::string& line) {
  const auto duration = line.ends_with(" ms)") ? line.rfind(" (") : line.size();
  return line.substr(std::string("00:00:00.000 ").size(),
                     duration - std::string("00:00:00.000 ").size());
}

TEST(ToolWatch, ShowsEachEventWithItsPartiesAndItsOutcome) {
  ToolThatWatches scene;
  const std::string helper = scene.helperID();
  const auto watch = scene.watch({"--count", "4"});
  (void)scene.tool.run({"ask", helper, "Probe", "echo:", "a\"\n\x1b[31m\xe2\x80\xaeZ"});
  (void)scene.tool.run({"send", helper, "Probe", "note:", "x", ""});
  (void)Peer::outsideBundles(scene).run({"call", helper, "Probe", "echo:", "y"});
  (void)scene.peer.run({"call", "com.Acme.Missing", "Probe", "echo:"});
  const auto lines = watch->outputToItsEnd();
  EXPECT_EQ(watch->wait(), 0);
  ASSERT_EQ(lines.size(), 4U);
  EXPECT_EQ(fromTarget(lines[0]), helper + R"( Probe echo: "a\"\n\x1b[31m\u202eZ" = )"
                                           R"("a\"\n\x1b[31m\u202eZ")");
  EXPECT_TRUE(lines[0].ends_with(" ms)")) << lines[0];
  EXPECT_EQ(fromTarget(lines[1]), helper + R"( Probe note: "x" "" (posted))");
  EXPECT_NE(lines[2].find(" -> " + helper + R"( Probe echo: "y" = "y" ()"), std::string::npos)
      << lines[2];
  EXPECT_EQ(lines[2].find(scene.identifier("Peer")), std::string::npos) << lines[2];
  EXPECT_NE(lines[3].find(
                " -> com.Acme.Missing Probe echo: ! org.freedesktop.DBus.Error.NameHasNoOwner \""),
            std::string::npos)
      << lines[3];
}

TEST(ToolWatch, ShowsEventsThatHadLeftTheBusAndLetsThemLeaveAgain) {
  Scene scene;
  scene.environment()["QBDKR_DIRECT"] = "1";
  const auto host = scene.startAndShare(scene.makeHost("Host", "1.0"));
  const auto ask = [&](const std::string& text) {
    return host->call("ask " + scene.helperID() + " Probe echo: " + text);
  };
  for (int i = 0; i < 5; ++i) EXPECT_EQ(ask("before"), "0 before");
  const auto watch = Tool(scene.directory(), scene.environment()).begin({"watch", "--count", "3"});
  watch->waitForLog("qbhp watch: watches the session bus");
  for (const std::string text : {"one", "two", "three"}) EXPECT_EQ(ask(text), "0 " + text);
  const auto lines = watch->outputToItsEnd();
  ASSERT_EQ(lines.size(), 3U);
  EXPECT_EQ(fromTarget(lines[2]), scene.helperID() + R"( Probe echo: "three" = "three")");

  BusMonitor monitor(Peer::outsideBundles(scene));
  for (int i = 0; i < 5; ++i) EXPECT_EQ(ask("after"), "0 after");
  monitor.waitForMember("QBHP.Direct1 Begin", 1);
}

TEST(ToolWatch, SenderOutsideBundlesIsShownByItsProcessAndProgram) {
  ToolThatWatches scene;
  const auto watch = scene.watch({"--count", "1"});
  const auto outside = Peer::outsideBundles(scene);
  const auto sender = outside.begin({"post", scene.helperID(), "1", "Probe", "note:", "x"});
  const auto lines = watch->outputToItsEnd();
  ASSERT_EQ(lines.size(), 1U);
  EXPECT_EQ(withoutTimes(lines[0]), "process " + std::to_string(sender->processID()) + " " +
                                        outside.executable() + " -> " + scene.helperID() +
                                        R"( Probe note: "x" (posted))");
}

TEST(ToolWatch, JSONIsOneObjectPerLineAndCompleteAtOnce) {
  ToolThatWatches scene;
  const auto host = scene.start(scene.makeHostWithoutHelper("Host"));
  const auto watch = scene.watch({"--json"});
  const std::string text(500, 'x');
  EXPECT_EQ(host->call("ask " + scene.helperID() + " Probe echo: " + text), "0 " + text);
  const auto event = JSON::parse(watch->firstLine());
  EXPECT_EQ(event["sender"]["identifier"], scene.hostID());
  EXPECT_EQ(event["sender"]["process"], host->processID());
  EXPECT_EQ(event["target"]["identifier"], scene.helperID());
  EXPECT_EQ(event["target"]["process"], scene.helper.processID());
  EXPECT_EQ(event["target"]["program"], scene.bundle.executable().string());
  EXPECT_EQ(event["class"], "Probe");
  EXPECT_EQ(event["method"], "echo:");
  EXPECT_EQ(event["arguments"], JSON::array({text}));
  EXPECT_EQ(event["outcome"], "answered");
  EXPECT_EQ(event["result"], text);
  EXPECT_EQ(event["error"], nullptr);
  EXPECT_GT(event["milliseconds"].get<double>(), 0);
  EXPECT_EQ(event["time"].get<std::string>().size(),
            std::string("2026-01-31T12:00:00.000Z").size());
  watch->signal(SIGTERM);
  EXPECT_EQ(watch->wait(), 0);
}

TEST(ToolWatch, FiltersByApplicationClassAndMethod) {
  ToolThatWatches scene;
  const std::string helper = scene.helperID();
  const auto host = scene.start(scene.makeHostWithoutHelper("Host"));
  const auto target = scene.watch({helper, "--count", "1"});
  const auto sender = scene.watch({scene.hostID(), "--count", "2"});
  const auto missing = scene.watch({"com.Acme.Missing", "--count", "1"});
  const auto method = scene.watch({"--class", "Probe", "--method", "echo:", "--count", "1"});
  (void)scene.peer.run({"call", "com.Acme.Missing", "Probe", "first"});
  host->call("ask " + helper + " Other echo: 1");
  host->call("ask " + helper + " Probe unknown 2");
  host->call("ask " + helper + " Probe echo: 3");
  EXPECT_NE(target->firstLine().find(" Other echo: \"1\""), std::string::npos);
  const auto lines = sender->outputToItsEnd();
  ASSERT_EQ(lines.size(), 2U);
  EXPECT_NE(lines[1].find(" Probe unknown \"2\""), std::string::npos);
  EXPECT_NE(missing->firstLine().find(" Probe first "), std::string::npos);
  EXPECT_NE(method->firstLine().find(" Probe echo: \"3\""), std::string::npos);
}

TEST(ToolWatch, LongTextsAreShortenedUnlessItIsWide) {
  ToolThatWatches scene;
  const auto brief = scene.watch({"--count", "1"});
  const auto wide = scene.watch({"--count", "1", "--wide"});
  // The 60th byte is the first of a character.
  const std::string text = std::string(59, 'x') + "\xc3\xa4" + std::string(100, 'y');
  std::vector<std::string> words{"send", scene.helperID(), "Probe", "note:", text};
  for (int i = 0; i < 12; ++i) words.push_back("t" + std::to_string(i));
  (void)scene.tool.run(words);
  const std::string line = brief->firstLine();
  EXPECT_NE(line.find("\"" + std::string(59, 'x') + "\"… (161 bytes) \"t0\""), std::string::npos)
      << line;
  EXPECT_TRUE(line.ends_with("\"t8\" … 3 more (posted)")) << line;
  const std::string whole = wide->firstLine();
  EXPECT_NE(whole.find('"' + text + '"'), std::string::npos) << whole;
  EXPECT_TRUE(whole.ends_with("\"t11\" (posted)")) << whole;
}

TEST(ToolWatch, RedactHidesTextsEverywhere) {
  ToolThatWatches scene;
  const auto text = scene.watch({"--redact", "--count", "2"});
  const auto json = scene.watch({"--redact", "--count", "2", "--json"});
  (void)scene.tool.run({"ask", scene.helperID(), "Probe", "echo:", "secret@acme.example"});
  (void)scene.tool.run({"ask", "com.Acme.Missing", "Probe", "echo:", "secret@acme.example"});
  const auto lines = text->outputToItsEnd();
  ASSERT_EQ(lines.size(), 2U);
  EXPECT_NE(lines[0].find(" Probe echo: <hidden> = <hidden> ("), std::string::npos) << lines[0];
  EXPECT_NE(lines[1].find("NameHasNoOwner <hidden> ("), std::string::npos) << lines[1];
  for (const auto& line : json->outputToItsEnd()) {
    const auto event = JSON::parse(line);
    EXPECT_EQ(event["arguments"], JSON::array({"<hidden>"}));
    EXPECT_EQ(line.find("acme.example"), std::string::npos) << line;
    EXPECT_EQ(line.find("does not exist"), std::string::npos) << line;
  }
}

TEST(ToolWatch, EventsWithoutAnAnswerAreShownInTheEnd) {
  ToolThatWatches scene;
  scene.helper.signal(SIGSTOP);
  const auto watch = scene.watch();
  const auto left = scene.watch();
  BusMonitor monitor(scene.peer);
  {
    const auto asking = scene.peer.begin({"call", scene.helperID(), "Probe", "echo:", "1"});
    monitor.waitForCalls("echo:", 1);
    const auto posting = scene.peer.begin({"post", scene.helperID(), "1", "Probe", "note:"});
    watch->waitForOutput([](const std::string& line) { return line.ends_with("(posted)"); });
    watch->signal(SIGINT);
    watch->waitForOutput([](const std::string& line) {
      return line.ends_with("Probe echo: \"1\" ? no answer before the watch ended");
    });
    EXPECT_EQ(watch->wait(), 0);
  }
  left->waitForOutput([](const std::string& line) {
    return line.ends_with("Probe echo: \"1\" ? the sender left the bus");
  });
  scene.helper.signal(SIGCONT);
}

TEST(ToolWatch, AnswerThatDoesNotComeIsNotAwaitedForEver) {
  ToolThatWatches scene;
  scene.helper.signal(SIGSTOP);
  const auto watch = scene.watch({"--count", "1"});
  const auto asking = scene.peer.begin({"call", scene.helperID(), "Probe", "echo:", "1"});
  watch->waitForOutput(
      [](const std::string& line) { return line.ends_with("? no answer within 10 s"); }, 0,
      std::chrono::seconds(30));
  EXPECT_EQ(watch->wait(), 0);
  scene.helper.signal(SIGCONT);
}

TEST(ToolWatch, EndsByItsTimeAndAtAClosedPipe) {
  ToolThatWatches scene;
  const auto quiet = scene.tool.run({"watch", "--for", "0.1"});
  EXPECT_EQ(quiet.code, 0);
  EXPECT_EQ(quiet.output, "");
  EXPECT_EQ(scene.tool.run({"watch", "--for", "0.1", "--count", "1"}).code, 1);
  const auto piped = scene.tool.runShell("{ qbhp watch; echo $? >&2; } | true");
  EXPECT_EQ(piped.errors, "qbhp watch: watches the session bus\n0\n");
}

TEST(ToolWatch, RefusalsAreOneSentence) {
  ToolThatWatches scene({.deniedInterface = "org.freedesktop.DBus.Monitoring"});
  const auto refused = scene.tool.run({"watch"});
  EXPECT_EQ(refused.code, 1);
  EXPECT_EQ(refused.errors, "qbhp watch: the session bus does not let this user watch it\n");
  EXPECT_EQ(scene.tool.run({"watch", "com"}).errors,
            "qbhp watch: com cannot be the identifier of an application\n");
  EXPECT_EQ(scene.tool.run({"watch", "com"}).code, 2);
  EXPECT_EQ(scene.tool.run({"watch", "--count", "0"}).code, 2);
  scene.bus().kill();
  const auto none = scene.tool.run({"watch"});
  EXPECT_EQ(none.code, 1);
  EXPECT_TRUE(namesMissingBus(none.errors, scene.bus().address())) << none.errors;
}

TEST(ToolWatch, EndOfTheBusEndsIt) {
  ToolThatWatches scene;
  const auto watch = scene.watch();
  scene.bus().kill();
  watch->waitForLog("qbhp watch: the session bus ended the watch");
  EXPECT_NE(watch->wait(), 0);
}

TEST(ToolWatch, CallThatIsNoEventIsShownAsMalformed) {
  ToolThatWatches scene;
  const auto watch = scene.watch({"--count", "1"});
  (void)scene.peer.run({"huge", scene.helperID(), "1048577", "1"});
  const std::string line = watch->firstLine();
  EXPECT_NE(line.find(" (malformed) ! org.freedesktop.DBus.Error.InvalidArgs \"not an RPC event\""),
            std::string::npos)
      << line;
}

TEST(ToolWatch, MemoryIsBoundedWhateverIsSentToIt) {
  ToolThatWatches scene;
  const auto watch = scene.watch();
  // The connection on which it asks for the processes.
  const std::vector<std::string> process{std::to_string(watch->processID()) + ' '};
  std::string name;
  for (int i = 0; i < 30 && name.empty(); ++i) {
    const std::string candidate = ":1." + std::to_string(i);
    if (scene.peer.begin({"queue", candidate})->outputToItsEnd() == process) name = candidate;
  }
  ASSERT_NE(name, "");
  (void)scene.peer.run({"flood", name, "64", "1000000"});
  (void)scene.peer.run({"call", "com.Acme.Missing", "Probe", "echo:"});
  watch->waitForOutput(
      [](const std::string& line) { return line.find("com.Acme.Missing") != std::string::npos; });
  if (!hasSanitizer) {
    EXPECT_LT(ResourceUse(watch->processID()).peakMegabytes(), 32U);
  }
}

TEST(ToolWatch, MemoryIsBoundedWhateverWaits) {
  ToolThatWatches scene;
  scene.helper.signal(SIGSTOP);
  const auto watch = scene.watch();
  // Three events are too large together.
  std::vector<std::unique_ptr<ChildProcess>> askers;
  for (int i = 0; i < 4; ++i) {
    askers.push_back(scene.peer.begin({"huge", scene.helperID(), "1", "200000"}));
  }
  watch->waitForOutput(
      [](const std::string& line) { return line.ends_with("? too many events wait for answers"); });
  scene.helper.signal(SIGCONT);
}

}  // namespace
}  // namespace qbdkr::test
