// Runs the samples through all that scripts/demo shows, and compares everything that can be seen of
// it with the files in golden/: the messages on the bus, the log of the hosts, and the files.
//
// The helper agent is not supervised: supervision adds checks at times of its own.

#include <fcntl.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/file.h>
#include <sys/stat.h>

#include <algorithm>
#include <chrono>
#include <filesystem>
#include <map>
#include <memory>
#include <optional>
#include <regex>
#include <set>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include "Platform/Base/Descriptor.h"
#include "support/BusMonitor.h"
#include "support/GoldenFile.h"
#include "support/Peer.h"
#include "support/ProcessEnd.h"
#include "support/Sample.h"
#include "support/Scene.h"

namespace qbdkr::test {
namespace {

namespace fs = std::filesystem;

const fs::path goldenFiles = QBDKR_GOLDEN_FILES;

bool replaceAll(std::string& text, const std::string& from, const std::string& to) {
  bool isFound = false;
  for (auto at = text.find(from); at != std::string::npos; at = text.find(from, at + to.size())) {
    text.replace(at, from.size(), to);
    isFound = true;
  }
  return isFound;
}

// Replaces what differs from run to run, and nothing else.
class Normal {
 public:
  // Each test has identifiers of its own, and a directory with a random name.
  explicit Normal(const Scene& scene)
      : texts_{{scene.hostID(), "com.Acme.PhotoTool"},
               {scene.helperID(), "com.Acme.Helper"},
               {scene.directory().string(), "DIRECTORY"}} {}

  // The helper agent draws the client identifier at random. It is the same in all places.
  void setClient(const std::string& identifier) {
    texts_.emplace_back(identifier, "CLIENT-IDENTIFIER");
  }

  [[nodiscard]] std::string operator()(std::string text) const {
    for (const auto& [from, to] : texts_) replaceAll(text, from, to);
    return text;
  }

  // A line of the log begins with its time and its process.
  [[nodiscard]] std::string line(const std::string& text) const {
    static const std::regex start(R"(^\d{4}-\d\d-\d\d \d\d:\d\d:\d\d\.\d{3} PhotoTool\[\d+\] )");
    return (*this)(std::regex_replace(text, start, "TIME PhotoTool[PROCESS] "));
  }

  // The preferences have the time of the installation.
  [[nodiscard]] std::string contents(const std::string& text) const {
    static const std::regex installTime(R"((<key>installTime</key>\s*<string>)\d{14}<)");
    return (*this)(std::regex_replace(text, installTime, "$1YYYYMMDDHHMMSS<"));
  }

 private:
  std::vector<std::pair<std::string, std::string>> texts_;
};

// Holds back the deployment of the helper agent. Without this the helper agent may report before
// the host owns its name, and the report is lost, which is right, but not the same in each run.
class HeldDeployment {
 public:
  explicit HeldDeployment(const fs::path& directory) {
    fs::create_directories(directory);
    file_ = Descriptor(::open(directory.c_str(), O_RDONLY | O_CLOEXEC));
    if (::flock(file_.get(), LOCK_EX) != 0) throw std::runtime_error("no lock");
  }

 private:
  Descriptor file_;
};

// Shows the kind and the mode of a file as "ls -l" does.
std::string modeText(const fs::path& path) {
  const auto type = fs::symlink_status(path).type();
  std::string text = type == fs::file_type::directory ? "d"
                     : type == fs::file_type::symlink ? "l"
                                                      : "-";
  const mode_t mode = modeOf(path);
  for (int bit = 8; bit >= 0; --bit) {
    text += (mode >> static_cast<unsigned>(bit) & 1U) != 0 ? "xwr"[bit % 3] : '-';
  }
  return text;
}

// Shows a text file below the line of its name.
std::string indented(std::string text) {
  if (text.starts_with("\xff\xfe")) {
    std::string narrow = "(UTF-16, little-endian)\n";
    for (std::size_t i = 2; i < text.size(); i += 2) narrow += text[i];
    text = narrow;
  }
  if (!text.ends_with('\n')) text += "(no newline)\n";
  std::string result;
  for (std::size_t start = 0; start < text.size();) {
    const auto end = text.find('\n', start) + 1;
    result += "    " + text.substr(start, end - start);
    start = end;
  }
  return result;
}

// Counts what a test has waited for, to wait for the next one.
using Counts = std::map<std::string, std::size_t>;

// Sets the mask of a usual user, which the processes inherit.
class UsualMask {
 public:
  UsualMask() : before_(::umask(022)) {}
  UsualMask(const UsualMask&) = delete;
  UsualMask& operator=(const UsualMask&) = delete;
  ~UsualMask() { ::umask(before_); }

