#include "support/PrivateBus.h"

#include <cstdlib>
#include <stdexcept>
#include <string_view>
#include <utility>

#include "support/Environment.h"

namespace qbdkr::test {

namespace fs = std::filesystem;

namespace {

std::string denial(const std::string& attribute, const std::string& value) {
  return value.empty() ? "" : "<deny " + attribute + "=\"" + value + "\"/>\n";
}

}  // namespace

PrivateBus::PrivateBus(fs::path directory, BusPolicy policy)
    : directory_(std::move(directory)),
      policy_(std::move(policy)),
      address_("unix:path=" + (directory_ / "bus").string()) {
  start();
}

bool PrivateBus::isBroker() {
  const char* name = std::getenv("QBDKR_TEST_BUS");
  if (name == nullptr || std::string_view(name) == "dbus-daemon") return false;
  if (std::string_view(name) == "dbus-broker") return true;
  throw std::runtime_error("QBDKR_TEST_BUS names no bus");
}

pid_t PrivateBus::daemonProcess() const {
  return broker_ ? broker_->processID() : daemon_->processID();
}

void PrivateBus::kill() {
  daemon_.reset();
  broker_.reset();
}

void PrivateBus::start() {
  fs::create_directories(serviceDirectory());
  fs::remove(directory_ / "bus");  // left behind by a daemon that was killed
  if (isBroker()) {
    broker_ = std::make_unique<MessageBroker>(directory_ / "bus", serviceDirectory(), policy_);
  } else {
    startDaemon();
  }
}

void PrivateBus::startDaemon() {
  // Takes the limits of a desktop's session bus, which no test should reach.
  const fs::path configuration = directory_ / "bus.conf";
  writeFile(configuration,
            "<!DOCTYPE busconfig PUBLIC \"-//freedesktop//DTD D-Bus Bus Configuration 1.0//EN\"\n"
            " \"http://www.freedesktop.org/standards/dbus/1.0/busconfig.dtd\">\n"
            "<busconfig><type>session</type><keep_umask/>\n<listen>" +
                address_ + "</listen><auth>EXTERNAL</auth>\n<servicedir>" +
                serviceDirectory().string() +
                "</servicedir>\n<policy context=\"default\">\n"
                "<allow send_destination=\"*\" eavesdrop=\"true\"/><allow eavesdrop=\"true\"/>"
                "<allow own=\"*\"/>\n" +
                denial("send_destination", policy_.deniedDestination) +
                denial("send_interface", policy_.deniedInterface) +
                "</policy>\n"
                "<limit name=\"max_incoming_bytes\">1000000000</limit>\n"
                "<limit name=\"max_outgoing_bytes\">1000000000</limit>\n"
                "<limit name=\"max_message_size\">1000000000</limit>\n"
                "<limit name=\"max_completed_connections\">100000</limit>\n"
                "<limit name=\"max_incomplete_connections\">10000</limit>\n"
                "<limit name=\"max_connections_per_user\">100000</limit>\n"
                "<limit name=\"max_names_per_connection\">50000</limit>\n"
                "<limit name=\"max_match_rules_per_connection\">50000</limit>\n"
                "<limit name=\"max_replies_per_connection\">50000</limit>\n"
                "</busconfig>\n");
  daemon_ = std::make_unique<ChildProcess>(
      std::vector<std::string>{"/usr/bin/dbus-daemon", "--nofork", "--nopidfile",
                               "--config-file=" + configuration.string(), "--print-address=1"},
      SpawnOptions{.environment = {{"PATH", "/usr/bin:/bin"}}});
  // The daemon prints its address once it listens.
  daemon_->waitForOutput([](const std::string& line) { return line.starts_with("unix:"); });
}

}  // namespace qbdkr::test
