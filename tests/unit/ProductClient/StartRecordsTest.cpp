#include <gtest/gtest.h>
#include <sys/inotify.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <filesystem>
#include <string>
#include <vector>

#include <ClientComm/Bundle.h>
#include <ClientComm/UserDefaults.h>
#include <QBDKRProductClient/QBHPHelperCommunicate.h>

#include "CommunicatorTest.h"
#include "Platform/Base/Descriptor.h"
#include "support/CapturedLog.h"
#include "support/Environment.h"
#include "support/RecordingTransport.h"

namespace qbdkr::test {
namespace {

namespace fs = std::filesystem;
using Dictionary = PropertyList::Dictionary;

std::optional<PropertyList> stored(const Host& host, std::string_view key) {
  const Dictionary domain = host.readDefaults(hostIdentifier);
  const PropertyList* value = domain.find(key);
  return value == nullptr ? std::nullopt : std::optional(*value);
}

class Bookkeeping : public CommunicatorTest {};

TEST_F(Bookkeeping, CreationRecordsTheProductIdentity) {
  withHost(hostInformation(), [this](const Host& host) {
    EXPECT_FALSE(fs::exists(host.defaultsFile(hostIdentifier)));
    communicator();
    EXPECT_EQ(stored(host, "PID"), PropertyList("4711"));
    EXPECT_EQ(stored(host, "Version"), PropertyList("3.1"));
    EXPECT_EQ(stored(host, "ExecutableFile"), PropertyList(host.bundle.string()));
    EXPECT_EQ(stored(host, "IsFirstStart"), std::nullopt);
    EXPECT_EQ(stored(host, "FirstStartPID"), std::nullopt);
  });
}

TEST_F(Bookkeeping, EveryStartOverwritesTheProductIdentity) {
  withHost(hostInformation(), [this](const Host& host) {
    host.writeDefaults(hostIdentifier, {{"PID", "old"},
                                        {"Version", "0.1"},
                                        {"ExecutableFile", "/somewhere/else"},
                                        {"Other", "stays"}});
    communicator();
    EXPECT_EQ(stored(host, "PID"), PropertyList("4711"));
    EXPECT_EQ(stored(host, "Version"), PropertyList("3.1"));
    EXPECT_EQ(stored(host, "ExecutableFile"), PropertyList(host.bundle.string()));
    EXPECT_EQ(stored(host, "Other"), PropertyList("stays"));
  });
}

TEST_F(Bookkeeping, AMissingIdentityRemovesItsKeysAndIsSentEmpty) {
  auto info = hostInformation();
  info.erase("PID");
  info.erase("CFBundleVersion");
  withHost(info, [this](const Host& host) {
    host.writeDefaults(hostIdentifier, {{"PID", "old"}, {"Version", "0.1"}});
    CapturedLog log;
    communicator().stopHelper();
    EXPECT_EQ(log.lines(), std::vector<std::string>{"stop:prodeuctVersion: (null) (null) "});
    EXPECT_EQ(stored(host, "PID"), std::nullopt);
    EXPECT_EQ(stored(host, "Version"), std::nullopt);
    EXPECT_EQ(transport.sentEvents().at(0).arguments, (std::vector<std::string>{"", ""}));
  });
}

TEST_F(Bookkeeping, AnIdentityOfNumbersIsRecordedAndSentAsTexts) {
  auto info = hostInformation();
  info.set("PID", 1001);
  info.set("CFBundleVersion", 3.1);
  withHost(info, [this](const Host& host) {
    communicator().stopHelper();
    EXPECT_EQ(transport.sentEvents().at(0).arguments, (std::vector<std::string>{"1001", "3.1"}));
    EXPECT_EQ(communicator().firstStartPID(), "1001");
    EXPECT_EQ(stored(host, "PID"), PropertyList("1001"));
    EXPECT_EQ(stored(host, "Version"), PropertyList("3.1"));
    EXPECT_EQ(stored(host, "FirstStartPID"), PropertyList("1001"));
  });
}

TEST_F(Bookkeeping, RecordsOfNumbersReadAsTexts) {
  withHost(hostInformation(), [this](const Host& host) {
    host.writeDefaults(hostIdentifier, {{"IsFirstStart", false}, {"FirstStartPID", 1002}});
    EXPECT_EQ(communicator().firstStartPID(), "1002");
    EXPECT_EQ(communicator().collectDataPID(), "1002");
  });
  withHost(hostInformation(), [this](const Host& host) {
    host.writeDefaults(hostIdentifier, {{"DataCollectPID", 1003}});
    EXPECT_EQ(communicator().collectDataPID(), "1003");
  });
}

TEST_F(Bookkeeping, RecordsWithoutATextCountAsUnset) {
  withHost(hostInformation(), [this](const Host& host) {
    host.writeDefaults(hostIdentifier, {{"DataCollectPID", PropertyList::Array{"1003"}}});
    EXPECT_EQ(communicator().collectDataPID(), "4711");
  });
}

TEST_F(Bookkeeping, VeryFirstStartRecordsAndReturnsTheProduct) {
  withHost(hostInformation(), [this](const Host& host) {
    EXPECT_EQ(communicator().firstStartPID(), "4711");
    EXPECT_EQ(stored(host, "IsFirstStart"), PropertyList(false));
    EXPECT_EQ(stored(host, "FirstStartPID"), PropertyList("4711"));
    EXPECT_EQ(communicator().firstStartPID(), "4711");
  });
}

TEST_F(Bookkeeping, ALaterStartReturnsTheProductOfTheFirst) {
  withHost(hostInformation(), [this](const Host& host) {
    host.writeDefaults(hostIdentifier, {{"IsFirstStart", false}, {"FirstStartPID", "1001"}});
    EXPECT_EQ(communicator().firstStartPID(), "1001");
    EXPECT_EQ(stored(host, "FirstStartPID"), PropertyList("1001"));
    EXPECT_EQ(stored(host, "PID"), PropertyList("4711"));
  });
}

TEST_F(Bookkeeping, ALaterStartWithoutARecordedProductReturnsNone) {
  withHost(hostInformation(), [this](const Host& host) {
    host.writeDefaults(hostIdentifier, {{"IsFirstStart", false}});
    EXPECT_EQ(communicator().firstStartPID(), std::nullopt);
    EXPECT_EQ(stored(host, "FirstStartPID"), std::nullopt);
  });
}

TEST_F(Bookkeeping, IsFirstStartSetTrueRecordsAgain) {
  for (const PropertyList& value : {PropertyList(true), PropertyList("YES"), PropertyList(1)}) {
    withHost(hostInformation(), [&](const Host& host) {
      host.writeDefaults(hostIdentifier, {{"IsFirstStart", value}, {"FirstStartPID", "1001"}});
      EXPECT_EQ(communicator().firstStartPID(), "4711");
      EXPECT_EQ(stored(host, "IsFirstStart"), PropertyList(false));
      EXPECT_EQ(stored(host, "FirstStartPID"), PropertyList("4711"));
    });
  }
}

TEST_F(Bookkeeping, IsFirstStartRemovedRecordsAgain) {
  withHost(hostInformation(), [this](const Host& host) {
    host.writeDefaults(hostIdentifier, {{"FirstStartPID", "1001"}});
    EXPECT_EQ(communicator().firstStartPID(), "4711");
  });
}

TEST_F(Bookkeeping, FirstStartWithoutAProductRecordsTheStartOnly) {
  auto info = hostInformation();
  info.erase("PID");
  withHost(info, [this](const Host& host) {
    EXPECT_EQ(communicator().firstStartPID(), std::nullopt);
    EXPECT_EQ(stored(host, "IsFirstStart"), PropertyList(false));
    EXPECT_EQ(stored(host, "FirstStartPID"), std::nullopt);
  });
}

TEST_F(Bookkeeping, CollectDataPIDIsTheOneThatWasSet) {
  withHost(hostInformation(), [this](const Host& host) {
    communicator().setCollectDataPID("collected");
    EXPECT_EQ(stored(host, "DataCollectPID"), PropertyList("collected"));
    EXPECT_EQ(communicator().collectDataPID(), "collected");
    EXPECT_EQ(stored(host, "IsFirstStart"), std::nullopt);
  });
}

TEST_F(Bookkeeping, CollectDataPIDFallsBackToTheFirstStart) {
  withHost(hostInformation(), [this](const Host& host) {
    EXPECT_EQ(communicator().collectDataPID(), "4711");
    EXPECT_EQ(stored(host, "IsFirstStart"), PropertyList(false));
  });
  withHost(hostInformation(), [this](const Host& host) {
    host.writeDefaults(hostIdentifier, {{"IsFirstStart", false}, {"FirstStartPID", "1001"}});
    EXPECT_EQ(communicator().collectDataPID(), "1001");
  });
}

TEST_F(Bookkeeping, CollectDataPIDSetToEmptyCountsAsUnset) {
  withHost(hostInformation(), [this](const Host& host) {
    communicator().setCollectDataPID("collected");
    communicator().setCollectDataPID("");
    EXPECT_EQ(stored(host, "DataCollectPID"), PropertyList(""));
    EXPECT_EQ(communicator().collectDataPID(), "4711");
  });
}

TEST_F(Bookkeeping, DataCollectionPathIsMadeWithEverythingAboveIt) {
  withHost(hostInformation(), [this](const Host& host) {
    const fs::path base = host.home / "does/not/exist";
    const std::string data = base / "Log/Data";
    communicator();
    CapturedLog log;
    communicator().initDataCollectionPath(base.string());
    EXPECT_TRUE(fs::is_directory(data));
    EXPECT_EQ(log.lines(),
              std::vector<std::string>{"initDataCollectionPath: DataCollectPath = " + data});
    EXPECT_EQ(stored(host, "DataCollectPath"), PropertyList(data));
  });
}

// If the process ends in between, the path is recorded already.
TEST_F(Bookkeeping, DataCollectionPathIsRecordedBeforeItsFolderIsMade) {
  withHost(hostInformation(), [this](const Host& host) {
    communicator();
    fs::create_directories(host.home / "Log");
    const Descriptor folder(inotify_init1(IN_CLOEXEC));
    ASSERT_GE(inotify_add_watch(folder.get(), (host.home / "Log").c_str(), IN_CREATE), 0);
    ASSERT_GE(
        inotify_add_watch(folder.get(), host.defaultsFile(hostIdentifier).parent_path().c_str(),
                          IN_MOVED_TO),
        0);
    communicator().initDataCollectionPath(host.home.string());
    alignas(inotify_event) std::array<char, 4096> events{};
    ASSERT_GT(read(folder.get(), events.data(), events.size()), 0);
    const auto* first = reinterpret_cast<const inotify_event*>(events.data());
    EXPECT_EQ(first->mask, IN_MOVED_TO);
    EXPECT_EQ(stored(host, "DataCollectPath"), PropertyList((host.home / "Log/Data").string()));
  });
}

TEST_F(Bookkeeping, DataCollectionPathIsMadeAlthoughItCannotBeRecorded) {
  withHost(hostInformation(), [this](const Host& host) {
    communicator();
    const fs::path preferences = host.defaultsFile(hostIdentifier).parent_path();
    fs::remove_all(preferences);
    writeFile(preferences, "a file where a folder would have to be");
    communicator().initDataCollectionPath(host.home.string());
    EXPECT_TRUE(fs::is_directory(host.home / "Log/Data"));
    EXPECT_EQ(settings().object("DataCollectPath"),
              PropertyList((host.home / "Log/Data").string()));
  });
}

TEST_F(Bookkeeping, ExistingLogFolderIsUsed) {
  withHost(hostInformation(), [this](const Host& host) {
    writeFile(host.home / "Log/kept", "kept");
    communicator().initDataCollectionPath(host.home.string());
    EXPECT_TRUE(fs::is_directory(host.home / "Log/Data"));
    EXPECT_EQ(readFile(host.home / "Log/kept"), "kept");
    EXPECT_EQ(settings().object("DataCollectPath"),
              PropertyList((host.home / "Log/Data").string()));
  });
}

TEST_F(Bookkeeping, ExistingDataFolderIsNeitherLoggedNorRecorded) {
  withHost(hostInformation(), [this](const Host& host) {
    fs::create_directories(host.home / "Log/Data");
    communicator();
    CapturedLog log;
    communicator().initDataCollectionPath(host.home.string());
    EXPECT_TRUE(log.lines().empty());
    EXPECT_EQ(settings().object("DataCollectPath"), std::nullopt);
  });
}

TEST_F(Bookkeeping, DataPathThatIsAFileIsLeftAlone) {
  withHost(hostInformation(), [this](const Host& host) {
    writeFile(host.home / "Log/Data", "a file");
    communicator().initDataCollectionPath(host.home.string());
    EXPECT_EQ(readFile(host.home / "Log/Data"), "a file");
    EXPECT_EQ(settings().object("DataCollectPath"), std::nullopt);
  });
}

TEST_F(Bookkeeping, DataPathThatCannotBeMadeIsNotReported) {
  withHost(hostInformation(), [this](const Host& host) {
    writeFile(host.home / "base", "a file where a folder would have to be");
    communicator();
    CapturedLog log;
    EXPECT_NO_THROW(communicator().initDataCollectionPath((host.home / "base").string()));
    EXPECT_EQ(log.lines().size(), 1U);
    EXPECT_FALSE(fs::exists(host.home / "base/Log"));
    EXPECT_EQ(stored(host, "DataCollectPath"),
              PropertyList((host.home / "base/Log/Data").string()));
  });
}

}  // namespace
}  // namespace qbdkr::test
