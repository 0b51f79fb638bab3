// Sends on direct connections, past the bus: kills and stops the processes, changes the way while
// events are sent, and offers descriptors of other kinds.

#include <fcntl.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <signal.h>
#include <sys/mman.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <chrono>
#include <cstdint>
#include <cstdio>
#include <ctime>
#include <future>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <thread>
#include <utility>

#include "Platform/Events/DBus/DirectMessage.h"
#include "Platform/Events/DBus/DirectRing.h"
#include "Platform/Events/DBus/DirectSocket.h"
#include "support/BusConnection.h"
#include "support/BusMonitor.h"
#include "support/Patience.h"
#include "support/Peer.h"
#include "support/ProbeText.h"
#include "support/Scene.h"

namespace qbdkr::test {
namespace {

using Clock = std::chrono::steady_clock;

// A host and its helper agent, between which direct connections are allowed.
struct Direct : Scene {
  explicit Direct(const std::string& debug = "0") {
    environment()["QBDKR_DIRECT"] = "1";
    environment()["QBDKR_DEBUG"] = debug;
    host = startAndShare(makeHost("Host", "1.0"));
  }

  [[nodiscard]] std::string event(const std::string& words) const {
    return ' ' + helperID() + " Probe " + words;
  }

  // Sends until the events have left the bus.
  void connect() {
    for (int i = 0; i < 5; ++i) EXPECT_EQ(host->call("ask" + event("echo: x")), "0 x");
  }

  // Sends from a connection of the test. Waits until it was handled, unless it is not to.
  void noteOnBus(sd_bus* from, const char* text = "bus", bool waits = true) {
    const auto ignore = [](sd_bus_message*, void*, sd_bus_error*) { return 0; };
    const int sent =
        waits ? sd_bus_call_method(from, helperID().c_str(), rpc::objectPath, rpc::interfaceName,
                                   rpc::callMember, nullptr, nullptr, "ssas", "Probe", "note:", 1,
                                   text)
              : sd_bus_call_method_async(from, nullptr, helperID().c_str(), rpc::objectPath,
                                         rpc::interfaceName, rpc::callMember, ignore, nullptr,
                                         "ssas", "Probe", "note:", 1, text);
    EXPECT_GE(sent, 0);
    EXPECT_GE(sd_bus_flush(from), 0);
  }

  [[nodiscard]] std::string sequences() { return host->call("ask" + event("sequences")); }

