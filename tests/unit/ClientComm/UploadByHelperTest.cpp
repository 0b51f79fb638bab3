#include <gtest/gtest.h>

#include <functional>
#include <string>
#include <vector>

#include <ClientComm/LogHandler.h>
#include <ClientComm/QBHPSuiteInfo.h>
#include <ClientComm/QBHPUploadByHelper.h>

#include "Host.h"
#include "support/CapturedLog.h"
#include "support/RecordingTransport.h"

namespace qbdkr::test {
namespace {

using Service = QBHPUploadByHelper;
using Texts = std::vector<std::string>;

constexpr const char* uploadClass = "QBHPUploadByHelper";
constexpr const char* collectData = "collectData:version:collectionType:target:keyID:value:";

// Describes a posted request, with every argument given and with every argument absent.
struct Post {
  const char* method;
  std::function<OSErr(Service&, bool given)> make;
  Texts arguments;
  Texts lines;
  Texts linesOfAbsent;
};

Text when(bool given, const char* text) { return given ? Text(text) : std::nullopt; }

using SixTexts = OSErr (Service::*)(Text, Text, Text, Text, Text, Text);

Post upload(const char* method, SixTexts request) {
  const std::string name(method);
  return {method,
          [request](Service& s, bool g) {
            return (s.*request)(when(g, "P"), when(g, "V"), when(g, "mail"), when(g, "/a file"),
                                when(g, "title"), when(g, "text"));
          },
          {"P", "V", "mail", "/a file", "title", "text"},
          {name + " P V mail /a file title text "},
          {name + " (null) (null) (null) (null) (null) (null) "}};
}

std::vector<Post> posts() {
  return {
      upload("uploadLog:versionID:email:filePath:title:description:", &Service::uploadLog),
      upload("uploadUserFile:versionID:email:filePath:title:description:",
             &Service::uploadUserFile),
      upload("uploadProductFile:versionID:email:filePath:title:description:",
             &Service::uploadProductFile),
      {"setProductCollectStatus:version:status:",
       [](Service& s, bool g) {
         return s.setProductCollectStatus(when(g, "P"), when(g, "V"), when(g, "1"));
       },
       {"P", "V", "1"},
       {"setProductCollectStatus:version:status: productID = P version = V status = 1"},
       {"setProductCollectStatus:version:status: productID = (null) version = (null) "
        "status = (null)"}},
      {"directUploadData:version:",
       [](Service& s, bool g) { return s.directUploadData(when(g, "P"), when(g, "V")); },
       {"P", "V"},
       {},
       {}},
  };
}

// Describes a request that waits for its reply.
struct Question {
  const char* method;
  String (Service::*ask)(Text, Text);
  std::string linePrefix;  // of the log line with the reply; empty without such a line
};

std::vector<Question> questions() {
  return {{"productCollectStatus:version:", &Service::productCollectStatus, ""},
          {"regSuiteInfo:version:", &Service::regSuiteInfo, "replay = "},
          {"unRegSuiteInfo:version:", &Service::unRegSuiteInfo, ""},
          {"netErrorPagePath:version:", &Service::netErrorPagePath, ""}};
}

class UploadByHelper : public testing::Test {
 protected:
  UploadByHelper() { transport.reset(); }
  RecordingTransport& transport = RecordingTransport::installed();
  Service service;
};

TEST_F(UploadByHelper, ShareIsOneObjectAndOthersMayBeMade) {
  EXPECT_EQ(&Service::share(), &Service::share());
  EXPECT_NE(&Service::share(), &service);
  EXPECT_EQ(service.className(), uploadClass);
}

TEST_F(UploadByHelper, PostsAreLoggedAndSentInTheOrderOfTheirParameters) {
  for (const Post& post : posts()) {
    SCOPED_TRACE(post.method);
    transport.reset();
    CapturedLog log;
    EXPECT_EQ(post.make(service, true), noErr);
    EXPECT_EQ(log.lines(), post.lines);
    const auto sent = transport.sent();
    ASSERT_EQ(sent.size(), 1U);
    EXPECT_EQ(sent[0].event, (RPCEvent{uploadClass, post.method, post.arguments}));
    EXPECT_EQ(sent[0].target.bundleID, helperIdentifier);
    EXPECT_EQ(sent[0].kind, RecordingTransport::Kind::post);
  }
}

TEST_F(UploadByHelper, AbsentArgumentsAreLoggedAsNullAndSentEmpty) {
  for (const Post& post : posts()) {
    SCOPED_TRACE(post.method);
    transport.reset();
    CapturedLog log;
    EXPECT_EQ(post.make(service, false), noErr);
    EXPECT_EQ(log.lines(), post.linesOfAbsent);
    const auto sent = transport.sentEvents();
    ASSERT_EQ(sent.size(), 1U);
    EXPECT_EQ(sent[0].arguments, Texts(post.arguments.size(), ""));
  }
}

TEST_F(UploadByHelper, EmptyArgumentsStayEmptyInTheLogAsWell) {
  CapturedLog log;
  service.uploadLog("", "V", "", "", std::nullopt, "");
  EXPECT_EQ(log.lines(),
            Texts{"uploadLog:versionID:email:filePath:title:description:  V   (null)  "});
  EXPECT_EQ(transport.sentEvents().at(0).arguments, (Texts{"", "V", "", "", "", ""}));
}

TEST_F(UploadByHelper, OnlyMethodAndProductArePublicInTheLog) {
  std::string line;
  setLogHandler([&](const LogLine& given) { line = given.redactedText(); });
  service.uploadLog("1001", "3.1", "ann@example.com", "/home/ann/log", "title", "text");
  setLogHandler(nullptr);
  EXPECT_EQ(line,
            "uploadLog:versionID:email:filePath:title:description: 1001 3.1 <private> <private> "
            "<private> <private> ");
}

TEST_F(UploadByHelper, ArgumentsAreNeitherJoinedNorEscaped) {
  const Texts arguments{"%@", "a###b", "\"q\"", "/with blank/ü", "line\nbreak", "%d %s"};
  service.uploadUserFile(arguments[0], arguments[1], arguments[2], arguments[3], arguments[4],
                         arguments[5]);
  EXPECT_EQ(transport.sentEvents().at(0).arguments, arguments);
}

TEST_F(UploadByHelper, PostsReturnTheStatusOfTheSendAndAreNotTriedAgain) {
  for (const Post& post : posts()) {
    transport.reset();
    transport.answerWith({procNotFound, "not asked for"});
    EXPECT_EQ(post.make(service, true), procNotFound) << post.method;
    EXPECT_EQ(transport.sent().size(), 1U) << post.method;
  }
}

TEST_F(UploadByHelper, LogLineIsWrittenBeforeTheEventIsSent) {
  CapturedLog log;
  std::size_t linesAtSend = 0;
  transport.answer(collectData, RecordingTransport::Answerer([&](const auto&) {
                     linesAtSend = log.lines().size();
                     return RecordingTransport::Answer{};
                   }));
  service.collectData("P", "V", CollectionType::customString, "T", "K", "value");
  EXPECT_EQ(linesAtSend, 1U);
}

TEST_F(UploadByHelper, QuestionsWaitForTheirReplyAndReturnItAsItIs) {
  for (const Question& question : questions()) {
    SCOPED_TRACE(question.method);
    for (const std::string reply : {" U###1###2 ", "1"}) {
      transport.reset();
      transport.answerWith({noErr, reply});
      CapturedLog log;
      EXPECT_EQ((service.*question.ask)("P", "V"), reply);
      EXPECT_EQ(log.lines(),
                question.linePrefix.empty() ? Texts{} : Texts{question.linePrefix + reply});
      const auto sent = transport.sent();
      ASSERT_EQ(sent.size(), 1U);
      EXPECT_EQ(sent[0].event, (RPCEvent{uploadClass, question.method, {"P", "V"}}));
      EXPECT_EQ(sent[0].target.bundleID, helperIdentifier);
      EXPECT_EQ(sent[0].kind, RecordingTransport::Kind::ask);
    }
  }
}

TEST_F(UploadByHelper, QuestionsWithoutAReplyReturnNothing) {
  for (const Question& question : questions()) {
    for (const OSErr status : {noErr, procNotFound}) {
      transport.answerWith({status, std::nullopt});
      CapturedLog log;
      EXPECT_EQ((service.*question.ask)("P", "V"), std::nullopt) << question.method;
      EXPECT_EQ(log.lines(),
                question.linePrefix.empty() ? Texts{} : Texts{question.linePrefix + "(null)"});
    }
  }
}

TEST_F(UploadByHelper, QuestionsDropTheStatusWhenAReplyCame) {
  for (const Question& question : questions()) {
    transport.answerWith({procNotFound, "a reply all the same"});
    EXPECT_EQ((service.*question.ask)("P", "V"), "a reply all the same") << question.method;
  }
}

TEST_F(UploadByHelper, QuestionsSendAbsentArgumentsEmpty) {
  for (const Question& question : questions()) {
    transport.reset();
    (void)(service.*question.ask)(std::nullopt, std::nullopt);
    EXPECT_EQ(transport.sentEvents().at(0).arguments, (Texts{"", ""})) << question.method;
  }
}

TEST_F(UploadByHelper, SuiteReplyIsLoggedAfterItCame) {
  CapturedLog log;
  std::size_t linesAtSend = 1;
  transport.answer("regSuiteInfo:version:", RecordingTransport::Answerer([&](const auto&) {
                     linesAtSend = log.lines().size();
                     return RecordingTransport::Answer{noErr, "U###1###2"};
                   }));
  service.regSuiteInfo("P", "V");
  EXPECT_EQ(linesAtSend, 0U);
  EXPECT_EQ(log.lines(), Texts{"replay = U###1###2"});
}

TEST_F(UploadByHelper, CollectedDataNamesItsTypeByACode) {
  struct Row {
    CollectionType type;
    std::string code;
  };
  for (const Row& row :
       {Row{CollectionType::commonCounter, "3"}, Row{CollectionType::createdCounter, "4"},
        Row{CollectionType::customString, "5"}}) {
    transport.reset();
    CapturedLog log;
    EXPECT_EQ(service.collectData("P", "V", row.type, "T", "K", "value"), noErr);
    EXPECT_EQ(log.lines(), Texts{std::string(collectData) + " productID=P version=V type=" +
                                 row.code + " target=T keyID=K value=value"});
    const auto sent = transport.sent();
    ASSERT_EQ(sent.size(), 1U);
    EXPECT_EQ(sent[0].event,
              (RPCEvent{uploadClass, collectData, {"P", "V", row.code, "T", "K", "value"}}));
    EXPECT_EQ(sent[0].kind, RecordingTransport::Kind::post);
  }
}

TEST_F(UploadByHelper, CollectedDataSendsAbsentArgumentsEmpty) {
  CapturedLog log;
  service.collectData("P", "V", CollectionType::createdCounter, "T", "K", std::nullopt);
  service.collectData(std::nullopt, std::nullopt, CollectionType::customString, std::nullopt,
                      std::nullopt, std::nullopt);
  EXPECT_EQ(log.lines(),
            (Texts{std::string(collectData) +
                       " productID=P version=V type=4 target=T keyID=K value=(null)",
                   std::string(collectData) + " productID=(null) version=(null) type=5 "
                                              "target=(null) keyID=(null) value=(null)"}));
  const auto sent = transport.sentEvents();
  ASSERT_EQ(sent.size(), 2U);
  EXPECT_EQ(sent[0].arguments, (Texts{"P", "V", "4", "T", "K", ""}));
  EXPECT_EQ(sent[1].arguments, (Texts{"", "", "5", "", "", ""}));
}

TEST_F(UploadByHelper, ATypeThatDoesNotExistIsLoggedAsItsNumberAndSentEmpty) {
  for (const int type : {0, 2, 6, -1, 33}) {
    transport.reset();
    CapturedLog log;
    service.collectData("P", "V", static_cast<CollectionType>(type), "T", "K", "value");
    EXPECT_EQ(log.lines(), Texts{std::string(collectData) + " productID=P version=V type=" +
                                 std::to_string(type) + " target=T keyID=K value=value"});
    EXPECT_EQ(transport.sentEvents().at(0).arguments, (Texts{"P", "V", "", "T", "K", "value"}));
  }
}

TEST_F(UploadByHelper, CollectedDataReturnsTheStatusOfTheSend) {
  transport.answerWith({procNotFound, std::nullopt});
  EXPECT_EQ(service.collectData("P", "V", CollectionType::customString, "T", "K", "value"),
            procNotFound);
}

TEST_F(UploadByHelper, CheckJoinImproveExpStaysFalseWhateverIsSentAndAnswered) {
  EXPECT_FALSE(service.checkJoinImproveExp());
  transport.answerWith({noErr, "1"});
  for (const Post& post : posts()) {
    post.make(service, true);
    EXPECT_FALSE(service.checkJoinImproveExp()) << post.method;
  }
  for (const Question& question : questions()) {
    EXPECT_EQ((service.*question.ask)("P", "V"), "1");
    EXPECT_FALSE(service.checkJoinImproveExp()) << question.method;
  }
  service.collectData("P", "V", CollectionType::customString, "T", "K", "1");
  EXPECT_FALSE(service.checkJoinImproveExp());
}

TEST_F(UploadByHelper, IsNotRegisteredForReports) {
  inHost(hostInformation(), [this](const Host&) {
    service.directUploadData("P", "V");
    Service::share().directUploadData("P", "V");
    EXPECT_FALSE(transport.hasHandler());
  });
}

TEST_F(UploadByHelper, RequestsCannotBeCalledByName) {
  Texts methods{collectData};
  for (const Post& post : posts()) methods.emplace_back(post.method);
  for (const Question& question : questions()) methods.emplace_back(question.method);
  for (const std::string& method : methods) {
    EXPECT_EQ(service.performSelector(method, {}), std::nullopt);
    EXPECT_TRUE(transport.sent().empty()) << method;
  }
}

TEST(SuiteInfo, HoldsAndDescribesWhatItWasMadeOf) {
  const auto info = QBHPSuiteInfo::initWithDate("U", 800, 600);
  EXPECT_EQ(info.URL(), "U");
  EXPECT_EQ(info.width(), 800);
  EXPECT_EQ(info.height(), 600);
  EXPECT_EQ(info.description(), "url = U width = 800 height = 600");
}

TEST(SuiteInfo, DoesNotChangeWithTheTextItWasMadeOf) {
  std::string url = "a URL that is too long to be kept inside a string object";
  const std::string before = url;
  const auto info = QBHPSuiteInfo::initWithDate(url, 1, 2);
  url.assign(url.size(), 'x');
  EXPECT_EQ(info.URL(), before);
}

TEST(SuiteInfo, AbsentURLIsNotAnEmptyOne) {
  const auto absent = QBHPSuiteInfo::initWithDate(std::nullopt, 0, 0);
  EXPECT_EQ(absent.URL(), std::nullopt);
  EXPECT_EQ(absent.description(), "url = (null) width = 0 height = 0");
  const auto empty = QBHPSuiteInfo::initWithDate("", -1, -2147483647 - 1);
  EXPECT_EQ(empty.URL(), "");
  EXPECT_EQ(empty.description(), "url =  width = -1 height = -2147483648");
}

}  // namespace
}  // namespace qbdkr::test
