#include <gtest/gtest.h>
#include <unistd.h>

#include <optional>
#include <string>
#include <vector>

#include <ClientComm/Exceptions.h>
#include <ClientComm/QBHPHelperControl.h>
#include <ClientComm/QBHPHelperError.h>
#include <ClientComm/RecordedStep.h>

#include "Host.h"
#include "support/CapturedLog.h"
#include "support/RecordingTransport.h"

namespace qbdkr::test {
namespace {

using Lines = std::vector<std::string>;

// The reports to a delegate.
struct Told {
  int exits = 0;
  std::vector<std::pair<bool, std::optional<Error>>> checks;
};

class WantsExit : public QBHPWillHelperExitDelegate {
 public:
  explicit WantsExit(Told& told) : told_(told) {}
  void willHelperExit() override { ++told_.exits; }

 private:
  Told& told_;
};

class WantsChecks : public QBHPDidCheckServerOpenDelegate {
 public:
  explicit WantsChecks(Told& told) : told_(told) {}
  void didCheckServerOpen(bool open, const Error* error) override {
    told_.checks.emplace_back(open, error == nullptr ? std::nullopt : std::optional(*error));
  }

 private:
  Told& told_;
};

class WantsBoth : public WantsExit, public WantsChecks {
 public:
  explicit WantsBoth(Told& told) : WantsExit(told), WantsChecks(told) {}
};

class WantsNothing : public QBHPHelperControlCallBackDelegate {};

class HelperControl : public testing::Test {
 protected:
  HelperControl() {
    transport.reset();
    control.setHelperCtrlDelegate(&both);
  }
  ~HelperControl() override { control.setHelperCtrlDelegate(nullptr); }

  using Request = OSErr (QBHPHelperControl::*)(Text, Text);

  void expectRequest(Request request, const std::string& method, const Lines& lines) {
    transport.reset();
    CapturedLog log;
    EXPECT_EQ((control.*request)("4711", "3.1"), noErr);
    const auto sent = transport.sent();
    ASSERT_EQ(sent.size(), 1U);
    EXPECT_EQ(sent[0].event, (RPCEvent{"QBHPHelperControl", method, {"4711", "3.1"}}));
    EXPECT_EQ(sent[0].target.bundleID, helperIdentifier);
    EXPECT_EQ(sent[0].kind, RecordingTransport::Kind::post);
    EXPECT_EQ(log.lines(), lines);
  }

  // Returns the text of the dispatcher's reply.
  String deliver(const std::string& method, const std::vector<std::string>& arguments) {
    return transport.deliver({"QBHPHelperControl", method, arguments});
  }

