// Makes every public call with the sample host, as a user does from a shell, through a real bus.
// Checks the events that the sample helper agent receives, and the results.

#include <gtest/gtest.h>

#include <chrono>
#include <filesystem>
#include <string>
#include <utility>
#include <vector>

#include "support/ProcessEnd.h"
#include "support/Sample.h"
#include "support/Scene.h"

namespace qbdkr::test {
namespace {

using Words = std::vector<std::string>;

struct Received {
  std::string className;
  std::string methodName;
  Words arguments;
};

std::string shown(const Received& received, const std::string& sender) {
  std::string line = ": " + received.className + ' ' + received.methodName;
  for (const std::string& argument : received.arguments) line += " \"" + argument + '"';
  return line + " from " + sender;
}

struct SampleCalls : testing::Test {
  SampleCalls() { scene.recordEarlierStarts(); }

  // Makes a call, and expects that the helper agent receives this event exactly once.
  void expect(const std::string& name, const Words& arguments, const Received& received,
              const std::string& result) {
    SCOPED_TRACE(name);
    const std::size_t before = scene.transcript().lines().size();
    EXPECT_EQ(sample.call(name, arguments), result);
    const std::string line = shown(received, scene.hostID());
    scene.transcript().waitFor({line}, before);
    // The next call's host sends after this one's: no more events can come from this one.
    EXPECT_EQ(sample.call("isAliveHelper"), "status 0");
    std::size_t count = 0;
    const auto& lines = scene.transcript().lines();
    for (std::size_t i = before; i < lines.size(); ++i) {
      if (lines[i].find(line) != std::string::npos) ++count;
    }
    EXPECT_EQ(count, 1U);
  }

  std::string quoted(const std::string& text) const { return '"' + text + '"'; }

