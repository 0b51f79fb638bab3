// Checks the state that the sample helper agent keeps, and its promise for requests that are under
// way when it is killed.

#include <gtest/gtest.h>
#include <signal.h>
#include <sys/stat.h>

#include <chrono>
#include <filesystem>
#include <functional>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "support/Peer.h"
#include "support/ProcessEnd.h"
#include "support/Sample.h"
#include "support/Scene.h"

namespace qbdkr::test {
namespace {

namespace fs = std::filesystem;

// Computes a digest with another program.
std::string sha256Of(const fs::path& file) {
  return outputOf({"/usr/bin/sha256sum", file.string()}, {{"PATH", "/usr/bin:/bin"}}).substr(0, 64);
}

// Runs four products with the sample's helper agent.
struct SampleState : testing::Test {
  SampleState() {
    for (int i = 0; i < 4; ++i) {
      const std::string name = "Host" + std::to_string(i);
      const TestBundle bundle = scene.makeHostWithoutHelper(
          name,
          {{"CFBundleIdentifier", scene.identifier(name)}, {"Helepr App name", "AcmeHelper"}});
      bundle.addResource(sample.path() / "Contents/Resources/AcmeHelper.app");
      hosts.push_back(scene.start(bundle));
    }
    for (const auto& host : hosts) host->call("share");
    for (const auto& host : hosts) EXPECT_EQ(host->call("launch"), "yes");
  }

  // Lets each host count that often, all at once, with the next numbers as keys. Returns the count
  // of posted requests.
  unsigned long count(
      unsigned each, const std::function<void()>& meanwhile = [] {}) {
    std::vector<std::string> tags;
    for (std::size_t i = 0; i < hosts.size(); ++i) {
      tags.push_back(hosts[i]->begin("count h" + std::to_string(i) + ' ' + std::to_string(next_) +
                                     ' ' + std::to_string(each)));
    }
    next_ += each;
    meanwhile();
    unsigned long posted = 0;
    for (std::size_t i = 0; i < hosts.size(); ++i) {
      const std::string result = hosts[i]->finish(tags[i], patience * 4);
      posted += std::stoul(result.substr(std::string("posted ").size()));
    }
    return posted;
  }

  // Gets an answer for each host: all its earlier requests are then stored.
  void fence() {
    for (const auto& host : hosts) EXPECT_EQ(host->call("collect-status", patience * 4), "yes");
  }

  unsigned long total() const {
    const std::string rows = sample.query("SELECT ifnull(sum(count), 0) FROM counter");
    return std::stoul(rows.substr(rows.find_first_of("0123456789")));
  }

  // Waits until the helper agent has stored that many.
  void awaitTotal(unsigned long wanted) const {
    const auto deadline = std::chrono::steady_clock::now() + patience;
    while (total() < wanted) ASSERT_LT(std::chrono::steady_clock::now(), deadline);
  }

  Scene scene;
  Sample sample{scene};
  std::vector<std::unique_ptr<HostProcess>> hosts;

