// The receiver's side of a direct connection, when memory runs out.

#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <utility>

#include <ClientComm/RunLoop.h>

#include "FailingMemory.h"
#include "Platform/Events/DBus/DirectPeer.h"

namespace qbdkr::test {
namespace {

// A sender and its receiver.
struct Connection {
  Connection() {
    auto reader = direct::RingReader::map(writer.takeDescriptor().get());
    EXPECT_TRUE(reader && writer.attach(reader->takeDescriptor().get()));
    peer = std::make_shared<DirectPeer>(
        std::move(sockets.given), *std::move(reader), [this](direct::Request&&) { ++taken; },
        [this] { hasEnded = true; });
    EXPECT_TRUE(
        direct::writeCall(message, 1, false, {"Probe", "note:", {"a text of some length"}}));
  }

  // Sends an event, and has it read.
  void send() {
    if (!writer.write(message)) return;
    if (writer.mustWakeReader() && !direct::passWake(sockets.kept.get())) return;
    for (int i = 0; i < 10; ++i) RunLoop::main().dispatch();
  }

  direct::SocketPair sockets = direct::makeSocketPair().value();
  direct::RingWriter writer = direct::RingWriter::make().value();
  std::shared_ptr<DirectPeer> peer;
  std::string message;
  unsigned taken = 0;
  bool hasEnded = false;
};

TEST(DirectPeerTest, WithoutMemoryEndsTheConnectionOrReadsOn) {
  RunLoop::main().dispatch();  // makes the loop
  bool hasFailed = true;
  for (std::size_t allocations = 0; hasFailed; ++allocations) {
    Connection connection;
    {
      const FailingMemory memory(allocations);
      EXPECT_TRUE(connection.peer->begin());
      connection.send();
      hasFailed = FailingMemory::hasFailed();
    }
    connection.send();
    const bool isGone = direct::isGone(connection.sockets.kept.get());
    EXPECT_EQ(connection.taken == 2, !connection.hasEnded) << allocations;
    EXPECT_EQ(isGone, connection.hasEnded) << allocations;
    EXPECT_EQ(hasFailed, connection.hasEnded) << allocations;
    ASSERT_LT(allocations, 100U);
  }
}

}  // namespace
}  // namespace qbdkr::test
