// Lets another program own the helper agent's name.

#include <gtest/gtest.h>
#include <signal.h>

#include <filesystem>
#include <memory>
#include <string>
#include <vector>

#include "support/Peer.h"
#include "support/ProcessEnd.h"
#include "support/Programs.h"
#include "support/Scene.h"

namespace qbdkr::test {
namespace {

namespace fs = std::filesystem;

const InfoKeys installedCopyOnly{{"Helper must be installed copy", "1"}};
const std::string notPermitted = "-1743";

struct Impostor : Scene {
  // Starts a program that owns the helper agent's name, or waits for it if it is taken.
  std::unique_ptr<ChildProcess> beginImpostor() {
    auto impostor = Peer::inBundle(*this).begin({"serve", helperID(), "2"});
    impostor->waitForOutput([](const std::string& line) { return line == "ready"; });
    return impostor;
  }

  // Starts another program at the place of the installed helper agent.
  std::unique_ptr<ChildProcess> beginAtTheInstalledPlace() {
    const TestBundle bundle(installDirectory(), "ProbeHelper", {{"CFBundleIdentifier", helperID()}},
                            libdbusClient());
    auto process = std::make_unique<ChildProcess>(
        std::vector<std::string>{bundle.executable(), "destinations", helperID()}, options());
    process->waitForOutput([](const std::string& line) { return line == "ready"; });
    return process;
  }

