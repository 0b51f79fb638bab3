#include <gtest/gtest.h>

#include <memory>
#include <string>

#include "objc/ObjectiveCScene.h"
#include "support/Peer.h"

namespace qbdkr::test {
namespace {

// A host in Objective-C sends itself events over the bus, which come in on its main thread.
class HostInObjectiveC : public testing::Test {
 protected:
  HostInObjectiveC() { Peer::outsideBundles(scene).awaitOwner(scene.hostID()); }

  std::string ask(const std::string& className, const std::string& method,
                  const std::string& arguments = "~") {
    return host->call("call QBHPAppleEventSender sendEvnet:className:selectName:args:result: " +
                      scene.hostID() + ' ' + className + ' ' + method + ' ' + arguments);
  }

  void report(const std::string& className, const std::string& method,
              const std::string& arguments) {
    EXPECT_EQ(ask(className, method, arguments), "0 ~");
  }

  ObjectiveCScene scene;
  TestBundle bundle = scene.makeHostInObjectiveC();
  std::unique_ptr<HostProcess> host = scene.start(bundle);
};

TEST_F(HostInObjectiveC, AnEventReachesTheClassThatItNames) {
  EXPECT_EQ(ask("HostService", "join::", ",a,b"), "0 a+b");
  EXPECT_EQ(ask("HostService", "join::", ",a"), "0 a+~") << "a missing argument is nil";
  EXPECT_EQ(ask("HostService", "join::", ",,b"), "0 %+b") << "an empty one is not";
  EXPECT_EQ(ask("HostService", "echo:", ",Grüße"), "0 Grüße");
  EXPECT_EQ(ask("HostService", "count"), "0 1");
  EXPECT_EQ(ask("HostService", "count"), "0 2") << "the object is kept";
  EXPECT_NE(host->call("call QBHPUploadByHelper bundleIDSet").find(scene.hostID()),
            std::string::npos);
}

TEST_F(HostInObjectiveC, AnEventGetsNoAnswerButATextOfAMethodOfTheClass) {
  EXPECT_EQ(ask("HostService", "status"), "0 ~");
  EXPECT_EQ(ask("HostService", "number"), "0 ~");
  EXPECT_EQ(ask("HostService", "flag:", ",1"), "0 ~");
  EXPECT_EQ(ask("HostService", "raise"), "0 ~");
  EXPECT_EQ(ask("HostService", "join::", ",a,b,c"), "0 ~");
  EXPECT_EQ(ask("HostService", "echo", ",a"), "0 ~");
  EXPECT_EQ(ask("HostService", "description"), "0 ~");
  for (const char* method : {"initAgain", "dealloc", "release", "init"}) {
    EXPECT_EQ(ask("HostService", method), "0 ~") << method;
  }
  EXPECT_EQ(ask("HostService", "echo:", ",a"), "0 a") << "the object is as it was";
  EXPECT_EQ(host->reportsWith("made again"), 0U);
  EXPECT_EQ(host->reportsWith("deallocated"), 0U);
}

TEST_F(HostInObjectiveC, AClassThatIsNoServiceIsNotMade) {
  for (const char* name : {"NoService", "NSProcessInfo", "NSProxy", "NoSuchClass"}) {
    EXPECT_EQ(ask(name, "description"), "0 ~") << name;
  }
  EXPECT_EQ(host->reportsWith("made what is no service"), 0U);
}

TEST_F(HostInObjectiveC, ADelegateIsToldWhatItImplements) {
  EXPECT_EQ(host->call("delegate TakesNothing"), "set 1") << "it is not retained";
  report("QBHPHelperControl", "helperExitNotify:", ",x");
  report("QBHPHelperControl", "checkServerOpenCallBack::::", ",x,1,5,m");
  report("QBHPUpgradeByHelper", "productUpgradeCallBack::::", ",a,b,0,");
  EXPECT_EQ(host->call("call QBHPUpgradeByHelper isUpgradeQueryResopned"), "YES");

  EXPECT_EQ(host->call("delegate TakesExits"), "set 1");
  report("QBHPHelperControl", "helperExitNotify:", ",x");
  report("QBHPHelperControl", "checkServerOpenCallBack::::", ",x,1,5,m");
  EXPECT_EQ(host->reportsWith("will-exit"), 1U);
  EXPECT_EQ(host->reportsWith("server"), 0U);

  EXPECT_EQ(host->call("delegate TakesAll"), "set 1");
  report("QBHPHelperControl", "checkServerOpenCallBack::::", ",x,1,5,m");
  EXPECT_EQ(host->waitForReport("server"), "! server 1 HelperCommunicateErrorDomain 5 m");
  report("QBHPHelperControl", "checkServerOpenCallBack::::", ",x,0,0,m");
  EXPECT_EQ(host->reportsWith("! server 0 ~ 0 ~"), 1U);
  report("QBHPUpgradeByHelper", "productUpgradeCallBack::::", ",a,b,7,m");
  EXPECT_EQ(host->reportsWith("! upgrade 7"), 1U);
  EXPECT_EQ(host->call("call QBHPUpgradeByHelper isUpgradeQueryResopned"), "NO");

  EXPECT_EQ(host->call("delegate Raises"), "set 1");
  report("QBHPHelperControl", "helperExitNotify:", ",x");
  EXPECT_EQ(host->reportsWith("raises"), 1U);
  EXPECT_EQ(host->call("delegate NoSuchClass"), "set 0");
  report("QBHPHelperControl", "helperExitNotify:", ",x");
  host->quit();
}

}  // namespace
}  // namespace qbdkr::test
