// Makes the mistakes of a newcomer, each in the sample's names and in those of another product, and
// checks that the tool, or the host's diagnosis, names the cause first, within a second. The test
// of bundles has the mistakes in the build.

#include <gtest/gtest.h>
#include <signal.h>
#include <sys/stat.h>

#include <algorithm>
#include <chrono>
#include <filesystem>
#include <functional>
#include <memory>
#include <string>
#include <tuple>
#include <utility>
#include <vector>

#include "support/Peer.h"
#include "support/ProcessEnd.h"
#include "support/Programs.h"
#include "support/Sanitizers.h"
#include "support/Scene.h"
#include "tool/ToolRun.h"

namespace qbdkr::test {
namespace {

namespace fs = std::filesystem;
using Words = std::vector<std::string>;
using Clock = std::chrono::steady_clock;

struct Names {
  const char* label;
  const char* host;
  const char* helper;
  const char* program;  // of the helper agent
  const char* domain;
  const char* folder;  // in the home directory
  // The keys may be spelled in two ways.
  const char* helperNameKey;
  const char* installPathKey;
};

const std::vector<Names> allNames{
    {"Acme", "PhotoTool", "AcmeHelper", "AcmeHelper", "com.Acme", ".local/share/Acme",
     "Helepr App name", "Helper loaction path"},
    {"Borealis", "Borealis Studio", "Uploader für Borealis", "borealis-uploadd",
     "org.borealis-imaging.studio_4", "Borealis Studio/Agents", "Helper App name",
     "Helper location path"}};

// A product of those names, on a bus and in a home of its own.
class Product {
 public:
  explicit Product(const Names& itsNames)
      : names(itsNames), tool(scene.directory(), scene.environment()) {
    setHelperKeys({});
    useHelperProgram(helperProbe());
  }

  void setHelperKeys(const InfoKeys& changes) const {
    InfoKeys keys{{"CFBundleIdentifier", helperID},
                  {"CFBundleName", names.helper},
                  {"CFBundleVersion", "4.2"},
                  {"CFBundleExecutable", names.program}};
    for (const auto& [key, value] : changes) keys[key] = value;
    std::erase_if(keys, [](const auto& entry) { return entry.second.empty(); });
    writeFile(helper / "Contents/Info.plist", informationPropertyList(keys));
  }

  void useHelperProgram(const fs::path& executable) const {
    fs::create_directories(program.parent_path());
    fs::remove(program);
    linkOrCopy(executable, program);
  }

  void setMode(const std::string& mode) { scene.environment()["QBDKR_PROBE_MODE"] = mode; }

  HostProcess& start() { return *(process = scene.start(host)); }
  // Starts the host, and has it launch its helper agent.
  HostProcess& startAndLaunch() {
    start().call("share");
    EXPECT_EQ(process->call("launch"), "yes");
    return *process;
  }

  [[nodiscard]] InfoKeys hostKeys() const {
    InfoKeys keys{{"CFBundleIdentifier", hostID},
                  {"Helper Bundle indentifiter", helperID},
                  {"Helepr App name", ""},
                  {"Helper loaction path", ""}};
    keys[names.helperNameKey] = names.helper;
    keys[names.installPathKey] = std::string("~/") + names.folder;
    return keys;
  }

  [[nodiscard]] fs::path installedProgram() const {
    return installDirectory / helper.filename() / "Contents/Linux" / names.program;
  }
  [[nodiscard]] pid_t helperProcess() const {
    const auto processes = Scene::processesIn(installDirectory);
    return processes.size() == 1 ? processes.front() : 0;
  }

