// Reads the framework's entries in the host's user defaults with another implementation.

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <algorithm>
#include <filesystem>
#include <string>

#include "support/Scene.h"

namespace qbdkr::test {
namespace {

namespace fs = std::filesystem;

bool holds(const std::string& text, const std::string& part) {
  return text.find(part) != std::string::npos;
}

TEST(Bookkeeping, FirstStartRecordsProductAndBundle) {
  Scene scene;
  const auto bundle = scene.makeHost("Host", "1.0");
  const auto host = scene.startAndShare(bundle);
  EXPECT_EQ(host->call("first-start"), "1001");
  EXPECT_EQ(scene.preferences(scene.hostID()),
            "{\"ExecutableFile\": \"" + bundle.path().string() +
                "\", \"FirstStartPID\": \"1001\", \"IsFirstStart\": false, \"PID\": \"1001\", "
                "\"Version\": \"3.1\"}\n");
  struct stat status {};
  ASSERT_EQ(stat(scene.home().preferencesFile(scene.hostID()).c_str(), &status), 0);
  EXPECT_EQ(status.st_mode & 0777U, 0600U);
  EXPECT_FALSE(fs::exists(scene.home().preferencesFile(scene.helperID())));
}

TEST(Bookkeeping, ProductOfTheFirstStartStays) {
  Scene scene;
  auto bundle = scene.makeHost("Host", "1.0");
  {
    const auto first = scene.startAndShare(bundle);
    EXPECT_EQ(first->call("first-start"), "1001");
    first->quit();
  }
  bundle.setKeys({{"PID", "2002"}, {"CFBundleVersion", "4.0"}});
  const auto host = scene.startAndShare(bundle);
  EXPECT_EQ(host->call("first-start"), "1001");
  EXPECT_EQ(host->call("collect"), "1001");
  const auto stored = scene.preferences(scene.hostID());
  EXPECT_TRUE(holds(stored, "\"FirstStartPID\": \"1001\"")) << stored;
  EXPECT_TRUE(holds(stored, "\"PID\": \"2002\"")) << stored;
  EXPECT_TRUE(holds(stored, "\"Version\": \"4.0\"")) << stored;
  scene.transcript().waitFor({"start:prodeuctVersion:", " 2002 4.0"});
}

TEST(Bookkeeping, CollectionProductOverridesThatOfTheFirstStart) {
  Scene scene;
  const auto host = scene.startAndShare(scene.makeHost("Host", "1.0"));
  EXPECT_EQ(host->call("collect"), "1001");
  host->call("set-collect 77");
  EXPECT_EQ(host->call("collect"), "77");
  EXPECT_TRUE(holds(scene.preferences(scene.hostID()), "\"DataCollectPID\": \"77\""));
  const auto other = scene.start(scene.makeHost("OtherHost", "1.0"));
  EXPECT_EQ(other->call("collect"), "77") << "another process with the same domain";
}

TEST(Bookkeeping, InstallTimeIsWrittenByTheFirstStartAlone) {
  Scene scene;
  const auto host = scene.startAndShare(scene.makeHost("Host", "1.0"));
  EXPECT_FALSE(holds(scene.preferences(scene.hostID()), "installTime"));
  host->call("start");
  const auto stored = scene.preferences(scene.hostID());
  const std::string key = "\"installTime\": \"";
  ASSERT_TRUE(holds(stored, key)) << stored;
  const auto value = stored.substr(stored.find(key) + key.size(), 15);
  EXPECT_EQ(value.find_first_not_of("0123456789"), 14U) << value;
  EXPECT_TRUE(value.starts_with("20")) << value;

  // An existing value stays, whatever it is.
  const auto file = scene.home().preferencesFile(scene.hostID());
  writeFile(file, informationPropertyList({{"installTime", ""}}));
  host->call("start");
  EXPECT_TRUE(holds(scene.preferences(scene.hostID()), "\"installTime\": \"\""));
}

TEST(Bookkeeping, DataDirectoryIsMadeAndRecordedOnce) {
  Scene scene;
  const auto base = scene.home().path() / "collected";
  const auto data = base / "Log/Data";
  auto host = scene.startAndShare(scene.makeHost("Host", "1.0"));
  host->call("data-path " + base.string());
  EXPECT_TRUE(fs::is_directory(data));
  host->call("data-path " + base.string());
  EXPECT_EQ(
      host->process().logLinesWith("initDataCollectionPath: DataCollectPath = " + data.string()),
      1U);
  host->call("set-collect 1");  // also stores earlier changes
  EXPECT_TRUE(
      holds(scene.preferences(scene.hostID()), "\"DataCollectPath\": \"" + data.string() + "\""));
}

TEST(Bookkeeping, WhatSomebodyElseStoredInTheDomainStays) {
  Scene scene;
  writeFile(scene.home().preferencesFile(scene.hostID()),
            informationPropertyList({{"Window", "12 x 34"}, {"PID", "old"}}));
  const auto host = scene.startAndShare(scene.makeHost("Host", "1.0"));
  const auto stored = scene.preferences(scene.hostID());
  EXPECT_TRUE(holds(stored, "\"Window\": \"12 x 34\"")) << stored;
  EXPECT_TRUE(holds(stored, "\"PID\": \"1001\"")) << stored;
}

}  // namespace
}  // namespace qbdkr::test
