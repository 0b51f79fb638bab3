// The sample host and helper agent as they are shipped, and a program in plain C in between.

#include <gtest/gtest.h>
#include <signal.h>

#include <filesystem>
#include <string>

#include "Peer.h"
#include "support/Scene.h"

namespace qbdkr::test {
namespace {

namespace fs = std::filesystem;

void replaceAll(const fs::path& file, const std::string& from, const std::string& to) {
  std::string text = readFile(file);
  for (auto at = text.find(from); at != std::string::npos; at = text.find(from, at + to.size())) {
    text.replace(at, from.size(), to);
  }
  writeFile(file, text);
}

// The sample's bundles, with identifiers of this test.
class Sample {
 public:
  explicit Sample(Scene& scene)
      : path_(scene.directory() / "Applications/PhotoTool.app"), process_(start(scene, path_)) {}

  ChildProcess& process() { return *process_; }

 private:
  static std::unique_ptr<ChildProcess> start(Scene& scene, const fs::path& path) {
    fs::create_directories(path.parent_path());
    fs::copy(QBDKR_SAMPLE_HOST, path,
             fs::copy_options::recursive | fs::copy_options::copy_symlinks);
    const auto helper = path / "Contents/Resources/AcmeHelper.app/Contents/Info.plist";
    for (const auto& file : {path / "Contents/Info.plist", helper}) {
      replaceAll(file, "com.Acme.Helper", scene.helperID());
      replaceAll(file, "com.Acme.PhotoTool", scene.hostID());
    }
    return std::make_unique<ChildProcess>(
        std::vector<std::string>{path / "Contents/Linux/PhotoTool"}, scene.options());
  }

  fs::path path_;
  std::unique_ptr<ChildProcess> process_;
};

ChildProcess::LineTest holding(const std::string& part) {
  return [part](const std::string& line) { return line.find(part) != std::string::npos; };
}

// The helper agent's first report may come before the host's run loop has claimed its name, and is
// lost then. This makes it report once more, when the name is there.
void waitForServerReport(Scene& scene, const Peer& peer, Sample& sample) {
  peer.awaitOwner(scene.hostID());
  scene.transcript().waitFor({"client identifier request"});
  sample.process().write("stop\n");
  scene.transcript().waitFor({"stop request received"});
  sample.process().write("check\n");
  scene.transcript().waitForCount("start request received", 2);
  sample.process().waitForOutput(holding("delegate told that the helper's server is open"));
}

TEST(Sample, HelperIsInstalledStartedAskedAndStopped) {
  Scene scene;
  const auto peer = Peer::inBundle(scene);
  Sample sample(scene);
  const std::string host = " from " + scene.hostID() + ": product \"1001\", version \"1.0\"";
  scene.transcript().waitFor({"start request received" + host});
  waitForServerReport(scene, peer, sample);
  sample.process().write("client\n");
  const auto line = sample.process().waitForOutput(holding("client identifier fetched"));
  const auto stored = scene.preferences(scene.helperID());
  ASSERT_NE(stored.find("\"ClientID\": \""), std::string::npos) << stored;
  const auto identifier = stored.substr(stored.find(": \"") + 3, 32);
  EXPECT_NE(line.find(identifier), std::string::npos) << line << stored;
  EXPECT_EQ(scene.transcript().count("stop request received" + host), 1U);
  EXPECT_EQ(scene.transcript().count("start request received" + host), 2U);
  sample.process().write("quit\n");
  EXPECT_TRUE(sample.process().succeeds());
}

TEST(Sample, HelperThatIsToldToEndReportsItAndGetsTheStopRequest) {
  Scene scene;
  const auto peer = Peer::inBundle(scene);
  Sample sample(scene);
  waitForServerReport(scene, peer, sample);
  const pid_t helper = scene.helperProcess();
  const ProcessEnd end(helper);
  ::kill(helper, SIGTERM);
  ASSERT_TRUE(end.comesWithin(patience));
  sample.process().waitForOutput(holding("delegate told that the helper will exit"));
  EXPECT_EQ(scene.transcript().count("helper 1.0: started, process"), 1U);
  // The bus may know a little later than we do that the helper agent is gone.
  const auto answer = peer.run({"call", scene.helperID(), "QBHPGetDataByHelper", "gone"});
  EXPECT_TRUE(answer.starts_with("error ")) << answer;
  sample.process().write("check\n");
  scene.transcript().waitForCount("helper 1.0: started, process", 2);
}

TEST(Sample, PlainCProgramDrivesTheHelper) {
  Scene scene;
  const auto peer = Peer::inBundle(scene);
  Sample sample(scene);
  scene.transcript().waitFor({"client identifier request"});
  EXPECT_NE(peer.run({"introspect", scene.helperID()}).find("QBHP.RPCEvent1"), std::string::npos);
  const auto answer =
      peer.run({"call", scene.helperID(), "QBHPGetDataByHelper", "clientIDFormHelper"});
  const auto stored = scene.preferences(scene.helperID());
  ASSERT_EQ(answer.size(), std::string("result ").size() + 32) << answer;
  EXPECT_NE(stored.find(answer.substr(7)), std::string::npos) << stored;
  EXPECT_EQ(
      peer.run({"call", scene.helperID(), "QBHPHelperControl", "show:prodeuctVersion:", "9", "8"}),
      "result ");
  scene.transcript().waitFor({"show request received from " + scene.identifier("Peer") +
                              ": product \"9\", version \"8\""});

  const auto outside = Peer::outsideBundles(scene);
  EXPECT_EQ(outside.run({"call", scene.helperID(), "QBHPGetDataByHelper", "clientIDFormHelper"}),
            "result ");
}

}  // namespace
}  // namespace qbdkr::test
