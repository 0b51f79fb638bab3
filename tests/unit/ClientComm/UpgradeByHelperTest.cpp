// Tests the messages about an upgrade: the requests, the delegate, and when a question is open.

#include <gtest/gtest.h>
#include <unistd.h>

#include <functional>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include <ClientComm/Exceptions.h>
#include <ClientComm/QBHPUpgradeByHelper.h>

#include "Host.h"
#include "support/CapturedLog.h"
#include "support/RecordingTransport.h"

namespace qbdkr::test {
namespace {

using Answer = RecordingTransport::Answer;
using Answerer = RecordingTransport::Answerer;
using Sent = RecordingTransport::Sent;
using Texts = std::vector<std::string>;

constexpr const char* upgradeClass = "QBHPUpgradeByHelper";
constexpr const char* readyToUpgrade = "productReadyToUpgrade:versionID:ready:";
constexpr const char* upgrade = "productUpgrade:versionID:";
constexpr const char* question = "productUpgradeCallBack::::";
constexpr const char* notResponded = "last query not responsed yet!";

const RPCEvent ignoreAnswer{upgradeClass, readyToUpgrade, {"", "", "ignore"}};

class WantsQuestions : public QBHPProductWillUpgradeDelegate {
 public:
  void productWillUpgrade(const Error* error) override {
    told.push_back(error == nullptr ? std::nullopt : std::optional(*error));
    if (answer) answer();
  }
  std::vector<std::optional<Error>> told;
  std::function<void()> answer;
};

class WantsNothing : public QBHPProductUpgradeCallBackDelegate {};

// Has the interface, and leaves the question out.
class DeclinesQuestions : public WantsQuestions {
 public:
  [[nodiscard]] bool respondsTo(Selector report) const override {
    return report.text() != "productWillUpgrade:";
  }
};

// Takes itself off in its own call, and is destroyed there.
class EndsItself : public QBHPProductWillUpgradeDelegate {
 public:
  EndsItself(QBHPUpgradeByHelper& service, int& ends) : service_(service), ends_(ends) {}
  EndsItself(const EndsItself&) = delete;
  EndsItself& operator=(const EndsItself&) = delete;
  ~EndsItself() override {
    service_.setProductUpgradeDelegate(nullptr);
    ++ends_;
  }

  void productWillUpgrade(const Error* /*error*/) override {
    service_.productReadyToUpgrade("1", "2", "0");
    delete this;
  }

 private:
  QBHPUpgradeByHelper& service_;
  int& ends_;
};

class UpgradeByHelper : public testing::Test {
 protected:
  UpgradeByHelper() {
    transport.reset();
    service.setProductUpgradeDelegate(&delegate);
  }

  OSErr ask(Text code = "0", Text message = "") {
    return service.productUpgradeCallBack("a", "b", code, message);
  }
  [[nodiscard]] bool answered() const { return service.isUpgradeQueryResopned(); }

