#include "support/MessageBroker.h"

#include <poll.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cstdint>
#include <sstream>
#include <stdexcept>

#include "Platform/Base/Descriptor.h"
#include "support/Environment.h"

namespace qbdkr::test {
namespace {

namespace fs = std::filesystem;

constexpr const char* brokerObject = "/org/bus1/DBus/Broker";
constexpr const char* brokerInterface = "org.bus1.DBus.Broker";
constexpr const char* nameObjects = "/org/bus1/DBus/Name/";
constexpr int controllerInBroker = 3;

// The types of a policy, as of version 33: whether peers may connect, own names, send and receive;
// for each user, for ranges of users and groups; then labels, and the kind of bus.
#define QBDKR_RULES "bta(btbs)a(btssssuutt)a(btssssuutt)"
#define QBDKR_POLICY "a(u(" QBDKR_RULES "))a(buu(" QBDKR_RULES "))a(ss)bs"

void require(int result, const char* what) {
  if (result < 0)
    throw std::runtime_error(std::string(what) + ": error " + std::to_string(-result));
}

Descriptor listenAt(const fs::path& path) {
  Descriptor listener(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  if (path.native().size() >= sizeof address.sun_path) throw std::runtime_error("a long path");
  std::ranges::copy(path.native(), address.sun_path);
  constexpr int backlog = 1024;
  if (::bind(listener.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0 ||
      ::listen(listener.get(), backlog) != 0) {
    throw std::runtime_error("no socket for the broker");
  }
  return listener;
}

// The highest priority counts: what a test denies goes before what is allowed.
void appendPolicy(sd_bus_message* message, const BusPolicy& policy) {
  const auto appendSending = [&](bool allows, std::uint64_t priority, const std::string& name,
                                 const std::string& interface) {
    require(sd_bus_message_append(message, "(btssssuutt)", int{allows}, priority, name.c_str(), "",
                                  interface.c_str(), "", 0U, 0U, std::uint64_t{0}, UINT64_MAX),
            "a rule");
  };
  const auto open = [&](char type, const char* contents) {
    require(sd_bus_message_open_container(message, type, contents), contents);
  };
  const auto close = [&](int count = 1) {
    for (; count > 0; --count) require(sd_bus_message_close_container(message), "the end");
  };
  constexpr std::uint64_t usual = 1;
  open('v', "(" QBDKR_POLICY ")");
  open('r', QBDKR_POLICY);
  open('a', "(u(" QBDKR_RULES "))");
  open('r', "u(" QBDKR_RULES ")");
  require(sd_bus_message_append(message, "u", UINT32_MAX), "all users");
  open('r', QBDKR_RULES);
  require(sd_bus_message_append(message, "bta(btbs)", 1, usual, 1, 1, usual, 1, ""), "own");
  open('a', "(btssssuutt)");
  appendSending(true, usual, "", "");
  if (!policy.deniedDestination.empty()) appendSending(false, 2, policy.deniedDestination, "");
  if (!policy.deniedInterface.empty()) appendSending(false, 2, "", policy.deniedInterface);
  close();
  open('a', "(btssssuutt)");
  appendSending(true, usual, "", "");
  close(4);
  open('a', "(buu(" QBDKR_RULES "))");
  close();
  require(sd_bus_message_append(message, "a(ss)bs", 0, 0, "session"), "labels");
  close(2);
}

std::vector<std::string> wordsOf(const std::string& text) {
  std::istringstream stream(text);
  std::vector<std::string> words;
  for (std::string word; stream >> word;) words.push_back(word);
  return words;
}

// Returns what follows a key in a file of lines "KEY=VALUE".
std::string valueIn(const std::string& contents, const std::string& key) {
  const auto begin = contents.find('\n' + key + '=');
  if (begin == std::string::npos) throw std::runtime_error("no " + key + " in a service file");
  const auto value = begin + key.size() + 2;
  return contents.substr(value, contents.find('\n', value) - value);
}

}  // namespace

MessageBroker::MessageBroker(const fs::path& socket, const fs::path& services,
                             const BusPolicy& policy) {
  std::array<int, 2> ends{};
  require(::socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0, ends.data()),
          "a pair of sockets");
  Descriptor own(ends[0]);
  const Descriptor brokers(ends[1]);
  const std::string most = "1000000000";
  broker_ = std::make_unique<ChildProcess>(
      std::vector<std::string>{"/usr/bin/dbus-broker", "--controller",
                               std::to_string(controllerInBroker), "--machine-id",
                               std::string(32, '1'), "--max-bytes", most, "--max-fds", most,
                               "--max-matches", most, "--max-objects", most},
      SpawnOptions{.beforeExec = [end = brokers.get()] {
        // A descriptor that is moved to its own place would stay closed on execution.
        const int copy = end == controllerInBroker ? ::dup(end) : end;
        ::dup2(copy, controllerInBroker);
      }});
  sd_bus* made = nullptr;
  require(sd_bus_new(&made), "a controller");
  controller_.reset(made);
  const int descriptor = own.release();
  require(sd_bus_set_fd(made, descriptor, descriptor), "a controller");
  require(sd_bus_start(made), "a controller");
  require(sd_bus_match_signal(made, nullptr, nullptr, nullptr, "org.bus1.DBus.Name", "Activate",
                              onActivate, this),
          "a watch");
  addServices(services);
  addListener(socket, policy);
  thread_ = std::thread([this] { run(); });
}

// The thread ends with the broker.
MessageBroker::~MessageBroker() {
  broker_->kill();
  if (thread_.joinable()) thread_.join();
}

void MessageBroker::addListener(const fs::path& socket, const BusPolicy& policy) {
  const Descriptor listener = listenAt(socket);
  sd_bus_message* made = nullptr;
  require(sd_bus_message_new_method_call(controller_.get(), &made, nullptr, brokerObject,
                                         brokerInterface, "AddListener"),
          "a message");
  const BusMessage message(made);
  require(sd_bus_message_append(made, "oh", "/org/bus1/DBus/Listener/0", listener.get()),
          "a listener");
  appendPolicy(made, policy);
  sd_bus_error error{};
  const int result = sd_bus_call(controller_.get(), made, 0, &error, nullptr);
  const std::string name = error.name == nullptr ? "" : error.name;
  sd_bus_error_free(&error);
  require(result, ("AddListener: " + name).c_str());
}

void MessageBroker::addServices(const fs::path& directory) {
  for (const auto& entry : fs::directory_iterator(directory)) {
    const std::string contents = readFile(entry.path());
    const std::string object = nameObjects + std::to_string(commands_.size());
    require(sd_bus_call_method(controller_.get(), nullptr, brokerObject, brokerInterface, "AddName",
                               nullptr, nullptr, "osu", object.c_str(),
                               valueIn(contents, "Name").c_str(), std::uint32_t{getuid()}),
            "AddName");
    commands_.push_back(wordsOf(valueIn(contents, "Exec")));
  }
}

void MessageBroker::run() {
  for (;;) {
    const int result = sd_bus_process(controller_.get(), nullptr);
    if (result < 0) return;
    if (result == 0 && sd_bus_wait(controller_.get(), UINT64_MAX) < 0) return;
  }
}

int MessageBroker::onActivate(sd_bus_message* message, void* self, sd_bus_error* /*error*/) {
  const std::string object = sd_bus_message_get_path(message);
  const auto number = std::stoul(object.substr(object.rfind('/') + 1));
  ChildProcess(static_cast<MessageBroker*>(self)->commands_.at(number), {}).wait();
  return 0;
}

}  // namespace qbdkr::test
