// Tests answers beyond the bounds.

#include <gtest/gtest.h>

#include <string>

#include "Platform/Events/RPCEvent.h"
#include "support/Peer.h"
#include "support/ProbeText.h"
#include "support/ResourceUse.h"
#include "support/Sanitizers.h"
#include "support/Scene.h"

namespace qbdkr::test {
namespace {

constexpr std::size_t modest = 24;  // MB

std::string sizeOfAnswer(std::size_t size) {
  return summary(std::vector<std::string>{std::string(size, 'a')});
}

struct Answering : Scene {
  explicit Answering(std::size_t size, const std::string& how = "answer")
      : name(identifier("Answering")),
        peer(Peer::inBundle(*this).begin({how, name, std::to_string(size)})),
        host(start(makeHostWithoutHelper("Host"))) {
    peer->waitForOutput([](const std::string& line) { return line == "ready"; });
  }

  std::string ask() { return host->call("ask-summary " + name + " Probe echo: x"); }

  std::string name;
  std::unique_ptr<ChildProcess> peer;
  std::unique_ptr<HostProcess> host;
};

TEST(ReplyFault, LargestAnswerIsTaken) {
  if (hasSanitizer) GTEST_SKIP() << "takes a minute";
  Answering scene(mostEventContent);
  EXPECT_EQ(scene.ask(), "0 " + sizeOfAnswer(mostEventContent));
}

TEST(ReplyFault, LargerAnswerIsRefusedAsFromATargetThatTakesNoEvents) {
  if (hasSanitizer) GTEST_SKIP() << "takes a minute";
  Answering scene(mostEventContent + 1);
  EXPECT_EQ(scene.ask(), "-1708 " + sizeOfAnswer(0));
}

TEST(ReplyFault, MemoryOfARefusedAnswerIsGivenBack) {
  if (hasSanitizer) GTEST_SKIP() << "a sanitizer keeps what was freed";
  constexpr std::size_t huge = 100'000'000;
  Answering scene(huge);
  const ResourceUse use(scene.host->processID());
  for (int i = 0; i < 3; ++i) EXPECT_EQ(scene.ask(), "-1708 " + sizeOfAnswer(0));
  EXPECT_LT(use.megabytes(), modest);
  EXPECT_EQ(scene.host->call("send " + scene.name + " Probe note: x"), "0");
}

TEST(ReplyFault, MemoryOfLargeErrorsIsGivenBack) {
  if (hasSanitizer) GTEST_SKIP() << "a sanitizer keeps what was freed";
  // Smaller than the blocks that the C library gets from the system one by one, and gives back at
  // once. The library can be made to give back all that the main thread has freed.
  constexpr std::size_t large = 20'000'000;
  Answering scene(large, "refuse");
  const ResourceUse use(scene.host->processID());
  for (int i = 0; i < 5; ++i) {
    EXPECT_EQ(scene.host->call("ask-on-main " + scene.name + " Probe echo: x"), "-1708 ~");
  }
  EXPECT_LT(use.megabytes(), modest);
}

}  // namespace
}  // namespace qbdkr::test
