#include <gtest/gtest.h>

#include <filesystem>
#include <memory>
#include <set>
#include <string>
#include <vector>

#include "objc/ObjectiveCScene.h"
#include "support/Environment.h"
#include "support/ProbeText.h"

namespace qbdkr::test {
namespace {

// One method of the face. The types are those of the result and the arguments: @ object, v nothing,
// s 16-bit status, i 32-bit integer, q NSInteger, C BOOL, d double, : selector, ^ place for a
// result.
struct Row {
  const char* className;
  const char* selector;
  const char* types;
  const char* arguments;  // words; "-" if the method is not called here
  const char* result;
  const char* reached;  // the method and the arguments that reach the helper agent
};

constexpr const char* file = "e f t d";
constexpr const char* suite = "url = (null) width = 0 height = 0";

// The product is 1001 in version 3.1; usage data is that of product 3003.
const std::vector<Row> rows{
    {"QBHPHelper", "share", "@", "-", "", ""},
    {"QBHPHelper", "startHelper", "v", "", "done", ""},
    {"QBHPHelper", "autoautoStartIntervaTimerMethod:", "v@", "x", "done", ""},
    {"QBHPHelper", "directUploadData", "v", "", "done", "directUploadData:version: 3003 3.1"},
    {"QBHPHelper", "productCollectStatus", "C", "", "NO", "productCollectStatus:version: 1001 3.1"},
    {"QBHPHelper", "setProductCollectStatus:", "vC", "1", "done",
     "setProductCollectStatus:version:status: 1001 3.1 1"},
    {"QBHPHelper", "customStringDataCollect:value:", "v@@", "t v", "done",
     "collectData:version:collectionType:target:keyID:value: 3003 3.1 5 t % v"},
    {"QBHPHelper", "autoCreatedIncreaseDataCollect:key:", "v@@", "t k", "done",
     "collectData:version:collectionType:target:keyID:value: 3003 3.1 4 t k %"},
    {"QBHPHelper", "commIncreaseDataCollect:key:", "v@@", "t k", "done",
     "collectData:version:collectionType:target:keyID:value: 3003 3.1 3 t k %"},
    {"QBHPHelper", "setDataCollectPID:", "v@", "%", "done", ""},
    {"QBHPHelper", "setTipsEnable:", "vC", "1", "done", ""},
    {"QBHPHelper", "netErrorPagePath", "@", "", "~", "netErrorPagePath:version: 1001 3.1"},
    {"QBHPHelper", "unRegSuiteInfo", "@", "", suite, "unRegSuiteInfo:version: 1001 3.1"},
    {"QBHPHelper", "regSuiteInfo", "@", "", suite, "regSuiteInfo:version: 1001 3.1"},
    {"QBHPHelper", "uploadProductFile:filePath:title:description:", "s@@@@", file, "0",
     "uploadProductFile:versionID:email:filePath:title:description: 1001 3.1 e f t d"},

    {"QBHPHelperCommunicate", "share", "@", "-", "", ""},
    {"QBHPHelperCommunicate", "processHelper", "v", "", "done", "start:prodeuctVersion: 1001 3.1"},
    {"QBHPHelperCommunicate", "autoRestartHelper", "s", "", "0", ""},
    {"QBHPHelperCommunicate", "restartHelperInThread", "s", "", "0",
     "isAlive:prodeuctVersion: 1001 3.1"},
    {"QBHPHelperCommunicate", "getDefaultHelperServerOpen", "C", "", "YES", ""},
    {"QBHPHelperCommunicate", "isHelperSeverNotOpen:", "Cs", "10", "YES", ""},
    {"QBHPHelperCommunicate", "startHelper", "s", "", "0", "start:prodeuctVersion: 1001 3.1"},
    {"QBHPHelperCommunicate", "isAliveHelper", "s", "", "0", "isAlive:prodeuctVersion: 1001 3.1"},
    {"QBHPHelperCommunicate", "clientID", "@", "-", "", ""},
    {"QBHPHelperCommunicate", "clientIDFormHelper", "@", "-", "", ""},
    {"QBHPHelperCommunicate", "didCheckServerOpen::", "vC@", "1 ~", "done", ""},
    {"QBHPHelperCommunicate", "extractHelper", "v", "", "done", ""},
    {"QBHPHelperCommunicate", "launchHelepr", "C", "", "YES", "start:prodeuctVersion: 1001 3.1"},
    {"QBHPHelperCommunicate", "getVersionByBundlePath:", "@@", "/", "~", ""},
    {"QBHPHelperCommunicate", "appPath:", "@@", "/proc/self", "~", ""},
    {"QBHPHelperCommunicate", "typeOfCharacter:", "i@", ".", "2", ""},
    {"QBHPHelperCommunicate", "splitVersionString:", "@@", "1.0b3", R"((1, ".", 0, b, 3))", ""},
    {"QBHPHelperCommunicate", "compareVersion:toVersion:", "q@@", "1.0b3 1.0", "-1", ""},
    {"QBHPHelperCommunicate", "synthesizeUserDefault", "v", "", "done", ""},
    {"QBHPHelperCommunicate", "firstStartPID", "@", "", "2002", ""},
    {"QBHPHelperCommunicate", "collectDataPID", "@", "", "3003", ""},
    {"QBHPHelperCommunicate", "setCollectDataPID:", "v@", "3003", "done", ""},
    {"QBHPHelperCommunicate", "initDataCollectionPath:", "v@", "%", "done", ""},
    {"QBHPHelperCommunicate", "searchCurrentStringsFilePath:", "@@", "/", "~", ""},
    {"QBHPHelperCommunicate", "searchPlistFilePath:", "@@", "/", "~", ""},
    {"QBHPHelperCommunicate", "saveEnableADToStringsFile:", "vC", "1", "done", ""},
    {"QBHPHelperCommunicate", "saveTipsEnableTostringsFile:", "vC", "1", "done", ""},
    {"QBHPHelperCommunicate", "saveEnableADToPlistFile:", "vC", "1", "done", ""},
    {"QBHPHelperCommunicate", "saveTipsEnableToPlistFile:", "vC", "1", "done", ""},
    {"QBHPHelperCommunicate", "saveEnableAD", "v", "", "done", ""},
    {"QBHPHelperCommunicate", "saveTipsEnable", "v", "", "done", ""},
    {"QBHPHelperCommunicate", "setEnableAD:", "vC", "1", "done", ""},
    {"QBHPHelperCommunicate", "setTipsEnable:", "vC", "1", "done", ""},
    {"QBHPHelperCommunicate", "showHelper", "s", "", "0", "show:prodeuctVersion: 1001 3.1"},
    {"QBHPHelperCommunicate", "hideHelper", "s", "", "0", "hide:prodeuctVersion: 1001 3.1"},
    {"QBHPHelperCommunicate", "productReadyToUpgrade:", "sC", "0", "0",
     "productReadyToUpgrade:versionID:ready: 1001 3.1 0"},
    {"QBHPHelperCommunicate", "productUpgrade", "s", "", "0", "productUpgrade:versionID: 1001 3.1"},
    {"QBHPHelperCommunicate", "setProductUpgradeDelegate:", "v@", "~", "done", ""},
    {"QBHPHelperCommunicate", "getProductUpgradeDelegate", "@", "",
     "raised NSInvalidArgumentException", ""},
    {"QBHPHelperCommunicate", "uploadProductFile:filePath:title:description:", "s@@@@", file, "0",
     "uploadProductFile:versionID:email:filePath:title:description: 1001 3.1 e f t d"},
    {"QBHPHelperCommunicate", "uploadUserFile:filePath:title:description:", "s@@@@", file, "0",
     "uploadUserFile:versionID:email:filePath:title:description: 1001 3.1 e f t d"},
    {"QBHPHelperCommunicate", "uploadLogByEmail:filePath:title:description:", "s@@@@", file, "0",
     "uploadLog:versionID:email:filePath:title:description: 1001 3.1 e f t d"},
    {"QBHPHelperCommunicate", "directUploadData", "s", "", "0",
     "directUploadData:version: 3003 3.1"},
    {"QBHPHelperCommunicate", "customStringDataCollect:value:", "s@@", "t v", "0",
     "collectData:version:collectionType:target:keyID:value: 3003 3.1 5 t % v"},
    {"QBHPHelperCommunicate", "autoCreatedIncreaseDataCollect:key:", "s@@", "t k", "0",
     "collectData:version:collectionType:target:keyID:value: 3003 3.1 4 t k %"},
    {"QBHPHelperCommunicate", "commIncreaseDataCollect:key:", "s@@", "t k", "0",
     "collectData:version:collectionType:target:keyID:value: 3003 3.1 3 t k %"},
    {"QBHPHelperCommunicate", "productCollectStatus", "C", "", "NO",
     "productCollectStatus:version: 1001 3.1"},
    {"QBHPHelperCommunicate", "setProductCollectStatus:", "sC", "0", "0",
     "setProductCollectStatus:version:status: 1001 3.1 0"},
    {"QBHPHelperCommunicate", "netErrorPagePath", "@", "", "~",
     "netErrorPagePath:version: 1001 3.1"},
    {"QBHPHelperCommunicate", "unRegSuiteInfo", "@", "", suite, "unRegSuiteInfo:version: 1001 3.1"},
    {"QBHPHelperCommunicate", "regSuiteInfo", "@", "", suite, "regSuiteInfo:version: 1001 3.1"},
    {"QBHPHelperCommunicate", "checkForHeleprMessage", "s", "", "0",
     "checkForHeleprMessage:versionID: 1001 3.1"},
    {"QBHPHelperCommunicate", "customerserviceByEmail:attachment:", "s@@", "e a", "0",
     "customerService:versionID:email:attachment: 1001 3.1 e a"},

    {"QBHPHelperControl", "share", "@", "-", "", ""},
    {"QBHPHelperControl", "setHelperCtrlDelegate:", "v@", "-", "", ""},
    {"QBHPHelperControl", "helperCtrlDelegate", "@", "-", "", ""},
    {"QBHPHelperControl", "start:prodeuctVersion:", "s@@", "p v", "0",
     "start:prodeuctVersion: p v"},
    {"QBHPHelperControl", "stop:prodeuctVersion:", "s@@", "p v", "0", "stop:prodeuctVersion: p v"},
    {"QBHPHelperControl", "show:prodeuctVersion:", "s@@", "p ~", "0", "show:prodeuctVersion: p %"},
    {"QBHPHelperControl", "hide:prodeuctVersion:", "s@@", "% v", "0", "hide:prodeuctVersion: % v"},
    {"QBHPHelperControl", "isAlive:prodeuctVersion:", "s@@", "p v", "0",
     "isAlive:prodeuctVersion: p v"},
    {"QBHPHelperControl", "exitHelper:productVersion:", "s@@", "-", "", ""},
    {"QBHPHelperControl", "checkServerOpenCallBack::::", "s@@@@", "x 1 5 ~",
     "raised NSInvalidArgumentException", ""},
    {"QBHPHelperControl", "helperExitNotify:", "s@", "x", "0", "stop:prodeuctVersion: 1001 3.1"},
    {"QBHPHelperControl", "saveEnableADToPlistFile", "C", "", "YES", ""},

    {"QBHPUpgradeByHelper", "share", "@", "-", "", ""},
    {"QBHPUpgradeByHelper", "setProductUpgradeDelegate:", "v@", "-", "", ""},
    {"QBHPUpgradeByHelper", "productUpgradeDelegate", "@", "", "~", ""},
    {"QBHPUpgradeByHelper", "isUpgradeQueryResopned", "C", "", "YES", ""},
    {"QBHPUpgradeByHelper", "productReadyToUpgrade:versionID:ready:", "s@@@", "p v ignore", "0",
     "productReadyToUpgrade:versionID:ready: p v ignore"},
    {"QBHPUpgradeByHelper", "productUpgrade:versionID:", "s@@", "p v", "0",
     "productUpgrade:versionID: p v"},
    {"QBHPUpgradeByHelper", "productUpgradeCallBack::::", "s@@@@", "a b 0 m", "0", ""},

    {"QBHPUploadByHelper", "share", "@", "-", "", ""},
    {"QBHPUploadByHelper", "checkJoinImproveExp", "C", "", "NO", ""},
    {"QBHPUploadByHelper", "uploadLog:versionID:email:filePath:title:description:", "s@@@@@@",
     "p v e f t d", "0", "uploadLog:versionID:email:filePath:title:description: p v e f t d"},
    {"QBHPUploadByHelper", "uploadUserFile:versionID:email:filePath:title:description:", "s@@@@@@",
     "p v e f t d", "0", "uploadUserFile:versionID:email:filePath:title:description: p v e f t d"},
    {"QBHPUploadByHelper",
     "uploadProductFile:versionID:email:filePath:title:description:", "s@@@@@@", "p v e f t d", "0",
     "uploadProductFile:versionID:email:filePath:title:description: p v e f t d"},
    {"QBHPUploadByHelper", "collectData:version:collectionType:target:keyID:value:", "s@@i@@@",
     "p v 4 t k x", "0", "collectData:version:collectionType:target:keyID:value: p v 4 t k x"},
    {"QBHPUploadByHelper", "setProductCollectStatus:version:status:", "s@@@", "p v 1", "0",
     "setProductCollectStatus:version:status: p v 1"},
    {"QBHPUploadByHelper", "productCollectStatus:version:", "@@@", "p v", "~",
     "productCollectStatus:version: p v"},
    {"QBHPUploadByHelper", "regSuiteInfo:version:", "@@@", "p v", "~", "regSuiteInfo:version: p v"},
    {"QBHPUploadByHelper", "unRegSuiteInfo:version:", "@@@", "p v", "~",
     "unRegSuiteInfo:version: p v"},
    {"QBHPUploadByHelper", "directUploadData:version:", "s@@", "p v", "0",
     "directUploadData:version: p v"},
    {"QBHPUploadByHelper", "netErrorPagePath:version:", "@@@", "p v", "~",
     "netErrorPagePath:version: p v"},

    {"QBHPCustomerServiceByHelepr", "share", "@", "-", "", ""},
    {"QBHPCustomerServiceByHelepr", "customerService:versionID:email:attachment:", "s@@@@",
     "p v e a", "0", "customerService:versionID:email:attachment: p v e a"},
    {"QBHPCustomerServiceByHelepr", "checkForHeleprMessage:versionID:", "s@@", "p v", "0",
     "checkForHeleprMessage:versionID: p v"},

    {"QBHPGetDataByHelper", "share", "@", "-", "", ""},
    {"QBHPGetDataByHelper", "clientIDFormHelper", "@", "-", "", ""},
    {"QBHPGetDataByHelper", "isNotFirstStart", "@", "", "not-the-first", "isNotFirstStart"},

    {"QBHPAppEventBase", "bundleIDSet", "@", "-", "", ""},
    {"QBHPAppEventBase", "setBundleID:", "v@", "~", "raised NSInvalidArgumentException", ""},
    {"QBHPAppEventBase", "performSelector:withObjects:", "@:@", "performSelector:withObjects: ~",
     "raised NSInvalidArgumentException", ""},

    {"QBHPAppleEventProcesser", "share", "@", "-", "", ""},
    {"QBHPAppleEventProcesser", "regist", "v", "", "done", ""},
    {"QBHPAppleEventProcesser", "unRegist", "v", "-", "", ""},
    {"QBHPAppleEventProcesser", "setObjectforKeyToMapTable:forKey:", "v@@", "-", "", ""},
    {"QBHPAppleEventProcesser", "removeObjectforKeyToMapTable:", "v@", "NoSuchName", "done", ""},

    {"QBHPAppleEventSender", "share", "@", "-", "", ""},
    {"QBHPAppleEventSender", "sendEvnet:className:selectName:args:", "s@@@@",
     "HELPER QBHPUploadByHelper four ,x,,y", "0", "four x % y"},
    {"QBHPAppleEventSender", "sendEvnet:selectName:args:", "s@@@", "QBHPUploadByHelper three ~",
     "0", "three"},
    {"QBHPAppleEventSender", "sendEvnet:className:selectName:args:result:", "s@@@@^",
     "HELPER QBHPUploadByHelper echo: ,x", "0 x", "echo: x"},
    {"QBHPAppleEventSender", "sendEvnet:selectName:args:result:", "s@@@^",
     "QBHPUploadByHelper echo: ,y", "0 y", "echo: y"},
    {"QBHPAppleEventSender", "flush:", "sd", "10", "0", ""},

    {"QBHPConfig", "brandName", "@", "", "acme", ""},
    {"QBHPConfig", "helperName", "@", "", "acme host", ""},
    {"QBHPConfig", "helperPID", "@", "", "1001", ""},

    {"QBHPHelperError", "errorWithCode::", "@@@", "5 ~", "raised NSInvalidArgumentException", ""},

    {"QBHPProcessList", "share", "@", "-", "", ""},
    {"QBHPProcessList", "getBSDProcessList", "@", "-", "", ""},
    {"QBHPProcessList", "infoForPID:", "@i", "1", "~", ""},
    {"QBHPProcessList", "applicationIsRunning:bundlePath:", "C@@", "HELPER ~", "NO", ""},
    {"QBHPProcessList", "applicationIsRunning:bundlePath:", "C@@", "HELPER /", "YES", ""},

    {"QBHPSuiteInfo", "initWithDate:width:height:", "@@ii", "u 3 2", "url = u width = 3 height = 2",
     ""},
    {"QBHPSuiteInfo", "URL", "@", "", "~", ""},
    {"QBHPSuiteInfo", "width", "i", "", "0", ""},
    {"QBHPSuiteInfo", "height", "i", "", "0", ""},
    {"QBHPSuiteInfo", "description", "@", "", suite, ""},

    {"QBHPHelperCommunicate", "willHelperExit", "v", "", "done", "stop:prodeuctVersion: 1001 3.1"},
    {"QBHPHelperCommunicate", "stopHelper", "s", "", "0", "stop:prodeuctVersion: 1001 3.1"},
    {"QBHPHelper", "stopHelper", "v", "", "done", "stop:prodeuctVersion: 1001 3.1"},
};

std::string withHelper(std::string words, const std::string& helper) {
  const std::string name = "HELPER";
  if (words.starts_with(name)) words.replace(0, name.size(), helper);
  return words;
}

// A host in Objective-C with an earlier start.
class ObjectiveCCalls : public testing::Test {
 protected:
  ObjectiveCCalls() {
    scene.recordEarlierStarts();
    host = scene.start(bundle);
  }

