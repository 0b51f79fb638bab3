// Tests the contract on the bus with a peer that shares no code with the framework.

#include <gtest/gtest.h>
#include <signal.h>

#include <string>

#include "Platform/Events/RPCEvent.h"
#include "support/Patience.h"
#include "support/Peer.h"
#include "support/Scene.h"

namespace qbdkr::test {
namespace {

const std::string applicationGone = "-600";
const std::string notHandled = "-1708";
const std::string notPermitted = "-1743";
const std::string badText = "-50";

TEST(BusContract, ObjectDescribesItself) {
  Scene scene;
  const auto peer = Peer::inBundle(scene);
  const auto host = scene.startAndShare(scene.makeHost("Host", "1.0"));
  for (const auto& name : {scene.helperID(), scene.hostID()}) {
    peer.awaitOwner(name);
    const auto xml = peer.run({"introspect", name});
    EXPECT_NE(xml.find("<interface name=\"QBHP.RPCEvent1\">"), std::string::npos) << xml;
    EXPECT_NE(xml.find("<method name=\"Call\">"), std::string::npos) << xml;
    const auto argument = [&](const std::string& type, const std::string& argumentName,
                              const std::string& direction) {
      return xml.find("<arg type=\"" + type + "\" name=\"" + argumentName + "\" direction=\"" +
                      direction + "\"/>");
    };
    const auto first = argument("s", "class_name", "in");
    const auto second = argument("s", "method_name", "in");
    const auto third = argument("as", "arguments", "in");
    const auto fourth = argument("s", "result", "out");
    EXPECT_TRUE(first < second && second < third && third < fourth && fourth != std::string::npos)
        << xml;
    EXPECT_NE(xml.find("<interface name=\"QBHP.Delivery1\">"), std::string::npos) << xml;
    EXPECT_NE(xml.find("<method name=\"Flush\">"), std::string::npos) << xml;
    EXPECT_NE(xml.find("<interface name=\"QBHP.Diagnosis1\">"), std::string::npos) << xml;
    EXPECT_NE(xml.find("<method name=\"Text\">"), std::string::npos) << xml;
  }
}

TEST(BusContract, PeerInABundleIsDispatchedAndRemembered) {
  Scene scene;
  const auto peer = Peer::inBundle(scene);
  const auto host = scene.startAndShare(scene.makeHost("Host", "1.0"));
  peer.awaitOwner(scene.hostID());
  EXPECT_EQ(peer.run({"call", scene.hostID(), "QBHPHelperControl",
                      "checkServerOpenCallBack::::", "anything", "1", "0", "no error"}),
            "result ");
  host->waitForReport("server open no-error main-thread");
  EXPECT_EQ(peer.run({"call", scene.hostID(), "QBHPHelperControl",
                      "checkServerOpenCallBack::::", "anything", "NO", "-3", "broken"}),
            "result ");
  host->waitForReport("server closed error main-thread");
  EXPECT_NE(host->call("senders").find(scene.identifier("Peer")), std::string::npos);
}

TEST(BusContract, PeerOutsideBundlesIsRefused) {
  Scene scene;
  const auto host = scene.startAndShare(scene.makeHost("Host", "1.0"));
  const auto outside = Peer::outsideBundles(scene);
  outside.awaitOwner(scene.hostID());
  scene.fence(*host);
  const std::size_t before = scene.transcript().lines().size();
  EXPECT_EQ(outside.run({"call", scene.hostID(), "QBHPHelperControl",
                         "checkServerOpenCallBack::::", "x", "1", "0", ""}),
            "result ");
  EXPECT_EQ(outside.run({"call", scene.hostID(), "QBHPHelperControl", "helperExitNotify:", "x"}),
            "result ");
  scene.fence(*host);
  EXPECT_EQ(host->reportsWith("server"), 0U);
  EXPECT_EQ(host->reportsWith("will-exit"), 0U);
  EXPECT_EQ(scene.transcript().lines().size(), before + 1) << "the helper agent was told";
  EXPECT_EQ(host->call("senders").find("Peer"), std::string::npos);
}

TEST(BusContract, UnknownClassAndMethodGiveNoResult) {
  Scene scene;
  const auto peer = Peer::inBundle(scene);
  const auto host = scene.startAndShare(scene.makeHost("Host", "1.0"));
  peer.awaitOwner(scene.hostID());
  EXPECT_EQ(peer.run({"call", scene.hostID(), "NoSuchClass", "x:", "1"}), "result ");
  host->process().waitForLog("classname is a class but it not find");
  EXPECT_EQ(peer.run({"call", scene.hostID(), "QBHPHelperControl", "noSuchMethod"}), "result ");
  // One colon too few, and one argument too many.
  EXPECT_EQ(peer.run({"call", scene.hostID(), "QBHPHelperControl", "helperExitNotify", "x"}),
            "result ");
  EXPECT_EQ(peer.run({"call", scene.hostID(), "QBHPHelperControl", "helperExitNotify:", "x", "y"}),
            "result ");
  EXPECT_EQ(host->reportsWith("will-exit"), 0U);
  EXPECT_EQ(host->process().logLinesWith("classname is a class but it not find"), 1U);
  // Missing arguments are absent.
  EXPECT_EQ(peer.run({"call", scene.hostID(), "QBHPHelperControl",
                      "checkServerOpenCallBack::::", "x", "1"}),
            "result ");
  host->waitForReport("server open no-error");
}

TEST(BusContract, ClassThatNobodyRegisteredIsMade) {
  Scene scene;
  const auto peer = Peer::inBundle(scene);
  const auto host = scene.startAndShare(scene.makeHost("Host", "1.0"));
  peer.awaitOwner(scene.hostID());
  for (const char* className :
       {"QBHPGetDataByHelper", "QBHPUploadByHelper", "QBHPCustomerServiceByHelepr",
        "QBHPUpgradeByHelper", "QBHPHelperCommunicate"}) {
    EXPECT_EQ(peer.run({"call", scene.hostID(), className, "noMethodOfIt"}), "result ");
  }
  EXPECT_EQ(host->process().logLinesWith("classname is a class but it not find"), 0U);
}

TEST(BusContract, CallsOfAnotherFormGetAnError) {
  Scene scene;
  const auto peer = Peer::inBundle(scene);
  const auto host = scene.startAndShare(scene.makeHost("Host", "1.0"));
  peer.awaitOwner(scene.hostID());
  for (const auto& call : std::vector<std::vector<std::string>>{
           {"raw", scene.hostID(), "/QBHP/RPCEvent", "Call", "one"},
           {"raw", scene.hostID(), "/QBHP/RPCEvent", "Call", "one", "two", "three"},
           {"raw", scene.hostID(), "/QBHP/RPCEvent", "NoSuchMember"},
           {"raw", scene.hostID(), "/NoSuchObject", "Call"}}) {
    EXPECT_TRUE(peer.run(call).starts_with("error ")) << call.back();
  }
  // libdbus sends a noncharacter; the host refuses it.
  EXPECT_TRUE(
      peer.run({"call", scene.hostID(), "QBHPHelperControl", "helperExitNotify:", "\xef\xbf\xbf"})
          .starts_with("error "));
  EXPECT_EQ(peer.run({"call", scene.hostID(), "QBHPHelperControl",
                      "checkServerOpenCallBack::::", "x", "1", "0", ""}),
            "result ");
  host->waitForReport("server open");
  EXPECT_EQ(host->reportsWith("will-exit"), 0U);
  EXPECT_EQ(host->call("alive"), "0");
}

TEST(BusContract, CallsBeyondTheBoundsGetAnErrorAndThoseWithinAnAnswer) {
  Scene scene;
  const auto peer = Peer::inBundle(scene);
  const auto host = scene.startAndShare(scene.makeHost("Host", "1.0"));
  peer.awaitOwner(scene.hostID());
  const auto call = [&](std::size_t nameSize, std::size_t texts) {
    return peer.run({"huge", scene.hostID(), std::to_string(nameSize), std::to_string(texts)});
  };
  EXPECT_EQ(call(longestEventName, 1), "result ");
  EXPECT_TRUE(call(longestEventName + 1, 1).starts_with("error "));
  EXPECT_EQ(call(1, mostEventTexts), "result ");
  EXPECT_TRUE(call(1, mostEventTexts + 1).starts_with("error "));
  EXPECT_EQ(host->call("alive"), "0");
}

TEST(BusContract, MessagesHaveTheAgreedForm) {
  Scene scene;
  const auto peer = Peer::inBundle(scene);
  const std::string name = scene.identifier("Served");
  auto served = peer.begin({"serve", name, "3"});
  served->waitForOutput([](const std::string& line) { return line == "ready"; });
  const auto host = scene.start(scene.makeHostWithoutHelper("Host"));
  EXPECT_EQ(host->call("send " + name + " SomeClass some:method: one two"), "0");
  EXPECT_EQ(host->call("ask " + name + " SomeClass none"), "0 served");
  EXPECT_EQ(host->call("send " + name + " % %"), "0");
  ASSERT_TRUE(served->succeeds());
  const auto lines = served->outputToItsEnd();
  ASSERT_EQ(lines.size(), 4U);
  EXPECT_EQ(lines[1],
            "no-reply no-auto-start ssas /QBHP/RPCEvent QBHP.RPCEvent1 Call SomeClass some:method: "
            "2");
  EXPECT_EQ(lines[2],
            "reply no-auto-start ssas /QBHP/RPCEvent QBHP.RPCEvent1 Call SomeClass none 0");
  EXPECT_EQ(lines[3], "no-reply no-auto-start ssas /QBHP/RPCEvent QBHP.RPCEvent1 Call   0");
}

TEST(BusContract, AnswersOfAnotherFormAreNoResult) {
  Scene scene;
  const auto peer = Peer::inBundle(scene);
  const auto host = scene.start(scene.makeHostWithoutHelper("Host"));
  const std::string name = scene.identifier("Served");
  const auto answerOf = [&](const std::string& kind) {
    auto served = peer.begin({"serve", name, "1", kind});
    served->waitForOutput([](const std::string& line) { return line == "ready"; });
    auto answer = host->call("ask " + name + " SomeClass none");
    EXPECT_TRUE(served->succeeds());
    return answer;
  };
  EXPECT_EQ(answerOf("text"), "0 served");
  EXPECT_EQ(answerOf("two"), "0 served");
  EXPECT_EQ(answerOf("nothing"), "0 ~");
  EXPECT_EQ(answerOf("number"), "0 ~");
  EXPECT_EQ(answerOf("noncharacter"), "0 ~");
  EXPECT_EQ(answerOf("error"), notHandled + " ~");
}

TEST(BusContract, ResultThatTheBusRefusesIsNone) {
  for (const char* direct : {"0", "1"}) {
    Scene scene;
    scene.environment()["QBDKR_DIRECT"] = direct;
    const auto host = scene.startAndShare(scene.makeHost("Host", "1.0"));
    for (int i = 0; i < 5; ++i)
      EXPECT_EQ(host->call("ask " + scene.helperID() + " Probe noncharacter", soon), "0 ~")
          << direct;
  }
}

TEST(BusContract, NoncharactersAreRefusedInCallsAndDroppedInPosts) {
  Scene scene;
  const auto peer = Peer::inBundle(scene);
  const auto host = scene.startAndShare(scene.makeHost("Host", "1.0"));
  peer.awaitOwner(scene.hostID());
  const std::vector<std::string> report{
      "QBHPHelperControl", "checkServerOpenCallBack::::", "\xef\xbf\xbf", "1", "0", ""};
  const auto with = [&](std::vector<std::string> words) {
    words.insert(words.end(), report.begin(), report.end());
    return words;
  };
  EXPECT_EQ(peer.run(with({"call", scene.hostID()})),
            "error org.freedesktop.DBus.Error.InvalidArgs");
  const auto posting = peer.begin(with({"post", scene.hostID(), "1"}));
  posting->waitForOutput([](const std::string& line) { return line == "posted"; });
  // The sender stays connected, and its next valid report is handled.
  EXPECT_EQ(peer.run({"call", scene.hostID(), "QBHPHelperControl", "helperExitNotify:", "x"}),
            "result ");
  host->waitForReport("will-exit");
  EXPECT_EQ(host->reportsWith("server"), 0U);
  posting->closeInput();
  EXPECT_TRUE(posting->succeeds());
}

TEST(BusContract, ReportOfASenderThatIsNotKnownAndGoneIsNotDispatched) {
  Scene scene;
  const auto peer = Peer::inBundle(scene);
  const auto host = scene.startAndShare(scene.makeHost("Host", "1.0"));
  peer.awaitOwner(scene.hostID());
  const auto report = [&](std::vector<std::string> words, const std::string& mark) {
    for (const char* word :
         {"QBHPHelperControl", "checkServerOpenCallBack::::", mark.c_str(), "1", "0", ""}) {
      words.emplace_back(word);
    }
    return words;
  };
  host->process().signal(SIGSTOP);
  const auto posting = peer.begin(report({"post", scene.hostID(), "1"}, "gone"));
  posting->waitForOutput([](const std::string& line) { return line == "posted"; });
  posting->closeInput();
  EXPECT_TRUE(posting->succeeds());
  peer.awaitOwner(scene.hostID());  // the bus sees the sender's end before it answers this
  host->process().signal(SIGCONT);
  EXPECT_EQ(peer.run(report({"call", scene.hostID()}, "here")), "result ");
  host->process().waitForLog(":::: here 1 0");
  EXPECT_EQ(host->process().logLinesWith(":::: gone 1 0"), 0U);
  EXPECT_EQ(host->reportsWith("server"), 1U);
}

TEST(BusContract, IdentifiersAreEscapedWhereTheBusRequiresIt) {
  Scene scene({}, ".7zip.a");
  const auto peer = Peer::inBundle(scene);
  const auto host = scene.startAndShare(scene.makeHost("Host", "1.0"));
  const auto plain = scene.helperID().substr(0, scene.helperID().find(".7zip"));
  EXPECT_EQ(peer.run({"call", plain + "._37zip.a", "Probe", "echo:", "found"}), "result found");
  EXPECT_EQ(host->call("ask " + scene.helperID() + " Probe echo: found"), "0 found");
  EXPECT_EQ(host->call("restart"), "0");
}

TEST(Status, TargetsThatAreNotThere) {
  Scene scene;
  const auto host = scene.start(scene.makeHostWithoutHelper("Host"));
  for (const std::string form : {"send ", "ask "}) {
    const auto status = [&](const std::string& target) {
      const auto answer = host->call(form + target + " Probe note: x");
      return answer.substr(0, answer.find(' '));
    };
    EXPECT_EQ(status(scene.identifier("Nobody")), applicationGone) << form;
    EXPECT_EQ(status("%"), applicationGone) << form;
    EXPECT_EQ(status("~"), applicationGone) << form;
    EXPECT_EQ(status("oneElement"), badText) << form;
    EXPECT_EQ(status("com..empty"), badText) << form;
    EXPECT_EQ(status(".com.first"), badText) << form;
    EXPECT_EQ(status("com.last."), badText) << form;
    EXPECT_EQ(status("com." + std::string(300, 'x')), badText) << form;
    EXPECT_EQ(status("%636f6d2ec3"), badText) << form << "not UTF-8";
    EXPECT_EQ(status("%636f6d2e610062"), badText) << form << "a NUL";
  }
}

TEST(Status, PeersWithoutTheObject) {
  Scene scene;
  // The bus itself is a peer without the object.
  const auto host = scene.start(scene.makeHostWithoutHelper("Host"));
  EXPECT_EQ(host->call("ask org.freedesktop.DBus Probe echo: x"), notHandled + " ~");
}

TEST(Status, RefusalOfTheBusPolicy) {
  // The policy is written before the test has identifiers of its own, so all tests share this name.
  // No process is found by it.
  Scene scene({.deniedDestination = "com.Acme.Denied"});
  const auto peer = Peer::inBundle(scene);
  auto served = peer.begin({"serve", "com.Acme.Denied", "1"});
  served->waitForOutput([](const std::string& line) { return line == "ready"; });
  const auto host = scene.start(scene.makeHostWithoutHelper("Host"));
  EXPECT_EQ(host->call("ask com.Acme.Denied Probe echo: x"), notPermitted + " ~");
  EXPECT_EQ(served->output().size(), 1U);
}

TEST(Status, ServicesAreNotStartedByARequest) {
  Scene scene;
  const std::string name = scene.identifier("Activatable");
  const auto mark = scene.directory() / "activated";
  writeFile(scene.bus().serviceDirectory() / (name + ".service"),
            "[D-BUS Service]\nName=" + name + "\nExec=/usr/bin/touch " + mark.string() + "\n");
  scene.bus().kill();
  scene.bus().start();  // the bus reads the service files when it starts
  const auto host = scene.start(scene.makeHostWithoutHelper("Host"));
  EXPECT_EQ(host->call("send " + name + " Probe note: x"), applicationGone);
  EXPECT_EQ(host->call("ask " + name + " Probe note: x"), applicationGone + " ~");
  EXPECT_FALSE(std::filesystem::exists(mark));
}

void expectThatNothingHangsIn(Scene& scene) {
  auto bundle = scene.makeHostWithoutHelper("Host");
  // This helper agent cannot be executed: the launch of another would wait for its name.
  const TestBundle helper(bundle.resources(), "ProbeHelper",
                          {{"CFBundleIdentifier", scene.helperID()}, {"CFBundleVersion", "1.0"}});
  const auto host = scene.start(bundle);
  EXPECT_EQ(host->call("share", soon), "shared");
  EXPECT_EQ(host->call("send " + scene.helperID() + " Probe note: x", soon), "-609");
  EXPECT_EQ(host->call("ask " + scene.helperID() + " Probe note: x", soon), "-609 ~");
  EXPECT_EQ(host->call("stop-status", soon), "-609");
  EXPECT_EQ(host->call("restart", soon), "1");
  EXPECT_EQ(host->call("fetch-client", soon), "~");
  host->quit();
}

TEST(NoBus, NothingHangs) {
  Scene scene;
  scene.environment()["DBUS_SESSION_BUS_ADDRESS"] = "unix:path=/nowhere/at/all";
  expectThatNothingHangsIn(scene);
}

TEST(NoBus, NothingHangsWithoutAnAddressEither) {
  Scene scene;
  scene.environment().erase("DBUS_SESSION_BUS_ADDRESS");
  scene.environment().erase("XDG_RUNTIME_DIR");
  expectThatNothingHangsIn(scene);
}

}  // namespace
}  // namespace qbdkr::test