  const Names& names;
  Scene scene;
  std::string hostID = names.domain + fs::path(scene.identifier("Host")).extension().string();
  std::string helperID = hostID + ".Agent";
  fs::path installDirectory = scene.home().path() / names.folder;
  TestBundle host = scene.makeHostWithoutHelper(names.host, hostKeys());
  fs::path helper = host.resources() / (std::string(names.helper) + ".app");
  fs::path program = helper / "Contents/Linux" / names.program;
  Tool tool;
  std::unique_ptr<HostProcess> process;
  std::unique_ptr<ChildProcess> leftover;
};

// Three ways to ask for the cause. Each returns the first thing that it says.
std::string firstLine(const std::string& text) { return text.substr(0, text.find('\n')); }

std::string examined(const Product& product) {
  const auto result = product.tool.run({"doctor", "--json", product.host.path()}).json();
  return result["cause"].is_null() ? "none" : result["cause"]["text"].get<std::string>();
}

std::string asked(const Product& product) {
  const auto result =
      product.tool.run({"doctor", "--live", std::to_string(product.process->processID())});
  return firstLine(result.output + result.errors);
}

// Returns all findings of a host without an error.
std::string explained(const Product& product) {
  const auto result = product.tool.run({"doctor", "--json", product.host.path()}).json();
  return result["cause"].is_null() ? result["findings"].dump() : "an error was found";
}

std::string diagnosed(const Product& product) { return product.process->call("diagnose"); }

using Way = std::string (*)(const Product&);

void PrintTo(const Names& names, std::ostream* stream) { *stream << names.label; }

struct Mistake {
  const char* name;
  std::function<void(Product&)> make;
  Way ask;
  std::function<Words(const Product&)> words;
};

void PrintTo(const Mistake& mistake, std::ostream* stream) { *stream << mistake.name; }

std::function<Words(const Product&)> say(Words words) {
  return [words = std::move(words)](const Product&) { return words; };
}

// The helper agent runs, and did not come to the bus.
Words isNotReached(const Product& product) {
  return {"process " + std::to_string(product.helperProcess()), product.helperID,
          "cannot be reached"};
}

const std::vector<Mistake> mistakes{
    {"IdentifierKeyMisspelled",
     [](Product& product) {
       product.host.setKeys(
           {{"Helper Bundle indentifiter", ""}, {"Helper Bundle identifier", product.helperID}});
     },
     examined, say({"\"Helper Bundle indentifiter\"", "\"Helper Bundle identifier\""})},
    {"IdentifiersDiffer",
     [](Product& product) {
       product.setHelperKeys({{"CFBundleIdentifier", "net.other.Agent"}});
     },
     examined,
     [](const Product& product) {
       return Words{"net.other.Agent", product.helperID};
     }},
    {"WrongHelperName",
     [](Product& product) {
       product.host.setKeys({{product.names.helperNameKey, "Agentt"}});
     },
     examined,
     [](const Product& product) {
       return Words{"Agentt.app", product.helper.filename().string() + " is there"};
     }},
    {"NoExecutableBit",
     [](Product& product) {
       fs::remove(product.program);
       writeFile(product.program, "#!/bin/sh\n");
     },
     examined,
     [](const Product& product) {
       return Words{product.program, "may not be executed"};
     }},
    {"WrongExecutable",
     [](Product& product) {
       product.setHelperKeys({{"CFBundleExecutable", "Daemon"}});
     },
     examined,
     [](const Product& product) {
       return Words{"\"Daemon\"", product.names.program};
     }},
    {"LibraryMissing", [](Product& product) { product.useHelperProgram(hostProbe()); }, examined,
     [](const Product& product) {
       return Words{product.program, hostLibraries()[0].filename(), hostLibraries()[1].filename()};
     }},
    {"HelperWithoutIdentifier",
     [](Product& product) {
       product.setHelperKeys({{"CFBundleIdentifier", ""}});
     },
     examined,
     [](const Product& product) {
       return Words{"CFBundleIdentifier", product.helper / "Contents/Info.plist"};
     }},
    {"HelperNeverRunsItsLoop",
     [](Product& product) {
       product.setMode("no-loop");
       product.start().call("share");
     },
     asked, isNotReached},
    {"HelperNeverClaimsItsName",
     [](Product& product) {
       product.setMode("never-check-in");
       product.start().call("share");
     },
     asked, isNotReached},
    {"HostNeverRunsItsLoop", [](Product& product) { product.startAndLaunch().call("block-main"); },
     asked, say({"its main run loop is busy or does not run"})},
    {"HostOutsideItsBundle", [](Product& product) { fs::remove(product.host.infoFile()); },
     examined,
     [](const Product& product) {
       return Words{"is not a bundle", product.host.infoFile()};
     }},
    {"RequestBeforeTheLaunch",
     [](Product& product) {
       product.start().call("ask " + product.helperID + " Photos early");
       product.process->call("share");
       product.process->call("launch");
     },
     asked,
     [](const Product& product) {
       return Words{"Photos early", product.helperID, "returned -600"};
     }},
    {"HangingHelperIsAskedOnTheMainThread",
     [](Product& product) {
       auto& host = product.startAndLaunch();
       host.call("ask " + product.helperID + " Photos echo: ready");
       ::kill(product.helperProcess(), SIGSTOP);
       host.begin("ask-on-main " + product.helperID + " Photos echo: x");
     },
     diagnosed,
     [](const Product& product) {
       return Words{"Photos echo:", product.helperID, "has waited for its answer",
                    "on the main thread"};
     }},
    {"DelegateIsDestroyedEarly",
     [](Product& product) { product.startAndLaunch().call("lose-delegate"); }, asked,
     say({"delegate of QBHPHelperControl was destroyed"})},
    {"NoSessionBus", [](Product& product) { product.scene.bus().kill(); }, examined,
     [](const Product& product) {
       return Words{product.tool.environment().at("DBUS_SESSION_BUS_ADDRESS"), "refused"};
     }},
    {"InstallDirectoryNotWritable",
     [](Product& product) {
       product.host.setKeys({{product.names.installPathKey, "/proc/Agents"}});
     },
     examined, say({"/proc/Agents"})},
    {"RelativeInstallDirectory",
     [](Product& product) {
       product.host.setKeys({{product.names.installPathKey, "Studio/Agents"}});
     },
     examined,
     [](const Product&) {
       return Words{"\"Studio/Agents\"", fs::current_path() / "Studio/Agents"};
     }},
    {"FullDisk",
     [](Product& product) {
       SpawnOptions options = product.scene.options();
       options.largestFile = 1000;
       product.process = product.scene.start(product.host, options);
       product.process->call("share");
       EXPECT_EQ(product.process->call("launch"), "no");
     },
     asked,
     [](const Product& product) {
       return Words{"could not install " + product.program.string(), "File too large"};
     }},
    {"FIFOAmongTheResources",
     [](Product& product) { EXPECT_EQ(::mkfifo((product.helper / "pipe").c_str(), 0600), 0); },
     examined,
     [](const Product& product) {
       return Words{product.helper / "pipe", "a FIFO"};
     }},
    {"IdentifierOfOneElement",
     [](Product& product) {
       product.host.setKeys({{"Helper Bundle indentifiter", "Agent"}});
       product.setHelperKeys({{"CFBundleIdentifier", "Agent"}});
     },
     examined, say({"\"Agent\"", "-50"})},
    {"MalformedInformation",
     [](Product& product) {
       writeFile(product.host.infoFile(), "<plist>\n<dict>\n<key>PID</ky>\n</dict>\n</plist>\n");
     },
     examined,
     [](const Product& product) {
       return Words{product.host.infoFile(), "line 3"};
     }},
    {"HelperLeftOverOnAnotherBus",
     [](Product& product) {
       fs::create_directories(product.installDirectory);
       fs::copy(product.helper, product.installDirectory / product.helper.filename(),
                fs::copy_options::recursive);
       auto options = product.scene.options();
       options.environment["DBUS_SESSION_BUS_ADDRESS"] = "unix:path=/nowhere/bus";
       product.leftover = std::make_unique<ChildProcess>(
           std::vector<std::string>{product.installedProgram()}, options);
     },
     examined,
     [](const Product& product) {
       return Words{"process " + std::to_string(product.leftover->processID()), product.helperID};
     }},
    {"RequestThatTheHelperDoesNotImplement",
     [](Product& product) {
       product.startAndLaunch().call("ask " + product.helperID + " Photos unheardOf");
     },
     asked,
     [](const Product& product) {
       return Words{"Photos unheardOf", product.helperID, "answered with nothing"};
     }},
    {"RequestThatTheHelperFails",
     [](Product& product) {
       product.startAndLaunch().call("ask " + product.helperID + " Photos fail");
     },
     asked,
     [](const Product& product) {
       return Words{"Photos fail", product.helperID, "returned -1708"};
     }},
    {"ProductIdentifierIsAnInteger",
     [](Product& product) {
       std::string text = readFile(product.host.infoFile());
       const std::string before = "<string>1001</string>";
       text.replace(text.find(before), before.size(), "<integer>1001</integer>");
       writeFile(product.host.infoFile(), text);
     },
     explained, say({"an integer", R"(\"1001\")"})},
    {"LogLineThatReadsLikeTheCause", [](Product& product) { product.startAndLaunch(); }, explained,
     say({"helper in conetent's version is lower"})},
};

class NewcomerMistake : public testing::TestWithParam<std::tuple<Names, Mistake>> {};

TEST_P(NewcomerMistake, IsNamedFirst) {
  const Mistake& mistake = std::get<1>(GetParam());
  Product product(std::get<0>(GetParam()));
  mistake.make(product);
  const auto complete = [&](const std::string& answer) {
    return std::ranges::all_of(mistake.words(product), [&](const std::string& word) {
      return answer.find(word) != std::string::npos;
    });
  };
  // A request becomes a cause when it has waited for a second.
  const bool ripens = mistake.ask != examined;
  const auto deadline =
      Clock::now() + (ripens ? std::chrono::milliseconds(3000) : std::chrono::seconds(0));
  std::string answer;
  Clock::duration time{};
  do {
    const auto start = Clock::now();
    answer = mistake.ask(product);
    time = Clock::now() - start;
  } while (!complete(answer) && Clock::now() < deadline);
  EXPECT_TRUE(complete(answer)) << answer;
  if (!hasSanitizer) {
    EXPECT_LT(time, std::chrono::seconds(1));
  }
}

INSTANTIATE_TEST_SUITE_P(, NewcomerMistake,
                         testing::Combine(testing::ValuesIn(allNames), testing::ValuesIn(mistakes)),
                         [](const auto& test) {
                           return std::string(std::get<0>(test.param).label) +
                                  std::get<1>(test.param).name;
                         });

}  // namespace
}  // namespace qbdkr::test
