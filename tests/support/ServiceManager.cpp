#include "support/ServiceManager.h"

#include <unistd.h>

#include <chrono>
#include <stdexcept>
#include <string_view>
#include <thread>

#include "support/Environment.h"
#include "support/Patience.h"

namespace qbdkr::test {

namespace fs = std::filesystem;

namespace {

constexpr const char* program = "/lib/systemd/systemd";

// The manager wants control groups of one hierarchy, and a machine that systemd has started.
constexpr const char* ownMounts =
    "set -e\n"
    "mount --make-rprivate /\n"
    "mount -t cgroup2 cgroup2 /sys/fs/cgroup\n"
    "mount -t tmpfs tmpfs /run\n"
    "mkdir -p /run/systemd/system\n"
    "group=/sys/fs/cgroup/$1\n";

constexpr const char* begin =
    "mkdir \"$group\"\n"
    "echo $$ > \"$group/cgroup.procs\"\n"
    "exec \"$2\" --user\n";

// Removes the innermost group first. Its processes may take a moment to end.
constexpr const char* end =
    "[ -d \"$group\" ] || exit 0\n"
    "echo 1 > \"$group/cgroup.kill\"\n"
    "while grep -q 'populated 1' \"$group/cgroup.events\"; do :; done\n"
    "find \"$group\" -depth -type d -exec rmdir {} +\n";

constexpr const char* attempt =
    "mkdir \"$group\"\n"
    "trap 'rmdir \"$group\"' EXIT\n"
    "[ -e \"$group/cgroup.kill\" ]\n";

// Runs lines of a shell in mounts of their own. $group is the manager's control group there.
std::vector<std::string> inOwnMounts(const std::string& lines, const std::string& group) {
  return {"/usr/bin/unshare", "--mount", "/bin/sh", "-c", ownMounts + lines, "sh", group, program};
}

const Environment& plainEnvironment() {
  static const auto& environment = *new Environment{{"PATH", "/usr/bin:/bin:/usr/sbin:/sbin"}};
  return environment;
}

}  // namespace

std::string ServiceManager::obstacle() {
  if (!fs::exists(program)) return "systemd is not installed";
  if (geteuid() != 0) return "needs root";
  const auto group = "qbdkr-test-" + std::to_string(getpid());
  ChildProcess process(inOwnMounts(attempt, group), {.environment = plainEnvironment()});
  return process.succeeds() ? "" : "no control group of its own may be made here";
}

ServiceManager::ServiceManager(const fs::path& directory, const Environment& environment)
    : environment_(environment), group_(directory.filename().string()) {
  const fs::path units = directory / "units";
  const fs::path none = directory / "none";
  fs::create_directories(units);
  fs::create_directories(none);
  writeFile(units / "default.target",
            "[Unit]\nDescription=The bus\nWants=dbus.service\nAfter=dbus.service\n");
  for (const char* name : {"basic.target", "shutdown.target"}) {
    writeFile(units / name, "[Unit]\nDescription=Nothing\nDefaultDependencies=no\n");
  }
  writeFile(units / "dbus.socket", "[Socket]\nListenStream=%t/bus\n");
  writeFile(units / "dbus.service",
            "[Unit]\nRequires=dbus.socket\nAfter=dbus.socket\n[Service]\nType=notify\n"
            "ExecStart=/usr/bin/dbus-daemon --session --address=systemd: --nofork --nopidfile\n");
  environment_["PATH"] = plainEnvironment().at("PATH");
  auto own = environment_;
  own.erase("DBUS_SESSION_BUS_ADDRESS");
  own["SYSTEMD_UNIT_PATH"] = units;
  own["SYSTEMD_GENERATOR_PATH"] = none;
  own["SYSTEMD_ENVIRONMENT_GENERATOR_PATH"] = none;
  process_ =
      std::make_unique<ChildProcess>(inOwnMounts(begin, group_), SpawnOptions{.environment = own});
  const auto deadline = std::chrono::steady_clock::now() + patience;
  while (!isReady()) {
    if (std::chrono::steady_clock::now() >= deadline) {
      process_->kill();
      std::string text = "the service manager does not start\n";
      for (const auto& line : process_->logToItsEnd()) text += line + '\n';
      throw std::runtime_error(text);
    }
  }
}

ServiceManager::~ServiceManager() {
  ChildProcess process(inOwnMounts(end, group_), {.environment = plainEnvironment()});
  static_cast<void>(process.succeeds());
}

std::string ServiceManager::busAddress() const {
  return "unix:path=" + environment_.at("XDG_RUNTIME_DIR") + "/bus";
}

SpawnOptions ServiceManager::asService(const std::string& name, SpawnOptions options) const {
  options.runner = {"/usr/bin/systemd-run", "--user", "--pipe", "--quiet", "--unit=" + name,
                    "--service-type=exec"};
  for (const auto& [key, value] : options.environment)
    options.runner.push_back("--setenv=" + key + '=' + value);
  options.runner.emplace_back("--");
  options.environment["DBUS_SESSION_BUS_ADDRESS"] = busAddress();
  return options;
}

void ServiceManager::stop(const std::string& unit) const {
  outputOf({"/usr/bin/systemctl", "--user", "stop", unit}, environment_);
}

std::string ServiceManager::placeOf(pid_t process) const {
  const std::string lines = readFile("/proc/" + std::to_string(process) + "/cgroup");
  const std::string start = "0::/" + group_;
  const auto place = lines.find(start);
  if (place == std::string::npos) return lines;
  const auto rest = lines.substr(place + start.size());
  return rest.substr(0, rest.find('\n'));
}

bool ServiceManager::isReady() const {
  ChildProcess process({"/usr/bin/systemctl", "--user", "is-active", "default.target"},
                       {.environment = environment_});
  return process.succeeds();
}

}  // namespace qbdkr::test