 private:
  mode_t before_;
};

// Gives a tree the modes that it has if it was built under that mask.
void setUsualModes(const fs::path& root) {
  for (const auto& entry : fs::recursive_directory_iterator(root)) {
    if (entry.is_symlink()) continue;
    const bool isOpen = entry.is_directory() || (modeOf(entry.path()) & S_IXUSR) != 0;
    fs::permissions(entry.path(), fs::perms(isOpen ? 0755 : 0644));
  }
}

struct Golden : testing::Test {
  Golden() {
    scene.environment()["QBDKR_DIRECT"] = "0";  // what the monitor sees is all
    makeSampleFit();
  }

  // Turns supervision off, and removes the switches, which a first start adds.
  void makeSampleFit() const {
    setUsualModes(sample.path());
    const auto file = sample.path() / "Contents/Info.plist";
    std::string text = readFile(file);
    for (const auto& [from, to] : std::vector<std::pair<std::string, std::string>>{
             {"<key>Helper is supervised</key>\n\t<true/>",
              "<key>Helper is supervised</key>\n\t<false/>"},
             {"\t<key>TipsEnable</key>\n\t<true/>\n", ""},
             {"\t<key>EnableAD</key>\n\t<false/>\n", ""}}) {
      if (!replaceAll(text, from, to)) throw std::runtime_error("the sample lacks " + from);
    }
    writeFile(file, text);
  }

  // --- A host, of which one runs at a time

  void startHost() {
    const HeldDeployment held(scene.installDirectory());
    host = sample.start();
    outputs.clear();
    logged.clear();
    monitor.waitForOwner(scene.hostID(), ++hosts);
  }

  // Waits for the end of a start-up or a restart of the helper agent: the report that answers the
  // start request, and the switches, which are written last.
  void awaitStart() {
    monitor.waitForCalls("start:prodeuctVersion:", ++starts);
    monitor.waitForCalls("clientIDFormHelper", ++questions);
    awaitOutput("delegate told that the helper's server is open");
    awaitSwitch("EnableAD", false);
  }

  // A record of the change lies beside the file until it is complete.
  void awaitSwitch(const std::string& key, bool value) const {
    const auto folder = sample.path() / "Contents";
    const std::regex wanted("<key>" + key + "</key>\\s*<" + (value ? "true" : "false") + "/>");
    const auto deadline = std::chrono::steady_clock::now() + patience;
    while (!std::regex_search(readFile(folder / "Info.plist"), wanted) ||
           namesIn(folder).front().starts_with(".Info.plist.")) {
      if (std::chrono::steady_clock::now() > deadline) throw std::runtime_error("no switch " + key);
    }
  }

  void endHost() {
    host->write("quit\n");
    EXPECT_TRUE(host->succeeds());
    monitor.waitForLoss(scene.hostID(), hosts);
    log += describeLog();
  }

  // Waits for the next line of the host's transcript, or of its log, with a text in it.
  void awaitOutput(const std::string& part) { host->waitForOutput(nthWith(part, ++outputs[part])); }
  void awaitLog(const std::string& part) { host->waitForLog(nthWith(part, ++logged[part])); }

  static ChildProcess::LineTest nthWith(const std::string& part, std::size_t wanted) {
    return [=, seen = std::size_t{0}](const std::string& line) mutable {
      if (line.find(part) != std::string::npos) ++seen;
      return seen == wanted;
    };
  }

  // Makes a call, and waits for its result.
  void call(const std::string& words) {
    host->write(words + '\n');
    awaitOutput(words.substr(0, words.find(' ')) + ": ");
  }

  // Makes a call that posts a request, and waits for that.
  void post(const std::string& words, const std::string& method) {
    call(words);
    monitor.waitForCalls(method, ++posts[method]);
  }