  RecordingTransport& transport = RecordingTransport::installed();
  QBHPHelperControl control;
  Told told;
  WantsBoth both{told};
};

TEST_F(HelperControl, StartLogsTwoLinesAndSends) {
  expectRequest(&QBHPHelperControl::start, "start:prodeuctVersion:",
                {"QBDKRProductClient''QBHPHelperControl", "start:prodeuctVersion: 4711 3.1 "});
}

TEST_F(HelperControl, StopLogsItsLineAndSends) {
  expectRequest(&QBHPHelperControl::stop,
                "stop:prodeuctVersion:", {"stop:prodeuctVersion: 4711 3.1 "});
}

TEST_F(HelperControl, ShowLogsItsLineAndSends) {
  expectRequest(&QBHPHelperControl::show,
                "show:prodeuctVersion:", {"show:prodeuctVersion: 4711 3.1 "});
}

TEST_F(HelperControl, HideLogsItsLineAndSends) {
  expectRequest(&QBHPHelperControl::hide,
                "hide:prodeuctVersion:", {"hide:prodeuctVersion: 4711 3.1 "});
}

TEST_F(HelperControl, IsAliveLogsNothingAndSends) {
  expectRequest(&QBHPHelperControl::isAlive, "isAlive:prodeuctVersion:", {});
}

TEST_F(HelperControl, ExitLogsNothingAndSendsItsOwnSpelling) {
  expectRequest(&QBHPHelperControl::exitHelper, "exitHelper:productVersion:", {});
}

TEST_F(HelperControl, AbsentValuesAreSentEmptyAndLoggedAsNull) {
  CapturedLog log;
  control.start(std::nullopt, std::nullopt);
  control.stop(std::nullopt, "3.1");
  control.show("", std::nullopt);
  EXPECT_EQ(log.lines(),
            (Lines{"QBDKRProductClient''QBHPHelperControl", "start:prodeuctVersion: (null) (null) ",
                   "stop:prodeuctVersion: (null) 3.1 ", "show:prodeuctVersion:  (null) "}));
  const auto events = transport.sentEvents();
  ASSERT_EQ(events.size(), 3U);
  EXPECT_EQ(events[0].arguments, (std::vector<std::string>{"", ""}));
  EXPECT_EQ(events[1].arguments, (std::vector<std::string>{"", "3.1"}));
  EXPECT_EQ(events[2].arguments, (std::vector<std::string>{"", ""}));
}

TEST_F(HelperControl, StatusOfTheSendIsReturnedAndNeitherLoggedNorTriedAgain) {
  transport.answerWith({procNotFound, std::nullopt});
  CapturedLog log;
  for (const Request request :
       {&QBHPHelperControl::start, &QBHPHelperControl::stop, &QBHPHelperControl::show,
        &QBHPHelperControl::hide, &QBHPHelperControl::isAlive, &QBHPHelperControl::exitHelper}) {
    EXPECT_EQ((control.*request)("4711", "3.1"), procNotFound);
  }
  EXPECT_EQ(transport.sent().size(), 6U);
  EXPECT_EQ(log.lines().size(), 5U);
}

TEST_F(HelperControl, LogLinesAreWrittenBeforeTheEventIsSent) {
  CapturedLog log;
  Lines atSend;
  transport.answer("start:prodeuctVersion:",
                   RecordingTransport::Answerer([&](const RecordingTransport::Sent&) {
                     atSend = log.lines();
                     return RecordingTransport::Answer{};
                   }));
  control.start("4711", "3.1");
  EXPECT_EQ(atSend.size(), 2U);
}

TEST_F(HelperControl, ShareIsOneObject) {
  EXPECT_EQ(&QBHPHelperControl::share(), &QBHPHelperControl::share());
}

// Takes itself off in its own call, and is destroyed there.
class EndsItself : public QBHPWillHelperExitDelegate, public QBHPDidCheckServerOpenDelegate {
 public:
  EndsItself(QBHPHelperControl& control, int& ends) : control_(control), ends_(ends) {}
  EndsItself(const EndsItself&) = delete;
  EndsItself& operator=(const EndsItself&) = delete;
  ~EndsItself() override {
    control_.setHelperCtrlDelegate(nullptr);
    ++ends_;
  }

  void willHelperExit() override { delete this; }
  void didCheckServerOpen(bool /*open*/, const Error* /*error*/) override { delete this; }

