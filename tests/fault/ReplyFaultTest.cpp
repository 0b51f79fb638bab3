// A peer answers with more than any answer may be.

#include <gtest/gtest.h>

#include <string>

#include "Peer.h"
#include "Platform/RPCEvent.h"
#include "support/ProbeText.h"
#include "support/ResourceUse.h"
#include "support/Scene.h"

namespace qbdkr::test {
namespace {

constexpr std::size_t modest = 24;  // MB

// A sanitizer keeps what was freed.
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
constexpr bool memoryCounts = false;
#else
constexpr bool memoryCounts = true;
#endif

void expectLess(const ResourceUse& use, std::size_t megabytes) {
  if (!memoryCounts) return;
  EXPECT_LT(use.megabytes(), megabytes);
}

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
  std::unique_ptr<Host> host;
};

TEST(ReplyFault, LargestAnswerIsTaken) {
  Answering scene(mostEventContent);
  EXPECT_EQ(scene.ask(), "0 " + sizeOfAnswer(mostEventContent));
}

TEST(ReplyFault, LargerAnswerIsRefusedAsFromATargetThatTakesNoEvents) {
  Answering scene(mostEventContent + 1);
  EXPECT_EQ(scene.ask(), "-1708 " + sizeOfAnswer(0));
}

TEST(ReplyFault, MemoryOfARefusedAnswerIsGivenBack) {
  constexpr std::size_t huge = 100'000'000;
  Answering scene(huge);
  const ResourceUse use(scene.host->processID());
  for (int i = 0; i < 3; ++i) EXPECT_EQ(scene.ask(), "-1708 " + sizeOfAnswer(0));
  expectLess(use, modest);
  EXPECT_EQ(scene.host->call("send " + scene.name + " Probe note: x"), "0");
}

TEST(ReplyFault, MemoryOfLargeErrorsIsGivenBack) {
  // Below what the C library takes from the system for each by itself, and gives back at once. Of
  // what the main thread has freed it can be made to give back all.
  constexpr std::size_t large = 20'000'000;
  Answering scene(large, "refuse");
  const ResourceUse use(scene.host->processID());
  for (int i = 0; i < 5; ++i) {
    EXPECT_EQ(scene.host->call("ask-on-main " + scene.name + " Probe echo: x"), "-1708 ~");
  }
  expectLess(use, modest);
}

}  // namespace
}  // namespace qbdkr::test