 private:
  unsigned next_ = 0;
};

TEST_F(SampleState, CountsOfFourHostsAreExactAndAKillTakesOnlyWhatWasUnderWay) {
  constexpr unsigned each = QBDKR_COUNTERS / 4 / 4;
  // Every request counts while it runs.
  EXPECT_EQ(count(2 * each), 8UL * each);
  fence();
  EXPECT_EQ(total(), 8UL * each);

  // Kills it while hosts count.
  const pid_t helper = scene.helperProcess();
  const ProcessEnd end(helper);
  const auto posted = count(each, [&] {
    awaitTotal(8UL * each + 1);
    ::kill(helper, SIGKILL);
  });
  ASSERT_TRUE(end.comesWithin(patience));
  for (const auto& host : hosts) EXPECT_EQ(host->call("launch"), "yes");
  // The hosts may have launched its successor by themselves: that one counts as launched before it
  // can answer.
  scene.transcript().waitForCount(": started, process ", 2);
  Peer::outsideBundles(scene).awaitOwner(scene.helperID());
  fence();
  const unsigned long kept = total();
  EXPECT_GT(kept, 8UL * each);
  EXPECT_LE(kept, 8UL * each + posted);
  RecordProperty("lost", static_cast<int>(8UL * each + posted - kept));
  // Nothing is counted twice, and counts before the fence stay. The lost requests of each host are
  // consecutive: the last ones that went to the killed process.
  EXPECT_EQ(sample.query("SELECT max(count) FROM counter"), "[[1]]");
  for (int i = 0; i < 4; ++i) {
    const std::string numbers =
        "(SELECT CAST(key AS INTEGER) AS number FROM counter WHERE target = 'h" +
        std::to_string(i) + "')";
    const std::string before = std::to_string(2 * each);
    EXPECT_EQ(sample.query("SELECT count(*) FROM " + numbers + " WHERE number < " + before),
              "[[" + before + "]]");
    const std::string gaps = sample.query(
        "SELECT count(*) FROM (SELECT number, lead(number) OVER (ORDER BY number) AS next FROM " +
        numbers + ") WHERE next > number + 1");
    EXPECT_TRUE(gaps == "[[0]]" || gaps == "[[1]]") << gaps;
  }

  // Its successor counts exactly again.
  EXPECT_EQ(count(each), 4UL * each);
  fence();
  EXPECT_EQ(total(), kept + 4UL * each);
}

TEST_F(SampleState, WhatNobodyAsksAboutIsKeptSoon) {
  EXPECT_EQ(hosts[0]->call("count h0 0 10"), "posted 10 failed 0");
  awaitTotal(10);
  scene.killHelper(*hosts[0]);
  EXPECT_EQ(hosts[0]->call("launch"), "yes");
  EXPECT_EQ(total(), 10U);
}

TEST_F(SampleState, QueryEndsWhenAStoppedHelperGoesOn) {
  const std::string client = hosts[0]->call("fetch-client");
  ::kill(scene.helperProcess(), SIGSTOP);
  const auto query = hosts[0]->begin("fetch-client");
  EXPECT_EQ(hosts[0]->call("count h0 0 1000"), "posted 1000 failed 0");
  EXPECT_FALSE(hosts[0]->hasFinished(query));
  ::kill(scene.helperProcess(), SIGCONT);
  EXPECT_EQ(hosts[0]->finish(query), client);
  fence();
  EXPECT_EQ(total(), 1000U);
}

TEST_F(SampleState, QueryEndsAtOnceWithoutValueWhenAStoppedHelperIsKilled) {
  ::kill(scene.helperProcess(), SIGSTOP);
  const auto query = hosts[0]->begin("fetch-client");
  EXPECT_EQ(hosts[0]->call("count h0 0 1000"), "posted 1000 failed 0");
  EXPECT_FALSE(hosts[0]->hasFinished(query));
  ::kill(scene.helperProcess(), SIGKILL);
  EXPECT_EQ(hosts[0]->finish(query, std::chrono::seconds(10)), "~");
}

TEST_F(SampleState, UploadThatAKilledHelperLeftUnreadIsReadByTheNextOne) {
  const auto file = scene.directory() / "holiday.raw";
  writeFile(file, "a day at the beach");
  // A large file comes first: it keeps the reader busy, so that the other is unread at the kill.
  const auto large = scene.directory() / "large";
  writeFile(large, "");
  fs::resize_file(large, 50ULL << 30);  // sparse: long to read, but takes no room
  for (const auto& path : {large, file}) {
    EXPECT_EQ(hosts[0]->call("send " + scene.helperID() +
                             " QBHPUploadByHelper "
                             "uploadUserFile:versionID:email:filePath:title:description: 1 2 e " +
                             path.string() + " t d"),
              "0");
  }
  fence();
  const std::string unread = "SELECT count(*) FROM upload WHERE sha256 IS NULL AND error IS NULL";
  EXPECT_EQ(sample.query(unread), "[[2]]");
  scene.killHelper(*hosts[0]);
  writeFile(large, "not so large any more");
  EXPECT_EQ(hosts[0]->call("launch"), "yes");
  scene.transcript().waitFor({"user file recorded", file.string()});
  fence();
  EXPECT_EQ(sample.query("SELECT kind, product, version, email, title, description, size, sha256 "
                         "FROM upload ORDER BY number LIMIT 1 OFFSET 1"),
            "[[\"user file\", \"1\", \"2\", \"e\", \"t\", \"d\", 18, "
            "\"" +
                sha256Of(file) + "\"]]");
  EXPECT_EQ(sample.query(unread), "[[0]]");
}

TEST_F(SampleState, UploadsThatCannotBeReadAreRecordedWithTheReason) {
  const auto pipe = scene.directory() / "pipe";
  ASSERT_EQ(mkfifo(pipe.c_str(), 0600), 0);
  const auto huge = scene.directory() / "huge";
  writeFile(huge, "");
  fs::resize_file(huge, 65ULL << 30);
  for (const std::string path : {"/none", pipe.c_str(), huge.c_str(), "/dev/zero", "/"}) {
    EXPECT_EQ(hosts[0]->call("send " + scene.helperID() +
                             " QBHPUploadByHelper "
                             "uploadLog:versionID:email:filePath:title:description: 1 2 e " +
                             path + " t d"),
              "0");
    scene.transcript().waitFor({"log recorded: \"" + path + '"'});
  }
  fence();
  EXPECT_EQ(sample.query("SELECT count(*) FROM upload WHERE error IS NOT NULL AND sha256 IS NULL"),
            "[[5]]");
}

TEST_F(SampleState, HelperThatIsToldToExitKeepsWhatHasArrived) {
  const pid_t helper = scene.helperProcess();
  const ProcessEnd end(helper);
  ::kill(helper, SIGSTOP);
  EXPECT_EQ(hosts[0]->call("count h0 0 1000"), "posted 1000 failed 0");
  // The bus has taken what was posted when it answers the host's next message.
  EXPECT_EQ(hosts[0]->call("ask com.example.nobody Probe echo: x"), "-600 ~");
  ::kill(helper, SIGTERM);
  ::kill(helper, SIGCONT);
  ASSERT_TRUE(end.comesWithin(patience));
  EXPECT_EQ(total(), 1000U);
}

TEST_F(SampleState, TextsThatAreTooLongAreNotKept) {
  EXPECT_EQ(
      hosts[0]->call("send " + scene.helperID() +
                     " QBHPUploadByHelper "
                     "collectData:version:collectionType:target:keyID:value: 1 2 5 t % *5000:1"),
      "0");
  EXPECT_EQ(hosts[0]->call("collect-status"), "yes");
  EXPECT_EQ(sample.query("SELECT count(*) FROM string"), "[[0]]");
}

TEST_F(SampleState, SwitchedOffCollectionIsThatHostsAlone) {
  for (const auto& host : {hosts[0].get(), hosts[1].get()}) {
    EXPECT_EQ(host->call("count x 0 4"), "posted 4 failed 0");
  }
  EXPECT_EQ(hosts[0]->call("send " + scene.helperID() +
                           " QBHPUploadByHelper setProductCollectStatus:version:status: 1 2 0"),
            "0");
  EXPECT_EQ(hosts[0]->call("collect-status"), "no");
  EXPECT_EQ(hosts[1]->call("collect-status"), "yes");
  for (const auto& host : {hosts[0].get(), hosts[1].get()}) {
    EXPECT_EQ(host->call("count x 0 4"), "posted 4 failed 0");
  }
  EXPECT_EQ(hosts[1]->call("collect-status"), "yes");
  EXPECT_EQ(hosts[0]->call("collect-status"), "no");
  EXPECT_EQ(total(), 12U);
}

TEST_F(SampleState, DamagedStateIsPutAside) {
  scene.killHelper(*hosts[0]);
  for (const char* suffix : {"-wal", "-shm"}) fs::remove(sample.database().string() + suffix);
  writeFile(sample.database(), std::string(10'000, 'x'));
  EXPECT_EQ(hosts[0]->call("launch"), "yes");
  EXPECT_EQ(hosts[0]->call("count x 0 4"), "posted 4 failed 0");
  fence();
  EXPECT_EQ(total(), 4U);
  EXPECT_EQ(readFile(sample.database().string() + ".damaged"), std::string(10'000, 'x'));
}

}  // namespace
}  // namespace qbdkr::test
