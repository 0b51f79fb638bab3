#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <chrono>
#include <filesystem>
#include <iterator>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include <ClientComm/Bundle.h>
#include <QBDKRProductClient/QBHPHelperCommunicate.h>

#include "CommunicatorTest.h"
#include "Platform/Files/FileLock.h"
#include "Platform/PropertyLists/PropertyListReader.h"
#include "ProductClient/HelperInstaller.h"
#include "ProductClient/HelperStates.h"
#include "support/CapturedLog.h"
#include "support/Environment.h"
#include "support/RecordingTransport.h"

namespace qbdkr::test {
namespace {

namespace fs = std::filesystem;
using Dictionary = PropertyList::Dictionary;
using Lines = std::vector<std::string>;

Dictionary informationWithOwnHelperIdentifier() {
  Dictionary info = informationWithHelper();
  info.set("Helper Bundle indentifiter", "com.Example.Helper.P" + std::to_string(getpid()));
  return info;
}

class Deployment : public CommunicatorTest {
 protected:
  static fs::path installed(const Host& host) { return host.home / "Library/Example/Helper.app"; }
  static fs::path resource(const Host& host) { return host.resources() / "Helper.app"; }

  // Returns an identifier that no other test's application has.
  std::string runningIdentifier() {
    return hostBundle().infoString("Helper Bundle indentifiter").value();
  }

  void writeHelper(const fs::path& bundle, const std::string& version,
                   const std::string& content = "content") {
    // A process that runs from this bundle must not pass for the helper agent of another test.
    Dictionary info{{"CFBundleIdentifier",
                     hostBundle().infoString("Helper Bundle indentifiter").value_or("none")}};
    if (!version.empty()) info.set("CFBundleVersion", version);
    writeBundle(bundle, info);
    writeFile(bundle / "Contents/content", content);
  }

  static std::string versionOf(const fs::path& bundle) {
    const auto info = readDictionaryFile(bundle / "Contents/Info.plist");
    const PropertyList* version = info ? info->find("CFBundleVersion") : nullptr;
    return version == nullptr ? "(none)" : *version->string();
  }