  // Makes a call that also has the helper agent checked, on another thread.
  void checkAndPost(const std::string& words, const std::string& method) {
    post(words, method);
    awaitLog("result 0 isHelperAlive 1");
  }

  // --- The parts of the demo

  void useTheHelper() {
    call("clientIDFormHelper");
    ++questions;
    const auto stored = scene.preferences(scene.helperID());
    normal.setClient(stored.substr(stored.find(": \"") + 3, 32));
    post("commIncreaseDataCollect editor saved", collect);
    post("commIncreaseDataCollect editor saved", collect);
    post("autoCreatedIncreaseDataCollect editor undo", collect);
    post("customStringDataCollect theme dark", collect);
    post("directUploadData", "directUploadData:version:");
    call("productCollectStatus");
    post("setProductCollectStatus 0", "setProductCollectStatus:version:status:");
    call("productCollectStatus");
    call("unRegSuiteInfo");
    call("regSuiteInfo");
    call("netErrorPagePath");
    call("isNotFirstStart");
    const std::string details = " me@acme.example /no/such/file Holiday -";
    checkAndPost("uploadUserFile" + details, "uploadUserFile" + upload);
    post("uploadProductFile" + details, "uploadProductFile" + upload);
    checkAndPost("uploadLogByEmail" + details, "uploadLog" + upload);
    checkAndPost("customerserviceByEmail me@acme.example -",
                 "customerService:versionID:email:attachment:");
    checkAndPost("checkForHeleprMessage", "checkForHeleprMessage:versionID:");
    checkAndPost("showHelper", "show:prodeuctVersion:");
    checkAndPost("hideHelper", "hide:prodeuctVersion:");
    call("initDataCollectionPath " + (scene.home().path() / "Collected").string());
  }

  void upgradeTheProduct() {
    const std::string ready = "productReadyToUpgrade:versionID:ready:";
    checkAndPost("productUpgrade", "productUpgrade:versionID:");
    awaitOutput("delegate asked whether");
    checkAndPost("productUpgrade", "productUpgrade:versionID:");
    monitor.waitForCalls(ready, ++posts[ready]);
    post("productReadyToUpgrade 1", ready);
  }

  void setSwitches() {
    call("setTipsEnable 0");
    call("setEnableAD 1");
  }

  void killTheHelper() {
    ::kill(helperProcess(), SIGKILL);
    monitor.waitForLoss(scene.helperID(), ++helpers);
    host->write("startHelper\n");
    awaitOutput("startHelper: ");
    awaitStart();
  }

  void upgradeTheHost() {
    const Sample upgraded(scene, {.host = "7.2", .helper = "1.1"});
    makeSampleFit();
    startHost();
    monitor.waitForLoss(scene.helperID(), ++helpers);
    awaitOutput("delegate told that the helper will exit");
    awaitStart();
  }

  void endTheHelper() {
    const pid_t process = helperProcess();
    const ProcessEnd end(process);
    ::kill(process, SIGTERM);
    EXPECT_TRUE(end.comesWithin(patience));
    monitor.waitForLoss(scene.helperID(), ++helpers);
  }

  [[nodiscard]] pid_t helperProcess() const {
    return Scene::processesIn(sample.installedHelper()).at(0);
  }

  // --- Descriptions

  [[nodiscard]] std::string describeLog();
  [[nodiscard]] std::string describeFiles(const std::string& when) const;
  [[nodiscard]] std::string describeBus() const;

  const std::string collect = "collectData:version:collectionType:target:keyID:value:";
  const std::string upload = ":versionID:email:filePath:title:description:";

