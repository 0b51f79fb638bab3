#include "Reference.h"

#include <spawn.h>
#include <sys/wait.h>
#include <systemd/sd-bus.h>
#include <unistd.h>

#include <array>
#include <stdexcept>
#include <utility>

namespace qbdkr::bench {

struct BareConnection::State {
  sd_bus* bus = nullptr;
  std::string name;
};

namespace {

sd_bus_message* newCall(sd_bus* bus, const std::string& name, const char* method,
                        const std::string& text) {
  sd_bus_message* message = nullptr;
  sd_bus_message_new_method_call(bus, &message, name.c_str(), "/QBHP/RPCEvent", "QBHP.RPCEvent1",
                                 "Call");
  sd_bus_message_set_auto_start(message, 0);
  sd_bus_message_append(message, "ssas", "Echo", method, 1, text.c_str());
  return message;
}

}  // namespace

BareConnection::BareConnection(std::string name) : state_(new State{nullptr, std::move(name)}) {
  if (sd_bus_open_user(&state_->bus) < 0) throw std::runtime_error("no bus");
}

BareConnection::~BareConnection() {
  sd_bus_flush_close_unref(state_->bus);
  delete state_;
}

bool BareConnection::call(const char* method, const std::string& text) {
  sd_bus_message* message = newCall(state_->bus, state_->name, method, text);
  sd_bus_message* reply = nullptr;
  const int result = sd_bus_call(state_->bus, message, UINT64_MAX, nullptr, &reply);
  const char* answer = nullptr;
  const bool ok = result >= 0 && sd_bus_message_read(reply, "s", &answer) > 0;
  sd_bus_message_unref(reply);
  sd_bus_message_unref(message);
  return ok;
}

bool BareConnection::post(const char* method, const std::string& text) {
  sd_bus_message* message = newCall(state_->bus, state_->name, method, text);
  sd_bus_message_set_expect_reply(message, 0);
  const bool ok = sd_bus_send(state_->bus, message, nullptr) >= 0;
  sd_bus_message_unref(message);
  return ok;
}

bool runPgrep(const char* name) {
  pid_t process = 0;
  const std::array<char*, 4> arguments{const_cast<char*>("pgrep"), const_cast<char*>("-x"),
                                       const_cast<char*>(name), nullptr};
  if (posix_spawnp(&process, "pgrep", nullptr, nullptr, arguments.data(), environ) != 0)
    return false;
  int status = 0;
  return waitpid(process, &status, 0) == process && WIFEXITED(status) && WEXITSTATUS(status) <= 1;
}

}  // namespace qbdkr::bench
