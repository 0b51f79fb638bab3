#include <gtest/gtest.h>

#include <ClientComm/QBHPGetDataByHelper.h>
#include <ClientComm/QBHPHelperControl.h>
#include <ClientComm/Selector.h>
#include <QBDKRProductClient/QBHPHelperCommunicate.h>

// SelectorMisuse.cpp tests that a wrong number of colons does not compile.

namespace qbdkr {
namespace {

TEST(Selector, NamesTravelLetterForLetter) {
  EXPECT_EQ(QBHPHelperControl::kStart.text(), "start:prodeuctVersion:");
  EXPECT_EQ(QBHPHelperControl::kStop.text(), "stop:prodeuctVersion:");
  EXPECT_EQ(QBHPHelperControl::kShow.text(), "show:prodeuctVersion:");
  EXPECT_EQ(QBHPHelperControl::kHide.text(), "hide:prodeuctVersion:");
  EXPECT_EQ(QBHPHelperControl::kIsAlive.text(), "isAlive:prodeuctVersion:");
  EXPECT_EQ(QBHPHelperControl::kExitHelper.text(), "exitHelper:productVersion:");
  EXPECT_EQ(QBHPHelperControl::kHelperExitNotify.text(), "helperExitNotify:");
  EXPECT_EQ(QBHPHelperControl::kCheckServerOpenCallBack.text(), "checkServerOpenCallBack::::");
  EXPECT_EQ(QBHPGetDataByHelper::kClientIDFormHelper.text(), "clientIDFormHelper");
  EXPECT_EQ(QBHPGetDataByHelper::kIsNotFirstStart.text(), "isNotFirstStart");
  EXPECT_EQ(QBHPHelperCommunicate::kInitDataCollectionPath.text(), "initDataCollectionPath:");
}

}  // namespace
}  // namespace qbdkr
