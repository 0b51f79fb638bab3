#include <gtest/gtest.h>

#include <string>
#include <vector>

#include <ClientComm/QBHPCustomerServiceByHelepr.h>

#include "Host.h"
#include "support/CapturedLog.h"
#include "support/RecordingTransport.h"

namespace qbdkr::test {
namespace {

using Texts = std::vector<std::string>;

constexpr const char* customerServiceClass = "QBHPCustomerServiceByHelepr";
constexpr const char* customerService = "customerService:versionID:email:attachment:";
constexpr const char* checkForHeleprMessage = "checkForHeleprMessage:versionID:";

class CustomerService : public testing::Test {
 protected:
  CustomerService() { transport.reset(); }
  RecordingTransport& transport = RecordingTransport::installed();
  QBHPCustomerServiceByHelepr service;
};

TEST_F(CustomerService, ShareIsOneObjectAndOthersMayBeMade) {
  EXPECT_EQ(&QBHPCustomerServiceByHelepr::share(), &QBHPCustomerServiceByHelepr::share());
  EXPECT_NE(&QBHPCustomerServiceByHelepr::share(), &service);
  EXPECT_EQ(service.className(), customerServiceClass);
}

TEST_F(CustomerService, RequestIsLoggedAndPostedWithItsFourArguments) {
  CapturedLog log;
  EXPECT_EQ(service.customerService("4711", "3.1", "mail", "/file"), noErr);
  EXPECT_EQ(log.lines(), Texts{"customerService:versionID:email:attachment: 4711 3.1 mail /file "});
  const auto sent = transport.sent();
  ASSERT_EQ(sent.size(), 1U);
  EXPECT_EQ(sent[0].event,
            (RPCEvent{customerServiceClass, customerService, {"4711", "3.1", "mail", "/file"}}));
  EXPECT_EQ(sent[0].target.bundleID, helperIdentifier);
  EXPECT_EQ(sent[0].kind, RecordingTransport::Kind::post);
}

TEST_F(CustomerService, LookForMessagesIsLoggedAndPostedWithTheProduct) {
  CapturedLog log;
  EXPECT_EQ(service.checkForHeleprMessage("4711", "3.1"), noErr);
  EXPECT_EQ(log.lines(), Texts{"checkForHeleprMessage:versionID: 4711 3.1 "});
  const auto sent = transport.sent();
  ASSERT_EQ(sent.size(), 1U);
  EXPECT_EQ(sent[0].event,
            (RPCEvent{customerServiceClass, checkForHeleprMessage, {"4711", "3.1"}}));
  EXPECT_EQ(sent[0].kind, RecordingTransport::Kind::post);
}

TEST_F(CustomerService, AbsentArgumentsAreLoggedAsNullAndSentEmpty) {
  CapturedLog log;
  service.customerService("4711", "3.1", "mail", std::nullopt);
  service.customerService(std::nullopt, "", std::nullopt, std::nullopt);
  service.checkForHeleprMessage(std::nullopt, std::nullopt);
  EXPECT_EQ(log.lines(),
            (Texts{"customerService:versionID:email:attachment: 4711 3.1 mail (null) ",
                   "customerService:versionID:email:attachment: (null)  (null) (null) ",
                   "checkForHeleprMessage:versionID: (null) (null) "}));
  const auto sent = transport.sentEvents();
  ASSERT_EQ(sent.size(), 3U);
  EXPECT_EQ(sent[0].arguments, (Texts{"4711", "3.1", "mail", ""}));
  EXPECT_EQ(sent[1].arguments, (Texts{"", "", "", ""}));
  EXPECT_EQ(sent[2].arguments, (Texts{"", ""}));
}

TEST_F(CustomerService, StatusOfTheSendIsReturnedAndNotTriedAgain) {
  transport.answerWith({procNotFound, "not asked for"});
  EXPECT_EQ(service.customerService("4711", "3.1", "mail", "/file"), procNotFound);
  EXPECT_EQ(service.checkForHeleprMessage("4711", "3.1"), procNotFound);
  EXPECT_EQ(transport.sent().size(), 2U);
}

TEST_F(CustomerService, IsNotRegisteredForReports) {
  inHost(hostInformation(), [this](const Host&) {
    service.checkForHeleprMessage("4711", "3.1");
    QBHPCustomerServiceByHelepr::share().checkForHeleprMessage("4711", "3.1");
    EXPECT_FALSE(transport.hasHandler());
  });
}

TEST_F(CustomerService, RequestsCannotBeCalledByName) {
  const std::vector<Text> arguments{"4711", "3.1"};
  EXPECT_EQ(service.performSelector(checkForHeleprMessage, arguments), std::nullopt);
  EXPECT_EQ(service.performSelector(customerService, arguments), std::nullopt);
  EXPECT_TRUE(transport.sent().empty());
}

}  // namespace
}  // namespace qbdkr::test
