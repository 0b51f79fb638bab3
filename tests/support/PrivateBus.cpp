#include "support/PrivateBus.h"

#include <stdexcept>
#include <utility>

#include "support/Environment.h"

namespace qbdkr::test {

namespace fs = std::filesystem;

PrivateBus::PrivateBus(fs::path directory, std::string policy)
    : directory_(std::move(directory)),
      policy_(std::move(policy)),
      address_("unix:path=" + (directory_ / "bus").string()) {
  start();
}

void PrivateBus::kill() { daemon_.reset(); }

void PrivateBus::start() {
  // Takes the limits of a desktop's session bus, which no test should reach.
  const fs::path configuration = directory_ / "bus.conf";
  fs::create_directories(serviceDirectory());
  writeFile(configuration,
            "<!DOCTYPE busconfig PUBLIC \"-//freedesktop//DTD D-Bus Bus Configuration 1.0//EN\"\n"
            " \"http://www.freedesktop.org/standards/dbus/1.0/busconfig.dtd\">\n"
            "<busconfig><type>session</type><keep_umask/>\n<listen>" +
                address_ + "</listen><auth>EXTERNAL</auth>\n<servicedir>" +
                serviceDirectory().string() +
                "</servicedir>\n<policy context=\"default\">\n"
                "<allow send_destination=\"*\" eavesdrop=\"true\"/><allow eavesdrop=\"true\"/>"
                "<allow own=\"*\"/>\n" +
                policy_ +
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
  fs::remove(directory_ / "bus");  // left behind by a daemon that was killed
  daemon_ = std::make_unique<ChildProcess>(
      std::vector<std::string>{"/usr/bin/dbus-daemon", "--nofork", "--nopidfile",
                               "--config-file=" + configuration.string(), "--print-address=1"},
      SpawnOptions{.environment = {{"PATH", "/usr/bin:/bin"}}});
  // The daemon prints its address once it listens.
  daemon_->waitForOutput([](const std::string& line) { return line.starts_with("unix:"); });
}

}  // namespace qbdkr::test