  std::unique_ptr<HostProcess> host;
};

std::string summaryOf(unsigned threads, unsigned count) {
  std::string text = "0 faults";
  for (unsigned i = 0; i < threads; ++i)
    text += ", key-" + std::to_string(i) + ' ' + std::to_string(count);
  return "0 " + encoded(text);
}

std::chrono::nanoseconds processorTimeOf(pid_t process) {
  clockid_t clock{};
  timespec time{};
  EXPECT_EQ(clock_getcpuclockid(process, &clock), 0);
  EXPECT_EQ(clock_gettime(clock, &time), 0);
  return std::chrono::seconds(time.tv_sec) + std::chrono::nanoseconds(time.tv_nsec);
}

TEST(DirectConnection, EventsLeaveTheBus) {
  Direct scene;
  BusMonitor monitor(Peer::outsideBundles(scene));
  scene.connect();
  for (int i = 0; i < 20; ++i)
    EXPECT_EQ(scene.host->call("send" + scene.event("note: quiet")), "0");
  scene.fence(*scene.host);
  EXPECT_EQ(scene.transcript().count("quiet"), 20U);
  // The monitor shows a later event of the bus, and so all before it.
  (void)Peer::outsideBundles(scene).run({"call", scene.helperID(), "Probe", "seen:"});
  monitor.waitForCalls("seen:", 1);
  const auto conversation = monitor.conversation({}, [](const auto&, const auto& texts) {
    const bool isNote = texts.size() > 1 && texts[1] == "note:";
    return isNote ? std::optional<std::string>("notes") : std::nullopt;
  });
  EXPECT_EQ(conversation.find("note:"), std::string::npos) << conversation;
}

TEST(DirectConnection, RecordTellsWhichWayEventsGo) {
  Direct scene("1");
  scene.connect();
  const std::string events = "QBDKR_DEBUG: events for " + scene.helperID();
  scene.host->process().waitForLog(events + ", :1.");
  const auto watcher = connectionTo(scene.bus());
  ASSERT_GE(sd_bus_request_name(watcher.get(), rpc::watchName, 0), 0);
  const std::string left = events + " go over the bus again";
  const auto deadline = Clock::now() + patience;
  while (scene.host->process().logLinesWith(left) == 0 && Clock::now() < deadline)
    EXPECT_EQ(scene.host->call("send" + scene.event("note: x"), soon), "0");
  EXPECT_EQ(scene.host->process().logLinesWith(left), 1U);
}

void expectEventsOnTheBus(const std::string& variable, const InfoKeys& keys) {
  Scene scene;
  scene.environment()["QBDKR_DIRECT"] = variable;
  const auto host = scene.startAndShare(scene.makeHost("Host", "1.0", keys));
  BusMonitor monitor(Peer::outsideBundles(scene));
  for (int i = 0; i < 20; ++i)
    EXPECT_EQ(host->call("send " + scene.helperID() + " Probe note: x"), "0");
  monitor.waitForCalls("note:", 20);
}

TEST(DirectConnection, VariableKeepsEventsOnTheBus) { expectEventsOnTheBus("0", {}); }

TEST(DirectConnection, KeyKeepsEventsOnTheBus) {
  expectEventsOnTheBus("1", {{"Direct connections", "0"}});
}

TEST(DirectConnection, OrderHoldsWhileTheWayChanges) {
  Direct scene;
  constexpr unsigned count = 5000;
  constexpr unsigned threads = 4;
  const auto running = scene.host->begin("sequence " + scene.helperID() + ' ' +
                                         std::to_string(count) + ' ' + std::to_string(threads));
  // While this name has an owner, all events go over the bus.
  unsigned changes = 0;
  while (!scene.host->hasFinished(running)) {
    const auto watcher = connectionTo(scene.bus());
    ASSERT_GE(sd_bus_request_name(watcher.get(), rpc::watchName, 0), 0);
    ++changes;
  }
  EXPECT_EQ(scene.host->finish(running, longPatience), "ok");
  EXPECT_GE(changes, 10U);
  EXPECT_EQ(scene.sequences(), summaryOf(threads, count));
}

TEST(DirectConnection, RequestsGoOnWithoutTheBus) {
  Direct scene;
  scene.connect();
  const auto waiting = scene.host->begin("ask" + scene.event("wait"));
  scene.transcript().waitFor({"Probe wait"});
  scene.bus().kill();
  EXPECT_EQ(scene.host->call("send" + scene.event("note: later"), soon), "0");
  EXPECT_FALSE(scene.host->hasFinished(waiting));
  ::kill(scene.helperProcess(), SIGUSR1);
  EXPECT_EQ(scene.host->finish(waiting), "0 ~");
  EXPECT_EQ(scene.host->call("ask" + scene.event("echo: y"), soon), "0 y");
  EXPECT_EQ(scene.host->call("wait-within 5000" + scene.event("echo: z"), soon).substr(0, 4),
            "0 z ");
  EXPECT_EQ(scene.host->call("flush 5000", soon), "-609") << "posts of the bus may be lost";
  EXPECT_EQ(scene.host->call("send" + scene.event("note: x"), soon), "0");
  EXPECT_EQ(scene.host->call("flush 5000", soon), "0");
  EXPECT_EQ(scene.transcript().count("later"), 1U);
  // Others need the bus.
  EXPECT_EQ(scene.host->call("send " + scene.identifier("Nobody") + " Probe note: x", soon),
            "-609");
}

TEST(DirectConnection, OutlivesManyDeathsOfTheBusInOrder) {
  Direct scene;
  scene.connect();
  constexpr unsigned count = 20'000;
  const auto running =
      scene.host->begin("sequence " + scene.helperID() + ' ' + std::to_string(count) + " 1 small");
  const auto peer = Peer::outsideBundles(scene);
  for (int round = 0; round < 3 || !scene.host->hasFinished(running); ++round) {
    scene.bus().kill();
    scene.bus().start();
    peer.awaitOwner(scene.helperID());
  }
  EXPECT_EQ(scene.host->finish(running), "ok");
  EXPECT_EQ(scene.sequences(), summaryOf(1, count));
}

TEST(DirectConnection, EventThatNeedsTheBusDoesNotEndItWithoutTheBus) {
  Direct scene;
  scene.connect();
  scene.bus().kill();
  const std::string large(100'000, 'x');
  EXPECT_EQ(scene.host->call("ask" + scene.event("echo: ") + large, soon), "-609 ~");
  EXPECT_EQ(scene.host->call("send" + scene.event("note: ") + large, soon), "-609");
  EXPECT_EQ(scene.host->call("wait-within 5000" + scene.event("echo: ") + large, soon).substr(0, 4),
            "-609");
  EXPECT_EQ(scene.host->call("ask" + scene.event("echo: y"), soon), "0 y");
}

TEST(DirectConnection, EventThatNeedsANewBusComesAfterThoseBeforeIt) {
  Direct scene;
  scene.connect();
  const auto peer = Peer::outsideBundles(scene);
  const std::string large(100'000, 'x');
  for (const std::string way : {"send", "ask", "wait-within 5000"}) {
    scene.bus().kill();
    scene.bus().start();
    peer.awaitOwner(scene.helperID());
    EXPECT_EQ(scene.host->call("send" + scene.event("note: small")), "0");
    EXPECT_EQ(scene.host->call(way + scene.event("summary ") + large).substr(0, 2),
              way == "send" ? "0" : "0 ");
    scene.connect();
  }
  const auto lines = scene.transcript().lines();
  unsigned seen = 0;
  for (const std::string& line : lines) {
    const bool isSmall = line.find("note:") != std::string::npos;
    if (!isSmall && line.find("summary") == std::string::npos) continue;
    EXPECT_EQ(isSmall, seen++ % 2 == 0) << line.substr(0, 100);
  }
  EXPECT_EQ(seen, 6U);
}

TEST(DirectConnection, WatcherOfANewBusSeesEvents) {
  Direct scene;
  scene.connect();
  scene.bus().kill();
  scene.bus().start();
  const auto peer = Peer::outsideBundles(scene);
  peer.awaitOwner(scene.helperID());
  const auto watcher = connectionTo(scene.bus());
  ASSERT_GE(sd_bus_request_name(watcher.get(), rpc::watchName, 0), 0);
  BusMonitor monitor(peer);
  auto seen = std::async(std::launch::async, [&] { monitor.waitForCalls("echo:", 1); });
  do {
    static_cast<void>(scene.host->call("ask" + scene.event("echo: x"), soon));
  } while (seen.wait_for(std::chrono::seconds(0)) != std::future_status::ready);
  seen.get();
}

// The helper agent comes to a new bus while it still has much of the earlier connection to handle.
TEST(DirectConnection, EventOnANewBusWaitsForThoseOfTheEarlierOne) {
  Direct scene;
  scene.connect();
  constexpr std::size_t waits = 1000;
  for (std::size_t i = 0; i < waits; ++i)
    EXPECT_EQ(scene.host->call("send" + scene.event("wait")), "0");
  EXPECT_EQ(scene.host->call("send" + scene.event("note: old")), "0");
  scene.bus().kill();
  scene.bus().start();
  const pid_t helper = scene.helperProcess();
  const auto deadline = Clock::now() + patience;
  const auto goOnUntil = [&](const auto& isOver) {
    while (!isOver()) {
      ASSERT_LT(Clock::now(), deadline);
      ::kill(helper, SIGUSR1);
    }
  };
  std::string status;
  goOnUntil([&] {
    status = scene.host->call("send" + scene.event("note: ") + std::string(100'000, 'x'), soon);
    return status != "-600";
  });
  EXPECT_EQ(status, "0");
  EXPECT_EQ(scene.host->call("send" + scene.event("note: new"), soon), "0");
  const auto other = connectionTo(scene.bus());
  scene.noteOnBus(other.get(), "other", false);
  goOnUntil([&] { return scene.transcript().count(" other") > 0; });
  EXPECT_EQ(scene.transcript().count(" old"), 0U) << "nobody else waits for these";
  goOnUntil([&] { return scene.transcript().count(" new") > 0; });
  std::string order;
  for (const std::string& line : scene.transcript().lines()) {
    if (line.find("note:") == std::string::npos) continue;
    const auto text = line.rfind(' ');
    order += line.size() - text > 10 ? " large" : line.substr(text);
  }
  EXPECT_EQ(order, " other old large new");
}

// The sender looks for a new bus with the post, and nothing else needs that.
TEST(DirectConnection, RequestThatWaitsOnANewBusTakesNoProcessor) {
  Direct scene;
  scene.connect();
  const auto waiting = scene.host->begin("wait-within 60000" + scene.event("wait"));
  scene.transcript().waitFor({"Probe wait"});
  scene.bus().kill();
  scene.bus().start();
  const auto wait = [&](const std::string& milliseconds) {
    return scene.host->call("wait-within " + milliseconds + scene.event("wait"), soon);
  };
  EXPECT_EQ(wait("1100").substr(0, 5), "-1712") << "it looked a second before";
  EXPECT_EQ(scene.host->call("send" + scene.event("note: x"), soon), "0");
  const auto before = processorTimeOf(scene.host->process().processID());
  EXPECT_EQ(wait("500").substr(0, 5), "-1712");
  EXPECT_LT(processorTimeOf(scene.host->process().processID()) - before,
            std::chrono::milliseconds(250));
  EXPECT_FALSE(scene.host->hasFinished(waiting));
}

TEST(DirectConnection, FlushKnowsThePostsOfOneThatWasReplaced) {
  Direct scene;
  scene.connect();
  EXPECT_EQ(scene.host->call("flush 5000", soon), "0");
  const pid_t helper = scene.helperProcess();
  ::kill(helper, SIGSTOP);
  EXPECT_EQ(scene.host->call("send" + scene.event("note: x"), soon), "0");
  const std::string large(100'000, 'x');
  EXPECT_EQ(scene.host->call("wait-within 50" + scene.event("echo: ") + large, soon).substr(0, 5),
            "-1712");
  EXPECT_EQ(scene.host->call("flush 100", soon), "-1712");
  ::kill(helper, SIGCONT);
  EXPECT_EQ(scene.host->call("flush 20000", longPatience), "0");
  EXPECT_EQ(scene.transcript().count("note:"), 1U);
}

// The peer has another name on the new bus, but ends the earlier connection when it has taken all.
TEST(DirectConnection, FlushKnowsThePostsOfAnEarlierBus) {
  Direct scene;
  scene.connect();
  scene.bus().kill();
  scene.bus().start();
  Peer::outsideBundles(scene).awaitOwner(scene.helperID());
  EXPECT_EQ(scene.host->call("send" + scene.event("note: x"), soon), "0");
  EXPECT_EQ(scene.host->call("flush 5000", soon), "-609") << "posts of the bus may be lost";
  const pid_t helper = scene.helperProcess();
  ::kill(helper, SIGSTOP);
  EXPECT_EQ(scene.host->call("send" + scene.event("note: y"), soon), "0");
  const std::string large(100'000, 'x');
  for (int i = 0; i < 3; ++i)
    EXPECT_EQ(scene.host->call("send" + scene.event("note: ") + large, soon), "0");
  EXPECT_EQ(scene.host->call("flush 100", soon), "-1712");
  ::kill(helper, SIGCONT);
  EXPECT_EQ(scene.host->call("flush 20000", longPatience), "0");
  EXPECT_EQ(scene.transcript().count("note:"), 5U);
}

TEST(DirectConnection, DeathOfThePeerEndsAWaitingRequestAndIsThenKnown) {
  Direct scene;
  BusMonitor monitor(Peer::outsideBundles(scene));
  scene.connect();
  const auto waiting = scene.host->begin("ask" + scene.event("wait"));
  scene.transcript().waitFor({"Probe wait"});
  ::kill(scene.helperProcess(), SIGKILL);
  EXPECT_EQ(scene.host->finish(waiting, soon), "-609 ~");
  monitor.waitForLoss(scene.helperID());
  EXPECT_EQ(scene.host->call("send" + scene.event("note: x")), "-600");
  EXPECT_EQ(scene.host->call("ask" + scene.event("echo: x")), "-600 ~");
  EXPECT_EQ(scene.host->call("launch"), "yes");
  Peer::outsideBundles(scene).awaitOwner(scene.helperID());
  scene.connect();
  scene.killHelper(*scene.host);  // finds that no request is answered
}

TEST(DirectConnection, StoppedPeerBlocksNoPostAndGetsAllThatWasTaken) {
  Direct scene;
  scene.connect();
  const pid_t helper = scene.helperProcess();
  ::kill(helper, SIGSTOP);
  const auto answer =
      scene.host->call("post-until-refused " + scene.helperID() + " stopped 30000", longPatience);
  ::kill(helper, SIGCONT);
  unsigned posted = 0;
  int status = 0;
  unsigned longest = 0;
  ASSERT_EQ(
      std::sscanf(answer.c_str(), "posted %u status %d longest %u", &posted, &status, &longest), 3)
      << answer;
  EXPECT_EQ(status, -1712);
  EXPECT_GE(posted, 1000U) << "there is room for 64 MiB";
  EXPECT_LE(posted, 4000U);
  EXPECT_LE(longest, 1000U) << "the post waited";
  EXPECT_EQ(scene.sequences(), "0 " + encoded("0 faults, stopped " + std::to_string(posted)));
}

// It took direct connections on the earlier bus, and is stopped before it answers another offer.
TEST(DirectConnection, PeerThatStopsOnANewBusGetsNoMoreThanItsShare) {
  Direct scene;
  scene.connect();
  const pid_t helper = scene.helperProcess();
  ::kill(helper, SIGSTOP);
  scene.bus().kill();
  scene.bus().start();
  const std::string large(100'000, 'x');
  EXPECT_EQ(scene.host->call("send" + scene.event("note: ") + large, soon), "-600");
  ::kill(helper, SIGCONT);
  Peer::outsideBundles(scene).awaitOwner(scene.helperID());
  ::kill(helper, SIGSTOP);
  const auto answer =
      scene.host->call("post-until-refused " + scene.helperID() + " stopped 5000", longPatience);
  ::kill(helper, SIGCONT);
  EXPECT_NE(answer.find("status -1712"), std::string::npos) << answer;
}

// --- Peers that do not know direct connections, or mean harm

TEST(DirectConnection, PeerThatAnswersNoOfferIsAskedOnce) {
  Direct scene;
  const auto peer = Peer::inBundle(scene);
  const auto name = scene.identifier("Foreign");
  const auto serving = peer.begin({"serve", name, "40"});
  peer.awaitOwner(name);
  BusMonitor monitor(Peer::outsideBundles(scene));
  for (int i = 0; i < 20; ++i) {
    EXPECT_EQ(scene.host->call("send " + name + " Probe note: x"), "0");
    EXPECT_EQ(scene.host->call("ask " + name + " Probe note: x"), "0 served");
  }
  EXPECT_TRUE(serving->succeeds());
  monitor.waitForCalls("note:", 40);
  monitor.waitForMember("QBHP.Direct1 Connect", 1);
  const auto conversation = monitor.conversation(
      {}, [](const auto&, const auto&) { return std::optional<std::string>("all"); });
  const auto first = conversation.find("Connect");
  EXPECT_NE(first, std::string::npos) << conversation;
  EXPECT_EQ(conversation.find("Connect", first + 1), std::string::npos) << conversation;
}

// The sender's side of a connection that is made by hand.
struct HandMade {
  // Writes a message, of any kind. While the ring has no room it waits for some, or for the end.
  bool send(std::string_view message) {
    while (!ring.write(message)) {
      if (ends(std::chrono::milliseconds(1))) return false;
    }
    if (ring.mustWakeReader()) {
      EXPECT_TRUE(direct::passWake(socket.get()));
    }
    return true;
  }

  bool send(direct::Serial serial, bool expectsAnswer, const RPCEvent& event) {
    std::string message;
    EXPECT_TRUE(direct::writeCall(message, serial, expectsAnswer, event));
    return send(message);
  }

  // Waits for a part of an answer, which stays in the socket.
  [[nodiscard]] bool hasAnswer() const {
    pollfd readable{socket.get(), POLLIN, 0};
    return ::poll(&readable, 1, 10'000) == 1;
  }

  // Waits for the end of the connection, with answers in the socket or without.
  [[nodiscard]] bool ends(std::chrono::milliseconds within = patience) const {
    pollfd ended{socket.get(), 0, 0};
    return ::poll(&ended, 1, static_cast<int>(within.count())) == 1;
  }

  Descriptor socket;
  direct::RingWriter ring;
};

// A process that offers connections to the helper agent by hand.
struct Offers : Direct {
  // Offers a socket and memory. Returns the memory that the helper agent gave; empty if it refused.
  Descriptor offer(int socket, int memory) {
    sd_bus_error error = SD_BUS_ERROR_NULL;
    sd_bus_message* made = nullptr;
    int given = -1;
    const int result = sd_bus_call_method(connection.get(), helperID().c_str(), rpc::objectPath,
                                          rpc::directInterface, rpc::connectMember, &error, &made,
                                          rpc::connectSignature, socket, memory);
    sd_bus_error_free(&error);
    const BusMessage answer(made);
    if (result < 0 || sd_bus_message_read(made, rpc::agreementSignature, &given) <= 0) return {};
    return Descriptor(::fcntl(given, F_DUPFD_CLOEXEC, 0));
  }

  // Offers what a sender does. Empty if it is refused.
  std::optional<HandMade> offer() {
    auto sockets = direct::makeSocketPair();
    auto ring = direct::RingWriter::make();
    if (!sockets || !ring) return std::nullopt;
    const Descriptor memory = ring->takeDescriptor();
    const Descriptor given = offer(sockets->given.get(), memory.get());
    if (!given || !ring->attach(given.get())) return std::nullopt;
    return HandMade{std::move(sockets->kept), *std::move(ring)};
  }

  void begin() {
    sd_bus_call_method_async(connection.get(), nullptr, helperID().c_str(), rpc::objectPath,
                             rpc::directInterface, rpc::beginMember, nullptr, nullptr, "");
    sd_bus_flush(connection.get());
  }

  // Returns a connection that has begun.
  HandMade connected() {
    auto link = offer();
    begin();
    return std::move(link).value();
  }

  UniqueBus connection = connectionTo(bus());
};

TEST(DirectConnection, WhatIsNoSocketOfItsKindIsRefused) {
  Offers scene;
  std::array<int, 2> ends{};
  ASSERT_EQ(::socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends.data()), 0);
  const Descriptor stream(ends[0]);
  const Descriptor other(ends[1]);
  const Descriptor listening(::socket(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0));
  sockaddr_un anywhere{};
  anywhere.sun_family = AF_UNIX;
  ASSERT_EQ(::bind(listening.get(), reinterpret_cast<sockaddr*>(&anywhere), sizeof(sa_family_t)),
            0);
  ASSERT_EQ(::listen(listening.get(), 1), 0);
  const Descriptor file(::open("/dev/zero", O_RDONLY | O_CLOEXEC));
  const Descriptor memory = direct::RingWriter::make()->takeDescriptor();
  for (const int refused : {stream.get(), listening.get(), file.get(), memory.get()}) {
    EXPECT_FALSE(scene.offer(refused, memory.get())) << refused;
  }
  EXPECT_EQ(scene.host->call("ask" + scene.event("echo: x")), "0 x");
}

TEST(DirectConnection, WhatIsNoMemoryOfItsKindIsRefused) {
  Offers scene;
  const auto sockets = direct::makeSocketPair();
  ASSERT_TRUE(sockets);
  const Descriptor open(::memfd_create("open", MFD_CLOEXEC | MFD_ALLOW_SEALING));
  ASSERT_EQ(::ftruncate(open.get(), direct::writerMemorySize), 0);
  const Descriptor small = direct::SealedMemory::make(100)->takeDescriptor();
  for (const int refused : {open.get(), small.get(), sockets->kept.get()}) {
    EXPECT_FALSE(scene.offer(sockets->given.get(), refused)) << refused;
  }
  EXPECT_TRUE(scene.offer()) << "a refused offer takes no place";
  EXPECT_EQ(scene.host->call("ask" + scene.event("echo: x")), "0 x");
}

// Sends on a connection of which the beginning is lost.
template <class Loss>
void expectBeginningAfter(const Loss& loss) {
  Offers scene;
  scene.noteOnBus(scene.connection.get());
  auto link = scene.offer();
  ASSERT_TRUE(link);
  EXPECT_TRUE(link->send(1, false, {"Probe", "note:", {"direct"}}));
  EXPECT_TRUE(link->send(2, true, {"Probe", "echo:", {"x"}}));
  loss(scene);
  EXPECT_TRUE(link->hasAnswer());
  EXPECT_FALSE(link->ends({}));
  EXPECT_EQ(scene.transcript().count("direct"), 1U);
}

TEST(DirectConnection, BeginsIfTheBusEndsBeforeThat) {
  expectBeginningAfter([](Offers& scene) { scene.bus().kill(); });
}

// The bus may drop the message if it ends the connection to the sender.
TEST(DirectConnection, BeginsIfTheSenderLeavesTheBusBeforeThat) {
  expectBeginningAfter([](Offers& scene) { scene.connection.reset(); });
}

// The process has another connection to the same bus, as one that lost it for a moment.
TEST(DirectConnection, EventsOfASenderThatConnectsAnewWaitForThoseBefore) {
  Offers scene;
  HandMade link = scene.connected();
  constexpr unsigned count = 1500;
  for (unsigned i = 0; i < count; ++i)
    EXPECT_TRUE(link.send(i + 1, false, {"Probe", "note:", {"direct"}}));
  ::shutdown(link.socket.get(), SHUT_WR);
  scene.connection.reset();  // before the next one: the bus sees the end first
  scene.connection = connectionTo(scene.bus());
  scene.noteOnBus(scene.connection.get());
  EXPECT_EQ(scene.transcript().count(" direct"), count);
}

// The bus cannot tell of a connection that is gone when the helper agent asks for it.
TEST(DirectConnection, EventsOfAConnectionThatIsGoneComeBeforeThoseOfTheNext) {
  Offers scene;
  const pid_t helper = scene.helperProcess();
  ::kill(helper, SIGSTOP);
  constexpr std::size_t count = 50;
  for (std::size_t i = 0; i < count; ++i) scene.noteOnBus(scene.connection.get(), "first", false);
  EXPECT_GE(sd_bus_call_method(scene.connection.get(), "org.freedesktop.DBus", "/",
                               "org.freedesktop.DBus", "GetId", nullptr, nullptr, ""),
            0);
  scene.connection.reset();
  scene.connection = connectionTo(scene.bus());
  scene.noteOnBus(scene.connection.get(), "next", false);
  ::kill(helper, SIGCONT);
  scene.transcript().waitFor({"note:", "next"});
  std::size_t before = 0;
  for (const std::string& line : scene.transcript().lines()) {
    if (line.ends_with(" next")) break;
    if (line.ends_with(" first")) ++before;
  }
  EXPECT_EQ(before, count);
}

TEST(DirectConnection, GarbageEndsItAndNothingElse) {
  Offers scene;
  scene.connect();
  for (const std::string& garbage : {std::string("hello"), std::string(60'000, '\xff'),
                                     std::string(), std::string("l\1\0\1", 4)}) {
    HandMade link = scene.connected();
    EXPECT_TRUE(link.send(garbage));
    EXPECT_TRUE(link.ends()) << garbage.size();
  }
  EXPECT_EQ(scene.host->call("ask" + scene.event("echo: x")), "0 x");
}

TEST(DirectConnection, RingThatTellsWhatCannotBeEndsItAndNothingElse) {
  Offers scene;
  scene.connect();
  for (const std::uint32_t written : {3U, 4U, 0x80000000U, ~0U}) {
    auto sockets = direct::makeSocketPair();
    auto memory = direct::SealedMemory::make(direct::writerMemorySize);
    ASSERT_TRUE(sockets && memory);
    const Descriptor given = memory->takeDescriptor();
    ASSERT_TRUE(scene.offer(sockets->given.get(), given.get()));
    reinterpret_cast<direct::WriterState*>(memory->address())->written = written;
    scene.begin();
    const HandMade link{std::move(sockets->kept), direct::RingWriter::make().value()};
    EXPECT_TRUE(link.ends()) << written;
  }
  EXPECT_EQ(scene.host->call("ask" + scene.event("echo: x")), "0 x");
}

TEST(DirectConnection, FloodOfWakesHoldsUpNobody) {
  Offers scene;
  scene.connect();
  HandMade link = scene.connected();
  std::atomic<bool> isOver = false;
  std::thread flood([&] {
    while (!isOver) {
      static_cast<void>(direct::passWake(link.socket.get()));
      static_cast<void>(direct::passPacket(link.socket.get(), std::string(60'000, 'x')));
    }
  });
  for (int i = 0; i < 50; ++i) EXPECT_EQ(scene.host->call("ask" + scene.event("echo: x")), "0 x");
  isOver = true;
  flood.join();
  EXPECT_TRUE(link.send(1, true, {"Probe", "echo:", {"y"}}));
  EXPECT_TRUE(link.hasAnswer());
}

TEST(DirectConnection, FloodOfPostsHoldsUpNeitherTheBusNorAnotherSender) {
  Offers scene;
  scene.connect();
  HandMade link = scene.connected();
  std::atomic<bool> isOver = false;
  std::thread flood([&] {
    std::string post;
    EXPECT_TRUE(direct::writeCall(post, 1, false, {"Probe", "unknown", {}}));
    while (!isOver && link.send(post)) {
    }
  });
  const auto other = connectionTo(scene.bus());
  for (int i = 0; i < 20; ++i) {
    EXPECT_EQ(scene.host->call("ask" + scene.event("echo: x"), soon), "0 x");
    scene.noteOnBus(other.get());
  }
  isOver = true;
  flood.join();
}

TEST(DirectConnection, SenderHasOneAndThatOfOneThatIsGoneIsForgotten) {
  Offers scene;
  const pid_t helper = scene.helperProcess();
  const HandMade link = scene.connected();
  EXPECT_FALSE(scene.offer()) << "the first is open";
  const auto before = namesIn("/proc/" + std::to_string(helper) + "/fd").size();
  // Many processes offer connections, do not begin them, and go.
  for (int i = 0; i < 200; ++i) {
    scene.connection = connectionTo(scene.bus());
    EXPECT_TRUE(scene.offer()) << i;
  }
  scene.connection.reset();
  EXPECT_EQ(scene.host->call("ask" + scene.event("echo: x")), "0 x");
  EXPECT_LE(namesIn("/proc/" + std::to_string(helper) + "/fd").size(), before + 5);
}

TEST(DirectConnection, AnswersThatNobodyReadsTakeBoundedMemory) {
  Offers scene;
  const pid_t helper = scene.helperProcess();
  HandMade link = scene.connected();
  const std::string text(60'000, 'x');
  bool isOpen = true;
  // The helper agent reads, whether its answers are read or not.
  for (direct::Serial serial = 1; serial < 20'000 && isOpen; ++serial)
    isOpen = link.send(serial, true, {"Probe", "echo:", {text}}) && !link.ends({});
  EXPECT_FALSE(isOpen) << "a gigabyte of answers waits";
  EXPECT_EQ(scene.host->call("ask" + scene.event("echo: x")), "0 x");
  EXPECT_EQ(scene.helperProcess(), helper);
}

TEST(DirectConnection, SenderThatEndsBeforeItReadsItsAnswerLosesNoEvent) {
  Offers scene;
  const pid_t helper = scene.helperProcess();
  std::optional<HandMade> link = scene.connected();
  EXPECT_TRUE(link->send(1, true, {"Probe", "text:", {"5000000"}}));
  ASSERT_TRUE(link->hasAnswer()) << "the answer begins, and has no room";
  ::kill(helper, SIGSTOP);
  EXPECT_TRUE(link->send(2, false, {"Probe", "note:", {"last"}}));
  link.reset();
  ::kill(helper, SIGCONT);
  scene.transcript().waitFor({"note:", "last"});
  EXPECT_TRUE(scene.offer()) << "the first counts as open";
}

TEST(DirectConnection, SenderThatReadsNoAnswersMayOfferAnother) {
  Offers scene;
  HandMade link = scene.connected();
  for (direct::Serial serial = 1; serial <= 3; ++serial)
    EXPECT_TRUE(link.send(serial, true, {"Probe", "text:", {"30000000"}}));
  EXPECT_TRUE(link.ends(std::chrono::seconds(20))) << "two of the answers wait";
  EXPECT_EQ(scene.host->call("ask" + scene.event("echo: x")), "0 x");
  EXPECT_TRUE(scene.offer()) << "the first counts as open";
}

TEST(DirectConnection, IsReadAfterTheBusEndedWhileThereWasNoRoom) {
  Offers scene;
  scene.connect();
  HandMade link = scene.connected();
  const auto isAnswered = [&](direct::Serial serial) {
    EXPECT_TRUE(link.send(serial, true, {"Probe", "echo:", {"x"}}));
    direct::PacketReader packets;
    return link.hasAnswer() &&
           packets.next(link.socket.get()).kind == direct::PacketReader::Packet::Kind::bytes;
  };
  ASSERT_TRUE(isAnswered(1));
  const pid_t helper = scene.helperProcess();
  ::kill(helper, SIGSTOP);
  for (int i = 0; i < 300; ++i) {
    EXPECT_EQ(scene.host->call("send" + scene.event(i == 100 ? "wait" : "note: x")), "0");
  }
  // Goes over the bus. The helper agent reads all of those before it, for which it has no room.
  EXPECT_EQ(scene.host->call("send" + scene.event("note: ") + std::string(70'000, 'x')), "0");
  EXPECT_GE(sd_bus_call_method(scene.connection.get(), "org.freedesktop.DBus", "/",
                               "org.freedesktop.DBus", "GetId", nullptr, nullptr, ""),
            0);
  ::kill(helper, SIGCONT);
  scene.transcript().waitFor({"Probe wait"});
  scene.bus().kill();
  ::kill(helper, SIGUSR1);
  EXPECT_TRUE(isAnswered(2));
}

TEST(DirectConnection, OfferThatIsNotAnsweredIsDroppedWithTheOwner) {
  Direct scene;
  const auto name = scene.identifier("Silent");
  const auto descriptors = "/proc/" + std::to_string(scene.host->processID()) + "/fd";
  const auto owner = connectionTo(scene.bus());
  std::size_t before = 0;
  for (int i = 0; i < 20; ++i) {
    ASSERT_GE(sd_bus_request_name(owner.get(), name.c_str(), 0), 0);
    for (int event = 0; event < 3; ++event)
      EXPECT_EQ(scene.host->call("send " + name + " Probe note: x"), "0");
    ASSERT_GE(sd_bus_release_name(owner.get(), name.c_str()), 0);
    const auto deadline = Clock::now() + patience;
    while (scene.host->call("send " + name + " Probe note: x") != "-600")
      ASSERT_LT(Clock::now(), deadline);
    if (i == 0) before = namesIn(descriptors).size();
  }
  EXPECT_LE(namesIn(descriptors).size(), before + 2);
}

rlim_t lowestFreeDescriptor(pid_t process) {
  const auto names = namesIn("/proc/" + std::to_string(process) + "/fd");
  rlim_t lowest = 0;
  while (std::ranges::find(names, std::to_string(lowest)) != names.end()) ++lowest;
  return lowest;
}

// An offer costs it the connection to the bus, as the kernel keeps the descriptors back.
TEST(DirectConnection, PeerWithoutFreeDescriptorsIsOfferedOneOnce) {
  Direct scene;
  const pid_t helper = scene.helperProcess();
  const rlimit limit{lowestFreeDescriptor(helper), 4096};
  ASSERT_EQ(::prlimit(helper, RLIMIT_NOFILE, &limit, nullptr), 0);
  const auto ask = [&] { return scene.host->call("ask" + scene.event("echo: x"), soon); };
  const auto deadline = Clock::now() + patience;
  while (ask() == "0 x") ASSERT_LT(Clock::now(), deadline);
  while (ask() != "0 x") ASSERT_LT(Clock::now(), deadline);
  for (int i = 0; i < 20; ++i) EXPECT_EQ(ask(), "0 x") << i;
}

// Such a sender breaks the order of its own events alone.
TEST(DirectConnection, SenderThatGoesOnOnTheBusHoldsUpNobody) {
  Offers scene;
  HandMade link = scene.connected();
  for (int i = 0; i < 200; ++i) {
    scene.noteOnBus(scene.connection.get());
  }
  EXPECT_TRUE(link.send(1, false, {"Probe", "note:", {"direct"}}));
  scene.transcript().waitFor({"note:", "direct"});
  EXPECT_EQ(scene.host->call("ask" + scene.event("echo: x")), "0 x");
}

TEST(DirectConnection, LargeAnswersComeInParts) {
  Direct scene;
  scene.connect();
  const pid_t helper = scene.helperProcess();
  for (const std::size_t size : {65'000U, 66'000U, 500'000U, 5'000'000U}) {
    EXPECT_EQ(scene.host->call("ask-summary" + scene.event("text: ") + std::to_string(size)),
              "0 " + summary(std::array{std::string(size, 'x')}));
  }
  scene.bus().kill();
  EXPECT_EQ(scene.host->call("ask" + scene.event("echo: x")), "0 x")
      << "it had left the connection";
  EXPECT_EQ(scene.helperProcess(), helper);
}

}  // namespace
}  // namespace qbdkr::test