  // Deploys a version over another, and checks the installed copy and the log.
  void expectDeployment(const std::string& resourceVersion, const std::string& installedVersion,
                        bool replaced) {
    withUsedHost(informationWithHelper(), [&](const Host& host) {
      writeHelper(resource(host), resourceVersion, "new");
      writeHelper(installed(host), installedVersion, "old");
      communicator();
      CapturedLog log;
      communicator().extractHelper();
      EXPECT_EQ(readFile(installed(host) / "Contents/content"), replaced ? "new" : "old");
      EXPECT_EQ(log.lines(), replaced ? Lines{"helper version = " + resourceVersion}
                                      : Lines{"helper in conetent's version is lower"});
      EXPECT_TRUE(transport.sent().empty());
    });
  }
};

TEST_F(Deployment, FirstRunMakesTheDirectoryAndItsParentsAndCopies) {
  withUsedHost(informationWithHelper(), [this](const Host& host) {
    writeHelper(resource(host), "1.0");
    communicator();
    CapturedLog log;
    communicator().extractHelper();
    EXPECT_EQ(versionOf(installed(host)), "1.0");
    EXPECT_EQ(readFile(installed(host) / "Contents/content"), "content");
    EXPECT_TRUE(log.lines().empty());
    EXPECT_TRUE(transport.sent().empty());
    EXPECT_TRUE(workspace.opened().empty());
  });
}

TEST_F(Deployment, NothingElseIsLeftInTheInstallDirectory) {
  withUsedHost(informationWithHelper(), [this](const Host& host) {
    writeHelper(resource(host), "1.1");
    communicator().extractHelper();
    writeHelper(resource(host), "1.2");
    communicator().extractHelper();
    std::vector<std::string> names;
    for (const auto& entry : fs::directory_iterator(installed(host).parent_path())) {
      names.push_back(entry.path().filename());
    }
    EXPECT_EQ(names, std::vector<std::string>{"Helper.app"});
    EXPECT_EQ(versionOf(installed(host)), "1.2");
  });
}

TEST_F(Deployment, EqualVersionIsKeptAndLoggedAsLower) { expectDeployment("1.0", "1.0", false); }
TEST_F(Deployment, EqualNumbersInOtherWritingAreKept) { expectDeployment("1.01", "1.1", false); }
TEST_F(Deployment, NewerVersionReplaces) { expectDeployment("1.0.1", "1.0", true); }
TEST_F(Deployment, NumbersDecideAsNumbers) { expectDeployment("1.10", "1.9", true); }
TEST_F(Deployment, OlderVersionIsNotInstalled) { expectDeployment("1.0", "1.0.1", false); }
TEST_F(Deployment, PreReleaseDoesNotReplaceTheRelease) { expectDeployment("1.0b2", "1.0", false); }
TEST_F(Deployment, ReleaseReplacesItsPreRelease) { expectDeployment("1.0", "1.0b2", true); }
TEST_F(Deployment, InstalledCopyWithoutAVersionIsReplaced) { expectDeployment("1.0", "", true); }

TEST_F(Deployment, ResourceWithoutAVersionReplacesNoNumber) {
  withUsedHost(informationWithHelper(), [this](const Host& host) {
    writeHelper(resource(host), "", "new");
    writeHelper(installed(host), "1.0", "old");
    communicator().extractHelper();
    EXPECT_EQ(readFile(installed(host) / "Contents/content"), "old");
  });
}

TEST_F(Deployment, DamagedInstalledCopyIsReplaced) {
  withUsedHost(informationWithHelper(), [this](const Host& host) {
    writeHelper(resource(host), "1.0", "new");
    writeFile(installed(host) / "Contents/Info.plist", "\x01 no property list");
    communicator().extractHelper();
    EXPECT_EQ(readFile(installed(host) / "Contents/content"), "new");
  });
}

TEST_F(Deployment, RunningHelperIsAskedToQuitBeforeItIsReplaced) {
  withUsedHost(informationWithOwnHelperIdentifier(), [this](const Host& host) {
    const RunningApplication helper(
        installed(host), {{"CFBundleIdentifier", runningIdentifier()}, {"CFBundleVersion", "1.0"}});
    writeHelper(resource(host), "1.1");
    bool oldOneWasThere = false;
    bool isLocked = false;
    transport.answer(
        "exitHelper:productVersion:",
        RecordingTransport::Answerer([&](const RecordingTransport::Sent&) {
          oldOneWasThere = versionOf(installed(host)) == "1.0";
          isLocked =
              FileLock::acquire(installed(host).parent_path(), std::chrono::seconds(0)).isTaken();
          return RecordingTransport::Answer{};
        }));
    communicator();
    CapturedLog log;
    communicator().extractHelper();
    EXPECT_EQ(transport.sentEvents(),
              (std::vector<RPCEvent>{
                  {"QBHPHelperControl", "exitHelper:productVersion:", {"4711", "3.1"}}}));
    EXPECT_TRUE(oldOneWasThere);
    EXPECT_TRUE(isLocked);
    EXPECT_EQ(log.lines(), Lines{"helper version = 1.1"});
    EXPECT_EQ(versionOf(installed(host)), "1.1");
  });
}

TEST_F(Deployment, HelperThatCannotBeAskedToQuitIsReplacedAllTheSame) {
  withUsedHost(informationWithOwnHelperIdentifier(), [this](const Host& host) {
    const RunningApplication helper(
        installed(host), {{"CFBundleIdentifier", runningIdentifier()}, {"CFBundleVersion", "1.0"}});
    writeHelper(resource(host), "1.1");
    transport.answerWith({connectionInvalid, std::nullopt});
    communicator();
    CapturedLog log;
    communicator().extractHelper();
    EXPECT_EQ(transport.countOf("exitHelper:productVersion:"), 1U);
    EXPECT_EQ(log.lines(), Lines{"helper version = 1.1"});
    EXPECT_EQ(versionOf(installed(host)), "1.1");
  });
}

TEST_F(Deployment, RunningHelperIsNotAskedWhenItIsKept) {
  withUsedHost(informationWithOwnHelperIdentifier(), [this](const Host& host) {
    const RunningApplication helper(
        installed(host), {{"CFBundleIdentifier", runningIdentifier()}, {"CFBundleVersion", "1.0"}});
    writeHelper(resource(host), "1.0");
    communicator().extractHelper();
    EXPECT_TRUE(transport.sent().empty());
  });
}

TEST_F(Deployment, RunningHelperIsAwaitedFiveSecondsAfterTheCopyAndBeforeTheExchange) {
  withUsedHost(informationWithOwnHelperIdentifier(), [this](const Host& host) {
    const RunningApplication helper(
        installed(host), {{"CFBundleIdentifier", runningIdentifier()}, {"CFBundleVersion", "1.0"}});
    writeHelper(resource(host), "1.1");
    std::size_t askedToExit = 0;
    bool oldOneIsInstalled = false;
    bool isCopied = false;
    bool isLocked = false;
    workspace.onWaitForEnd = [&](const std::string& path) {
      askedToExit = transport.countOf("exitHelper:productVersion:");
      oldOneIsInstalled = versionOf(path) == "1.0";
      isLocked = FileLock::acquire(path, std::chrono::seconds(0)).isTaken();
      for (const auto& entry : fs::directory_iterator(fs::path(path).parent_path())) {
        isCopied = isCopied || versionOf(entry.path() / "item") == "1.1";
      }
    };
    communicator().extractHelper();
    EXPECT_EQ(workspace.awaited(), (std::vector<std::pair<std::string, std::chrono::milliseconds>>{
                                       {installed(host).string(), std::chrono::seconds(5)}}));
    EXPECT_EQ(askedToExit, 1U);
    EXPECT_TRUE(oldOneIsInstalled);
    EXPECT_TRUE(isCopied);
    EXPECT_TRUE(isLocked);
    EXPECT_EQ(versionOf(installed(host)), "1.1");
  });
}

TEST_F(Deployment, HelperThatDoesNotRunIsNotAwaited) {
  withUsedHost(informationWithHelper(), [this](const Host& host) {
    writeHelper(resource(host), "1.1");
    writeHelper(installed(host), "1.0");
    communicator().extractHelper();
    EXPECT_TRUE(workspace.awaited().empty());
    EXPECT_EQ(versionOf(installed(host)), "1.1");
  });
}

TEST_F(Deployment, InstallDirectoryIsMadeEvenWithoutAResource) {
  withUsedHost(informationWithHelper(), [this](const Host& host) {
    communicator().extractHelper();
    EXPECT_TRUE(fs::is_directory(host.home / "Library/Example"));
    EXPECT_TRUE(fs::is_empty(host.home / "Library/Example"));
  });
}

TEST_F(Deployment, InstallDirectoryIsMadeEvenWithoutAnAppName) {
  Dictionary info = informationWithHelper();
  info.erase("Helepr App name");
  withUsedHost(info, [this](const Host& host) {
    communicator().extractHelper();
    EXPECT_TRUE(fs::is_directory(host.home / "Library/Example"));
    EXPECT_FALSE(communicator().launchHelepr());
  });
}

TEST_F(Deployment, WithoutAnInstallDirectoryNothingIsDone) {
  Dictionary info = informationWithHelper();
  info.erase("Helper loaction path");
  withUsedHost(info, [this](const Host& host) {
    writeHelper(resource(host), "1.0");
    communicator();
    CapturedLog log;
    communicator().extractHelper();
    EXPECT_FALSE(communicator().launchHelepr());
    EXPECT_TRUE(log.lines().empty());
    EXPECT_TRUE(workspace.opened().empty());
    EXPECT_TRUE(transport.sent().empty());
  });
}

TEST_F(Deployment, InstallDirectoryThatCannotBeMadeIsLoggedOnce) {
  Dictionary info = informationWithHelper();
  info.set("Helper loaction path", "~/a file/Example");
  withUsedHost(info, [this](const Host& host) {
    writeHelper(resource(host), "1.0");
    writeFile(host.home / "a file", "");
    workspace.answer = [](const std::string& path) { return fs::exists(path); };
    communicator();
    CapturedLog log;
    communicator().extractHelper();
    EXPECT_FALSE(communicator().launchHelepr());
    const fs::path target = host.home / "a file/Example/Helper.app";
    EXPECT_EQ(log.lines(), Lines{"copy " + target.string() + " error Not a directory"});
    EXPECT_EQ(workspace.opened().size(), 1U);
    EXPECT_TRUE(transport.sent().empty());
  });
}

TEST_F(Deployment, WellSpelledKeysAreUsedWhereTheOthersAreAbsent) {
  Dictionary info = hostInformation();
  info.set("Helper App name", "Helper");
  info.set("Helper location path", "~/Library/Example");
  withUsedHost(info, [this](const Host& host) {
    writeHelper(resource(host), "1.0");
    communicator().extractHelper();
    EXPECT_EQ(versionOf(installed(host)), "1.0");
    EXPECT_TRUE(communicator().launchHelepr());
    EXPECT_EQ(workspace.opened(), std::vector<std::string>{installed(host).string()});
  });
}

TEST_F(Deployment, MisspelledKeysWin) {
  Dictionary info = informationWithHelper();
  info.set("Helper App name", "Wrong");
  info.set("Helper location path", "~/Wrong");
  withUsedHost(info, [this](const Host& host) {
    writeHelper(resource(host), "1.0");
    writeHelper(host.resources() / "Wrong.app", "9.9");
    communicator().extractHelper();
    EXPECT_EQ(versionOf(installed(host)), "1.0");
    EXPECT_FALSE(fs::exists(host.home / "Wrong"));
    EXPECT_TRUE(communicator().launchHelepr());
    EXPECT_EQ(workspace.opened(), std::vector<std::string>{installed(host).string()});
  });
}

TEST_F(Deployment, AbsoluteInstallDirectoryIsUsedAsItIs) {
  const TemporaryDirectory directory;
  Dictionary info = informationWithHelper();
  info.set("Helper loaction path", (directory.path() / "deep/er").string());
  withUsedHost(info, [this](const Host& host) {
    writeHelper(resource(host), "1.0");
    communicator().extractHelper();
    const fs::path path(hostBundle().infoString("Helper loaction path").value());
    EXPECT_EQ(versionOf(path / "Helper.app"), "1.0");
  });
}

TEST_F(Deployment, LaunchOpensThePathThenSendsTheStartRequest) {
  withUsedHost(informationWithHelper(), [this](const Host& host) {
    writeHelper(installed(host), "1.0");
    std::size_t sentBeforeOpening = 99;
    workspace.answer = [&](const std::string&) {
      sentBeforeOpening = transport.sent().size();
      return true;
    };
    EXPECT_TRUE(communicator().launchHelepr());
    EXPECT_EQ(workspace.opened(), std::vector<std::string>{installed(host).string()});
    EXPECT_EQ(sentBeforeOpening, 0U);
    ASSERT_FALSE(transport.sent().empty());
    EXPECT_EQ(transport.sentEvents()[0],
              (RPCEvent{"QBHPHelperControl", "start:prodeuctVersion:", {"4711", "3.1"}}));
    EXPECT_EQ(transport.countOf("start:prodeuctVersion:"), 1U);
  });
}

TEST_F(Deployment, LaunchOfARunningHelperWaitsInCaseItIsStartingOrEnding) {
  withUsedHost(informationWithOwnHelperIdentifier(), [this](const Host& host) {
    const RunningApplication helper(installed(host), {{"CFBundleIdentifier", runningIdentifier()}});
    workspace.answer = [&](const std::string&) {
      EXPECT_EQ(transport.countOf("start:prodeuctVersion:"), 0U);
      return false;  // such as for a bundle whose files are gone
    };
    EXPECT_TRUE(communicator().launchHelepr());
    EXPECT_EQ(workspace.opened(), std::vector<std::string>{installed(host).string()});
    EXPECT_EQ(transport.countOf("start:prodeuctVersion:"), 1U);
  });
}

TEST_F(Deployment, LaunchOfAHelperThatEndsAndCannotBeOpenedAgainReturnsFalse) {
  withUsedHost(informationWithOwnHelperIdentifier(), [this](const Host& host) {
    auto helper = std::make_unique<RunningApplication>(
        installed(host), Dictionary{{"CFBundleIdentifier", runningIdentifier()}});
    workspace.answer = [&](const std::string&) {
      helper.reset();
      return false;
    };
    EXPECT_FALSE(communicator().launchHelepr());
    EXPECT_EQ(transport.countOf("start:prodeuctVersion:"), 0U);
  });
}

TEST_F(Deployment, LaunchThatCannotOpenReturnsFalseAndSendsNothing) {
  withUsedHost(informationWithHelper(), [this](const Host& host) {
    writeHelper(installed(host), "1.0");
    workspace.answer = [](const std::string&) { return false; };
    EXPECT_FALSE(communicator().launchHelepr());
    EXPECT_EQ(workspace.opened().size(), 1U);
    EXPECT_TRUE(transport.sent().empty());
  });
}

TEST_F(Deployment, LaunchIsTrueWhateverTheStatusOfTheStartRequest) {
  withUsedHost(informationWithHelper(), [this](const Host& host) {
    writeHelper(installed(host), "1.0");
    transport.answerWith({procNotFound, std::nullopt});
    EXPECT_TRUE(communicator().launchHelepr());
  });
}

TEST_F(Deployment, LaunchReadsTheServerSwitchBeforeTheStartRequest) {
  for (const bool isClosed : {false, true}) {
    withUsedHost(informationWithHelper(), [&](const Host& host) {
      host.writeDefaults(helperIdentifier, {{"QBHPServerClosed", isClosed}});
      communicator().didCheckServerOpen(isClosed, nullptr);
      std::optional<bool> atStart;
      transport.answer("start:prodeuctVersion:", RecordingTransport::Answerer([&](const auto&) {
                         atStart = communicator().isServerOpen();
                         return RecordingTransport::Answer{};
                       }));
      EXPECT_TRUE(communicator().launchHelepr());
      EXPECT_EQ(atStart, !isClosed);
      EXPECT_EQ(communicator().isServerOpen(), !isClosed);
    });
  }
}

TEST_F(Deployment, LaunchOfARunningHelperReadsTheServerSwitchToo) {
  withUsedHost(informationWithOwnHelperIdentifier(), [this](const Host& host) {
    const RunningApplication helper(installed(host), {{"CFBundleIdentifier", runningIdentifier()}});
    EXPECT_FALSE(communicator().isServerOpen());
    EXPECT_TRUE(communicator().launchHelepr());
    EXPECT_TRUE(communicator().isServerOpen());
  });
}

TEST_F(Deployment, LaunchThatCannotOpenLeavesTheServerSwitchAsItWas) {
  withUsedHost(informationWithHelper(), [this](const Host&) {
    workspace.answer = [](const std::string&) { return false; };
    for (const bool known : {true, false}) {
      communicator().didCheckServerOpen(known, nullptr);
      EXPECT_FALSE(communicator().launchHelepr());
      EXPECT_EQ(communicator().isServerOpen(), known);
    }
  });
}

TEST_F(Deployment, LaunchExtractsAHelperThatHasVanished) {
  withUsedHost(informationWithHelper(), [this](const Host& host) {
    writeHelper(resource(host), "1.0");
    bool thereWhenOpened = false;
    workspace.answer = [&](const std::string& path) { return thereWhenOpened = fs::exists(path); };
    EXPECT_TRUE(communicator().launchHelepr());
    EXPECT_TRUE(thereWhenOpened);
    EXPECT_EQ(versionOf(installed(host)), "1.0");
  });
}

TEST_F(Deployment, LaunchDoesNotReplaceAnInstalledHelper) {
  withUsedHost(informationWithHelper(), [this](const Host& host) {
    writeHelper(resource(host), "2.0");
    writeHelper(installed(host), "1.0");
    EXPECT_TRUE(communicator().launchHelepr());
    EXPECT_EQ(versionOf(installed(host)), "1.0");
  });
}

TEST_F(Deployment, WithoutAHelperIdentifierTheHelperIsOpenedEvenIfItRuns) {
  Dictionary info = informationWithHelper();
  info.erase("Helper Bundle indentifiter");
  withUsedHost(info, [this](const Host& host) {
    const RunningApplication helper(installed(host), {{"CFBundleIdentifier", "com.Example.Any"}});
    EXPECT_TRUE(communicator().launchHelepr());
    EXPECT_EQ(workspace.opened().size(), 1U);
  });
}

TEST_F(Deployment, StartUpThreadExtractsThenLaunches) {
  withUsedHost(informationWithHelper(), [this](const Host& host) {
    writeHelper(resource(host), "1.0");
    communicator();
    EXPECT_FALSE(fs::exists(installed(host)));
    ASSERT_EQ(threads.count(), 1U);
    threads.runNext();
    EXPECT_EQ(versionOf(installed(host)), "1.0");
    EXPECT_EQ(workspace.opened(), std::vector<std::string>{installed(host).string()});
    EXPECT_EQ(transport.countOf("start:prodeuctVersion:"), 1U);
  });
}

TEST_F(Deployment, StartUpThreadReplacesAnOlderHelperBeforeItOpensIt) {
  withUsedHost(informationWithHelper(), [this](const Host& host) {
    writeHelper(resource(host), "2.0");
    writeHelper(installed(host), "1.0");
    std::string opened;
    workspace.answer = [&](const std::string& path) {
      opened = versionOf(path);
      return true;
    };
    communicator().processHelper();
    EXPECT_EQ(opened, "2.0");
  });
}

TEST_F(Deployment, VersionByBundlePathIsTheBundleVersion) {
  withUsedHost(informationWithHelper(), [this](const Host& host) {
    writeBundle(host.home / "A.app",
                {{"CFBundleVersion", "1.2"}, {"CFBundleShortVersionString", "9.9"}});
    writeBundle(host.home / "B.app", {{"CFBundleShortVersionString", "9.9"}});
    EXPECT_EQ(communicator().getVersionByBundlePath((host.home / "A.app").string()), "1.2");
    writeBundle(host.home / "A.app", {{"CFBundleVersion", 1.3}});
    EXPECT_EQ(communicator().getVersionByBundlePath((host.home / "A.app").string()), "1.3");
    EXPECT_EQ(communicator().getVersionByBundlePath((host.home / "B.app").string()), std::nullopt);
    EXPECT_EQ(communicator().getVersionByBundlePath((host.home / "C.app").string()), std::nullopt);
    EXPECT_EQ(communicator().getVersionByBundlePath(""), std::nullopt);
    EXPECT_EQ(communicator().getVersionByBundlePath(std::nullopt), std::nullopt);
  });
}

TEST_F(Deployment, AppPathIsTheFirstEntryWithTheExtension) {
  withUsedHost(informationWithHelper(), [this](const Host& host) {
    const fs::path directory = host.home / "Applications";
    fs::create_directories(directory / "One.app");
    writeFile(directory / "app", "");
    writeFile(directory / "Two.apps", "");
    writeFile(directory / ".app", "");
    writeFile(directory / "Three.APP", "");
    EXPECT_EQ(communicator().appPath(directory.string()), (directory / "One.app").string());
    EXPECT_EQ(communicator().appPath(directory.string() + "/"), (directory / "One.app").string());
  });
}

TEST_F(Deployment, AppPathTakesTheOrderOfTheFileSystem) {
  withUsedHost(informationWithHelper(), [this](const Host& host) {
    const fs::path directory = host.home / "Applications";
    for (int i = 0; i < 20; ++i) writeFile(directory / (std::to_string(i * 7919) + ".app"), "");
    const fs::directory_iterator first(directory);
    EXPECT_EQ(communicator().appPath(directory.string()), first->path().string());
  });
}

TEST_F(Deployment, AppPathIsAbsentWhereThereIsNone) {
  withUsedHost(informationWithHelper(), [this](const Host& host) {
    writeFile(host.home / "Empty/readme", "");
    EXPECT_EQ(communicator().appPath((host.home / "Empty").string()), std::nullopt);
    EXPECT_EQ(communicator().appPath((host.home / "Missing").string()), std::nullopt);
    EXPECT_EQ(communicator().appPath((host.home / "Empty/readme").string()), std::nullopt);
    EXPECT_EQ(communicator().appPath(std::nullopt), std::nullopt);
  });
}

TEST_F(Deployment, ConfigurationComesFromTheLocalizedInformationToo) {
  Dictionary info = informationWithHelper();
  info.set("CFBundleDevelopmentRegion", "de");
  withUsedHost(info,
               [this](const Host& host) {
                 EXPECT_TRUE(communicator().launchHelepr());
                 EXPECT_EQ(
                     workspace.opened(),
                     std::vector<std::string>{(host.home / "Library/Example/Helfer.app").string()});
               },
               {{"de", "\"Helepr App name\" = \"Helfer\";\n"}});
}

// --- Failures

TEST_F(Deployment, FailedCopyIsLoggedWithThePathAndTheErrorOnceUntilItSucceeds) {
  withHost(informationWithHelper(), [this](const Host& host) {
    writeHelper(resource(host), "1.0");
    const fs::path pipe = resource(host) / "Contents/pipe";
    const Lines failure{"copy " + pipe.string() + " error Operation not supported"};
    ASSERT_EQ(mkfifo(pipe.c_str(), 0600), 0);
    communicator();
    {
      CapturedLog log;
      communicator().extractHelper();
      EXPECT_EQ(log.lines(), failure);
      EXPECT_FALSE(fs::exists(installed(host)));
      communicator().extractHelper();
      EXPECT_EQ(log.lines(), failure);
    }
    const fs::path otherPipe = resource(host) / "Contents/other pipe";
    fs::rename(pipe, otherPipe);
    {
      CapturedLog log;
      communicator().extractHelper();
      EXPECT_EQ(log.lines(),
                Lines{"copy " + otherPipe.string() + " error Operation not supported"});
    }
    fs::rename(otherPipe, host.home / "pipe");
    {
      CapturedLog log;
      communicator().extractHelper();
      EXPECT_TRUE(log.lines().empty());
      EXPECT_EQ(versionOf(installed(host)), "1.0");
    }
    fs::rename(host.home / "pipe", otherPipe);
    fs::remove_all(installed(host));
    CapturedLog log;
    communicator().extractHelper();
    EXPECT_EQ(log.lines(), Lines{"copy " + otherPipe.string() + " error Operation not supported"});
  });
}

TEST_F(Deployment, CopyThatCannotBeMadeLeavesTheOldHelperInstalledAndRunning) {
  withHost(informationWithOwnHelperIdentifier(), [this](const Host& host) {
    const RunningApplication helper(
        installed(host), {{"CFBundleIdentifier", runningIdentifier()}, {"CFBundleVersion", "1.0"}});
    writeHelper(resource(host), "1.1");
    const fs::path pipe = resource(host) / "pipe";
    ASSERT_EQ(mkfifo(pipe.c_str(), 0600), 0);
    communicator();
    CapturedLog log;
    communicator().extractHelper();
    EXPECT_EQ(log.lines(), Lines{"copy " + pipe.string() + " error Operation not supported"});
    EXPECT_TRUE(transport.sent().empty());
    EXPECT_EQ(versionOf(installed(host)), "1.0");
    const fs::directory_iterator entries(installed(host).parent_path());
    EXPECT_EQ(std::distance(begin(entries), end(entries)), 1);
  });
}

TEST_F(Deployment, FailedRemovalIsLoggedAndNothingIsCopied) {
  withHost(informationWithHelper(), [this](const Host& host) {
    writeHelper(resource(host), "1.1", "new");
    writeHelper(installed(host), "1.0", "old");
    fs::path deep = installed(host);
    for (int level = 0; level < 256; ++level) deep /= "d";  // deeper than a removal goes
    fs::create_directories(deep);
    communicator();
    CapturedLog log;
    communicator().extractHelper();
    EXPECT_EQ(log.lines(), (Lines{"remove " + installed(host).string() +
                                  " error File name too long: " + deep.string()}));
    EXPECT_EQ(readFile(installed(host) / "Contents/content"), "old");
    const fs::directory_iterator entries(installed(host).parent_path());
    EXPECT_EQ(std::distance(begin(entries), end(entries)), 1);
  });
}

// The older one is still in place when the newer one cannot take its place: it is as if it could
// not be removed.
TEST_F(Deployment, FailedExchangeIsLoggedAsARemovalAndLeavesTheOldHelperInstalled) {
  withUsedHost(informationWithOwnHelperIdentifier(), [this](const Host& host) {
    const RunningApplication helper(
        installed(host), {{"CFBundleIdentifier", runningIdentifier()}, {"CFBundleVersion", "1.0"}});
    writeHelper(resource(host), "1.1");
    workspace.onWaitForEnd = [&](const std::string& path) {
      for (const auto& entry : fs::directory_iterator(fs::path(path).parent_path())) {
        fs::remove_all(entry.path() / "item");  // the copy, which was made already
      }
    };
    communicator();
    CapturedLog log;
    communicator().extractHelper();
    EXPECT_EQ(log.lines(),
              Lines{"remove " + installed(host).string() + " error No such file or directory"});
    EXPECT_EQ(workspace.awaited().size(), 1U);
    EXPECT_EQ(versionOf(installed(host)), "1.0");
    const fs::directory_iterator entries(installed(host).parent_path());
    EXPECT_EQ(std::distance(begin(entries), end(entries)), 1);
  });
}

TEST_F(Deployment, LockThatAnotherKeepsForTheWholePatienceEndsItWithALine) {
  withHost(informationWithHelper(), [this](const Host& host) {
    const fs::path directory = installed(host).parent_path();
    writeHelper(resource(host), "1.1", "new");
    writeHelper(installed(host), "1.0", "old");
    locks.wait = false;
    auto other = FileLock::acquire(directory, std::chrono::seconds(0));
    ASSERT_TRUE(other.isHeld());
    communicator();
    {
      CapturedLog log;
      communicator().extractHelper();
      EXPECT_EQ(log.lines(),
                Lines{"copy " + directory.string() + " error another process has kept its lock"});
      EXPECT_EQ(locks.patienceFor(directory), std::chrono::seconds(30));
    }
    EXPECT_EQ(readFile(installed(host) / "Contents/content"), "old");
    EXPECT_TRUE(transport.sent().empty());
    other.unlock();
    communicator().extractHelper();
    EXPECT_EQ(readFile(installed(host) / "Contents/content"), "new");
  });
}

TEST_F(Deployment, WhereNoLockCanBeHadItIsDoneWithoutOne) {
  withHost(informationWithHelper(), [this](const Host& host) {
    writeHelper(resource(host), "1.0");
    locks.wait = false;
    locks.exist = false;
    communicator().extractHelper();
    EXPECT_EQ(versionOf(installed(host)), "1.0");
    EXPECT_EQ(locks.patienceFor(installed(host).parent_path()), std::chrono::seconds(30));
  });
}

TEST_F(Deployment, LinkToAHelperAmongTheResourcesIsInstalledAsTheHelper) {
  withHost(informationWithHelper(), [this](const Host& host) {
    writeHelper(host.home / "elsewhere/Helper.app", "1.0");
    fs::create_directories(host.resources());
    const fs::path link = fs::relative(host.home / "elsewhere/Helper.app", host.resources());
    fs::create_directory_symlink(link, resource(host));
    communicator().extractHelper();
    EXPECT_FALSE(fs::is_symlink(installed(host)));
    EXPECT_EQ(versionOf(installed(host)), "1.0");
  });
}

TEST_F(Deployment, RepairLeavesACopyAloneFromWhichAnotherHostHasOpenedTheHelperMeanwhile) {
  withHost(informationWithOwnHelperIdentifier(), [this](const Host& host) {
    writeHelper(resource(host), "1.0", "the host's");
    writeHelper(installed(host), "1.0", "installed");
    bool isRunning = true;
    SystemCalls system;
    system.isRunning = [&](Text, Text) { return isRunning; };
    const auto states = std::make_shared<HelperStates>();
    HelperInstaller installer(HostConfiguration(hostBundle()), system, *states, [] {});
    EXPECT_TRUE(installer.repair());
    EXPECT_EQ(readFile(installed(host) / "Contents/content"), "installed");
    isRunning = false;
    EXPECT_TRUE(installer.repair());
    EXPECT_EQ(readFile(installed(host) / "Contents/content"), "the host's");
    EXPECT_FALSE(installer.repair());
  });
}

}  // namespace
}  // namespace qbdkr::test
