// Makes all calls of the communicator from many threads at once, against a running helper agent.

#include <gtest/gtest.h>

#include <map>
#include <string>
#include <vector>

#include "support/ProbeText.h"
#include "support/Scene.h"

namespace qbdkr::test {
namespace {

constexpr unsigned threads = 16;

// Splits a line of the helper agent's transcript: PID call CLASS METHOD from PID ARGUMENT...
struct Line {
  explicit Line(const std::string& text) : words(wordsOf(text)) {}
  [[nodiscard]] bool isCall() const { return words.size() > 5 && words[1] == "call"; }
  [[nodiscard]] const std::string& method() const { return words[3]; }
  std::vector<std::string> words;
};

std::map<std::string, unsigned> countsIn(const std::string& result) {
  std::map<std::string, unsigned> counts;
  for (const auto& word : wordsOf(result)) {
    const auto equals = word.find('=');
    if (equals == std::string::npos) continue;
    counts[word.substr(0, equals)] = static_cast<unsigned>(std::stoul(word.substr(equals + 1)));
  }
  return counts;
}

// Expects that the count after a thread's name, if the line has one, is larger than its last one.
void expectOrder(const Line& line, std::map<std::string, unsigned long>& last) {
  for (std::size_t i = 6; i + 1 < line.words.size(); ++i) {
    if (!line.words[i].starts_with("thread-")) continue;
    // An empty text may lie between the two.
    const std::string& number = line.words[i + 1] == "%" ? line.words.at(i + 2) : line.words[i + 1];
    const unsigned long count = std::stoul(number);
    EXPECT_GT(count, last[line.words[i]]) << line.words[i];
    last[line.words[i]] = count;
    return;
  }
}

TEST(Concurrency, EveryRequestOfSixteenThreadsArrivesInTheOrderOfItsThread) {
  Scene scene;
  const auto host = scene.startAndShare(scene.makeHost("Host", "1.0"));
  const std::string result =
      host->call("storm " QBDKR_STORM_SECONDS " " + std::to_string(threads), patience * 4);
  ASSERT_TRUE(result.starts_with("failed 0 ")) << result;
  const auto sent = countsIn(result);
  EXPECT_EQ(sent.size(), 18U) << result;
  scene.fence(*host);

  std::map<std::string, unsigned> received;
  std::map<std::string, unsigned long> last;
  for (const auto& text : scene.transcript().lines()) {
    const Line line(text);
    if (!line.isCall()) continue;
    ++received[line.method()];
    expectOrder(line, last);
  }
  for (const auto& [method, count] : sent) {
    EXPECT_GE(count, threads) << method;
    EXPECT_EQ(received[method], count) << method;
  }
  EXPECT_EQ(last.size(), threads);
  EXPECT_EQ(scene.transcript().count(" started version"), 1U);
}

}  // namespace
}  // namespace qbdkr::test
