#include "support/Scene.h"

#include <signal.h>
#include <unistd.h>

#include <cstdlib>
#include <stdexcept>

#include "support/ProcessEnd.h"

namespace qbdkr::test {

namespace fs = std::filesystem;

Scene::Scene(const BusPolicy& busPolicy, const std::string& identifierSuffix)
    : bus_(directory_.path(), busPolicy),
      home_(directory_.path() / "home"),
      transcript_(directory_.path() / "transcript"),
      helperID_(identifier("Helper") + identifierSuffix),
      hostID_(identifier("Host")),
      hostProbe_(hostProbe()),
      environment_(home_.environment()) {
  environment_["DBUS_SESSION_BUS_ADDRESS"] = bus_.address();
  environment_["QBDKR_PROBE_TRANSCRIPT"] = transcript_.path().string();
  environment_["ACME_TRANSCRIPT"] = transcript_.path().string();
  if (const char* direct = std::getenv("QBDKR_DIRECT")) environment_["QBDKR_DIRECT"] = direct;
  environment_["QBDKR_PROBE_OWNER"] = std::to_string(getpid());
}

Scene::~Scene() {
  for (const pid_t process : processesIn(directory())) ::kill(process, SIGKILL);
}

// The process table spans the whole machine, so no two tests may use the same identifier.
std::string Scene::identifier(const std::string& name) const {
  const std::string unique = directory().filename().string();
  return "com.Acme." + name + ".T" + unique.substr(unique.rfind('-') + 1);
}

void Scene::useHostProbe(const HostProbe& probe) {
  hostProbe_ = probe.program;
  environment_.insert(probe.environment.begin(), probe.environment.end());
}

TestBundle Scene::makeHelper(const std::string& version, const fs::path& directory,
                             const std::string& name) {
  InfoKeys keys{{"CFBundleIdentifier", helperID_}, {"CFBundleName", name}};
  if (!version.empty()) keys["CFBundleVersion"] = version;
  return {directory, name, keys, helperProbe()};
}

TestBundle Scene::makeHost(const std::string& name, const std::string& helperVersion,
                           const InfoKeys& keys) {
  TestBundle host = makeHostWithoutHelper(name, keys);
  makeHelper(helperVersion, host.resources());
  return host;
}

TestBundle Scene::makeHostWithoutHelper(const std::string& name, const InfoKeys& keys) {
  TestBundle host(directory() / "Applications", name,
                  {{"CFBundleIdentifier", hostID_},
                   {"CFBundleName", name},
                   {"CFBundleVersion", "3.1"},
                   {"PID", "1001"},
                   {"Helper Bundle indentifiter", helperID_},
                   {"Helepr App name", "ProbeHelper"},
                   {"Helper loaction path", installDirectory().string()}},
                  hostProbe_);
  host.addLibraries(hostLibraries());
  host.setKeys(keys);
  return host;
}

void Scene::recordEarlierStarts() const {
  writeFile(home_.preferencesFile(hostID_),
            std::string("<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n"
                        "<plist version=\"1.0\"><dict><key>IsFirstStart</key><false/>"
                        "<key>FirstStartPID</key><string>") +
                firstProduct + "</string><key>DataCollectPID</key><string>" + dataProduct +
                "</string></dict></plist>\n");
}

SpawnOptions Scene::options() const { return {.environment = environment_}; }

std::unique_ptr<HostProcess> Scene::start(const TestBundle& host, const SpawnOptions& options) {
  return std::make_unique<HostProcess>(host, options);
}

std::unique_ptr<HostProcess> Scene::startAndShare(const TestBundle& host) {
  const std::size_t before = transcript_.lines().size();
  auto started = start(host);
  started->call("share");
  transcript_.waitFor({"start:prodeuctVersion: from " + started->identifier()}, before);
  transcript_.waitFor({"clientIDFormHelper from " + started->identifier()}, before);
  return started;
}

fs::path Scene::installDirectory() const { return home_.path() / ".local/share/Acme"; }

fs::path Scene::installedHelper() const { return installDirectory() / "ProbeHelper.app"; }

std::vector<std::string> Scene::stagingLeftovers() const {
  std::vector<std::string> names;
  if (!fs::exists(installDirectory())) return names;
  for (const auto& entry : fs::directory_iterator(installDirectory())) {
    const std::string name = entry.path().filename();
    if (name.starts_with('.')) names.push_back(name);
  }
  return names;
}

std::vector<pid_t> Scene::processesIn(const fs::path& directory) {
  std::vector<pid_t> processes;
  const std::string start = directory.string() + '/';
  for (const auto& entry : fs::directory_iterator("/proc")) {
    const std::string name = entry.path().filename();
    if (name.find_first_not_of("0123456789") != std::string::npos) continue;
    std::error_code gone;
    const fs::path executable = fs::read_symlink(entry.path() / "exe", gone);
    if (!gone && executable.string().starts_with(start)) processes.push_back(std::stoi(name));
  }
  return processes;
}

pid_t Scene::helperProcess() const {
  const auto processes = processesIn(installDirectory());
  if (processes.size() != 1) {
    throw std::runtime_error(std::to_string(processes.size()) + " processes of the helper agent");
  }
  return processes.front();
}

void Scene::killHelper(HostProcess& host) {
  const pid_t process = helperProcess();
  const ProcessEnd end(process);
  ::kill(process, SIGKILL);
  if (!end.comesWithin(patience)) throw std::runtime_error("a helper agent that cannot be killed");
  // The bus may still take messages for a process that has ended; it answers none of them.
  const std::string answer = host.call("ask " + helperID_ + " Probe echo: x");
  if (answer != "-600 ~" && answer != "-609 ~") throw std::runtime_error("answered: " + answer);
}

// Events from one process to another arrive in the order sent.
void Scene::fence(HostProcess& host) {
  const std::string mark = "fence-" + std::to_string(++fences_);
  const std::string answer = host.call("ask " + helperID_ + " Probe echo: " + mark);
  if (answer != "0 " + mark) throw std::runtime_error("no way to the helper agent: " + answer);
}

std::string Scene::preferences(const std::string& domain) const {
  const std::string program =
      "import json, plistlib, sys\n"
      "with open(sys.argv[1], 'rb') as file:\n"
      "    print(json.dumps(plistlib.load(file), sort_keys=True))\n";
  return outputOf({"/usr/bin/python3", "-c", program, home_.preferencesFile(domain).string()},
                  {{"PATH", "/usr/bin:/bin"}});
}

}  // namespace qbdkr::test
