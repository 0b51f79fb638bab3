// Tests damaged, unreadable and wrong files, and a full disk.

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <chrono>
#include <filesystem>
#include <string>

#include "support/Patience.h"
#include "support/Sanitizers.h"
#include "support/Scene.h"

namespace qbdkr::test {
namespace {

namespace fs = std::filesystem;

struct Damage {
  const char* name;
  std::string contents;
};

void PrintTo(const Damage& damage, std::ostream* stream) { *stream << damage.name; }

class DamagedPreferences : public testing::TestWithParam<Damage> {};

TEST_P(DamagedPreferences, AreSetAsideAndReplaced) {
  Scene scene;
  const auto file = scene.home().preferencesFile(scene.hostID());
  writeFile(file, GetParam().contents);
  const auto host = scene.startAndShare(scene.makeHost("Host", "1.0"));
  EXPECT_EQ(host->call("first-start"), "1001");
  const auto stored = scene.preferences(scene.hostID());
  EXPECT_NE(stored.find("\"PID\": \"1001\""), std::string::npos) << stored;
  ASSERT_TRUE(fs::exists(file.string() + ".damaged"));
  EXPECT_EQ(readFile(file.string() + ".damaged"), GetParam().contents);
  host->quit();
}

INSTANTIATE_TEST_SUITE_P(
    Host, DamagedPreferences,
    testing::Values(
        Damage{"Empty", ""}, Damage{"Garbage", "\x01\xff\xfe no list at all"},
        Damage{"HalfWritten",
               "<?xml version=\"1.0\"?><plist version=\"1.0\"><dict><key>PID</key><str"},
        Damage{"BinaryGarbage",
               "bplist00\xff\xff\xff\xff\xff\xff\xff\xff\xff\xff\xff"
               "\xff\xff\xff\xff\xff\xff\xff\xff\xff\xff\xff\xff\xff"},
        Damage{"NotADictionary", "<?xml version=\"1.0\"?><plist version=\"1.0\"><array/></plist>"}),
    [](const auto& tested) { return std::string(tested.param.name); });

TEST(FileFault, UnreadablePreferencesAreSetAside) {
  Scene scene;
  const auto file = scene.home().preferencesFile(scene.hostID());
  writeFile(file, informationPropertyList({{"PID", "old"}}));
  fs::permissions(file, fs::perms::none);
  auto options = scene.options();
  options.obeyFilePermissions = true;
  const auto host = scene.start(scene.makeHost("Host", "1.0"), options);
  host->call("share");
  scene.transcript().waitFor({"clientIDFormHelper"});
  EXPECT_EQ(host->call("first-start"), "1001");
  EXPECT_TRUE(fs::exists(file.string() + ".damaged"));
  EXPECT_NE(scene.preferences(scene.hostID()).find("\"PID\": \"1001\""), std::string::npos);
}

TEST(FileFault, PreferencesDirectoryThatCannotBeWrittenCostsTheRecordsAlone) {
  Scene scene;
  const auto directory = scene.home().preferencesFile(scene.hostID()).parent_path();
  fs::create_directories(directory);
  fs::permissions(directory, fs::perms::owner_read | fs::perms::owner_exec);
  auto options = scene.options();
  options.obeyFilePermissions = true;
  const auto host = scene.start(scene.makeHost("Host", "1.0"), options);
  host->call("share");
  scene.transcript().waitFor({"start:prodeuctVersion:", " 1001 3.1"});
  EXPECT_EQ(host->call("first-start"), "1001");
  EXPECT_TRUE(fs::is_empty(directory));
  fs::permissions(directory, fs::perms::owner_all);
  host->call("set-collect 5");  // also stores the changes that failed before
  EXPECT_NE(scene.preferences(scene.hostID()).find("\"PID\": \"1001\""), std::string::npos);
}

TEST(FileFault, DamagedPreferencesOfTheHelperMeanAnOpenServer) {
  Scene scene;
  const auto file = scene.home().preferencesFile(scene.helperID());
  writeFile(file, "bplist00 and then nothing that makes sense");
  const auto host = scene.startAndShare(scene.makeHost("Host", "1.0"));
  EXPECT_EQ(host->call("server-open"), "yes");
  EXPECT_EQ(host->call("restart"), "0");
  EXPECT_EQ(readFile(file), "bplist00 and then nothing that makes sense");
}

TEST(FileFault, FIFOsInThePlaceOfPreferencesDoNotBlock) {
  Scene scene;
  for (const auto& domain : {scene.hostID(), scene.helperID()}) {
    const auto file = scene.home().preferencesFile(domain);
    fs::create_directories(file.parent_path());
    ASSERT_EQ(mkfifo(file.c_str(), 0600), 0);
  }
  const auto host = scene.start(scene.makeHost("Host", "1.0"));
  EXPECT_EQ(host->call("share", soon), "shared");
  EXPECT_EQ(host->call("server-open", soon), "yes");
  scene.transcript().waitFor({"start:prodeuctVersion:"}, 0, soon);
}

TEST(FileFault, FullDiskLeavesNoHalfCopy) {
  Scene scene;
  const auto bundle = scene.makeHostWithoutHelper("Host");
  const TestBundle helper(bundle.resources(), "ProbeHelper",
                          {{"CFBundleIdentifier", scene.helperID()}, {"CFBundleVersion", "1.0"}});
  writeFile(helper.resources() / "a-small-file", "fits");
  writeFile(helper.resources() / "large-file", std::string(3'000'000, 'x'));
  auto options = scene.options();
  options.largestFile = 1'000'000;
  {
    const auto host = scene.start(bundle, options);
    host->call("share");
    host->call("extract");
    EXPECT_FALSE(fs::exists(scene.installedHelper()));
    EXPECT_EQ(scene.stagingLeftovers(), std::vector<std::string>());
    EXPECT_EQ(host->call("launch", soon), "no");
    host->quit();
  }
  const auto host = scene.start(bundle);  // the disk has room again
  host->call("share");
  host->call("extract");
  EXPECT_EQ(treeDigest(scene.installedHelper()), treeDigest(helper.path()));
}

TEST(FileFault, GarbageInTheHelpersInformationIsInstalledButNotLaunched) {
  Scene scene;
  const auto bundle = scene.makeHost("Host", "1.0");
  const auto resource = bundle.resources() / "ProbeHelper.app";
  writeFile(resource / "Contents/Info.plist", std::string("\x00\x01garbage", 9));
  const auto host = scene.start(bundle);
  host->call("share");
  host->call("extract");
  EXPECT_EQ(treeDigest(scene.installedHelper()), treeDigest(resource));
  EXPECT_EQ(host->call("version " + resource.string()), "~");
  EXPECT_EQ(host->call("launch", soon), "no");
  host->quit();
}

TEST(FileFault, GarbageInTheInstalledInformationIsReplacedOrKeptButNeverHalf) {
  Scene scene;
  const auto installed = scene.makeHelper("1.0", scene.installDirectory());
  writeFile(installed.infoFile(), "garbage");
  const auto before = treeDigest(scene.installedHelper());
  const auto bundle = scene.makeHost("Host", "1.0");
  const auto host = scene.start(bundle);
  host->call("share");
  host->call("extract");
  const auto after = treeDigest(scene.installedHelper());
  EXPECT_TRUE(after == before || after == treeDigest(bundle.resources() / "ProbeHelper.app"));
  EXPECT_EQ(scene.stagingLeftovers(), std::vector<std::string>());
  host->quit();
}

TEST(FileFault, FIFOInThePlaceOfTheInformationDoesNotBlock) {
  Scene scene;
  const auto installed = scene.makeHelper("1.0", scene.installDirectory());
  fs::remove(installed.infoFile());
  ASSERT_EQ(mkfifo(installed.infoFile().c_str(), 0600), 0);
  const auto bundle = scene.makeHost("Host", "1.0");
  const auto resource = bundle.resources() / "ProbeHelper.app";
  fs::remove(resource / "Contents/Info.plist");
  ASSERT_EQ(mkfifo((resource / "Contents/Info.plist").c_str(), 0600), 0);
  const auto host = scene.start(bundle);
  EXPECT_EQ(host->call("share", soon), "shared");
  EXPECT_EQ(host->call("extract", soon), "done");
  EXPECT_EQ(host->call("version " + resource.string(), soon), "~");
  EXPECT_EQ(host->call("launch", soon), "no");
  fs::remove_all(scene.installedHelper());
  EXPECT_EQ(host->call("extract", soon), "done");  // the FIFO cannot be copied
  EXPECT_FALSE(fs::exists(scene.installedHelper()));
  // The host's start-up may be at a copy of its own. The next deployment waits for its end.
  const auto deadline = std::chrono::steady_clock::now() + patience;
  while (!scene.stagingLeftovers().empty() && std::chrono::steady_clock::now() < deadline)
    EXPECT_EQ(host->call("extract", soon), "done");
  EXPECT_EQ(scene.stagingLeftovers(), std::vector<std::string>());
}

TEST(FileFault, FileInThePlaceOfTheInstallDirectoryIsLeftAlone) {
  Scene scene;
  writeFile(scene.installDirectory(), "a file");
  const auto host = scene.start(scene.makeHost("Host", "1.0"));
  host->call("share");
  EXPECT_EQ(host->call("extract", soon), "done");
  EXPECT_EQ(host->call("launch", soon), "no");
  EXPECT_EQ(readFile(scene.installDirectory()), "a file");
}

// A host that is killed while it writes a page of a switch file leaves the rest of the old contents
// behind the new ones.
class HostKilledWhileItWrote : public testing::Test {
 protected:
  static void cutOff(const fs::path& file, const std::string& after) {
    const std::string before = readFile(file);
    const std::string filled = after + std::string(before.size() - after.size(), '\n');
    writeFile(recordOf(file), "qbhp-rewrite " + std::to_string(before.size()) + ' ' +
                                  std::to_string(after.size()) + '\n' + before + filled);
    writeFile(file, after + before.substr(after.size()));
  }
  static fs::path recordOf(const fs::path& file) {
    return file.parent_path() / ('.' + file.filename().string() + ".qbhp-rewrite");
  }

