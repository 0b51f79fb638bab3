// Makes every public request, and checks whether it starts a liveness check, the event that it
// sends, and its result.

#include <gtest/gtest.h>

#include <chrono>
#include <functional>
#include <string>
#include <vector>

#include <ClientComm/Exceptions.h>
#include <QBDKRProductClient/QBHPHelper.h>
#include <QBDKRProductClient/QBHPHelperCommunicate.h>

#include "CommunicatorTest.h"
#include "FailingMemory.h"
#include "support/CapturedLog.h"
#include "support/RecordingTransport.h"

namespace qbdkr::test {
namespace {

using Communicator = QBHPHelperCommunicate;
using Texts = std::vector<std::string>;

constexpr const char* control = "QBHPHelperControl";
constexpr const char* upgrade = "QBHPUpgradeByHelper";
constexpr const char* upload = "QBHPUploadByHelper";
constexpr const char* customerService = "QBHPCustomerServiceByHelepr";
constexpr const char* getData = "QBHPGetDataByHelper";

// A status that the framework does not make itself, and an ordinary reply.
constexpr OSErr someStatus = -1743;
constexpr const char* someReply = "U###300###200";

enum class Guard { no, yes };
using Wire = RecordingTransport::Kind;

struct Request {
  const char* name;
  std::function<std::string(Communicator&)> call;  // the result as text
  Guard guard;
  Wire wire;
  const char* className;
  const char* methodName;
  Texts arguments;
  const char* result;
};

std::string told(OSErr status) { return std::to_string(status); }
std::string told(bool flag) { return flag ? "yes" : "no"; }
std::string told(const String& text) { return text.value_or("(absent)"); }
std::string told(const QBHPSuiteInfo& info) {
  FailingMemory::stop();  // the request is over
  return info.description();
}

const char* const status = "-1743";

// P is 4711, V is 3.1; the host first started as 2002; usage data is collected under DATA.
const std::vector<Request>& requests() {
  static const std::vector<Request> table{
      {"stopHelper",
       [](Communicator& c) { return told(c.stopHelper()); },
       Guard::no,
       Wire::post,
       control,
       "stop:prodeuctVersion:",
       {"4711", "3.1"},
       status},
      {"isAliveHelper",
       [](Communicator& c) { return told(c.isAliveHelper()); },
       Guard::no,
       Wire::post,
       control,
       "isAlive:prodeuctVersion:",
       {"4711", "3.1"},
       status},
      {"showHelper",
       [](Communicator& c) { return told(c.showHelper()); },
       Guard::yes,
       Wire::post,
       control,
       "show:prodeuctVersion:",
       {"4711", "3.1"},
       status},
      {"hideHelper",
       [](Communicator& c) { return told(c.hideHelper()); },
       Guard::yes,
       Wire::post,
       control,
       "hide:prodeuctVersion:",
       {"4711", "3.1"},
       status},
      {"productReadyToUpgrade yes",
       [](Communicator& c) { return told(c.productReadyToUpgrade(true)); },
       Guard::no,
       Wire::post,
       upgrade,
       "productReadyToUpgrade:versionID:ready:",
       {"4711", "3.1", "1"},
       status},
      {"productReadyToUpgrade no",
       [](Communicator& c) { return told(c.productReadyToUpgrade(false)); },
       Guard::no,
       Wire::post,
       upgrade,
       "productReadyToUpgrade:versionID:ready:",
       {"4711", "3.1", "0"},
       status},
      {"productUpgrade",
       [](Communicator& c) { return told(c.productUpgrade()); },
       Guard::yes,
       Wire::post,
       upgrade,
       "productUpgrade:versionID:",
       {"4711", "3.1"},
       status},
      {"uploadProductFile",
       [](Communicator& c) { return told(c.uploadProductFile("mail", "path", "title", "text")); },
       Guard::no,
       Wire::post,
       upload,
       "uploadProductFile:versionID:email:filePath:title:description:",
       {"4711", "3.1", "mail", "path", "title", "text"},
       status},
      {"uploadUserFile",
       [](Communicator& c) { return told(c.uploadUserFile("mail", "path", "title", "text")); },
       Guard::yes,
       Wire::post,
       upload,
       "uploadUserFile:versionID:email:filePath:title:description:",
       {"4711", "3.1", "mail", "path", "title", "text"},
       status},
      {"uploadLogByEmail",
       [](Communicator& c) { return told(c.uploadLogByEmail("mail", "path", "title", "text")); },
       Guard::yes,
       Wire::post,
       upload,
       "uploadLog:versionID:email:filePath:title:description:",
       {"4711", "3.1", "mail", "path", "title", "text"},
       status},
      {"directUploadData",
       [](Communicator& c) { return told(c.directUploadData()); },
       Guard::no,
       Wire::post,
       upload,
       "directUploadData:version:",
       {"DATA", "3.1"},
       status},
      {"customStringDataCollect",
       [](Communicator& c) { return told(c.customStringDataCollect("target", "value")); },
       Guard::no,
       Wire::post,
       upload,
       "collectData:version:collectionType:target:keyID:value:",
       {"DATA", "3.1", "5", "target", "", "value"},
       status},
      {"autoCreatedIncreaseDataCollect",
       [](Communicator& c) { return told(c.autoCreatedIncreaseDataCollect("target", "key")); },
       Guard::no,
       Wire::post,
       upload,
       "collectData:version:collectionType:target:keyID:value:",
       {"DATA", "3.1", "4", "target", "key", ""},
       status},
      {"commIncreaseDataCollect",
       [](Communicator& c) { return told(c.commIncreaseDataCollect("target", "key")); },
       Guard::no,
       Wire::post,
       upload,
       "collectData:version:collectionType:target:keyID:value:",
       {"DATA", "3.1", "3", "target", "key", ""},
       status},
      {"productCollectStatus",
       [](Communicator& c) { return told(c.productCollectStatus()); },
       Guard::no,
       Wire::ask,
       upload,
       "productCollectStatus:version:",
       {"4711", "3.1"},
       "no"},
      {"setProductCollectStatus yes",
       [](Communicator& c) { return told(c.setProductCollectStatus(true)); },
       Guard::no,
       Wire::post,
       upload,
       "setProductCollectStatus:version:status:",
       {"4711", "3.1", "1"},
       status},
      {"setProductCollectStatus no",
       [](Communicator& c) { return told(c.setProductCollectStatus(false)); },
       Guard::no,
       Wire::post,
       upload,
       "setProductCollectStatus:version:status:",
       {"4711", "3.1", "0"},
       status},
      {"netErrorPagePath",
       [](Communicator& c) { return told(c.netErrorPagePath()); },
       Guard::no,
       Wire::ask,
       upload,
       "netErrorPagePath:version:",
       {"4711", "3.1"},
       someReply},
      {"unRegSuiteInfo",
       [](Communicator& c) { return told(c.unRegSuiteInfo()); },
       Guard::no,
       Wire::ask,
       upload,
       "unRegSuiteInfo:version:",
       {"4711", "3.1"},
       "url = U width = 300 height = 200"},
      {"regSuiteInfo",
       [](Communicator& c) { return told(c.regSuiteInfo()); },
       Guard::no,
       Wire::ask,
       upload,
       "regSuiteInfo:version:",
       {"4711", "3.1"},
       "url = U width = 300 height = 200"},
      {"checkForHeleprMessage",
       [](Communicator& c) { return told(c.checkForHeleprMessage()); },
       Guard::yes,
       Wire::post,
       customerService,
       "checkForHeleprMessage:versionID:",
       {"4711", "3.1"},
       status},
      {"customerserviceByEmail",
       [](Communicator& c) { return told(c.customerserviceByEmail("mail", "file")); },
       Guard::yes,
       Wire::post,
       customerService,
       "customerService:versionID:email:attachment:",
       {"4711", "3.1", "mail", "file"},
       status},
      {"clientIDFormHelper",
       [](Communicator& c) { return told(c.clientIDFormHelper()); },
       Guard::no,
       Wire::ask,
       getData,
       "clientIDFormHelper",
       {},
       someReply},
  };
  return table;
}

class Requests : public CommunicatorTest {
 protected:
  // Makes one request, with an ordinary answer.
  void expectRow(const Request& request) {
    SCOPED_TRACE(request.name);
    transport.reset();
    transport.answerWith({someStatus, someReply});
    const std::size_t threadsBefore = threads.count();
    EXPECT_EQ(request.call(communicator()), request.result);
    ASSERT_EQ(transport.sent().size(), 1U);
    const auto sent = transport.sent().front();
    EXPECT_EQ(sent.event, (RPCEvent{request.className, request.methodName, request.arguments}));
    EXPECT_EQ(sent.kind, request.wire);
    EXPECT_EQ(sent.target.bundleID, helperIdentifier);
    EXPECT_EQ(threads.count() - threadsBefore, request.guard == Guard::yes ? 1U : 0U);
  }
};

TEST_F(Requests, EachSendsWhatItsRowSaysAndGivesBackWhatItsRowSays) {
  withUsedHost(hostInformation(), [this](const Host&) {
    communicator().setCollectDataPID("DATA");
    for (const Request& request : requests()) expectRow(request);
  });
}

TEST_F(Requests, EachIsSentJustTheSameWhileTheServerIsClosed) {
  withUsedHost(hostInformation(), [this](const Host& host) {
    host.writeDefaults(helperIdentifier, {{"QBHPServerClosed", true}});
    communicator().setCollectDataPID("DATA");
    ASSERT_FALSE(communicator().getDefaultHelperServerOpen());
    for (const Request& request : requests()) expectRow(request);
    // The checks that they started find the server closed.
    transport.reset();
    while (threads.count() > 0) threads.runNext();
    EXPECT_TRUE(transport.sent().empty());
  });
}

TEST_F(Requests, EachAllocationOfEachMayFail) {
  PropertyList::Dictionary info = hostInformation();
  info.set("PID", std::string(100, '7'));
  withUsedHost(info, [this](const Host&) {
    communicator().setCollectDataPID(std::string(100, 'd'));
    for (int i = 0; i < 10; ++i) communicator().autoRestartHelper();  // later ones add no thread
    for (const Request& request : requests()) {
      SCOPED_TRACE(request.name);
      transport.reset();
      transport.answerWith({someStatus, someReply});
      std::string result;
      std::size_t allocations = 0;
      for (bool failed = true; failed; ++allocations) {
        const FailingMemory memory(allocations);
        try {
          result = request.call(communicator());
        } catch (const std::exception& exception) {
          ADD_FAILURE() << allocations << ": " << exception.what();
        }
        failed = FailingMemory::hasFailed();
      }
      EXPECT_EQ(result, request.result);
      EXPECT_GT(allocations, 5U);
    }
  });
}

TEST_F(Requests, AbsentArgumentsTravelAsEmptyTexts) {
  withUsedHost(hostInformation(), [this](const Host&) {
    transport.reset();
    communicator().uploadLogByEmail(std::nullopt, std::nullopt, std::nullopt, std::nullopt);
    communicator().customerserviceByEmail("mail", std::nullopt);
    const auto sent = transport.sentEvents();
    ASSERT_EQ(sent.size(), 2U);
    EXPECT_EQ(sent[0].arguments, (Texts{"4711", "3.1", "", "", "", ""}));
    EXPECT_EQ(sent[1].arguments, (Texts{"4711", "3.1", "mail", ""}));
  });
}

TEST_F(Requests, HostWithoutIdentitySendsEmptyTexts) {
  PropertyList::Dictionary info = hostInformation();
  info.erase("PID");
  info.erase("CFBundleVersion");
  withUsedHost(info, [this](const Host&) {
    transport.reset();
    communicator().showHelper();
    EXPECT_EQ(transport.sentEvents().at(0).arguments, (Texts{"", ""}));
  });
}

TEST_F(Requests, DataIsCollectedUnderTheFirstStartsProductUnlessOneIsSet) {
  withHost(hostInformation(), [this](const Host& host) {
    host.writeDefaults(hostIdentifier, {{"IsFirstStart", false}, {"FirstStartPID", "OLD"}});
    transport.reset();
    communicator().directUploadData();
    communicator().setCollectDataPID("DATA");
    communicator().directUploadData();
    communicator().setCollectDataPID("");
    communicator().directUploadData();
    const auto sent = transport.sentEvents();
    ASSERT_EQ(sent.size(), 3U);
    EXPECT_EQ(sent[0].arguments, (Texts{"OLD", "3.1"}));
    EXPECT_EQ(sent[1].arguments, (Texts{"DATA", "3.1"}));
    EXPECT_EQ(sent[2].arguments, (Texts{"OLD", "3.1"}));
  });
}

TEST_F(Requests, CollectStatusIsYesForExactlyOneOnly) {
  withHost(hostInformation(), [this](const Host&) {
    for (const char* reply : {"0", "", " 1", "true", "1 ", "11"}) {
      transport.answerWith({noErr, reply});
      EXPECT_FALSE(communicator().productCollectStatus()) << '"' << reply << '"';
    }
    transport.answerWith({noErr, std::nullopt});
    EXPECT_FALSE(communicator().productCollectStatus());
    transport.answerWith({noErr, "1"});
    CapturedLog log;
    EXPECT_TRUE(communicator().productCollectStatus());
    EXPECT_EQ(log.lines(), (Texts{"---- result: 1"}));
  });
}

struct SuiteAnswer {
  const char* reply;
  const char* description;
};

TEST_F(Requests, SuiteAnswerIsReadByFields) {
  withHost(hostInformation(), [this](const Host&) {
    const SuiteAnswer answers[] = {
        {"U###300###200", "url = U width = 300 height = 200"},
        {"U###abc###7", "url = U width = 0 height = 7"},
        {"U### -12px###+5", "url = U width = -12 height = 5"},
        {"U###1###2###more###still", "url = U width = 1 height = 2"},
        {"######", "url =  width = 0 height = 0"},
        {"a#b##c###99999999999###0", "url = a#b##c width = 2147483647 height = 0"},
    };
    for (const SuiteAnswer& answer : answers) {
      transport.answerWith({noErr, answer.reply});
      EXPECT_EQ(communicator().regSuiteInfo().description(), answer.description);
      EXPECT_EQ(communicator().unRegSuiteInfo().description(), answer.description);
    }
  });
}

TEST_F(Requests, SuiteAnswerOfTooFewFieldsThrowsTheRangeException) {
  withHost(hostInformation(), [this](const Host&) {
    for (const char* reply : {"U###1", "U", "###"}) {
      transport.answerWith({noErr, reply});
      EXPECT_THROW(communicator().regSuiteInfo(), RangeException) << '"' << reply << '"';
      EXPECT_THROW(communicator().unRegSuiteInfo(), std::out_of_range) << '"' << reply << '"';
    }
  });
}

using SuiteRequest = QBHPSuiteInfo (Communicator::*)();
constexpr SuiteRequest suiteRequests[] = {&Communicator::regSuiteInfo,
                                          &Communicator::unRegSuiteInfo};

TEST_F(Requests, NoSuiteAnswerGivesNoURLAndNoSize) {
  withHost(hostInformation(), [this](const Host&) {
    const RecordingTransport::Answer withoutText[] = {
        {procNotFound, std::nullopt}, {noErr, std::nullopt}, {noErr, ""}};
    for (const auto& answer : withoutText) {
      transport.answerWith(answer);
      for (const SuiteRequest request : suiteRequests) {
        const QBHPSuiteInfo info = (communicator().*request)();
        EXPECT_EQ(info.URL(), std::nullopt);
        EXPECT_EQ(info.width(), 0);
        EXPECT_EQ(info.height(), 0);
      }
    }
  });
}

TEST_F(Requests, SuiteAnswersAreLoggedUnderTheSameNameForBothKindsOfSuite) {
  withHost(hostInformation(), [this](const Host&) {
    for (const String& reply : {String(), String(someReply)}) {
      transport.answerWith({noErr, reply});
      CapturedLog regLog;
      communicator().regSuiteInfo();
      EXPECT_EQ(regLog.lines(), (Texts{"replay = " + reply.value_or("(null)"),
                                       "regSuiteStr = " + reply.value_or("(null)")}));
      CapturedLog unRegLog;
      communicator().unRegSuiteInfo();
      EXPECT_EQ(unRegLog.lines(), Texts{"regSuiteStr = " + reply.value_or("(null)")});
    }
  });
}

TEST_F(Requests, NetErrorPagePathIsAbsentWithoutAReplyAndForAnEmptyOne) {
  withHost(hostInformation(), [this](const Host&) {
    const RecordingTransport::Answer withoutText[] = {
        {procNotFound, std::nullopt}, {noErr, std::nullopt}, {noErr, ""}};
    for (const auto& answer : withoutText) {
      transport.answerWith(answer);
      EXPECT_EQ(communicator().netErrorPagePath(), std::nullopt);
      EXPECT_EQ(facade().netErrorPagePath(), std::nullopt);
    }
  });
}

TEST_F(Requests, GetterOfTheUpgradeDelegateThrowsAsAnUnknownMethodDoes) {
  withHost(hostInformation(), [this](const Host&) {
    EXPECT_THROW(communicator().getProductUpgradeDelegate(), UnrecognizedSelectorException);
    EXPECT_THROW(communicator().getProductUpgradeDelegate(), std::logic_error);
  });
}

TEST_F(Requests, UpgradeDelegateIsHandedToTheUpgradeService) {
  withHost(hostInformation(), [this](const Host&) {
    class Delegate : public QBHPProductUpgradeCallBackDelegate {
    } delegate;
    communicator().setProductUpgradeDelegate(&delegate);
    EXPECT_EQ(QBHPUpgradeByHelper::share().productUpgradeDelegate(), &delegate);
    communicator().setProductUpgradeDelegate(nullptr);
    EXPECT_EQ(QBHPUpgradeByHelper::share().productUpgradeDelegate(), nullptr);
  });
}

TEST_F(Requests, OnlyTenSaysThatTheServerIsSwitchedOff) {
  withHost(hostInformation(), [this](const Host&) {
    EXPECT_TRUE(communicator().isHelperSeverNotOpen(10));
    for (const OSErr other : std::vector<OSErr>{0, 1, 9, 11, -10, -600}) {
      EXPECT_FALSE(communicator().isHelperSeverNotOpen(other)) << other;
    }
  });
}

constexpr auto aMinute = std::chrono::minutes(1);

TEST_F(Requests, AskingCallsSendWhatTheOldOnesSendAndReadTheAnswerAlike) {
  withUsedHost(hostInformation(), [this](const Host&) {
    transport.answerWith({noErr, "1"});
    const auto limits = RequestLimits::within(aMinute);
    EXPECT_EQ(communicator().askProductCollectStatus().wait(limits),
              (qbdkr::Answer<bool>{noErr, true}));
    EXPECT_EQ(facade().askProductCollectStatus().wait(limits), (qbdkr::Answer<bool>{noErr, true}));
    EXPECT_EQ(facade().askNetErrorPagePath().wait(limits), (qbdkr::Answer<String>{noErr, "1"}));
    transport.answerWith({noErr, someReply});
    EXPECT_EQ(facade().askRegSuiteInfo().wait(limits).value.description(),
              "url = U width = 300 height = 200");
    EXPECT_EQ(facade().askUnRegSuiteInfo().wait(limits).value.height(), 200);
    EXPECT_EQ(communicator().askProductCollectStatus().wait(limits),
              (qbdkr::Answer<bool>{noErr, false}));
    transport.reset();
    communicator().productCollectStatus();
    communicator().netErrorPagePath();
    communicator().regSuiteInfo();
    communicator().unRegSuiteInfo();
    communicator().clientIDFormHelper();
    const auto old = transport.sentEvents();
    transport.reset();
    CapturedLog log;
    static_cast<void>(communicator().askProductCollectStatus().wait(limits));
    static_cast<void>(communicator().askNetErrorPagePath().wait(limits));
    static_cast<void>(communicator().askRegSuiteInfo().wait(limits));
    static_cast<void>(communicator().askUnRegSuiteInfo().wait(limits));
    static_cast<void>(communicator().askClientIDFormHelper().wait(limits));
    EXPECT_EQ(transport.sentEvents(), old);
    EXPECT_EQ(log.lines(), Texts{}) << "the log lines belong to the old calls";
  });
}

TEST_F(Requests, AskedSuiteAnswerOfTooFewFieldsHasAStatusAndThrowsNothing) {
  withHost(hostInformation(), [this](const Host&) {
    transport.answerWith({noErr, "U###1"});
    const auto answer = communicator().askRegSuiteInfo().wait(RequestLimits::within(aMinute));
    EXPECT_EQ(answer.status, errAEEventNotHandled);
    EXPECT_EQ(answer.value.URL(), std::nullopt);
    transport.answerWith({procNotFound, std::nullopt});
    EXPECT_EQ(communicator().askUnRegSuiteInfo().wait().status, procNotFound);
  });
}

TEST_F(Requests, AskedClientIdentifierIsCachedIfItWasAnswered) {
  withHost(hostInformation(), [this](const Host&) {
    transport.answerWith({noErr, "client"});
    EXPECT_EQ(communicator().askClientIDFormHelper().wait().value, "client");
    EXPECT_EQ(communicator().clientID(), "client");
    const auto passed = RequestLimits::within(std::chrono::milliseconds(0));
    EXPECT_EQ(communicator().askClientIDFormHelper().wait(passed).status, errAETimeout);
    EXPECT_EQ(communicator().clientID(), "client");
    transport.answerWith({noErr, ""});
    EXPECT_EQ(communicator().askClientIDFormHelper().wait().value, std::nullopt);
    EXPECT_EQ(communicator().clientID(), std::nullopt);
  });
}

struct FacadeCall {
  const char* name;
  std::function<void(QBHPHelper&)> call;
  const char* methodName;
  Texts arguments;
};

TEST_F(Requests, FacadeForwardsEachCallUnchanged) {
  withUsedHost(hostInformation(), [this](const Host&) {
    auto& helper = facade();
    helper.setDataCollectPID("DATA");
    const FacadeCall calls[] = {
        {"stopHelper",
         [](QBHPHelper& h) { h.stopHelper(); },
         "stop:prodeuctVersion:",
         {"4711", "3.1"}},
        {"directUploadData",
         [](QBHPHelper& h) { h.directUploadData(); },
         "directUploadData:version:",
         {"DATA", "3.1"}},
        {"productCollectStatus",
         [](QBHPHelper& h) { EXPECT_FALSE(h.productCollectStatus()); },
         "productCollectStatus:version:",
         {"4711", "3.1"}},
        {"setProductCollectStatus yes",
         [](QBHPHelper& h) { h.setProductCollectStatus(true); },
         "setProductCollectStatus:version:status:",
         {"4711", "3.1", "1"}},
        {"setProductCollectStatus no",
         [](QBHPHelper& h) { h.setProductCollectStatus(false); },
         "setProductCollectStatus:version:status:",
         {"4711", "3.1", "0"}},
        {"customStringDataCollect",
         [](QBHPHelper& h) { h.customStringDataCollect("t", "v"); },
         "collectData:version:collectionType:target:keyID:value:",
         {"DATA", "3.1", "5", "t", "", "v"}},
        {"autoCreatedIncreaseDataCollect",
         [](QBHPHelper& h) { h.autoCreatedIncreaseDataCollect("t", "k"); },
         "collectData:version:collectionType:target:keyID:value:",
         {"DATA", "3.1", "4", "t", "k", ""}},
        {"commIncreaseDataCollect",
         [](QBHPHelper& h) { h.commIncreaseDataCollect("t", "k"); },
         "collectData:version:collectionType:target:keyID:value:",
         {"DATA", "3.1", "3", "t", "k", ""}},
        {"netErrorPagePath",
         [](QBHPHelper& h) { EXPECT_EQ(h.netErrorPagePath(), someReply); },
         "netErrorPagePath:version:",
         {"4711", "3.1"}},
        {"unRegSuiteInfo",
         [](QBHPHelper& h) { EXPECT_EQ(h.unRegSuiteInfo().width(), 300); },
         "unRegSuiteInfo:version:",
         {"4711", "3.1"}},
        {"regSuiteInfo",
         [](QBHPHelper& h) { EXPECT_EQ(h.regSuiteInfo().height(), 200); },
         "regSuiteInfo:version:",
         {"4711", "3.1"}},
        {"uploadProductFile",
         [](QBHPHelper& h) { EXPECT_EQ(h.uploadProductFile("m", "p", "t", "d"), someStatus); },
         "uploadProductFile:versionID:email:filePath:title:description:",
         {"4711", "3.1", "m", "p", "t", "d"}},
    };
    for (const FacadeCall& call : calls) {
      SCOPED_TRACE(call.name);
      transport.reset();
      transport.answerWith({someStatus, someReply});
      call.call(helper);
      ASSERT_EQ(transport.sent().size(), 1U);
      EXPECT_EQ(transport.sentEvents()[0].methodName, call.methodName);
      EXPECT_EQ(transport.sentEvents()[0].arguments, call.arguments);
    }
  });
}

TEST_F(Requests, FacadeTellsTheCollectStatusThatWasAnswered) {
  withHost(hostInformation(), [this](const Host&) {
    transport.answerWith({noErr, "1"});
    EXPECT_TRUE(facade().productCollectStatus());
    transport.answerWith({noErr, "0"});
    EXPECT_FALSE(facade().productCollectStatus());
  });
}

TEST_F(Requests, EmptyOrAbsentDataCollectPIDIsIgnoredByTheFacade) {
  withHost(hostInformation(), [this](const Host& host) {
    auto& helper = facade();
    helper.setDataCollectPID("DATA");
    helper.setDataCollectPID("");
    helper.setDataCollectPID(std::nullopt);
    const auto stored = host.readDefaults(hostIdentifier);
    ASSERT_NE(stored.find("DataCollectPID"), nullptr);
    EXPECT_EQ(*stored.find("DataCollectPID"), PropertyList("DATA"));
  });
}

}  // namespace
}  // namespace qbdkr::test
