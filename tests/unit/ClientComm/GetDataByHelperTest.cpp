#include <gtest/gtest.h>

#include <ClientComm/QBHPGetDataByHelper.h>

#include "Host.h"
#include "support/CapturedLog.h"
#include "support/RecordingTransport.h"

namespace qbdkr::test {
namespace {

class GetDataByHelper : public testing::Test {
 protected:
  GetDataByHelper() { transport.reset(); }
  RecordingTransport& transport = RecordingTransport::installed();
  QBHPGetDataByHelper service;
};

TEST_F(GetDataByHelper, ShareIsOneObjectAndOthersMayBeMade) {
  EXPECT_EQ(&QBHPGetDataByHelper::share(), &QBHPGetDataByHelper::share());
  EXPECT_NE(&QBHPGetDataByHelper::share(), &service);
}

TEST_F(GetDataByHelper, ClientIDRequestHasNoArgumentsAndWaitsForItsReply) {
  transport.answerWith({noErr, " a client identifier, exactly as it is "});
  EXPECT_EQ(service.clientIDFormHelper(), " a client identifier, exactly as it is ");
  const auto sent = transport.sent();
  ASSERT_EQ(sent.size(), 1U);
  EXPECT_EQ(sent[0].event, (RPCEvent{"QBHPGetDataByHelper", "clientIDFormHelper", {}}));
  EXPECT_EQ(sent[0].target.bundleID, helperIdentifier);
  EXPECT_EQ(sent[0].kind, RecordingTransport::Kind::ask);
}

TEST_F(GetDataByHelper, FirstStartRequestHasNoArgumentsAndWaitsForItsReply) {
  transport.answerWith({noErr, "1"});
  EXPECT_EQ(QBHPGetDataByHelper::share().isNotFirstStart(), "1");
  const auto sent = transport.sent();
  ASSERT_EQ(sent.size(), 1U);
  EXPECT_EQ(sent[0].event, (RPCEvent{"QBHPGetDataByHelper", "isNotFirstStart", {}}));
  EXPECT_EQ(sent[0].kind, RecordingTransport::Kind::ask);
}

TEST_F(GetDataByHelper, AFailedSendIsNoAnswer) {
  transport.answerWith({procNotFound, std::nullopt});
  EXPECT_EQ(service.clientIDFormHelper(), std::nullopt);
  EXPECT_EQ(service.isNotFirstStart(), std::nullopt);
}

TEST_F(GetDataByHelper, AReplyWithoutTextIsNoAnswer) {
  EXPECT_EQ(service.clientIDFormHelper(), std::nullopt);
  EXPECT_EQ(service.isNotFirstStart(), std::nullopt);
}

TEST_F(GetDataByHelper, LogsNothing) {
  CapturedLog log;
  service.clientIDFormHelper();
  service.isNotFirstStart();
  EXPECT_TRUE(log.lines().empty());
}

TEST_F(GetDataByHelper, IsNotRegisteredForReports) {
  // Only services that receive reports install the handler.
  inHost(hostInformation(), [this](const Host&) {
    service.clientIDFormHelper();
    QBHPGetDataByHelper::share().clientIDFormHelper();
    EXPECT_FALSE(transport.hasHandler());
  });
}

TEST_F(GetDataByHelper, QueriesCannotBeCalledByName) {
  EXPECT_EQ(service.performSelector("clientIDFormHelper", {}), std::nullopt);
  EXPECT_EQ(service.performSelector("isNotFirstStart", {}), std::nullopt);
  EXPECT_TRUE(transport.sent().empty());
}

}  // namespace
}  // namespace qbdkr::test
