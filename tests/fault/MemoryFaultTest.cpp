// Makes requests without enough memory.

#include <gtest/gtest.h>

#include <set>
#include <string>

#include "support/ProbeText.h"
#include "support/Sanitizers.h"
#include "support/Scene.h"

namespace qbdkr::test {
namespace {

TEST(MemoryFault, RequestWithoutMemoryIsRefusedAndTheNextOneIsMade) {
  if (hasSanitizer) GTEST_SKIP() << "a sanitizer ends the process instead";
  Scene scene;
  const auto host = scene.startAndShare(scene.makeHost("Host", "1.0"));
  constexpr std::size_t size = 30'000'000;
  std::set<std::string> answers;
  for (const std::size_t room : {0 * size, 1 * size, 2 * size, 3 * size, 8 * size}) {
    const auto answer =
        host->call("request-in-little-memory " + std::to_string(room) + ' ' + std::to_string(size));
    const auto words = wordsOf(answer);
    ASSERT_EQ(words.size(), 3U) << answer;
    // The bus library drops a connection when it runs out of memory.
    for (int i = 0; i < 2; ++i) {
      EXPECT_TRUE(words[i] == "0" || words[i] == "-50" || words[i] == "-609") << answer;
    }
    EXPECT_EQ(words[2], words[1] == "0" ? "text" : "~") << answer;
    EXPECT_EQ(host->call("ask " + scene.helperID() + " Probe echo: after"), "0 after") << room;
    answers.insert(answer);
  }
  EXPECT_TRUE(answers.contains("-50 -50 ~"));
  EXPECT_TRUE(answers.contains("0 0 text"));
}

}  // namespace
}  // namespace qbdkr::test