  Scene scene;
};

TEST_F(HostKilledWhileItWrote, GetsItsIdentityBackAtTheNextStart) {
  const auto bundle = scene.makeHost("Host", "1.0", {{"TipsEnable", "1"}, {"EnableAD", "0"}});
  const std::string before = readFile(bundle.infoFile());
  cutOff(bundle.infoFile(), "<plist><dict/></plist>");
  const auto host = scene.startAndShare(bundle);
  EXPECT_EQ(host->call("first-start"), "1001");
  EXPECT_EQ(readFile(bundle.infoFile()), before);
  EXPECT_FALSE(fs::exists(recordOf(bundle.infoFile())));
  host->quit();
}

TEST_F(HostKilledWhileItWrote, GetsTheTextsOfItsLanguageBackAtTheNextStart) {
  const auto bundle = scene.makeHost("Host", "1.0", {{"CFBundleDevelopmentRegion", "en"}});
  const fs::path texts = bundle.resources() / "en.lproj/InfoPlist.strings";
  writeFile(texts, "/* whom data is collected for */ \"PID\" = \"2002\";");
  cutOff(texts, "\"PID\" = \"3");
  const auto host = scene.start(bundle);
  host->call("share");
  EXPECT_EQ(host->call("first-start"), "2002");
  EXPECT_FALSE(fs::exists(recordOf(texts)));
  host->quit();
}

// A host of another user may not write the bundle, and starts all the same.
TEST_F(HostKilledWhileItWrote, DoesNotKeepTheHostOfAReadOnlyBundleFromStarting) {
  const auto bundle = scene.makeHost("Host", "1.0");
  writeFile(recordOf(bundle.infoFile()), "left behind");
  auto options = scene.options();
  options.obeyFilePermissions = true;
  fs::permissions(bundle.infoFile().parent_path(), fs::perms(0555));
  const auto host = scene.start(bundle, options);
  EXPECT_EQ(host->call("share"), "shared");
  EXPECT_EQ(host->call("first-start"), "1001");
  EXPECT_TRUE(fs::exists(recordOf(bundle.infoFile())));
  fs::permissions(bundle.infoFile().parent_path(), fs::perms(0755));
  host->quit();
}

// The host forks while its threads may hold any lock.
TEST(FileFault, ForkedChildOfABusyHostReachesTheSettings) {
  if (hasSanitizer) GTEST_SKIP() << "a sanitizer's own locks stay taken in the child";
  Scene scene;
  const auto host = scene.startAndShare(scene.makeHost("Host", "1.0"));
  EXPECT_EQ(host->call("fork-settings 200", std::chrono::seconds(100)), "200 children");
  host->quit();
}

// The process ends right after the call, and never runs its main loop.
TEST(FileFault, DataPathIsRecordedThoughTheProcessEndsAtOnce) {
  Scene scene;
  const auto host = scene.start(scene.makeHost("Host", "1.0"));
  const fs::path base = scene.directory() / "data";
  host->process().write("1 data-path-and-exit " + base.string() + "\n");
  EXPECT_TRUE(host->process().succeeds());
  EXPECT_TRUE(fs::is_directory(base / "Log/Data"));
  const auto stored = scene.preferences(scene.hostID());
  EXPECT_NE(stored.find((base / "Log/Data").string()), std::string::npos) << stored;
}

}  // namespace
}  // namespace qbdkr::test
