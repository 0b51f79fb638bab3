// Makes the mistakes that only a host at work shows, and checks that its diagnosis names the cause.
// HostExaminationTest has those that its files show.

#include <gtest/gtest.h>
#include <signal.h>
#include <sys/stat.h>

#include <filesystem>
#include <memory>
#include <string>

#include "support/Environment.h"
#include "support/Peer.h"
#include "support/Programs.h"
#include "support/Scene.h"

namespace qbdkr::test {
namespace {

class HostDiagnosis : public testing::Test {
 protected:
  // Makes a host whose helper agent is a script.
  TestBundle hostWithScript(const std::string& script) {
    auto bundle = scene.makeHost("Host", "1.0");
    const auto program =
        bundle.resources() / "ProbeHelper.app/Contents/Linux" / helperProbe().filename();
    std::filesystem::remove(program);
    writeFile(program, "#!/bin/sh\n" + script + '\n');
    ::chmod(program.c_str(), 0755);
    return bundle;
  }

  [[nodiscard]] std::string installedProgram() const {
    return (scene.installedHelper() / "Contents/Linux" / helperProbe().filename()).string();
  }

  Scene scene;
};

TEST_F(HostDiagnosis, HostAtWorkHasNoCauseAndKnowsItsHelperAgent) {
  const auto host = scene.startAndShare(scene.makeHost("Host", "1.0"));
  EXPECT_EQ(host->call("diagnose"), "none");
  EXPECT_EQ(host->call("helper-agents"), std::to_string(scene.helperProcess()) + " 1.0 " +
                                             scene.installedHelper().string() + " reached new;");
}

TEST_F(HostDiagnosis, HelperAgentThatEndsAtOnceIsNamedWithItsProgram) {
  const auto host = scene.start(hostWithScript("exit 3"));
  host->call("share");
  EXPECT_EQ(host->call("launch"), "no");
  const std::string cause = host->call("diagnose");
  EXPECT_TRUE(cause.starts_with("launch: " + installedProgram() + " ended ")) << cause;
  EXPECT_EQ(host->call("helper-agents"), "");
}

TEST_F(HostDiagnosis, LibraryThatTheLoaderDidNotFindIsRecorded) {
  scene.environment()["QBDKR_DEBUG"] = "1";
  const auto bundle = scene.makeHost("Host", "1.0");
  const auto program =
      bundle.resources() / "ProbeHelper.app/Contents/Linux" / helperProbe().filename();
  std::filesystem::remove(program);
  linkOrCopy(hostProbe(), program);
  const auto host = scene.start(bundle);
  host->call("share");
  EXPECT_EQ(host->call("launch"), "no");
  host->process().waitForLog("QBDKR_DEBUG: " + installedProgram() + " needs " +
                             hostLibraries()[0].filename().string() +
                             ", which the loader does not find");
}

TEST_F(HostDiagnosis, HelperAgentThatIsHeldBackIsNamedByWhyItEnded) {
  const auto host = scene.start(hostWithScript("exit 3"));
  host->call("share");
  for (int i = 0; i < 6; ++i) host->call("launch");
  EXPECT_EQ(host->call("is-paused"), "yes");
  const std::string cause = host->call("diagnose");
  EXPECT_TRUE(cause.starts_with("launch: " + installedProgram() + " ended ")) << cause;
}

TEST_F(HostDiagnosis, DeploymentThatFailsIsNamedWithItsReason) {
  SpawnOptions options = scene.options();
  options.largestFile = 1000;
  const auto host = scene.start(scene.makeHost("Host", "1.0"), options);
  host->call("share");
  EXPECT_EQ(host->call("launch"), "no");
  const std::string cause = host->call("diagnose");
  EXPECT_NE(cause.find("could not install "), std::string::npos) << cause;
  EXPECT_NE(cause.find("File too large"), std::string::npos) << cause;
}

TEST_F(HostDiagnosis, MainRunLoopThatStandsStillIsNamed) {
  const auto host = scene.startAndShare(scene.makeHost("Host", "1.0"));
  host->call("block-main");
  const std::string cause = host->call("diagnose");
  host->call("release-main");
  EXPECT_TRUE(cause.starts_with("main-loop: ")) << cause;
  EXPECT_EQ(host->call("diagnose"), "none");
}

TEST_F(HostDiagnosis, RequestThatWaitsForAStoppedHelperAgentIsNamed) {
  const auto host = scene.startAndShare(scene.makeHost("Host", "1.0"));
  const pid_t helper = scene.helperProcess();
  ::kill(helper, SIGSTOP);
  const auto query = host->begin("fetch-client");
  const auto longEnough = std::chrono::steady_clock::now() + patience;
  std::string cause = host->call("diagnose");
  while (cause == "none" && std::chrono::steady_clock::now() < longEnough) {
    cause = host->call("diagnose");
  }
  ::kill(helper, SIGCONT);
  host->finish(query);
  EXPECT_TRUE(cause.starts_with("waiting-request: QBHPGetDataByHelper clientIDFormHelper to \"" +
                                scene.helperID() + "\" has waited for its answer for "))
      << cause;
  EXPECT_EQ(host->call("diagnose"), "none");  // it was answered
}

TEST_F(HostDiagnosis, RequestBeforeTheLaunchIsNamed) {
  const auto host = scene.start(scene.makeHost("Host", "1.0"));
  EXPECT_EQ(host->call("ask " + scene.helperID() + " QBHPUploadByHelper early"), "-600 ~");
  host->call("share");
  EXPECT_EQ(host->call("launch"), "yes");
  EXPECT_EQ(host->call("diagnose"), "request: QBHPUploadByHelper early to \"" + scene.helperID() +
                                        "\" returned -600 (the target is not running).");
}

TEST_F(HostDiagnosis, RequestThatIsAnsweredWithNothingIsNamed) {
  const auto host = scene.startAndShare(scene.makeHost("Host", "1.0"));
  EXPECT_EQ(host->call("ask " + scene.helperID() + " QBHPUploadByHelper unheardOf"), "0 ~");
  EXPECT_EQ(host->call("diagnose"), "empty-answer: QBHPUploadByHelper unheardOf to \"" +
                                        scene.helperID() + "\" was answered with nothing.");
}

TEST_F(HostDiagnosis, SenderOutsideOfBundlesIsNamedByItsReport) {
  const auto host = scene.startAndShare(scene.makeHost("Host", "1.0"));
  const auto peer = Peer::outsideBundles(scene);
  peer.awaitOwner(scene.hostID());
  static_cast<void>(peer.run({"call", scene.hostID(), "QBHPHelperControl", "helperExitNotify:"}));
  EXPECT_EQ(host->call("diagnose"),
            "report: QBHPHelperControl helperExitNotify: came from a process that is not in a "
            "bundle with an identifier.");
}

TEST_F(HostDiagnosis, ReportOfAnUnknownClassOrMethodIsNamed) {
  const auto host = scene.startAndShare(scene.makeHost("Host", "1.0"));
  const auto peer = Peer::inBundle(scene);
  peer.awaitOwner(scene.hostID());
  static_cast<void>(peer.run({"call", scene.hostID(), "NoSuchClass", "report:"}));
  EXPECT_EQ(host->call("diagnose"),
            "report: class \"NoSuchClass\" from " + scene.identifier("Peer") + " is unknown.");
  static_cast<void>(peer.run({"call", scene.hostID(), "QBHPHelperControl", "noSuchReport:"}));
  EXPECT_EQ(host->call("diagnose"), "report: QBHPHelperControl noSuchReport: is unknown.");
}

TEST_F(HostDiagnosis, DebuggingShowsTheStepsAndWhatTheHelperAgentSays) {
  auto& environment = scene.environment();
  environment["QBDKR_DEBUG"] = "1";
  const auto host = scene.start(hostWithScript("echo words of the helper agent >&2; exit 3"));
  host->call("share");
  EXPECT_EQ(host->call("launch"), "no");
  host->process().waitForLog("QBDKR_DEBUG: \"Helepr App name\" is \"ProbeHelper\"");
  host->process().waitForLog("QBDKR_DEBUG: installed " + scene.installedHelper().string());
  host->process().waitForLog("words of the helper agent");
  host->process().waitForLog("QBDKR_DEBUG: " + installedProgram() + " ended ");
}

TEST_F(HostDiagnosis, NothingOfThatIsShownOtherwise) {
  scene.environment().erase("QBDKR_DEBUG");
  const auto host = scene.start(hostWithScript("echo words of the helper agent >&2; exit 3"));
  host->call("share");
  EXPECT_EQ(host->call("launch"), "no");
  EXPECT_EQ(host->process().logLinesWith("QBDKR_DEBUG"), 0U);
  EXPECT_EQ(host->process().logLinesWith("words of the helper agent"), 0U);
}

}  // namespace
}  // namespace qbdkr::test