  std::string call(const Row& row) {
    return host->call(std::string("call ") + row.className + ' ' + row.selector + ' ' +
                      withHelper(row.arguments, scene.helperID()));
  }

  ObjectiveCScene scene;
  TestBundle bundle = scene.makeHostInObjectiveC();
  std::unique_ptr<HostProcess> host;
};

TEST_F(ObjectiveCCalls, EachMethodIsThereWithItsTypes) {
  std::set<std::string> classes;
  std::set<std::string> tabled;
  for (const Row& row : rows) {
    const std::string name = std::string(row.className) + ' ' + row.selector;
    EXPECT_EQ(host->call("types " + name), row.types) << name;
    classes.insert(row.className);
    tabled.insert(name);
  }
  const std::set<std::string> inherited{"init", "initShared", "dealloc"};
  for (const std::string& className : classes) {
    for (const std::string& method : wordsOf(host->call("methods " + className))) {
      EXPECT_TRUE(inherited.contains(method) || tabled.contains(className + ' ' + method))
          << className << ' ' << method << " is in no row";
    }
  }
}

TEST_F(ObjectiveCCalls, EachReachesTheHelperAgentAsFromCpp) {
  host->call("call QBHPHelper directUploadData");
  scene.transcript().waitFor({"clientIDFormHelper from"});
  for (const Row& row : rows) {
    if (row.arguments == std::string("-")) continue;
    const std::size_t before = scene.transcript().lines().size();
    EXPECT_EQ(call(row), row.result) << row.className << ' ' << row.selector;
    if (row.reached[0] == '\0') continue;
    const auto words = wordsOf(row.reached);
    std::string arguments;
    for (std::size_t i = 1; i < words.size(); ++i) arguments += ' ' + words[i];
    const std::string line = scene.transcript().waitFor(
        {' ' + words[0] + " from " + scene.hostID() + arguments}, before);
    EXPECT_TRUE(line.ends_with(" from " + scene.hostID() + arguments)) << line;
  }
  host->quit();
}

TEST_F(ObjectiveCCalls, AbsentAndEmptyTextsDiffer) {
  EXPECT_EQ(host->call("call QBHPHelperCommunicate setCollectDataPID: 7"), "done");
  EXPECT_EQ(host->call("call QBHPHelper setDataCollectPID: ~"), "done");
  EXPECT_EQ(host->call("call QBHPHelperCommunicate collectDataPID"), "7") << "absent is ignored";
  EXPECT_EQ(host->call("call QBHPHelperError errorWithCode:: 1 %").find("raised"),
            std::string::npos);
  EXPECT_EQ(host->call("call QBHPHelperError errorWithCode:: 1 ~"),
            "raised NSInvalidArgumentException");
  EXPECT_EQ(host->call("call QBHPHelperCommunicate typeOfCharacter: %"), "raised NSRangeException");
}

// The value of a switch in the host's property list, and in its strings file in UTF-16.
std::string inPropertyList(const TestBundle& bundle, const std::string& key) {
  const std::string text = readFile(bundle.infoFile());
  const auto place = text.find("<key>" + key + "</key>");
  if (place == std::string::npos) return "missing";
  return text.substr(text.find('<', text.find("</key>", place) + 1), 6) == "<true/" ? "1" : "0";
}

std::string inStringsFile(const std::filesystem::path& strings, const std::string& key) {
  std::string text = readFile(strings);
  std::erase(text, '\0');
  const auto place = text.find('"' + key + "\" = \"");
  return place == std::string::npos ? "missing" : text.substr(place + key.size() + 6, 1);
}

TEST(ObjectiveCSwitches, ReachTheirFiles) {
  ObjectiveCScene scene;
  TestBundle bundle = scene.makeHostInObjectiveC();
  bundle.setKeys({{"Helepr App name", ""}});  // no helper agent: its start sets switches as well
  const auto host = scene.start(bundle);
  const auto strings = bundle.resources() / "en.lproj/InfoPlist.strings";
  writeFile(strings, R"("TipsEnable" = "yes"; "EnableAD" = "yes";)");
  const auto values = [&] {
    return inPropertyList(bundle, "EnableAD") + inPropertyList(bundle, "TipsEnable") +
           inStringsFile(strings, "EnableAD") + inStringsFile(strings, "TipsEnable");
  };
  const auto set = [&](const std::string& method, const std::string& value) {
    host->call("call QBHPHelperCommunicate " + method + ' ' + value);
    return values();
  };
  set("setEnableAD:", "0");
  EXPECT_EQ(set("setTipsEnable:", "0"), "0000");
  EXPECT_EQ(set("saveEnableADToPlistFile:", "1"), "1000");
  EXPECT_EQ(set("saveTipsEnableToPlistFile:", "1"), "1100");
  EXPECT_EQ(set("saveEnableADToStringsFile:", "1"), "1110");
  EXPECT_EQ(set("saveTipsEnableTostringsFile:", "1"), "1111");
  EXPECT_EQ(set("setEnableAD:", "0"), "0101");
  EXPECT_EQ(set("setTipsEnable:", "0"), "0000");
  host->call("call QBHPHelper setTipsEnable: 1");
  EXPECT_EQ(values(), "0101");
}

TEST_F(ObjectiveCCalls, ManyLeaveNoObjectsBehind) {
  host->call("call QBHPHelper directUploadData");
  scene.transcript().waitFor({"clientIDFormHelper from"});
  EXPECT_EQ(host->call("leaks 2500 QBHPAppleEventSender sendEvnet:selectName:args:result: "
                       "QBHPUploadByHelper echo: ,x"),
            "0");
}

}  // namespace
}  // namespace qbdkr::test