  std::string toHelper() const { return helperID() + " Probe echo: secret"; }
};

TEST(Impostor, GetsEverythingWithoutTheKey) {
  Impostor scene;
  const auto impostor = scene.beginImpostor();
  const auto host = scene.start(scene.makeHostWithoutHelper("Host"));
  EXPECT_EQ(host->call("send " + scene.toHelper()), "0");
  EXPECT_EQ(host->call("ask " + scene.toHelper()), "0 served");
  EXPECT_TRUE(impostor->succeeds());
}

TEST(Impostor, GetsNothingWithTheKey) {
  Impostor scene;
  const auto impostor = scene.beginImpostor();
  const auto host = scene.start(scene.makeHostWithoutHelper("Host", installedCopyOnly));
  for (int i = 0; i < 2; ++i) {
    EXPECT_EQ(host->call("send " + scene.toHelper()), notPermitted);
    EXPECT_EQ(host->call("ask " + scene.toHelper()), notPermitted + " ~");
  }
  EXPECT_EQ(host->call("stop-status"), notPermitted);
  EXPECT_EQ(impostor->output().size(), 1U) << impostor->output().back();
}

TEST(Impostor, WhoIsNotTheHelperAgentIsNotAskedWhereItRuns) {
  Impostor scene;
  const std::string name = scene.identifier("Other");
  const auto other = Peer::outsideBundles(scene).begin({"serve", name, "2"});
  other->waitForOutput([](const std::string& line) { return line == "ready"; });
  const auto host = scene.start(scene.makeHostWithoutHelper("Host", installedCopyOnly));
  EXPECT_EQ(host->call("send " + name + " Probe note: x"), "0");
  EXPECT_EQ(host->call("ask " + name + " Probe note: x"), "0 served");
}

TEST(Impostor, InstalledCopyIsServedWithTheKeyAlsoWhenItsFilesAreGone) {
  Impostor scene;
  const auto host = scene.startAndShare(scene.makeHost("Host", "1.0", installedCopyOnly));
  scene.fence(*host);
  EXPECT_EQ(host->call("ask " + scene.toHelper()), "0 secret");
  fs::remove_all(scene.installedHelper());
  // A second host has cached nothing.
  const auto second = scene.start(scene.makeHostWithoutHelper("Second", installedCopyOnly));
  EXPECT_EQ(second->call("ask " + scene.toHelper()), "0 secret");
  EXPECT_EQ(second->call("send " + scene.helperID() + " Probe note: gone"), "0");
  scene.transcript().waitFor({"Probe note:", "gone"});
}

TEST(Impostor, InstalledCopyThatIsBeingReplacedIsServedWithTheKey) {
  Impostor scene;
  const auto installed = scene.beginAtTheInstalledPlace();
  // Simulates a deployment that moved the copy aside and was killed.
  const auto aside = scene.installDirectory() / ".ProbeHelper.app.qbhp-staging-abcdef";
  fs::create_directory(aside);
  fs::rename(scene.installedHelper(), aside / "item");
  const auto host = scene.start(scene.makeHostWithoutHelper("Host", installedCopyOnly));
  EXPECT_EQ(host->call("send " + scene.toHelper()), "0");
}

TEST(Impostor, ThatTakesOverTheNameGetsNothing) {
  Impostor scene;
  const auto host = scene.startAndShare(scene.makeHost("Host", "1.0", installedCopyOnly));
  EXPECT_EQ(host->call("send " + scene.toHelper()), "0");
  EXPECT_EQ(host->call("ask " + scene.toHelper()), "0 secret");
  const auto impostor = scene.beginImpostor();
  EXPECT_EQ(host->call("ask " + scene.toHelper()), "0 secret") << "it still waits for the name";
  // The impostor gets the name at once, so the host never sees it without an owner.
  const ProcessEnd end(scene.helperProcess());
  ::kill(scene.helperProcess(), SIGKILL);
  ASSERT_TRUE(end.comesWithin(patience));
  Peer::outsideBundles(scene).awaitOwner(scene.helperID());
  std::string status;
  for (int i = 0; i < 1000 && status != notPermitted; ++i) {
    // Events sent to the ended process are lost with it.
    status = host->call("send " + scene.toHelper());
  }
  EXPECT_EQ(status, notPermitted);
  EXPECT_EQ(host->call("ask " + scene.toHelper()), notPermitted + " ~");
  EXPECT_EQ(impostor->output().size(), 1U) << impostor->output().back();
}

TEST(Impostor, MessagesGoToTheProcessThatWasLookedAtWhoeverHasTheName) {
  Impostor scene;
  const auto installed = scene.beginAtTheInstalledPlace();
  const auto open = scene.start(scene.makeHostWithoutHelper("Host"));
  EXPECT_EQ(open->call("ask " + scene.toHelper()), "0 " + scene.helperID());
  const auto careful = scene.start(scene.makeHostWithoutHelper("Careful", installedCopyOnly));
  for (int i = 0; i < 2; ++i) {
    const auto answer = careful->call("ask " + scene.toHelper());
    EXPECT_TRUE(answer.starts_with("0 :1.")) << answer;
  }
  constexpr std::size_t asked = 4;  // the lines of the start and of three requests
  EXPECT_EQ(careful->call("send " + scene.toHelper()), "0");
  const auto any = [](const std::string&) { return true; };
  EXPECT_TRUE(installed->waitForOutput(any, asked).starts_with(":1."));
}

TEST(Impostor, DirectoryWhoseNameOnlyBeginsAlikeIsAnother) {
  Impostor scene;
  const TestBundle bundle(scene.installDirectory(), "ProbeHelper.app.not",
                          {{"CFBundleIdentifier", scene.helperID()}}, libdbusClient());
  const ChildProcess installed({bundle.executable(), "destinations", scene.helperID()},
                               scene.options());
  Peer::inBundle(scene).awaitOwner(scene.helperID());
  const auto host = scene.start(scene.makeHostWithoutHelper("Host", installedCopyOnly));
  EXPECT_EQ(host->call("ask " + scene.toHelper()), notPermitted + " ~");
}

TEST(Impostor, LinkInTheConfiguredPathIsFollowed) {
  Impostor scene;
  const auto installed = scene.beginAtTheInstalledPlace();
  const auto link = scene.directory() / "link";
  fs::create_directory_symlink(scene.installDirectory(), link);
  InfoKeys keys = installedCopyOnly;
  keys["Helper loaction path"] = link;
  const auto host = scene.start(scene.makeHostWithoutHelper("Host", keys));
  EXPECT_EQ(host->call("send " + scene.toHelper()), "0");
}

TEST(Impostor, WithoutAPlaceForTheInstalledCopyNobodyGetsAnything) {
  Impostor scene;
  const auto installed = scene.beginAtTheInstalledPlace();
  InfoKeys keys = installedCopyOnly;
  keys["Helper loaction path"] = "";
  const auto host = scene.start(scene.makeHostWithoutHelper("Host", keys));
  EXPECT_EQ(host->call("send " + scene.toHelper()), notPermitted);
}

}  // namespace
}  // namespace qbdkr::test
