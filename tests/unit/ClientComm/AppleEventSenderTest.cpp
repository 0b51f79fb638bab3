#include <gtest/gtest.h>

#include <array>
#include <chrono>
#include <cstdint>
#include <cstdlib>
#include <functional>
#include <string>
#include <string_view>
#include <vector>

#include <ClientComm/Log.h>
#include <ClientComm/QBHPAppleEventSender.h>
#include <ClientComm/QBHPUploadByHelper.h>

#include "ClientComm/HostConfiguration.h"
#include "FailingMemory.h"
#include "Host.h"
#include "Platform/Events/AppleEvents/RPCAppleEvent.h"
#include "support/CapturedLog.h"
#include "support/RecordingTransport.h"
#include "support/Sanitizers.h"

namespace qbdkr::test {
namespace {

using Kind = RecordingTransport::Kind;

class AppleEventSender : public testing::Test {
 protected:
  AppleEventSender() { transport.reset(); }

  RecordingTransport::Sent onlySent() {
    const auto sent = transport.sent();
    EXPECT_EQ(sent.size(), 1U);
    return sent.at(0);
  }

  RecordingTransport& transport = RecordingTransport::installed();
  QBHPAppleEventSender& sender = QBHPAppleEventSender::share();
  const std::array<std::string_view, 2> arguments{"4711", "3.1"};
};

TEST_F(AppleEventSender, ShareIsOneObject) {
  EXPECT_EQ(&QBHPAppleEventSender::share(), &QBHPAppleEventSender::share());
}

TEST_F(AppleEventSender, FlushHasTheTransportsStatusAtItsDeadline) {
  const auto deadline = std::chrono::steady_clock::now() + std::chrono::hours(1);
  EXPECT_EQ(sender.flush(deadline), noErr);
  EXPECT_EQ(transport.flushDeadline(), deadline);
  transport.answerFlushWith(errAETimeout);
  EXPECT_EQ(sender.flush(deadline), errAETimeout);
  EXPECT_TRUE(transport.sent().empty());
}

TEST_F(AppleEventSender, EventHasTheFormThatPeersOnMacOSExpect) {
  const AppleEvent event = sender.createEvnet("com.Acme.Helper", "QBHPHelperControl",
                                              "start:prodeuctVersion:", arguments);
  EXPECT_EQ(event.eventClass(), 0x61657674U);
  EXPECT_EQ(event.eventID(), 0x63616C6CU);
  EXPECT_EQ(event.returnID(), -1);
  EXPECT_EQ(event.transactionID(), 0);
  EXPECT_EQ(event.target().descriptorType(), 0x62756E64U);
  EXPECT_EQ(event.target().data(), "com.Acme.Helper");

  const AppleEventDescriptor* directObject = event.paramDescriptor(0x2D2D2D2DU);
  ASSERT_NE(directObject, nullptr);
  EXPECT_EQ(directObject->descriptorType(), fourCharCode("list"));
  ASSERT_EQ(directObject->numberOfItems(), 3U);
  EXPECT_EQ(*directObject->descriptorAtIndex(1),
            AppleEventDescriptor::withString("QBHPHelperControl"));
  EXPECT_EQ(*directObject->descriptorAtIndex(2),
            AppleEventDescriptor::withString("start:prodeuctVersion:"));
  EXPECT_EQ(directObject->descriptorAtIndex(1)->descriptorType(), fourCharCode("utxt"));
  const AppleEventDescriptor& list = *directObject->descriptorAtIndex(3);
  EXPECT_EQ(list.descriptorType(), fourCharCode("list"));
  ASSERT_EQ(list.numberOfItems(), 2U);
  EXPECT_EQ(*list.descriptorAtIndex(1), AppleEventDescriptor::withString("4711"));
  EXPECT_EQ(*list.descriptorAtIndex(2), AppleEventDescriptor::withString("3.1"));
  EXPECT_EQ(transport.sent().size(), 0U);
}

TEST_F(AppleEventSender, EventOfNoArgumentsHasAnEmptyListAsThirdItem) {
  const AppleEvent event = sender.createEvnet("com.Acme.Helper", "Class", "method", {});
  const AppleEventDescriptor* directObject = event.paramDescriptor(keyDirectObject);
  ASSERT_NE(directObject, nullptr);
  ASSERT_EQ(directObject->numberOfItems(), 3U);
  EXPECT_EQ(*directObject->descriptorAtIndex(3), AppleEventDescriptor::list());
}

TEST_F(AppleEventSender, EventWithoutATargetIsAddressedByNoBytes) {
  EXPECT_EQ(sender.createEvnet(std::nullopt, "Class", "method", {}).target(),
            AppleEventDescriptor::withBytes(typeApplicationBundleID, ""));
}

TEST_F(AppleEventSender, EventSaysWhatIsSent) {
  sender.sendEvnet("com.Gr\u00FC\u00DFe", "Class", "method::", arguments);
  const AppleEvent event =
      sender.createEvnet("com.Gr\u00FC\u00DFe", "Class", "method::", arguments);
  EXPECT_EQ(rpcEventOf(event), onlySent().event);
  EXPECT_EQ(event.target().data(), onlySent().target.bundleID);
}

TEST_F(AppleEventSender, RequestIsBuiltLikeAPost) {
  String result;
  sender.sendEvnet("com.Acme.Helper", "Class", "method::", arguments);
  sender.sendEvnet("com.Acme.Helper", "Class", "method::", arguments, result);
  const auto sent = transport.sent();
  ASSERT_EQ(sent.size(), 2U);
  EXPECT_EQ(sent[0].kind, Kind::post);
  EXPECT_EQ(sent[1].kind, Kind::ask);
  EXPECT_EQ(sent[0].event, (RPCEvent{"Class", "method::", {"4711", "3.1"}}));
  EXPECT_EQ(sent[0].event, sent[1].event);
  EXPECT_EQ(sent[0].target, sent[1].target);
}

TEST_F(AppleEventSender, ArgumentsStandInTheirOrder) {
  std::vector<std::string> texts;
  for (int i = 0; i < 100; ++i) texts.push_back(std::to_string(i));
  const std::vector<std::string_view> views(texts.begin(), texts.end());
  sender.sendEvnet("com.Acme.Helper", "Class", "method", views);
  EXPECT_EQ(onlySent().event.arguments, texts);
}

TEST_F(AppleEventSender, AbsentNamesAreSentAsEmptyText) {
  sender.sendEvnet("com.Acme.Helper", std::nullopt, std::nullopt, {});
  EXPECT_EQ(onlySent().event, (RPCEvent{"", "", {}}));
}

TEST_F(AppleEventSender, ASCIITargetHasAsManyBytesAsCharacters) {
  sender.sendEvnet("com.Acme.Photo-Tool_2", "Class", "method", {});
  EXPECT_EQ(onlySent().target.bundleID, "com.Acme.Photo-Tool_2");
}

TEST_F(AppleEventSender, NonASCIITargetIsCutToItsCountOfUTF16Units) {
  // 10 units, 11 bytes: the last byte is missing.
  sender.sendEvnet("com.Gr\u00FC\u00DFe", "Class", "method", {});
  EXPECT_EQ(onlySent().target.bundleID, std::string("com.Gr\u00FC\u00DFe").substr(0, 9));
  transport.reset();
  // A character of four bytes counts as two units: 6 of 8 bytes.
  sender.sendEvnet("com.\U0001F600", "Class", "method", {});
  EXPECT_EQ(onlySent().target.bundleID, std::string("com.\U0001F600").substr(0, 6));
  transport.reset();
  // A character of three bytes counts as one unit: 5 of 7 bytes.
  sender.sendEvnet("com.\u263A", "Class", "method", {});
  EXPECT_EQ(onlySent().target.bundleID, std::string("com.\u263A").substr(0, 5));
}

TEST_F(AppleEventSender, AbsentTargetHasNoBytes) {
  sender.sendEvnet(std::nullopt, "Class", "method", {});
  EXPECT_EQ(onlySent().target.bundleID, "");
}

TEST_F(AppleEventSender, ShortFormsGoToTheHelperAgentAndBeginWithTheClassName) {
  EXPECT_EQ(sender.helperBundleID(), helperIdentifier);
  sender.sendEvnet("QBHPHelperControl", "stop:prodeuctVersion:", arguments);
  String result;
  sender.sendEvnet("QBHPGetDataByHelper", "clientIDFormHelper", {}, result);
  const auto sent = transport.sent();
  ASSERT_EQ(sent.size(), 2U);
  for (const auto& event : sent) EXPECT_EQ(event.target.bundleID, helperIdentifier);
  EXPECT_EQ(sent[0].event,
            (RPCEvent{"QBHPHelperControl", "stop:prodeuctVersion:", {"4711", "3.1"}}));
  EXPECT_EQ(sent[0].kind, Kind::post);
  EXPECT_EQ(sent[1].event, (RPCEvent{"QBHPGetDataByHelper", "clientIDFormHelper", {}}));
  EXPECT_EQ(sent[1].kind, Kind::ask);
}

TEST_F(AppleEventSender, StatusIsReturnedUnchanged) {
  for (const OSErr status : {OSErr{0}, OSErr{-600}, OSErr{-609}, OSErr{-1708}, OSErr{-1712},
                             OSErr{-1743}, OSErr{-50}, OSErr{32767}, OSErr{-32768}}) {
    transport.answerWith({status, std::nullopt});
    String result;
    EXPECT_EQ(sender.sendEvnet("com.Acme.Helper", "Class", "method", {}), status);
    EXPECT_EQ(sender.sendEvnet("com.Acme.Helper", "Class", "method", {}, result), status);
    EXPECT_EQ(sender.sendEvnet("Class", "method", {}), status);
    EXPECT_EQ(sender.sendEvnet("Class", "method", {}, result), status);
  }
}

TEST_F(AppleEventSender, ResultIsTheTextOfTheReply) {
  String result;
  transport.answerWith({noErr, "a reply \u263A"});
  EXPECT_EQ(sender.sendEvnet("Class", "method", {}, result), noErr);
  EXPECT_EQ(result, "a reply \u263A");
}

TEST_F(AppleEventSender, ResultIsAbsentForAnEmptyReply) {
  String result = "what was there before";
  EXPECT_EQ(sender.sendEvnet("Class", "method", {}, result), noErr);
  EXPECT_EQ(result, std::nullopt);
}

TEST_F(AppleEventSender, EmptyTextIsNoResultOverAnyTransport) {
  String result = "what was there before";
  transport.answerWith({noErr, ""});
  EXPECT_EQ(sender.sendEvnet("Class", "method", {}, result), noErr);
  EXPECT_EQ(result, std::nullopt);
}

TEST_F(AppleEventSender, ResultIsWrittenAfterAFailedSend) {
  String result = "what was there before";
  transport.answerWith({procNotFound, std::nullopt});
  EXPECT_EQ(sender.sendEvnet("Class", "method", {}, result), procNotFound);
  EXPECT_EQ(result, std::nullopt);
}

TEST_F(AppleEventSender, FailureIsNeitherLoggedNorTriedAgain) {
  CapturedLog log;
  transport.answerWith({connectionInvalid, std::nullopt});
  String result;
  sender.sendEvnet("Class", "method", {});
  sender.sendEvnet("Class", "method", {}, result);
  EXPECT_EQ(transport.sent().size(), 2U);
  EXPECT_EQ(log.lines(), std::vector<std::string>{});
}

TEST_F(AppleEventSender, TextLongerThanAnyMemoryIsRefusedWithMinus50) {
  if (hasSanitizer) GTEST_SKIP() << "a sanitizer finds such a text for itself";
  const std::string start(17'000, 'h');  // more than a log line takes
  const volatile std::size_t size = SIZE_MAX / 2 + 1;
  const std::string_view endless(start.data(), size);
  const std::array<std::string_view, 1> texts{endless};
  String result = "what was there before";
  EXPECT_EQ(sender.sendEvnet("Class", "method:", texts), -50);
  EXPECT_EQ(sender.sendEvnet("Class", "method:", texts, result), -50);
  EXPECT_EQ(result, std::nullopt);
  auto& upload = QBHPUploadByHelper::share();
  EXPECT_EQ(upload.uploadUserFile("1001", "3.1", "a@b.c", "/file", "title", endless), -50);
  EXPECT_EQ(upload.netErrorPagePath("1001", endless), std::nullopt);
  EXPECT_EQ(transport.sent().size(), 0U);
}

TEST_F(AppleEventSender, EachAllocationOfARequestMayFail) {
  const std::string text(100, 't');
  const std::string answer(100, 'a');
  const auto makeRequest = [&](const std::function<void()>& request) {
    std::size_t allocations = 0;
    for (bool failed = true; failed; ++allocations) {
      const FailingMemory memory(allocations);
      EXPECT_NO_THROW(request()) << allocations;
      failed = FailingMemory::hasFailed();
    }
    return allocations;
  };
  auto& upload = QBHPUploadByHelper::share();
  transport.answerWith({noErr, answer});
  OSErr status = noErr;
  String result;
  const auto posting = makeRequest([&] {
    status = upload.uploadUserFile("1001", "3.1", "a@b.c", "/file", "title", text);
    // If only the log line lacks memory, the request is still made.
    EXPECT_TRUE(status == noErr || (status == paramErr && FailingMemory::hasFailed()));
  });
  EXPECT_EQ(status, noErr);
  const auto asking = makeRequest([&] {
    result = upload.netErrorPagePath("1001", text);
    EXPECT_TRUE(result == answer || (!result && FailingMemory::hasFailed()));
  });
  EXPECT_EQ(result, answer);
  EXPECT_GT(posting, 10U);
  EXPECT_GT(asking, 10U);
}

// The sender of another host.
class SenderOf : public QBHPAppleEventSender {
 public:
  explicit SenderOf(const PropertyList::Dictionary& info)
      : QBHPAppleEventSender(HostConfiguration(bundleWith(info))) {}
};

TEST_F(AppleEventSender, HelperIdentifierIsThatOfTheMainBundle) {
  EXPECT_EQ(sender.helperBundleID(), helperIdentifier);
  EXPECT_EQ(QBHPAppleEventSender().helperBundleID(), helperIdentifier);
}

TEST_F(AppleEventSender, HelperIdentifierIsReadFromTheKeyAsItIsSpelled) {
  auto info = hostInformation();
  info.set("Helper Bundle indentifiter", "com.Example.Other");
  SenderOf other(info);
  EXPECT_EQ(other.helperBundleID(), "com.Example.Other");
  String result;
  other.sendEvnet("Class", "method", {});
  other.sendEvnet("Class", "method", {}, result);
  const auto sent = transport.sent();
  ASSERT_EQ(sent.size(), 2U);
  for (const auto& event : sent) EXPECT_EQ(event.target.bundleID, "com.Example.Other");
}

TEST_F(AppleEventSender, WithoutTheKeyTheTargetHasNoBytesAndTheStatusIsTheTransports) {
  auto info = hostInformation();
  info.erase("Helper Bundle indentifiter");
  info.set("Helper Bundle identifier", "com.Example.WellSpelled");
  SenderOf other(info);
  EXPECT_EQ(other.helperBundleID(), std::nullopt);
  transport.answerWith({procNotFound, std::nullopt});
  EXPECT_EQ(other.sendEvnet("Class", "method", {}), procNotFound);
  EXPECT_EQ(onlySent().target.bundleID, "");
}

TEST_F(AppleEventSender, LogLineWithoutMemoryIsDropped) {
  CapturedLog log;
  const std::string text(100, 't');
  bool failed = true;
  for (std::size_t allocations = 0; failed; ++allocations) {
    const FailingMemory memory(allocations);
    EXPECT_NO_THROW(qbdkr::log("%@", {text})) << allocations;
    EXPECT_NO_THROW(qbdkr::log(text)) << allocations;
    failed = FailingMemory::hasFailed();
  }
  EXPECT_EQ(log.lines().back(), text);
}

TEST_F(AppleEventSender, HelperAgentMayLieAnywhereUnlessTheHostSaysOtherwise) {
  for (const PropertyList& value : {PropertyList(), PropertyList(false), PropertyList("0")}) {
    auto info = hostInformation();
    info.set("Helper loaction path", "/opt/Acme");
    info.set("Helepr App name", "AcmeHelper");
    if (value != PropertyList()) info.set("Helper must be installed copy", value);
    transport.reset();
    SenderOf(info).sendEvnet("Class", "method", {});
    EXPECT_EQ(onlySent().target.directory, std::nullopt);
  }
}

TEST_F(AppleEventSender, HelperAgentAloneMustLieInTheInstalledCopyIfTheHostSaysSo) {
  for (const PropertyList& value : {PropertyList(true), PropertyList("1")}) {
    auto info = hostInformation();
    info.set("Helper location path", "~/Acme");
    info.set("Helper App name", "AcmeHelper");
    info.set("Helper must be installed copy", value);
    transport.reset();
    SenderOf host(info);
    String result;
    host.sendEvnet("Class", "method", {});
    host.sendEvnet("Class", "method", {}, result);
    host.sendEvnet(helperIdentifier, "Class", "method", {});
    host.sendEvnet("com.Example.Other", "Class", "method", {});
    const auto sent = transport.sent();
    ASSERT_EQ(sent.size(), 4U);
    const auto place = std::string(std::getenv("HOME")) + "/Acme/AcmeHelper.app";
    for (int i = 0; i < 3; ++i) EXPECT_EQ(sent[i].target.directory, place) << i;
    EXPECT_EQ(sent[3].target.directory, std::nullopt);
  }
}

TEST_F(AppleEventSender, HelperAgentThatHasNoPlaceCanLieInNone) {
  for (const char* missing : {"Helper location path", "Helper App name"}) {
    auto info = hostInformation();
    info.set("Helper location path", "/opt/Acme");
    info.set("Helper App name", "AcmeHelper");
    info.set("Helper must be installed copy", true);
    info.erase(missing);
    transport.reset();
    SenderOf(info).sendEvnet("Class", "method", {});
    EXPECT_EQ(onlySent().target.directory, "");
  }
}

TEST_F(AppleEventSender, PlatformTransportRefusesAnEmptyTargetWithMinus600) {
  RPCTransport::replaceShared(nullptr);
  EXPECT_EQ(sender.sendEvnet(std::nullopt, "Class", "method", {}), -600);
  EXPECT_EQ(sender.sendEvnet("", "Class", "method", {}), -600);
  RPCTransport::replaceShared(&transport);
}

TEST_F(AppleEventSender, PlatformTransportRefusesWhatIsNoTextWithMinus50) {
  RPCTransport::replaceShared(nullptr);
  const std::array<std::string_view, 1> notText{"\xFF"};
  const std::array<std::string_view, 1> withZero{std::string_view("a\0b", 3)};
  EXPECT_EQ(sender.sendEvnet("com.Acme.Helper", "Class", "method:", notText), -50);
  EXPECT_EQ(sender.sendEvnet("com.Acme.Helper", "Class", "method:", withZero), -50);
  EXPECT_EQ(sender.sendEvnet("com.Acme.Helper", "Cl\xFFss", "method", {}), -50);
  EXPECT_EQ(sender.sendEvnet("com.Acme.Helper", "Class", "meth\xC3", {}), -50);
  EXPECT_EQ(sender.sendEvnet("oneelement", "Class", "method", {}), -50);
  EXPECT_EQ(sender.sendEvnet("com..Helper", "Class", "method", {}), -50);
  EXPECT_EQ(sender.sendEvnet("com.\u263A", "Class", "method", {}), -50);  // cut within a character
  RPCTransport::replaceShared(&transport);
}

TEST_F(AppleEventSender, PlatformTransportGivesMinus609WithoutABus) {
  RPCTransport::replaceShared(nullptr);
  String result = "what was there before";
  EXPECT_EQ(sender.sendEvnet("com.Acme.Helper", "Class", "method", {}), -609);
  EXPECT_EQ(sender.sendEvnet("com.Acme.Helper", "Class", "method", {}, result), -609);
  EXPECT_EQ(result, std::nullopt);
  RPCTransport::replaceShared(&transport);
}

}  // namespace
}  // namespace qbdkr::test
