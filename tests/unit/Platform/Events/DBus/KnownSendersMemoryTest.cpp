// The rows of events that wait, when memory runs out.

#include <gtest/gtest.h>
#include <sys/types.h>

#include <cstddef>
#include <memory>
#include <string>
#include <utility>

#include <ClientComm/RunLoop.h>

#include "FailingMemory.h"
#include "Platform/Events/DBus/KnownSenders.h"

namespace qbdkr::test {
namespace {

// A process with two senders, of which one has left, and another process.
struct Rows {
  Rows() {
    handled.reserve(64);
    earlier = add(":1.1", 100);
    later = add(":1.2", 100);
    other = add(":1.3", 200);
    turnLoop();
    for (const char* name : {"a", "b"}) park(earlier, name);
    for (const char* name : {"c", "d"}) park(later, name);
    for (const char* name : {"1", "2"}) park(other, name);
    senders.depart(earlier);
  }

  KnownSenders::Sender add(const std::string& name, pid_t process) {
    auto sender = std::make_shared<KnownSender>();
    senders.add(name, sender);
    senders.settle(sender, {process, std::nullopt, false});
    return sender;
  }

  void park(const KnownSenders::Sender& sender, const std::string& name) {
    ReceivedEvent received;
    received.event = RPCEvent{std::nullopt, name, {}};
    senders.park(sender, std::move(received));
  }

  static void turnLoop() {
    for (int i = 0; i < 20; ++i) RunLoop::main().dispatch();
  }

  [[nodiscard]] std::string handledOf(const std::string& names) const {
    std::string found;
    for (const char name : handled) {
      if (names.find(name) != std::string::npos) found += name;
    }
    return found;
  }

  std::string handled;
  KnownSenders senders{[this](const ReceivedEvent& received, const auto& /*bundleID*/) {
    handled += received.event->methodName.value_or("?");
  }};
  KnownSenders::Sender earlier;
  KnownSenders::Sender later;
  KnownSenders::Sender other;
};

TEST(KnownSendersTest, EventsAreHandledInOrderOnceThereIsMemoryAgain) {
  RunLoop::main().dispatch();  // makes the loop
  bool hasFailed = true;
  for (std::size_t allocations = 0; hasFailed; ++allocations) {
    Rows rows;
    {
      const FailingMemory memory(allocations);
      Rows::turnLoop();
      hasFailed = FailingMemory::hasFailed();
    }
    rows.park(rows.other, "3");
    Rows::turnLoop();
    EXPECT_EQ(rows.handledOf("abcd"), "abcd") << allocations;
    EXPECT_EQ(rows.handledOf("123"), "123") << allocations;
    EXPECT_FALSE(rows.senders.hasParked()) << allocations;
    ASSERT_LT(allocations, 100U);
  }
}

// The bus tells the process of a sender, and ends.
TEST(KnownSendersTest, EndOfTheBusNeedsNoMemory) {
  RunLoop::main().dispatch();  // makes the loop
  Rows rows;
  const auto asked = std::make_shared<KnownSender>();
  const auto unknown = std::make_shared<KnownSender>();
  rows.senders.add(":1.4", asked);
  rows.senders.add(":1.5", unknown);
  for (const char* name : {"x", "y"}) rows.park(asked, name);
  rows.park(unknown, "z");
  Rows::turnLoop();
  for (const char* name : {"e", "f"}) rows.park(rows.later, name);
  {
    const FailingMemory memory(0);
    EXPECT_NO_THROW(rows.senders.settle(asked, {300, std::nullopt, true}));
  }
  {
    const FailingMemory memory(0);
    EXPECT_NO_THROW(rows.senders.outliveBus());
  }
  rows.park(rows.other, "3");
  Rows::turnLoop();
  EXPECT_EQ(rows.handledOf("abcdef"), "abcdef");
  EXPECT_EQ(rows.handledOf("xyz"), "xy");
  EXPECT_FALSE(rows.senders.hasParked());
  EXPECT_TRUE(rows.senders.isEmpty());
}

}  // namespace
}  // namespace qbdkr::test