  Scene scene;
  Sample sample{scene};
};

const std::string control = "QBHPHelperControl";
const std::string upload = "QBHPUploadByHelper";
const std::string upgrade = "QBHPUpgradeByHelper";
const std::string customer = "QBHPCustomerServiceByHelepr";
const std::string data = "QBHPGetDataByHelper";
const std::string version = Sample::hostVersion;
const std::string dataProduct = Scene::dataProduct;
const Words product{"1001", version};

TEST_F(SampleCalls, ControlRequests) {
  expect("stopHelper", {}, {control, "stop:prodeuctVersion:", product}, "done");
  expect("showHelper", {}, {control, "show:prodeuctVersion:", product}, "status 0");
  expect("hideHelper", {}, {control, "hide:prodeuctVersion:", product}, "status 0");
  // Every start sends these, too.
  const std::size_t before = scene.transcript().lines().size();
  EXPECT_EQ(sample.call("isAliveHelper"), "status 0");
  EXPECT_EQ(sample.call("startHelper"), "done");
  for (const std::string method : {"start:prodeuctVersion:", "isAlive:prodeuctVersion:"}) {
    scene.transcript().waitFor({shown({control, method, product}, scene.hostID())}, before);
  }
}

TEST_F(SampleCalls, ExitRequestEndsTheHelperAndTheNextCallBringsItBack) {
  EXPECT_EQ(sample.call("isAliveHelper"), "status 0");
  EXPECT_EQ(sample.call("isNotFirstStart"), "\"0\"");
  const ProcessEnd end(scene.helperProcess());
  EXPECT_EQ(sample.call("exitHelper", {"1001", "2.0"}), "status 0");
  scene.transcript().waitFor(
      {shown({control, "exitHelper:productVersion:", {"1001", "2.0"}}, scene.hostID())});
  ASSERT_TRUE(end.comesWithin(patience));
  EXPECT_EQ(sample.call("isNotFirstStart"), "\"1\"");
  scene.transcript().waitFor({shown({data, "isNotFirstStart", {}}, scene.hostID())});
}

TEST_F(SampleCalls, UploadRequests) {
  const Words arguments{"me@acme.example", "/tmp/none", "A title", "What it is"};
  Words sent = product;
  sent.insert(sent.end(), arguments.begin(), arguments.end());
  for (const auto& [name, method] : {std::pair("uploadProductFile", "uploadProductFile"),
                                     std::pair("uploadUserFile", "uploadUserFile"),
                                     std::pair("uploadLogByEmail", "uploadLog")}) {
    expect(name, arguments,
           {upload, method + std::string(":versionID:email:filePath:title:description:"), sent},
           "status 0");
  }
  expect("uploadUserFile", {"-", "-", "-", "-"},
         {upload,
          "uploadUserFile:versionID:email:filePath:title:description:",
          {"1001", version, "", "", "", ""}},
         "status 0");
}

TEST_F(SampleCalls, UsageDataRequests) {
  const std::string collect = "collectData:version:collectionType:target:keyID:value:";
  expect("customStringDataCollect", {"theme", "dark"},
         {upload, collect, {dataProduct, version, "5", "theme", "", "dark"}}, "done");
  expect("autoCreatedIncreaseDataCollect", {"editor", "undo"},
         {upload, collect, {dataProduct, version, "4", "editor", "undo", ""}}, "done");
  expect("commIncreaseDataCollect", {"editor", "save"},
         {upload, collect, {dataProduct, version, "3", "editor", "save", ""}}, "done");
  expect("directUploadData", {}, {upload, "directUploadData:version:", {dataProduct, version}},
         "done");
  EXPECT_EQ(sample.call("setDataCollectPID", {"DATA"}), "done");
  EXPECT_EQ(sample.call("collectDataPID"), "\"DATA\"");
  expect("commIncreaseDataCollect", {"editor", "save"},
         {upload, collect, {"DATA", version, "3", "editor", "save", ""}}, "done");
  expect("directUploadData", {}, {upload, "directUploadData:version:", {"DATA", version}}, "done");
}

TEST_F(SampleCalls, CollectStatus) {
  const Received question{upload, "productCollectStatus:version:", product};
  const std::string set = "setProductCollectStatus:version:status:";
  expect("productCollectStatus", {}, question, "yes");
  expect("setProductCollectStatus", {"0"}, {upload, set, {"1001", version, "0"}}, "done");
  expect("productCollectStatus", {}, question, "no");
  expect("setProductCollectStatus", {"1"}, {upload, set, {"1001", version, "1"}}, "done");
  expect("productCollectStatus", {}, question, "yes");
}

TEST_F(SampleCalls, Queries) {
  expect("unRegSuiteInfo", {}, {upload, "unRegSuiteInfo:version:", product},
         "url = https://www.acme.example/offer/1001 width = 300 height = 200");
  expect("regSuiteInfo", {}, {upload, "regSuiteInfo:version:", product},
         "url = https://www.acme.example/suite/1001 width = 640 height = 480");
  const auto page = sample.installedHelper() / "Contents/Resources/NetworkError.html";
  expect("netErrorPagePath", {}, {upload, "netErrorPagePath:version:", product}, quoted(page));
  EXPECT_TRUE(readFile(page).starts_with("<!DOCTYPE html>"));
  expect("isNotFirstStart", {}, {data, "isNotFirstStart", {}}, "\"0\"");
  const auto client = sample.call("clientIDFormHelper");
  EXPECT_EQ(scene.preferences(scene.helperID()), "{\"ClientID\": " + client + "}\n");
  scene.transcript().waitFor({shown({data, "clientIDFormHelper", {}}, scene.hostID())});
  // The identifier is absent while another thread of the host fetches it.
  const auto deadline = std::chrono::steady_clock::now() + patience;
  while (sample.call("clientID") != client) ASSERT_LT(std::chrono::steady_clock::now(), deadline);
}

TEST_F(SampleCalls, UpgradeRequests) {
  const std::string ready = "productReadyToUpgrade:versionID:ready:";
  expect("productUpgrade", {}, {upgrade, "productUpgrade:versionID:", product}, "status 0");
  expect("productReadyToUpgrade", {"1"}, {upgrade, ready, {"1001", version, "1"}}, "status 0");
  expect("productReadyToUpgrade", {"0"}, {upgrade, ready, {"1001", version, "0"}}, "status 0");
  EXPECT_EQ(sample.call("getProductUpgradeDelegate"),
            "exception: -[QBHPUpgradeByHelper getProductUpgradeDelegate]: unrecognized selector");
}

TEST_F(SampleCalls, CustomerServiceRequests) {
  expect("customerserviceByEmail", {"me@acme.example", "/tmp/none"},
         {customer,
          "customerService:versionID:email:attachment:",
          {"1001", version, "me@acme.example", "/tmp/none"}},
         "status 0");
  expect("checkForHeleprMessage", {}, {customer, "checkForHeleprMessage:versionID:", product},
         "status 0");
}

// Makes the calls that send no event of their own.
TEST_F(SampleCalls, CallsThatTheHelperDoesNotSee) {
  const auto bundle = sample.path().string();
  const auto contents = bundle + "/Contents";
  EXPECT_EQ(sample.call("launchHelepr"), "yes");
  EXPECT_EQ(sample.call("extractHelper"), "done");
  EXPECT_EQ(sample.call("processHelper"), "done");
  EXPECT_EQ(sample.call("autoRestartHelper"), "status 0");
  EXPECT_EQ(sample.call("restartHelperInThread"), "status 0");
  EXPECT_EQ(sample.call("getDefaultHelperServerOpen"), "yes");
  EXPECT_EQ(sample.call("isHelperSeverNotOpen", {"10"}), "yes");
  EXPECT_EQ(sample.call("isHelperSeverNotOpen", {"-10"}), "no");
  EXPECT_EQ(sample.call("firstStartPID"), quoted(Scene::firstProduct));
  EXPECT_EQ(sample.call("synthesizeUserDefault"), "done");
  EXPECT_EQ(sample.call("getVersionByBundlePath", {bundle}), quoted(version));
  EXPECT_EQ(sample.call("appPath", {contents + "/Resources"}),
            quoted(contents + "/Resources/AcmeHelper.app"));
  EXPECT_EQ(sample.call("brandName"), "\"acme\"");
  EXPECT_EQ(sample.call("helperName"), "\"acme host\"");
  EXPECT_EQ(sample.call("helperPID"), "\"1001\"");
  EXPECT_EQ(sample.call("searchPlistFilePath", {bundle}), quoted(contents + "/Info.plist"));
  EXPECT_EQ(sample.call("searchCurrentStringsFilePath", {bundle}),
            quoted(contents + "/Resources/en.lproj/InfoPlist.strings"));
  const std::string base = scene.home().path() / "Collected";
  EXPECT_EQ(sample.call("initDataCollectionPath", {base}), "done");
  EXPECT_TRUE(std::filesystem::is_directory(base + "/Log/Data"));
}

TEST_F(SampleCalls, SwitchesAreWrittenIntoTheBundle) {
  const auto key = [&](const std::string& name) {
    const auto program =
        "import plistlib, sys; print(plistlib.load(open(sys.argv[1], 'rb'))[sys.argv[2]])";
    return outputOf(
        {"/usr/bin/python3", "-c", program, sample.path() / "Contents/Info.plist", name},
        {{"PATH", "/usr/bin:/bin"}});
  };
  // A start updates the property list from the values that the process read at its beginning, maybe
  // after the call. Without a helper agent no start follows.
  std::filesystem::remove_all(sample.path() / "Contents/Resources/AcmeHelper.app");
  EXPECT_EQ(sample.call("setTipsEnable", {"0"}), "done");
  EXPECT_EQ(key("TipsEnable"), "False\n");
  EXPECT_EQ(sample.call("setEnableAD", {"1"}), "done");
  EXPECT_EQ(key("EnableAD"), "True\n");
  EXPECT_EQ(sample.call("saveEnableADToPlistFile", {"0"}), "done");
  EXPECT_EQ(key("EnableAD"), "False\n");
  EXPECT_EQ(sample.call("saveTipsEnableToPlistFile", {"1"}), "done");
  EXPECT_EQ(key("TipsEnable"), "True\n");
  EXPECT_EQ(sample.call("saveEnableADToPlistFile"), "yes");
  EXPECT_EQ(sample.call("saveEnableAD"), "done");
  EXPECT_EQ(sample.call("saveTipsEnable"), "done");
}

// The bundle may lie on a read-only mount, or in a folder of another user.
TEST_F(SampleCalls, ReadOnlyBundleIsLeftAsItIsAndTheHelperStillComesFromIt) {
  namespace fs = std::filesystem;
  const auto setWritable = [&](fs::perm_options change) {
    fs::permissions(sample.path(), fs::perms::owner_write, change);
    for (const auto& entry : fs::recursive_directory_iterator(sample.path())) {
      if (!entry.is_symlink()) fs::permissions(entry.path(), fs::perms::owner_write, change);
    }
  };
  setWritable(fs::perm_options::remove);
  const std::string before = treeDigest(sample.path());
  SpawnOptions options = scene.options();
  options.obeyFilePermissions = true;
  const std::vector<std::pair<Words, std::string>> calls{
      {{"setTipsEnable", "0"}, "done"},    {{"setEnableAD", "1"}, "done"},
      {{"saveTipsEnable"}, "done"},        {{"saveEnableADToStringsFile", "1"}, "done"},
      {{"saveEnableADToPlistFile"}, "no"},  // the only call that reports it
      {{"isAliveHelper"}, "status 0"},     {{"exitHelper", "1001", version}, "status 0"}};
  for (const auto& [words, result] : calls) {
    Words command{sample.path() / "Contents/Linux/PhotoTool", "--call"};
    command.insert(command.end(), words.begin(), words.end());
    ChildProcess process(command, options);
    EXPECT_EQ(process.waitForOutput([](const std::string&) { return true; }),
              words.front() + ": " + result);
    EXPECT_TRUE(process.succeeds());
  }
  EXPECT_EQ(treeDigest(sample.path()), before);
  // The folders of the copy are writable: otherwise a newer copy could not replace it.
  EXPECT_EQ(
      readFile(sample.installedHelper() / "Contents/Linux/AcmeHelper"),
      readFile(sample.path() / "Contents/Resources/AcmeHelper.app/Contents/Linux/AcmeHelper"));
  EXPECT_NE(fs::status(sample.installedHelper()).permissions() & fs::perms::owner_write,
            fs::perms::none);
  setWritable(fs::perm_options::add);
}

TEST_F(SampleCalls, UnknownCallsAndWrongCountsAreToldApart) {
  for (const Words& words : {Words{"noSuchCall"}, Words{"stopHelper", "x"}, Words{"setEnableAD"}}) {
    Words command{sample.path() / "Contents/Linux/PhotoTool", "--call"};
    command.insert(command.end(), words.begin(), words.end());
    ChildProcess process(command, scene.options());
    EXPECT_EQ(process.wait(), 2 << 8) << words.front();
    process.waitForLog("no such call, or a wrong number of arguments: " + words.front());
  }
}

}  // namespace
}  // namespace qbdkr::test
