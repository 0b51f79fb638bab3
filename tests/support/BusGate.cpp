#include "support/BusGate.h"

#include <poll.h>
#include <sys/eventfd.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cstdint>
#include <stdexcept>
#include <utility>
#include <vector>

#include "support/Patience.h"

namespace qbdkr::test {
namespace {

const std::string question = "GetConnectionUnixProcessID";

sockaddr_un socketAddress(const std::string& path) {
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  if (path.size() >= sizeof address.sun_path) throw std::runtime_error("a long path");
  std::ranges::copy(path, address.sun_path);
  return address;
}

Descriptor newSocket() { return Descriptor(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0)); }

// Returns false at the end of the stream.
bool fill(std::string& buffer, int from) {
  std::array<char, 65536> bytes{};
  const auto size = ::recv(from, bytes.data(), bytes.size(), MSG_DONTWAIT);
  if (size > 0) buffer.assign(bytes.data(), static_cast<std::size_t>(size));
  return size > 0;
}

bool drain(std::string& buffer, int to) {
  const auto size = ::send(to, buffer.data(), buffer.size(), MSG_DONTWAIT | MSG_NOSIGNAL);
  if (size > 0) buffer.erase(0, static_cast<std::size_t>(size));
  return size > 0;
}

}  // namespace

BusGate::Connection::Connection(Descriptor clientEnd, Descriptor busEnd)
    : client(std::move(clientEnd)),
      bus(std::move(busEnd)),
      toBus{client.get(), bus.get(), {}},
      toClient{bus.get(), client.get(), {}} {}

BusGate::BusGate(const std::filesystem::path& directory, const std::string& busAddress)
    : address_("unix:path=" + (directory / "gate").string()),
      busPath_(busAddress.substr(std::string("unix:path=").size())),
      listener_(newSocket()),
      wake_(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)) {
  const auto address = socketAddress((directory / "gate").string());
  constexpr int backlog = 64;
  if (::bind(listener_.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0 ||
      ::listen(listener_.get(), backlog) != 0) {
    throw std::runtime_error("no gate");
  }
  thread_ = std::thread([this] { run(); });
}

BusGate::~BusGate() {
  ends_ = true;
  wake();
  thread_.join();
}

void BusGate::hold() { holds_ = true; }

void BusGate::release() {
  holds_ = false;
  wake();
}

void BusGate::cut() {
  std::unique_lock lock(mutex_);
  cuts_ = true;
  wake();
  if (!changed_.wait_for(lock, patience, [this] { return !cuts_; }))
    throw std::runtime_error("no end of a connection");
}

void BusGate::awaitHeldAnswer() {
  std::unique_lock lock(mutex_);
  if (!changed_.wait_for(lock, patience, [this] { return hasHeldAnswer_; }))
    throw std::runtime_error("no question for a process");
  hasHeldAnswer_ = false;
}

void BusGate::wake() const {
  const std::uint64_t one = 1;
  [[maybe_unused]] const auto written = ::write(wake_.get(), &one, sizeof one);
}

void BusGate::run() {
  while (!ends_) {
    if (cuts_) {
      const std::lock_guard lock(mutex_);
      std::erase_if(connections_, [](const Connection& each) { return each.asks; });
      cuts_ = false;
      changed_.notify_all();
    }
    std::vector<pollfd> all{{listener_.get(), POLLIN, 0}, {wake_.get(), POLLIN, 0}};
    for (Connection& each : connections_) {
      each.asks = each.asks && holds_;
      const bool keptBack = each.asks;
      const auto wanted = [](const Way& in, const Way& out, bool reads) {
        return static_cast<short>((reads && in.passing.empty() ? POLLIN : 0) |
                                  (out.passing.empty() ? 0 : POLLOUT));
      };
      all.push_back({each.client.get(), wanted(each.toBus, each.toClient, true), 0});
      all.push_back({each.bus.get(), wanted(each.toClient, each.toBus, !keptBack), 0});
      // Peeks at a held answer, to tell the test of it.
      if (!keptBack) continue;
      char byte = 0;
      if (::recv(each.bus.get(), &byte, 1, MSG_PEEK | MSG_DONTWAIT) != 1) {
        all.back().events |= POLLIN;
        continue;
      }
      const std::lock_guard lock(mutex_);
      hasHeldAnswer_ = true;
      changed_.notify_all();
    }
    if (::poll(all.data(), all.size(), -1) < 0) continue;
    std::uint64_t count = 0;
    [[maybe_unused]] const auto got = ::read(wake_.get(), &count, sizeof count);
    std::size_t i = 2;
    for (auto each = connections_.begin(); each != connections_.end(); i += 2) {
      const bool goesOn = serve(*each, all[i].revents, all[i + 1].revents);
      each = goesOn ? std::next(each) : connections_.erase(each);
    }
    if ((all[0].revents & POLLIN) != 0) accept();
  }
}

void BusGate::accept() {
  Descriptor client(::accept4(listener_.get(), nullptr, nullptr, SOCK_CLOEXEC));
  Descriptor bus = newSocket();
  const auto address = socketAddress(busPath_);
  if (client.get() >= 0 &&
      ::connect(bus.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0) {
    connections_.emplace_back(std::move(client), std::move(bus));
  }
}

// Returns false once one side has ended.
bool BusGate::serve(Connection& connection, short client, short bus) {
  constexpr short ended = POLLHUP | POLLERR;
  auto& [clientEnd, busEnd, toBus, toClient, latest, asks] = connection;
  if ((client & POLLOUT) != 0 && !drain(toClient.passing, toClient.to)) return false;
  if ((bus & POLLOUT) != 0 && !drain(toBus.passing, toBus.to)) return false;
  if ((client & POLLIN) != 0) {
    if (!fill(toBus.passing, toBus.from)) return false;
    latest += toBus.passing;
    asks = asks || (holds_ && latest.find(question) != std::string::npos);
    if (latest.size() > question.size()) latest.erase(0, latest.size() - question.size());
  } else if ((client & ended) != 0) {
    return false;
  }
  const bool keptBack = asks && holds_;
  if ((bus & POLLIN) != 0 && !keptBack && toClient.passing.empty())
    return fill(toClient.passing, toClient.from);
  return (bus & ended) == 0 || (bus & POLLIN) != 0;
}

}  // namespace qbdkr::test