 private:
  QBHPHelperControl& control_;
  int& ends_;
};

TEST_F(HelperControl, DelegateMayTakeItselfOffAndBeDestroyedInItsCall) {
  int ends = 0;
  for (int round = 1; round <= 2; ++round) {
    control.setHelperCtrlDelegate(
        static_cast<QBHPWillHelperExitDelegate*>(new EndsItself(control, ends)));
    if (round == 1) {
      EXPECT_EQ(control.helperExitNotify("x"), noErr);
    } else {
      EXPECT_EQ(control.checkServerOpenCallBack("x", "1", "7", "message"), noErr);
    }
    EXPECT_EQ(ends, round);
    EXPECT_EQ(control.helperCtrlDelegate(), nullptr);
    EXPECT_EQ(control.helperExitNotify("x"), noErr) << "no delegate is called";
    EXPECT_EQ(ends, round);
  }
}

TEST_F(HelperControl, DelegateThatIsDestroyedWhileItIsSetTakesItselfOffAndIsRecorded) {
  Told other;
  {
    WantsBoth delegate(other);
    const WantsBoth spare(other);
    control.setHelperCtrlDelegate(static_cast<WantsExit*>(&delegate));
  }
  EXPECT_EQ(control.helperCtrlDelegate(), nullptr);
  EXPECT_EQ(recordedSteps().back().kind, StepKind::delegateDestroyed);
  EXPECT_EQ(recordedSteps().back().subject, "QBHPHelperControl");
  EXPECT_EQ(control.helperExitNotify("x"), noErr);
  EXPECT_EQ(other.exits, 0);
}

TEST_F(HelperControl, DelegateThatIsDestroyedLeavesAnotherOneInItsPlace) {
  Told other;
  {
    WantsBoth replaced(other);
    control.setHelperCtrlDelegate(static_cast<WantsExit*>(&replaced));
    control.setHelperCtrlDelegate(&both);
  }
  EXPECT_EQ(control.helperExitNotify("x"), noErr);
  EXPECT_EQ(told.exits, 1);
}

TEST_F(HelperControl, DelegateMayOutliveTheControlThatItWasSetFor) {
  Told other;
  WantsBoth delegate(other);
  inHost(hostInformation(), [&](const Host&) {
    QBHPHelperControl second;
    second.setHelperCtrlDelegate(static_cast<WantsExit*>(&delegate));
  });
}

TEST_F(HelperControl, DelegateIsKeptAsItWasSet) {
  EXPECT_EQ(control.helperCtrlDelegate(),
            static_cast<QBHPHelperControlCallBackDelegate*>(static_cast<WantsExit*>(&both)));
  control.setHelperCtrlDelegate(nullptr);
  EXPECT_EQ(control.helperCtrlDelegate(), nullptr);
}

TEST_F(HelperControl, MakingOneInstallsTheHandlerAndEndingItRemovesTheEntry) {
  inHost(hostInformation(), [this](const Host&) {
    EXPECT_TRUE(transport.hasHandler());
    Told other;
    {
      WantsBoth delegate(other);
      QBHPHelperControl second;
      second.setHelperCtrlDelegate(&delegate);
      deliver("helperExitNotify:", {"x"});
      EXPECT_EQ(other.exits, 1);
    }
    // Its entry is gone: the next report makes an object without a delegate.
    deliver("helperExitNotify:", {"x"});
    EXPECT_EQ(other.exits, 1);
    EXPECT_EQ(told.exits, 0);
  });
}

TEST_F(HelperControl, ExitReportIsLoggedAndPassedOn) {
  CapturedLog log;
  EXPECT_EQ(control.helperExitNotify("AcmeHelper"), noErr);
  EXPECT_EQ(log.lines(), Lines{"helperExitNotify: AcmeHelper"});
  EXPECT_EQ(told.exits, 1);
  EXPECT_TRUE(told.checks.empty());
}

TEST_F(HelperControl, ReportsAreLoggedBeforeTheDelegateIsTold) {
  CapturedLog log;
  struct Delegate : QBHPWillHelperExitDelegate, QBHPDidCheckServerOpenDelegate {
    explicit Delegate(CapturedLog& captured) : log(captured) {}
    void willHelperExit() override { lines = log.lines(); }
    void didCheckServerOpen(bool /*open*/, const Error* /*error*/) override { lines = log.lines(); }
    CapturedLog& log;
    Lines lines;
  } delegate(log);
  control.setHelperCtrlDelegate(&delegate);
  control.helperExitNotify("AcmeHelper");
  EXPECT_EQ(delegate.lines, Lines{"helperExitNotify: AcmeHelper"});
  control.checkServerOpenCallBack("x", "1", "0", "");
  EXPECT_EQ(delegate.lines,
            (Lines{"helperExitNotify: AcmeHelper", "checkServerOpenCallBack:::: x 1 0 "}));
}

TEST_F(HelperControl, ServerReportIsLoggedWithAllFourArguments) {
  CapturedLog log;
  EXPECT_EQ(control.checkServerOpenCallBack("x", "1", "0", "message"), noErr);
  EXPECT_EQ(control.checkServerOpenCallBack(std::nullopt, "", "", std::nullopt), noErr);
  EXPECT_EQ(log.lines(), (Lines{"checkServerOpenCallBack:::: x 1 0 message",
                                "checkServerOpenCallBack:::: (null)   (null)"}));
}

TEST_F(HelperControl, ServerReportWithCodeZeroCarriesNoErrorWhateverTheMessage) {
  for (const char* code : {"0", "", "abc", "-0", "00", "message 5"}) {
    told.checks.clear();
    control.checkServerOpenCallBack("x", "1", code, "a message");
    ASSERT_EQ(told.checks.size(), 1U) << code;
    EXPECT_TRUE(told.checks[0].first) << code;
    EXPECT_FALSE(told.checks[0].second.has_value()) << code;
  }
}

TEST_F(HelperControl, ServerReportWithACodeCarriesAnError) {
  control.checkServerOpenCallBack("x", "NO", "-3", "M");
  ASSERT_EQ(told.checks.size(), 1U);
  EXPECT_FALSE(told.checks[0].first);
  const auto& error = told.checks[0].second;
  ASSERT_TRUE(error.has_value());
  EXPECT_EQ(error->domain, "HelperCommunicateErrorDomain");
  EXPECT_EQ(error->code, -3);
  EXPECT_EQ(error->userInfo,
            (std::map<std::string, std::string>{{"HelperCommunicateErrorDescription", "M"}}));
}

TEST_F(HelperControl, ErrorCodeIsTheLeadingIntegerOfItsText) {
  control.checkServerOpenCallBack("x", "1", "12abc", "M");
  control.checkServerOpenCallBack("x", "1", "99999999999", "M");
  ASSERT_EQ(told.checks.size(), 2U);
  EXPECT_EQ(told.checks[0].second.value().code, 12);
  EXPECT_EQ(told.checks[1].second.value().code, 2147483647);
}

TEST_F(HelperControl, OpenFlagIsReadAsABoolean) {
  for (const char* text : {"1", "YES", "y", "true", " 1", "+1", "007"}) {
    told.checks.clear();
    control.checkServerOpenCallBack("x", text, "0", "");
    EXPECT_TRUE(told.checks.at(0).first) << text;
  }
  for (const char* text : {"0", "NO", "", "no", "false", "x1", "   "}) {
    told.checks.clear();
    control.checkServerOpenCallBack("x", text, "0", "");
    EXPECT_FALSE(told.checks.at(0).first) << text;
  }
}

TEST_F(HelperControl, WithoutADelegateReportsAreLoggedAndIgnored) {
  control.setHelperCtrlDelegate(nullptr);
  CapturedLog log;
  EXPECT_EQ(control.helperExitNotify("x"), noErr);
  EXPECT_EQ(control.checkServerOpenCallBack("x", "1", "5", "M"), noErr);
  EXPECT_EQ(log.lines().size(), 2U);
}

TEST_F(HelperControl, ADelegateIsToldOnlyWhatItImplements) {
  Told exitsOnly;
  WantsExit exitDelegate(exitsOnly);
  control.setHelperCtrlDelegate(&exitDelegate);
  EXPECT_EQ(control.helperExitNotify("x"), noErr);
  // No error object is made: the absent message would throw.
  EXPECT_EQ(control.checkServerOpenCallBack("x", "1", "5", std::nullopt), noErr);
  EXPECT_EQ(exitsOnly.exits, 1);

  Told checksOnly;
  WantsChecks checkDelegate(checksOnly);
  control.setHelperCtrlDelegate(&checkDelegate);
  EXPECT_EQ(control.helperExitNotify("x"), noErr);
  EXPECT_EQ(control.checkServerOpenCallBack("x", "1", "0", ""), noErr);
  EXPECT_EQ(checksOnly.checks.size(), 1U);

  WantsNothing nothing;
  control.setHelperCtrlDelegate(&nothing);
  EXPECT_EQ(control.helperExitNotify("x"), noErr);
  EXPECT_EQ(control.checkServerOpenCallBack("x", "1", "5", "M"), noErr);
}

// Has both interfaces, and leaves out what it is told to.
class TakesSome : public WantsBoth {
 public:
  using WantsBoth::WantsBoth;
  [[nodiscard]] bool respondsTo(Selector report) const override { return report.text() == taken; }
  std::string taken;
};

TEST_F(HelperControl, ADelegateIsAskedBeforeEachReportWhetherItTakesIt) {
  Told some;
  TakesSome delegate(some);
  control.setHelperCtrlDelegate(static_cast<WantsExit*>(&delegate));
  const auto report = [this] {
    EXPECT_EQ(control.helperExitNotify("x"), noErr);
    EXPECT_EQ(control.checkServerOpenCallBack("x", "1", "0", ""), noErr);
  };
  report();
  EXPECT_EQ(some.exits, 0);
  EXPECT_TRUE(some.checks.empty());
  EXPECT_EQ(recordedSteps().back().kind, StepKind::reportNotTaken);
  // No error object is made: the absent message would throw.
  EXPECT_EQ(control.checkServerOpenCallBack("x", "1", "5", std::nullopt), noErr);

  delegate.taken = "willHelperExit";
  report();
  EXPECT_EQ(some.exits, 1);
  EXPECT_TRUE(some.checks.empty());

  delegate.taken = "didCheckServerOpen::";
  report();
  EXPECT_EQ(some.exits, 1);
  EXPECT_EQ(some.checks.size(), 1U);
}

TEST_F(HelperControl, BothReportsReplyWithoutAResult) {
  EXPECT_EQ(deliver("helperExitNotify:", {"x"}), std::nullopt);
  EXPECT_EQ(deliver("checkServerOpenCallBack::::", {"x", "1", "7", "M"}), std::nullopt);
  EXPECT_EQ(told.exits, 1);
  ASSERT_EQ(told.checks.size(), 1U);
  EXPECT_EQ(told.checks[0].second.value().code, 7);
}

TEST_F(HelperControl, RequestsCannotBeCalledByName) {
  for (const char* method :
       {"start:prodeuctVersion:", "stop:prodeuctVersion:", "show:prodeuctVersion:",
        "hide:prodeuctVersion:", "isAlive:prodeuctVersion:", "exitHelper:productVersion:"}) {
    EXPECT_EQ(deliver(method, {"a", "b"}), std::nullopt);
  }
  EXPECT_TRUE(transport.sent().empty());
}

TEST(HelperError, HasTheDomainTheCodeAndTheDescription) {
  const Error error = QBHPHelperError::errorWithCode("42 and more", "what happened");
  EXPECT_EQ(error.domain, "HelperCommunicateErrorDomain");
  EXPECT_EQ(error.code, 42);
  EXPECT_EQ(
      error.userInfo,
      (std::map<std::string, std::string>{{"HelperCommunicateErrorDescription", "what happened"}}));
}

TEST(HelperError, CodeIsZeroWhereTheTextHasNone) {
  EXPECT_EQ(QBHPHelperError::errorWithCode("none", "d").code, 0);
  EXPECT_EQ(QBHPHelperError::errorWithCode(std::nullopt, "d").code, 0);
}

TEST(HelperError, NeedsADescription) {
  EXPECT_THROW((void)QBHPHelperError::errorWithCode("1", std::nullopt), InvalidArgumentException);
  EXPECT_EQ(
      QBHPHelperError::errorWithCode("1", "").userInfo.at("HelperCommunicateErrorDescription"), "");
}

}  // namespace
}  // namespace qbdkr::test
