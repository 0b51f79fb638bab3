// Other processes on the machine must not cost the host anything.

#include <gtest/gtest.h>
#include <poll.h>

#include <chrono>
#include <filesystem>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "support/ChildProcess.h"
#include "support/Environment.h"
#include "support/ResourceUse.h"
#include "support/Scene.h"
#include "support/TestBundle.h"

namespace qbdkr::test {
namespace {

namespace fs = std::filesystem;

constexpr std::size_t sevenMegabytes = 7'000'000;
constexpr std::string_view head = "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<plist><dict>\n";
constexpr std::string_view tail = "</dict></plist>\n";

// Returns pairs of a key and a text, of about that many bytes.
std::string pairs(std::size_t size) {
  std::string text;
  for (std::size_t i = 0; text.size() < size; ++i) {
    text += "<key>Key" + std::to_string(i) + "</key><string>Value</string>\n";
  }
  return text;
}

std::string valid(const std::string& contents) {
  return std::string(head) + contents + std::string(tail);
}

std::string bigEndian(std::size_t value, std::size_t width) {
  std::string bytes;
  for (std::size_t place = width; place > 0; --place) {
    bytes += static_cast<char>(value >> (8 * (place - 1)) & 0xFF);
  }
  return bytes;
}

// Returns a binary list of less than 1 MiB: a dictionary with an array that holds one flag 900,000
// times.
std::string manyValues() {
  constexpr std::size_t count = 900'000;
  std::string list = "bplist00";
  std::string offsets;
  for (const std::string& object :
       {std::string("\xD1\1\2"), std::string("\x51k"),
        "\xAF\x12" + bigEndian(count, 4) + std::string(count, '\3'), std::string("\x09")}) {
    offsets += bigEndian(list.size(), 4);
    list += object;
  }
  const std::size_t table = list.size();
  return list + offsets + bigEndian(0, 6) + bigEndian(4, 1) + bigEndian(1, 1) + bigEndian(4, 8) +
         bigEndian(0, 8) + bigEndian(table, 8);
}

// Runs a process from a bundle with information that no application has.
class ForeignProcess {
 public:
  ForeignProcess(const fs::path& directory, const std::string& name, const std::string& information)
      : bundle_(directory, name, {}, "/bin/sleep") {
    fs::remove(bundle_.infoFile());
    writeFile(bundle_.infoFile(), information);
    process_ = std::make_unique<ChildProcess>(
        std::vector<std::string>{bundle_.executable(), "1000"}, SpawnOptions());
  }

 private:
  TestBundle bundle_;
  std::unique_ptr<ChildProcess> process_;
};

std::size_t threadsOf(pid_t process) {
  std::size_t count = 0;
  for ([[maybe_unused]] const auto& task :
       fs::directory_iterator("/proc/" + std::to_string(process) + "/task")) {
    ++count;
  }
  return count;
}

// Polls: no event tells that a thread of another process ended.
void waitForThreads(pid_t process, std::size_t wanted) {
  constexpr int interval = 20;  // milliseconds
  const auto deadline = std::chrono::steady_clock::now() + 4 * patience;
  while (threadsOf(process) > wanted) {
    ASSERT_LT(std::chrono::steady_clock::now(), deadline);
    ::poll(nullptr, 0, interval);
  }
}

// Makes forty guarded requests with a helper agent that cannot start. Their checks read the process
// table.
void expectModestHostBeside(const std::string& information, int processes = 1) {
  Scene scene;
  std::vector<std::unique_ptr<ForeignProcess>> foreign;
  for (int i = 0; i < processes; ++i) {
    foreign.push_back(std::make_unique<ForeignProcess>(scene.directory() / "Foreign",
                                                       "Foreign" + std::to_string(i), information));
  }
  scene.environment()["QBDKR_PROBE_MODE"] = "exit-at-once";
  const auto host = scene.start(scene.makeHost("Host", "1.0"));
  host->call("bundle");
  const std::size_t threads = threadsOf(host->processID());
  const ResourceUse use(host->processID());
  host->call("share");
  EXPECT_EQ(host->call("guarded 40"), "-600");
  waitForThreads(host->processID(), threads);
  EXPECT_GT(host->process().logLinesWith(" isHelperAlive "), 0U);
  EXPECT_EQ(host->call("running " + scene.hostID()), "yes");
  use.expectModest();
}

TEST(ProcessStorm, BesideACutListOf7MBAHostStaysModest) {
  expectModestHostBeside(std::string(head) + pairs(sevenMegabytes));
}

TEST(ProcessStorm, BesideAValidListOf7MBAHostStaysModest) {
  expectModestHostBeside(valid(pairs(sevenMegabytes)));
}

// Each list is just within the bounds. All together are more than the cache holds.
TEST(ProcessStorm, BesideADozenListsOf1MBAHostStaysModest) {
  expectModestHostBeside(
      valid(pairs(300'000) + "<key>Long</key><string>" + std::string(700'000, 'l') + "</string>"),
      12);
}

TEST(ProcessStorm, BesideAListOfManyValuesAHostStaysModest) {
  expectModestHostBeside(manyValues());
}

}  // namespace
}  // namespace qbdkr::test