  const UsualMask mask;  // before the first file is made
  Scene scene;
  Sample sample{scene};
  Normal normal{scene};
  BusMonitor monitor{Peer::inBundle(scene, "Monitor")};
  std::unique_ptr<ChildProcess> host;
  std::string log;
  std::size_t hosts = 0;    // that were started
  std::size_t helpers = 0;  // that have ended
  std::size_t starts = 0;
  std::size_t questions = 0;
  Counts posts;
  Counts outputs;
  Counts logged;
};

// Several threads write the log, so its order is compared in three parts: the lines of the main
// thread, which come with reports and from their delegate; those of the liveness checks; and the
// others, which one thread after another writes.
std::string Golden::describeLog() {
  std::map<std::string, std::string> parts;
  bool isExitReported = false;  // and not answered
  for (const std::string& raw : host->logToItsEnd()) {
    const std::string line = normal.line(raw);
    const auto has = [&](const char* text) {
      return line.starts_with("TIME PhotoTool[PROCESS] " + std::string(text));
    };
    std::string part = "calls and start-up";
    if (has("checkServerOpenCallBack::::") || has("helperExitNotify:") ||
        has("productUpgradeCallBack::::") || has("last query") || line.ends_with("   ignore") ||
        (isExitReported && has("stop:"))) {
      part = "reports";
      isExitReported = has("helperExitNotify:");
    }
    if (has("result ")) part = "liveness checks";
    parts[part] += line + '\n';
  }
  std::string text;
  for (const auto& [part, lines] : parts) {
    text += "\nhost " + std::to_string(hosts) + ", " + part + '\n' + lines;
  }
  return text;
}

// Shows the contents of property lists, of texts per language and of pages, unless the files are
// copies. Programs and libraries are other ones in each build, and the database is the sample's
// own.
std::string Golden::describeFiles(const std::string& when) const {
  std::string text = "--- " + when + '\n';
  const fs::path resource = sample.path() / "Contents/Resources/AcmeHelper.app";
  for (const fs::path& root : {scene.home().path(), sample.path()}) {
    std::vector<fs::path> paths{root};
    for (const auto& entry : fs::recursive_directory_iterator(root)) paths.push_back(entry.path());
    std::ranges::sort(paths);
    for (const fs::path& path : paths) {
      text += modeText(path) + ' ' + path.string();
      const auto inHelper = path.lexically_relative(sample.installedHelper());
      const auto extension = path.extension();
      const bool isFile = fs::is_regular_file(fs::symlink_status(path));
      if (isFile && *inHelper.begin() != "..") {
        const bool isCopy = readFile(path) == readFile(resource / inHelper) &&
                            modeOf(path) == modeOf(resource / inHelper);
        text += isCopy ? ", equal to the host's" : ", not the host's";
      }
      text += '\n';
      if (isFile && *inHelper.begin() == ".." && (extension == ".plist" || extension == ".strings"))
        text += indented(normal.contents(readFile(path)));
    }
  }
  return normal(text) + '\n';
}

// A liveness check runs on a thread of its own, so its requests have a stream of their own. The
// host answers the exit report with a stop request, which reaches the bus only if the helper agent
// is still there then: it is left out.
std::string Golden::describeBus() const {
  std::set<std::string> ending;  // helper agents
  const auto rule = [&](const std::string& stream, const std::vector<std::string>& texts) {
    const auto arrow = stream.find(" -> ");
    const std::string sender = stream.substr(0, arrow);
    const std::string receiver = stream.substr(arrow + 4, stream.find(',') - arrow - 4);
    const std::string method = texts.size() > 1 ? texts[1] : "";
    if (method == "helperExitNotify:") ending.insert(sender);
    if (method == "stop:prodeuctVersion:" && ending.contains(receiver)) {
      return std::optional<std::string>();
    }
    return std::optional(stream + (method == "isAlive:prodeuctVersion:" ? ", checks" : ""));
  };
  return normal(
      monitor.conversation({{scene.hostID(), "host"}, {scene.helperID(), "helper agent"}}, rule));
}

TEST_F(Golden, DemoIsTheSameAsEver) {
  startHost();
  awaitStart();
  useTheHelper();
  upgradeTheProduct();
  setSwitches();
  killTheHelper();
  setSwitches();
  endHost();
  std::string files = describeFiles("After the first host");
  upgradeTheHost();
  post("stopHelper", "stop:prodeuctVersion:");
  endHost();
  endTheHelper();
  files += describeFiles("After the upgrade");
  expectGolden(goldenFiles / "bus.txt", describeBus());
  expectGolden(goldenFiles / "log.txt", log);
  expectGolden(goldenFiles / "files.txt", files);
}

}  // namespace
}  // namespace qbdkr::test
