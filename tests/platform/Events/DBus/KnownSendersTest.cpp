#include <gtest/gtest.h>
#include <sys/types.h>

#include <cstddef>
#include <memory>
#include <optional>
#include <string>
#include <utility>

#include <ClientComm/RunLoop.h>

#include "Platform/Events/DBus/KnownSenders.h"

namespace qbdkr {
namespace {

constexpr std::size_t megabyte = std::size_t{1} << 20U;

TEST(ParkingSpaceTest, TakesManySmallEvents) {
  ParkingSpace space;
  for (int i = 0; i < 63; ++i) space.take(0);
  EXPECT_FALSE(space.isFull());
  space.take(0);
  EXPECT_TRUE(space.isFull());
  space.giveBack(0);
  EXPECT_FALSE(space.isFull());
}

TEST(ParkingSpaceTest, TakesFewLargeEvents) {
  ParkingSpace space;
  space.take(megabyte);
  EXPECT_FALSE(space.isFull());
  space.take(megabyte);
  EXPECT_TRUE(space.isFull());
  space.giveBack(megabyte);
  EXPECT_FALSE(space.isFull());
  space.take(64 * megabyte);
  EXPECT_TRUE(space.isFull());
  space.giveBack(64 * megabyte);
  EXPECT_FALSE(space.isFull());
}

// Senders whose events are handled by writing them down.
struct Senders {
  // Adds a sender under a name, of a process if the bus tells it.
  KnownSenders::Sender add(const std::string& name, std::optional<pid_t> process) {
    auto sender = meet(name);
    senders.settle(sender, {process, std::nullopt, false});
    return sender;
  }

  // Adds a sender that is not known yet.
  KnownSenders::Sender meet(const std::string& name) {
    auto sender = std::make_shared<KnownSender>();
    senders.add(name, sender);
    return sender;
  }

  void park(const KnownSenders::Sender& sender, const std::string& name) {
    ReceivedEvent received;
    received.event = RPCEvent{std::nullopt, name, {}};
    senders.park(sender, std::move(received));
  }

  // Runs the loop until it has nothing to do, and returns what was handled.
  std::string handle() {
    for (int i = 0; i < 100; ++i) RunLoop::main().dispatch();
    return std::exchange(handled, {});
  }

  std::string handled;
  KnownSenders senders{[this](const ReceivedEvent& received, const auto& /*bundleID*/) {
    handled += received.event->methodName.value_or("?") + ' ';
  }};
};

constexpr pid_t process = 100;
constexpr pid_t otherProcess = 200;

TEST(KnownSendersTest, SendersTakeTurns) {
  Senders scene;
  const auto first = scene.add(":1.1", process);
  const auto second = scene.add(":1.2", otherProcess);
  EXPECT_EQ(scene.handle(), "");
  for (const char* name : {"a", "b", "c"}) scene.park(first, name);
  for (const char* name : {"1", "2", "3"}) scene.park(second, name);
  EXPECT_EQ(scene.handle(), "a 1 b 2 c 3 ");
  EXPECT_FALSE(scene.senders.hasParked());
}

TEST(KnownSendersTest, EventsOfAProcessThatComesAnewWaitForThoseItLeftBehind) {
  Senders scene;
  const auto first = scene.add(":1.1", process);
  const auto second = scene.add(":1.2", process);
  const auto third = scene.add(":1.3", process);
  const auto other = scene.add(":1.4", otherProcess);
  EXPECT_EQ(scene.handle(), "");
  for (const char* name : {"a", "b", "c"}) scene.park(first, name);
  scene.senders.depart(first);
  for (const char* name : {"d", "e"}) scene.park(second, name);
  scene.senders.depart(second);
  scene.park(third, "f");
  for (const char* name : {"1", "2"}) scene.park(other, name);
  EXPECT_EQ(scene.handle(), "a 1 b 2 c d e f ");
  scene.senders.depart(third);
  scene.senders.depart(other);
  EXPECT_TRUE(scene.senders.isEmpty());
}

TEST(KnownSendersTest, ProcessThatIsNotToldWaitsForThoseOfAnEndedBusAlone) {
  Senders scene;
  const auto left = scene.add(":1.1", process);
  const auto unknown = scene.add(":1.2", std::nullopt);
  EXPECT_EQ(scene.handle(), "");
  for (const char* name : {"a", "b", "c"}) scene.park(left, name);
  scene.senders.depart(left);
  scene.park(unknown, "1");
  EXPECT_EQ(scene.handle(), "a 1 b c ");
  for (const char* name : {"d", "e", "f"}) scene.park(unknown, name);
  scene.senders.outliveBus();
  scene.park(scene.add(":1.1", std::nullopt), "2");
  EXPECT_EQ(scene.handle(), "d e f 2 ");
}

TEST(KnownSendersTest, EventsOfSendersThatAreNotKnownEndWithTheBus) {
  Senders scene;
  scene.park(scene.meet(":1.1"), "a");
  scene.park(scene.add(":1.2", process), "b");
  scene.senders.outliveBus();
  EXPECT_EQ(scene.handle(), "b ");
  EXPECT_TRUE(scene.senders.isEmpty());
  EXPECT_FALSE(scene.senders.hasParked());
}

TEST(KnownSendersTest, LastWordsOfASenderThatIsNotKnownYetAreHandled) {
  Senders scene;
  const auto sender = scene.meet(":1.1");
  scene.park(sender, "a");
  scene.senders.depart(sender);
  EXPECT_EQ(scene.handle(), "");
  scene.senders.settle(sender, {process, std::nullopt, false});
  EXPECT_EQ(scene.handle(), "a ");
  EXPECT_TRUE(scene.senders.isEmpty());
}

}  // namespace
}  // namespace qbdkr
