// Introduces processes to each other on a bus, honestly and not.

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sched.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <chrono>
#include <filesystem>
#include <iterator>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

#include "Platform/Events/DBus/Introduction.h"
#include "support/BusConnection.h"
#include "support/Environment.h"
#include "support/ForkedBody.h"
#include "support/Patience.h"
#include "support/Peer.h"
#include "support/PrivateBus.h"
#include "support/Scene.h"

namespace qbdkr::test {
namespace {

std::string idOf(const UniqueBus& connection) {
  sd_id128_t id{};
  std::array<char, SD_ID128_STRING_MAX> text{};
  sd_bus_get_bus_id(connection.get(), &id);
  return sd_id128_to_string(id, text.data());
}

struct Introductions : testing::Test {
  // Returns the next introduction that the receiver gets.
  BusMessage receive() { return receiveOn(receiver); }
  static BusMessage receiveOn(const UniqueBus& receiver) {
    const auto deadline = std::chrono::steady_clock::now() + patience;
    while (std::chrono::steady_clock::now() < deadline) {
      sd_bus_message* message = nullptr;
      const int result = sd_bus_process(receiver.get(), &message);
      BusMessage received(message);
      if (sd_bus_message_is_method_call(message, rpc::identityInterface, rpc::introduceMember) > 0)
        return received;
      if (result == 0) sd_bus_wait(receiver.get(), 100'000);
    }
    throw std::runtime_error("no introduction came");
  }

  // Returns the socket of an introduction, which the message owns.
  static int socketIn(const BusMessage& message) {
    int socket = -1;
    EXPECT_GT(sd_bus_message_read(message.get(), "h", &socket), 0);
    return socket;
  }

  // Sends a socket as an introduction.
  static void pass(const UniqueBus& from, const std::string& to, int socket) {
    sd_bus_call_method_async(from.get(), nullptr, to.c_str(), rpc::objectPath,
                             rpc::identityInterface, rpc::introduceMember, nullptr, nullptr, "h",
                             socket);
    sd_bus_flush(from.get());
  }

  // Sends one end of a pair of which the other holds a text.
  std::optional<Introduction> afterPassing(int kind, const std::string& text) {
    std::array<int, 2> ends{};
    EXPECT_EQ(::socketpair(AF_UNIX, kind | SOCK_CLOEXEC, 0, ends.data()), 0);
    const Descriptor kept(ends[0]);
    const Descriptor sent(ends[1]);
    EXPECT_GE(::send(kept.get(), text.data(), text.size(), MSG_NOSIGNAL), 0);
    pass(sender, nameOf(receiver), sent.get());
    return Introduction::read(receive().get());
  }

  TemporaryDirectory directory;
  PrivateBus bus{directory.path()};
  UniqueBus sender = connectionTo(bus);
  UniqueBus receiver = connectionTo(bus);
};

TEST_F(Introductions, TellTheProcessAsLongAsItKeepsItsSocket) {
  Descriptor kept = Introduction::send(sender.get(), nameOf(receiver));
  ASSERT_TRUE(kept);
  const auto introduction = Introduction::read(receive().get());
  ASSERT_TRUE(introduction);
  EXPECT_EQ(introduction->process(), getpid());
  EXPECT_TRUE(introduction->stands());
  kept = {};
  EXPECT_FALSE(introduction->stands());
}

TEST_F(Introductions, CannotBePassedOnByTheirReceiver) {
  const auto thief = connectionTo(bus);
  const Descriptor kept = Introduction::send(sender.get(), nameOf(receiver));
  const auto message = receive();
  pass(thief, nameOf(receiver), socketIn(message));
  EXPECT_FALSE(Introduction::read(receive().get()));
}

TEST_F(Introductions, AreWorthNothingToAnotherReceiverAndOnAnotherBus) {
  const auto other = connectionTo(bus);
  const Descriptor kept = Introduction::send(sender.get(), nameOf(receiver));
  const auto message = receive();
  pass(sender, nameOf(other), socketIn(message));
  EXPECT_FALSE(Introduction::read(receiveOn(other).get()));

  // There the names begin with the same numbers.
  const TemporaryDirectory elsewhere;
  const PrivateBus otherBus(elsewhere.path());
  const auto thief = connectionTo(otherBus);
  const auto twin = connectionTo(otherBus);
  ASSERT_EQ(nameOf(thief), nameOf(sender));
  ASSERT_EQ(nameOf(twin), nameOf(receiver));
  const Descriptor again = Introduction::send(sender.get(), nameOf(receiver));
  const auto second = receive();
  pass(thief, nameOf(twin), socketIn(second));
  EXPECT_FALSE(Introduction::read(receiveOn(twin).get()));
}

TEST_F(Introductions, AreOneRecordOfTheirFormAlone) {
  const std::string text =
      "QBHP.Identity1 " + idOf(sender) + ' ' + nameOf(receiver) + ' ' + nameOf(sender);
  EXPECT_TRUE(afterPassing(SOCK_SEQPACKET, text));
  EXPECT_FALSE(afterPassing(SOCK_STREAM, text));
  EXPECT_FALSE(afterPassing(SOCK_SEQPACKET, nameOf(sender)));
  EXPECT_FALSE(afterPassing(SOCK_SEQPACKET, text + '0'));
  EXPECT_FALSE(afterPassing(SOCK_SEQPACKET, text + std::string(1000, ' ')));
  const Descriptor file(::open("/dev/null", O_RDWR | O_CLOEXEC));
  pass(sender, nameOf(receiver), file.get());
  EXPECT_FALSE(Introduction::read(receive().get()));
}

// Whatever is outside of a sandbox cannot introduce itself to its processes.
TEST_F(Introductions, TellNothingToAnotherNamespace) {
  const Descriptor kept = Introduction::send(sender.get(), nameOf(receiver));
  const auto message = receive();
  const int status = runForked([&] {
    if (::unshare(CLONE_NEWPID) != 0) throw std::runtime_error("no namespace could be made");
    return runForked([&] { return !Introduction::read(message.get()); }) == 0;
  });
  if (WEXITSTATUS(status) == 2) GTEST_SKIP() << "this user may not make a namespace of processes";
  EXPECT_EQ(status, 0);
  EXPECT_TRUE(Introduction::read(message.get()));
}

std::size_t descriptorsOf(pid_t process) {
  const std::filesystem::directory_iterator all("/proc/" + std::to_string(process) + "/fd");
  return static_cast<std::size_t>(std::distance(begin(all), end(all)));
}

TEST(IntroductionsWithoutAProxy, TakeNoDescriptorOfAHost) {
  Scene scene;
  const auto host = scene.start(scene.makeHostWithoutHelper("Host"));
  EXPECT_EQ(host->call("share"), "shared");
  const Peer peer = Peer::inBundle(scene);
  peer.awaitOwner(scene.hostID());
  (void)peer.run({"call", scene.hostID(), "Nobody", "nothing"});
  const std::size_t before = descriptorsOf(host->processID());
  std::vector<UniqueBus> senders;
  std::vector<Descriptor> sockets;
  for (int i = 0; i < 40; ++i) {
    senders.push_back(connectionTo(scene.bus()));
    sockets.push_back(Introduction::send(senders.back().get(), scene.hostID()));
    // The answer comes after the host has read what came before.
    sd_bus_call_method(senders.back().get(), scene.hostID().c_str(), "/",
                       "org.freedesktop.DBus.Peer", "Ping", nullptr, nullptr, "");
  }
  EXPECT_LT(descriptorsOf(host->processID()), before + senders.size() / 2);
}

}  // namespace
}  // namespace qbdkr::test
