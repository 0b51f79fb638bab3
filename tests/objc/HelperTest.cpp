#include <gtest/gtest.h>

#include <string>

#include "objc/ObjectiveCScene.h"

namespace qbdkr::test {
namespace {

TEST(HelperInObjectiveC, AnswersAndReportsToAHostInCpp) {
  ObjectiveCScene scene;
  const TestBundle bundle = scene.makeHostOfHelperInObjectiveC();
  const auto host = scene.startAndShare(bundle);
  EXPECT_EQ(host->call("fetch-client"), "client-in-objective-c");
  EXPECT_NE(host->waitForReport("server open no-error").find("main-thread"), std::string::npos);
  // It is asked to, which ends its main run loop.
  EXPECT_EQ(host->call("send " + scene.helperID() +
                       " QBHPHelperControl exitHelper:productVersion: 1001 3.1"),
            "0");
  scene.transcript().waitFor({" ends"});
  host->quit();
}

}  // namespace
}  // namespace qbdkr::test