  RecordingTransport& transport = RecordingTransport::installed();
  WantsQuestions delegate;
  QBHPUpgradeByHelper service;
};

TEST_F(UpgradeByHelper, DelegateMayTakeItselfOffAndBeDestroyedInItsCall) {
  int ends = 0;
  service.setProductUpgradeDelegate(new EndsItself(service, ends));
  EXPECT_EQ(ask("7", "message"), noErr);
  EXPECT_EQ(ends, 1);
  EXPECT_EQ(service.productUpgradeDelegate(), nullptr);
  EXPECT_TRUE(answered());
  EXPECT_EQ(ask(), noErr) << "no delegate is asked";
  EXPECT_TRUE(answered());
}

TEST_F(UpgradeByHelper, ShareIsOneObject) {
  EXPECT_EQ(&QBHPUpgradeByHelper::share(), &QBHPUpgradeByHelper::share());
  EXPECT_EQ(service.className(), upgradeClass);
}

TEST_F(UpgradeByHelper, StartsWithoutADelegateAndWithNothingToAnswer) {
  const QBHPUpgradeByHelper fresh;
  EXPECT_EQ(fresh.productUpgradeDelegate(), nullptr);
  EXPECT_TRUE(fresh.isUpgradeQueryResopned());
}

TEST_F(UpgradeByHelper, DelegateIsKeptAsItWasSet) {
  EXPECT_EQ(service.productUpgradeDelegate(), &delegate);
  service.setProductUpgradeDelegate(nullptr);
  EXPECT_EQ(service.productUpgradeDelegate(), nullptr);
}

// --- Requests

TEST_F(UpgradeByHelper, AnswerIsLoggedWithoutABlankBehindAndPosted) {
  CapturedLog log;
  EXPECT_EQ(service.productReadyToUpgrade("4711", "3.1", "1"), noErr);
  EXPECT_EQ(log.lines(), Texts{"productReadyToUpgrade:versionID:ready: 4711 3.1 1"});
  const auto sent = transport.sent();
  ASSERT_EQ(sent.size(), 1U);
  EXPECT_EQ(sent[0].event, (RPCEvent{upgradeClass, readyToUpgrade, {"4711", "3.1", "1"}}));
  EXPECT_EQ(sent[0].target.bundleID, helperIdentifier);
  EXPECT_EQ(sent[0].kind, RecordingTransport::Kind::post);
}

TEST_F(UpgradeByHelper, UpgradeIsLoggedWithABlankBehindAndPosted) {
  CapturedLog log;
  EXPECT_EQ(service.productUpgrade("4711", "3.1"), noErr);
  EXPECT_EQ(log.lines(), Texts{"productUpgrade:versionID: 4711 3.1 "});
  const auto sent = transport.sent();
  ASSERT_EQ(sent.size(), 1U);
  EXPECT_EQ(sent[0].event, (RPCEvent{upgradeClass, upgrade, {"4711", "3.1"}}));
  EXPECT_EQ(sent[0].target.bundleID, helperIdentifier);
  EXPECT_EQ(sent[0].kind, RecordingTransport::Kind::post);
}

TEST_F(UpgradeByHelper, AbsentArgumentsAreLoggedAsNullAndSentEmpty) {
  CapturedLog log;
  service.productReadyToUpgrade(std::nullopt, "", std::nullopt);
  service.productUpgrade(std::nullopt, std::nullopt);
  EXPECT_EQ(log.lines(), (Texts{"productReadyToUpgrade:versionID:ready: (null)  (null)",
                                "productUpgrade:versionID: (null) (null) "}));
  EXPECT_EQ(transport.sentEvents(),
            (std::vector<RPCEvent>{{upgradeClass, readyToUpgrade, {"", "", ""}},
                                   {upgradeClass, upgrade, {"", ""}}}));
}

TEST_F(UpgradeByHelper, StatusOfTheSendIsReturnedAndNotTriedAgain) {
  transport.answerWith({procNotFound, std::nullopt});
  EXPECT_EQ(service.productReadyToUpgrade("4711", "3.1", "1"), procNotFound);
  EXPECT_EQ(service.productUpgrade("4711", "3.1"), procNotFound);
  EXPECT_EQ(transport.sent().size(), 2U);
}

// --- The states of a question, row by row

TEST_F(UpgradeByHelper, AnsweredAndAskedTellsTheDelegateAndWaits) {
  EXPECT_EQ(ask(), noErr);
  ASSERT_EQ(delegate.told.size(), 1U);
  EXPECT_EQ(delegate.told[0], std::nullopt);
  EXPECT_FALSE(answered());
  EXPECT_TRUE(transport.sent().empty());
}

TEST_F(UpgradeByHelper, AnsweredAndAskedWithoutAUsableDelegateStaysAnswered) {
  WantsNothing silent;
  DeclinesQuestions declining;
  for (QBHPProductUpgradeCallBackDelegate* unusable :
       {static_cast<QBHPProductUpgradeCallBackDelegate*>(nullptr),
        static_cast<QBHPProductUpgradeCallBackDelegate*>(&silent),
        static_cast<QBHPProductUpgradeCallBackDelegate*>(&declining)}) {
    service.setProductUpgradeDelegate(unusable);
    CapturedLog log;
    for (int i = 0; i < 3; ++i) EXPECT_EQ(ask(), noErr);
    EXPECT_TRUE(answered());
    EXPECT_TRUE(transport.sent().empty());
    EXPECT_EQ(log.lines(), Texts(3, "productUpgradeCallBack:::: a b 0 "));
  }
  EXPECT_TRUE(delegate.told.empty());
  EXPECT_TRUE(declining.told.empty());
  // A delegate that is set later is asked.
  service.setProductUpgradeDelegate(&delegate);
  ask();
  EXPECT_EQ(delegate.told.size(), 1U);
}

TEST_F(UpgradeByHelper, WaitingAndAskedIsAnsweredWithIgnoreAndGoesOnWaiting) {
  ask();
  for (int i = 1; i <= 2; ++i) {
    transport.reset();
    CapturedLog log;
    EXPECT_EQ(ask("12", "M"), noErr);
    EXPECT_EQ(log.lines(), (Texts{"productUpgradeCallBack:::: a b 12 M", notResponded,
                                  "productReadyToUpgrade:versionID:ready:   ignore"}));
    const auto sent = transport.sent();
    ASSERT_EQ(sent.size(), 1U);
    EXPECT_EQ(sent[0].event, ignoreAnswer);
    EXPECT_EQ(sent[0].kind, RecordingTransport::Kind::post);
    EXPECT_FALSE(answered());
    EXPECT_EQ(delegate.told.size(), 1U);
  }
}

TEST_F(UpgradeByHelper, WaitingAndAskedReturnsTheStatusOfTheIgnoreAnswer) {
  ask();
  transport.answerWith({procNotFound, std::nullopt});
  EXPECT_EQ(ask(), procNotFound);
  EXPECT_FALSE(answered());
}

TEST_F(UpgradeByHelper, WaitingAndAskedIsIgnoredEvenWhenTheDelegateWentAway) {
  ask();
  service.setProductUpgradeDelegate(nullptr);
  EXPECT_EQ(ask(), noErr);
  EXPECT_EQ(transport.sentEvents(), std::vector<RPCEvent>{ignoreAnswer});
  EXPECT_FALSE(answered());
}

TEST_F(UpgradeByHelper, AnAnswerOfTheHostMakesTheNextQuestionReachIt) {
  ask();
  ask();
  service.productReadyToUpgrade("4711", "3.1", "0");
  EXPECT_TRUE(answered());
  ask();
  EXPECT_EQ(delegate.told.size(), 2U);
  EXPECT_FALSE(answered());
}

TEST_F(UpgradeByHelper, AnAnswerWithoutAQuestionChangesNothing) {
  service.productReadyToUpgrade("4711", "3.1", "1");
  EXPECT_TRUE(answered());
}

TEST_F(UpgradeByHelper, AnAnswerCountsBeforeItIsSentAndWhenItCannotBeSent) {
  ask();
  bool answeredAtSend = false;
  transport.answer(readyToUpgrade, Answerer([&](const Sent&) {
                     answeredAtSend = answered();
                     return Answer{procNotFound, std::nullopt};
                   }));
  EXPECT_EQ(service.productReadyToUpgrade("4711", "3.1", "1"), procNotFound);
  EXPECT_TRUE(answeredAtSend);
  EXPECT_TRUE(answered());
}

TEST_F(UpgradeByHelper, AnUpgradeOfTheHostLeavesTheQuestionAsItIs) {
  service.productUpgrade("4711", "3.1");
  EXPECT_TRUE(answered());
  ask();
  service.productUpgrade(std::nullopt, std::nullopt);
  EXPECT_FALSE(answered());
}

TEST_F(UpgradeByHelper, DelegateMayAnswerWhileItIsAsked) {
  bool openWhenAsked = false;
  delegate.answer = [&] {
    openWhenAsked = !answered();
    service.productReadyToUpgrade("4711", "3.1", "1");
  };
  EXPECT_EQ(ask(), noErr);
  EXPECT_TRUE(openWhenAsked);
  EXPECT_TRUE(answered());
  ask();
  EXPECT_EQ(delegate.told.size(), 2U);
}

TEST_F(UpgradeByHelper, AnswerOnAnotherThreadWhileAFurtherQuestionComesIsNotLost) {
  ask();
  transport.answer(
      readyToUpgrade, Answerer([&](const Sent& sent) {
        if (sent.event == ignoreAnswer) {
          std::thread([&] { service.productReadyToUpgrade("4711", "3.1", "1"); }).join();
        }
        return Answer{};
      }));
  EXPECT_EQ(ask(), noErr);
  EXPECT_TRUE(answered());
  ask();
  EXPECT_EQ(delegate.told.size(), 2U);
}

// --- The arguments of a question

TEST_F(UpgradeByHelper, QuestionIsLoggedWithAllFourArguments) {
  service.setProductUpgradeDelegate(nullptr);
  CapturedLog log;
  service.productUpgradeCallBack("a", "b", "0", "message");
  service.productUpgradeCallBack(std::nullopt, "", "5", std::nullopt);
  EXPECT_EQ(log.lines(), (Texts{"productUpgradeCallBack:::: a b 0 message",
                                "productUpgradeCallBack:::: (null)  5 (null)"}));
}

TEST_F(UpgradeByHelper, QuestionIsLoggedBeforeTheDelegateIsAsked) {
  CapturedLog log;
  Texts whenAsked;
  delegate.answer = [&] { whenAsked = log.lines(); };
  ask();
  EXPECT_EQ(whenAsked, Texts{"productUpgradeCallBack:::: a b 0 "});
}

TEST_F(UpgradeByHelper, CodeZeroAndNoNumberCarryNoError) {
  for (const Text code : {Text("0"), Text(""), Text("abc"), Text("-0"), Text("00"), Text(" 0 5"),
                          Text(std::nullopt)}) {
    delegate.told.clear();
    service.productReadyToUpgrade("4711", "3.1", "1");
    ask(code, "a message");
    ASSERT_EQ(delegate.told.size(), 1U);
    EXPECT_FALSE(delegate.told[0].has_value()) << code.value_or("(absent)");
  }
}

TEST_F(UpgradeByHelper, OtherCodesCarryAnError) {
  struct Row {
    const char* text;
    std::int32_t code;
  };
  for (const Row& row : {Row{"12", 12}, Row{"-3", -3}, Row{" +7", 7}, Row{"12abc", 12},
                         Row{"99999999999", 2147483647}}) {
    SCOPED_TRACE(row.text);
    delegate.told.clear();
    service.productReadyToUpgrade("4711", "3.1", "1");
    EXPECT_EQ(ask(row.text, "M"), noErr);
    ASSERT_EQ(delegate.told.size(), 1U);
    const auto& error = delegate.told[0];
    ASSERT_TRUE(error.has_value());
    EXPECT_EQ(error->domain, "HelperCommunicateErrorDomain");
    EXPECT_EQ(error->code, row.code);
    EXPECT_EQ(error->userInfo,
              (std::map<std::string, std::string>{{"HelperCommunicateErrorDescription", "M"}}));
    EXPECT_FALSE(answered());
  }
}

TEST_F(UpgradeByHelper, ErrorWithoutAMessageThrowsAndLeavesNoQuestionOpen) {
  EXPECT_THROW(ask("5", std::nullopt), InvalidArgumentException);
  EXPECT_TRUE(delegate.told.empty());
  EXPECT_TRUE(answered());
}

// --- By name

TEST_F(UpgradeByHelper, QuestionComesInByNameAndItsReplyHasNoText) {
  inHost(hostInformation(), [this](const Host&) {
    const auto deliver = [this](const Texts& arguments) {
      return transport.deliver({upgradeClass, question, arguments});
    };
    EXPECT_EQ(deliver({"a", "b", "12", "M"}), std::nullopt);
    ASSERT_EQ(delegate.told.size(), 1U);
    EXPECT_EQ(delegate.told[0].value().code, 12);
    EXPECT_EQ(deliver({"a", "b", "0", ""}), std::nullopt);
    EXPECT_EQ(delegate.told.size(), 1U);
    EXPECT_EQ(transport.sentEvents(), std::vector<RPCEvent>{ignoreAnswer});
  });
}

TEST_F(UpgradeByHelper, RegistrationEndsWithTheObject) {
  inHost(hostInformation(), [this](const Host&) {
    WantsQuestions other;
    {
      QBHPUpgradeByHelper second;
      second.setProductUpgradeDelegate(&other);
      transport.deliver({upgradeClass, question, {"a", "b", "0", ""}});
      EXPECT_EQ(other.told.size(), 1U);
    }
    transport.deliver({upgradeClass, question, {"a", "b", "0", ""}});
    EXPECT_EQ(other.told.size(), 1U);
    EXPECT_TRUE(delegate.told.empty());
  });
}

TEST_F(UpgradeByHelper, RequestsCannotBeCalledByName) {
  const std::vector<Text> arguments{"4711", "3.1"};
  EXPECT_EQ(service.performSelector(upgrade, arguments), std::nullopt);
  EXPECT_EQ(service.performSelector(readyToUpgrade, arguments), std::nullopt);
  EXPECT_TRUE(transport.sent().empty());
  EXPECT_TRUE(answered());
}

}  // namespace
}  // namespace qbdkr::test
