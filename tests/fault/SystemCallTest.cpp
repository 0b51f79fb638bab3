// Kills a host, or makes the call fail, at each system call that changes the file system. Its files
// are then the old or the new ones. Its next start goes on from there, and leaves nothing behind.

#include <gtest/gtest.h>
#include <signal.h>
#include <sys/stat.h>
#include <sys/wait.h>

#include <algorithm>
#include <cerrno>
#include <filesystem>
#include <functional>
#include <iostream>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <tuple>
#include <vector>

#include <ClientComm/PropertyList.h>

#include "Platform/Files/EarlyFlush.h"
#include "Platform/PropertyLists/PropertyListReader.h"
#include "Platform/PropertyLists/PropertyListWriter.h"
#include "support/Scene.h"
#include "support/SystemCallGate.h"

namespace qbdkr::test {
namespace {

namespace fs = std::filesystem;

using Words = std::vector<std::string>;

// The elements of the two switches in the property list.
struct Switches {
  std::string tips;
  std::string advertising;
};

// The contents of a directory: each path below it, and each key of the lists among the files.
using Entries = std::map<std::string, std::string>;

const std::string aDirectory = "directory";

// Blanks end a text that is written and not yet truncated. They mean nothing in either form.
std::string withoutBlanksAtTheEnd(std::string text) {
  const std::string blanks = " \t\r\n";
  const bool wide = text.starts_with("\xFF\xFE");
  const std::size_t unit = wide ? 2 : 1;
  while (text.size() >= unit && blanks.find(text[text.size() - unit]) != std::string::npos &&
         (!wide || text.back() == '\0')) {
    text.resize(text.size() - unit);
  }
  return text;
}

// Adds the keys of a list one by one: a failed operation leaves only its own keys behind.
void addList(Entries& all, const std::string& name, const PropertyList::Dictionary& list) {
  all[name] = "list";
  for (const auto& [key, value] : list) {
    all[name + ' ' + key] = xmlPropertyList({{key, value}}).value_or("?");
  }
}

// Holds a host without a bus, its home and its bundle, and can restore their earlier state.
class Site {
 public:
  Site()
      : home_(live() / "home"),
        gate_(live()),
        bundle_(live(), "Host", {{"CFBundleIdentifier", "com.Acme.FileProbe"}}, QBDKR_FILE_PROBE) {
    writeInformation("3.1", Switches{"<true/>", "<false/>"});
  }

  [[nodiscard]] fs::path live() const { return directory_.path() / "live"; }
  [[nodiscard]] fs::path resources() const { return bundle_.resources(); }
  [[nodiscard]] fs::path information() const { return bundle_.infoFile(); }
  [[nodiscard]] fs::path strings() const { return resources() / "de.lproj/InfoPlist.strings"; }
  [[nodiscard]] fs::path settings() const { return home_.preferencesFile(hostID()); }
  [[nodiscard]] fs::path installDirectory() const { return home_.path() / ".local/share/Acme"; }
  [[nodiscard]] fs::path installed() const { return installDirectory() / "ProbeHelper.app"; }
  [[nodiscard]] fs::path resourceCopy() const { return resources() / "ProbeHelper.app"; }
  [[nodiscard]] fs::path data() const { return home_.path() / "collected"; }

  void writeInformation(const std::string& version, const std::optional<Switches>& switches,
                        const std::string& comment = "", const std::string& blank = "\n") const {
    std::string text = "<?xml version=\"1.0\" encoding=\"UTF-8\"?>" + blank +
                       "<plist version=\"1.0\">" + blank + comment + "<dict>" + blank;
    const auto add = [&](const std::string& key, const std::string& value) {
      text += "<key>" + key + "</key>" + value + blank;
    };
    const auto addText = [&](const std::string& key, const std::string& value) {
      add(key, "<string>" + value + "</string>");
    };
    addText("CFBundleExecutable", "FileProbe");
    addText("CFBundleIdentifier", hostID());
    addText("CFBundleVersion", version);
    addText("PID", "1001");
    addText("Helper Bundle indentifiter", hostID() + ".Helper");
    addText("Helepr App name", "ProbeHelper");
    addText("Helper loaction path", installDirectory());
    if (switches) {
      add("TipsEnable", switches->tips);
      add("EnableAD", switches->advertising);
    }
    writeFile(information(), text + "</dict>" + blank + "</plist>");
  }

  // Puts a helper agent that cannot be executed among the resources.
  void writeHelper(const std::string& version) const {
    fs::remove_all(resourceCopy());
    const TestBundle helper(
        resources(), "ProbeHelper",
        {{"CFBundleIdentifier", hostID() + ".Helper"}, {"CFBundleVersion", version}});
    writeFile(helper.path() / "Contents/Linux/tool", "tool of " + version);
    fs::permissions(helper.path() / "Contents/Linux/tool", fs::perms(0755));
    writeFile(helper.resources() / "nested/deeper/file", std::string(20'000, version.back()));
    writeFile(helper.resources() / "nested/empty", "");
    writeFile(helper.resources() / ("only-in-" + version), version);
    fs::create_symlink("nested/deeper", helper.resources() / "link");
    fs::permissions(helper.resources() / "nested", fs::perms(0750));
  }

  // Saves the state that reset() restores.
  void keep() const {
    fs::remove_all(kept());
    for (const auto& path : changeable()) {
      fs::create_directories((kept() / path).parent_path());
      fs::copy(live() / path, kept() / path,
               fs::copy_options::recursive | fs::copy_options::copy_symlinks);
    }
  }

  void reset() const {
    for (const auto& path : changeable()) fs::remove_all(live() / path);
    fs::copy(kept(), live(), fs::copy_options::recursive | fs::copy_options::copy_symlinks);
  }

  [[nodiscard]] GatedRun run(const Words& words, const Fault& fault = {}) const {
    Words command{bundle_.executable().string()};
    command.insert(command.end(), words.begin(), words.end());
    Environment environment = home_.environment();
    environment["LANG"] = "de_DE.UTF-8";
    environment["DBUS_SESSION_BUS_ADDRESS"] = "unix:path=" + (home_.path() / "no-bus").string();
    return gate_.run(command, {.environment = environment}, fault);
  }

  // Returns all files and folders. Each copy of the helper agent counts as one entry.
  [[nodiscard]] Entries entries() const {
    Entries all;
    for (auto entry = fs::recursive_directory_iterator(live());
         entry != fs::recursive_directory_iterator(); ++entry) {
      const std::string name = entry->path().lexically_relative(live());
      if (entry->path() == installed() || entry->path() == resourceCopy()) {
        all[name] = treeDigest(entry->path());
        entry.disable_recursion_pending();
      } else if (entry->is_directory()) {
        all[name] = aDirectory;
      } else if (entry->path() != bundle_.executable()) {
        addFile(all, name, entry->path());
      }
    }
    return all;
  }

  // Returns the lists among them letter for letter.
  [[nodiscard]] Entries texts() const {
    Entries all;
    for (const auto& file : {information(), strings(), settings()}) {
      if (fs::exists(file)) all[file.filename()] = withoutBlanksAtTheEnd(readFile(file));
    }
    return all;
  }

 private:
  // The process table spans the whole machine.
  [[nodiscard]] std::string hostID() const {
    const std::string unique = directory_.path().filename();
    return "com.Acme.FileProbe.T" + unique.substr(unique.rfind('-') + 1);
  }

  void addFile(Entries& all, const std::string& name, const fs::path& file) const {
    const bool isList = file == information() || file == strings() || file == settings();
    const auto list = isList ? readDictionaryFile(file) : std::nullopt;
    if (list) return addList(all, name, *list);
    all[name] = readFile(file);
  }

  [[nodiscard]] fs::path kept() const { return directory_.path() / "kept"; }

  // Returns everything but the program itself, which is large.
  [[nodiscard]] std::vector<fs::path> changeable() const {
    std::vector<fs::path> paths{"home"};
    for (const auto& entry : fs::directory_iterator(bundle_.path() / "Contents")) {
      if (entry.path().filename() == "Linux") continue;
      paths.push_back(entry.path().lexically_relative(live()));
    }
    return paths;
  }

  TemporaryDirectory directory_;
  Home home_;
  SystemCallGate gate_;
  TestBundle bundle_;
};

// The operations of a host, the state before them, and the expected state after them.
struct Scenario {
  const char* name;
  std::function<void(const Site&)> prepare;
  std::function<Words(const Site&)> words;  // complete operations, one after the other
  std::function<void(const Site&)> expectDone;
  std::size_t fewestPoints;
  // Whether the next start completes unfinished operations. Otherwise it leaves them unfinished.
  bool finishedByNextStart = true;
  // Names what may be missing until the next start, because it is removed before the new one comes.
  std::function<fs::path(const Site&)> mayBeMissing = nullptr;
  // Checks what else holds at any moment at which the process can be killed.
  std::function<void(const Site&)> expectAlways = [](const Site&) {};
};

void PrintTo(const Scenario& scenario, std::ostream* stream) { *stream << scenario.name; }

const Words aStart{"share", "first-start", "save-tips", "save-advertising"};

// Reads a property list with an independent reader: JSON with sorted keys.
std::string asJSON(const fs::path& file) {
  const std::string program =
      "import json, plistlib, sys\n"
      "with open(sys.argv[1], 'rb') as file:\n"
      "    print(json.dumps(plistlib.load(file), sort_keys=True))\n";
  return outputOf({"/usr/bin/python3", "-c", program, file.string()}, {{"PATH", "/usr/bin:/bin"}});
}

void expectPart(const std::string& text, const std::string& part) {
  EXPECT_NE(text.find(part), std::string::npos) << part << " is not in " << text;
}

void expectSwitches(const Site& site, const std::string& tips, const std::string& advertising) {
  const auto json = asJSON(site.information());
  expectPart(json, "\"TipsEnable\": " + tips);
  expectPart(json, "\"EnableAD\": " + advertising);
  expectPart(json, "\"PID\": \"1001\"");
}

void expectStrings(const Site& site, const std::string& tips, const std::string& advertising) {
  std::string narrow;
  for (const char byte : readFile(site.strings())) {
    if (byte != '\0') narrow += byte;
  }
  EXPECT_TRUE(narrow.starts_with("\xFF\xFE")) << narrow;
  expectPart(narrow, "\"TipsEnable\" = \"" + tips + "\";");
  expectPart(narrow, "\"EnableAD\" = \"" + advertising + "\";");
  expectPart(narrow, "\"CFBundleName\" = \"Wirt\";");
}

void expectInstalled(const Site& site) {
  EXPECT_NE(treeDigest(site.resourceCopy()), "");
  EXPECT_EQ(readFile(site.installed() / "Contents/Linux/tool"),
            readFile(site.resourceCopy() / "Contents/Linux/tool"));
  EXPECT_EQ(readFile(site.installed() / "Contents/Resources/link/file"),
            readFile(site.resourceCopy() / "Contents/Resources/nested/deeper/file"));
}

const char* const garbage = "<?xml version=\"1.0\"?><plist version=\"1.0\"><dict><key>PI";

std::string longComment() { return "<!-- " + std::string(9'000, 'c') + " -->\n"; }

void writeSwitches(const Site& site, const Switches& inList, const std::string& comment,
                   const std::string& blank) {
  site.writeInformation("3.1", inList, comment, blank);
  const std::string head = comment.empty() ? "" : "/* " + std::string(9'000, 'k') + " */\n";
  writeFile(site.strings(), head + "CFBundleName=\"Wirt\";" + blank + "TipsEnable=1;" + blank +
                                "EnableAD=0;" + blank);
}

Words share(const Site& /*site*/) { return {"share"}; }

void expectRecords(const Site& site) {
  const auto json = asJSON(site.settings());
  expectPart(json, "\"PID\": \"1001\"");
  expectPart(json, "\"Version\": \"3.1\"");
}

const std::vector<Scenario>& scenarios() {
  static const auto& all = *new std::vector<Scenario>{
      {.name = "FirstInstallation",
       .prepare =
           [](const Site& site) {
             EXPECT_EQ(site.run(aStart).status, 0);
             fs::remove_all(site.live() / "home/.local");
             site.writeHelper("1.0");
           },
       .words = share,
       .expectDone = expectInstalled,
       .fewestPoints = 20},
      {.name = "Upgrade",
       .prepare =
           [](const Site& site) {
             site.writeHelper("1.0");
             EXPECT_EQ(site.run(aStart).status, 0);
             site.writeHelper("1.1");
           },
       .words = share,
       .expectDone = expectInstalled,
       .fewestPoints = 40},
      {.name = "FirstSettings",
       .prepare = [](const Site&) {},
       .words =
           [](const Site&) {
             return Words{"share", "first-start"};
           },
       .expectDone =
           [](const Site& site) {
             expectRecords(site);
             expectPart(asJSON(site.settings()), "\"FirstStartPID\": \"1001\"");
           },
       .fewestPoints = 12},
      {.name = "SettingsOfANewVersion",
       .prepare =
           [](const Site& site) {
             site.writeInformation("3.0", Switches{"<true/>", "<false/>"});
             EXPECT_EQ(site.run(aStart).status, 0);
             site.writeInformation("3.1", Switches{"<true/>", "<false/>"});
           },
       .words = share,
       .expectDone = expectRecords,
       .fewestPoints = 5},
      {.name = "SettingThatIsSet",
       .prepare = [](const Site& site) { EXPECT_EQ(site.run(aStart).status, 0); },
       .words =
           [](const Site&) {
             return Words{"share", "collect=2002"};
           },
       .expectDone =
           [](const Site& site) {
             expectPart(asJSON(site.settings()), "\"DataCollectPID\": \"2002\"");
           },
       .fewestPoints = 5,
       .finishedByNextStart = false},
      {.name = "DamagedSettings",
       .prepare =
           [](const Site& site) {
             EXPECT_EQ(site.run(aStart).status, 0);
             writeFile(site.settings(), garbage);
           },
       .words = share,
       .expectDone =
           [](const Site& site) {
             expectRecords(site);
             EXPECT_EQ(readFile(site.settings().string() + ".damaged"), garbage);
           },
       .fewestPoints = 6,
       .mayBeMissing = &Site::settings,
       .expectAlways =
           [](const Site& site) {
             const fs::path aside = site.settings().string() + ".damaged";
             EXPECT_EQ(readFile(fs::exists(aside) ? aside : site.settings()), garbage);
           }},
      {.name = "SwitchesWhoseFilesBecomeShorter",
       .prepare =
           [](const Site& site) {
             writeSwitches(site, {"<true/>", "<false/>"}, longComment(), "\n    ");
             EXPECT_EQ(site.run({"share", "first-start"}).status, 0);
           },
       .words =
           [](const Site&) {
             return Words{"share", "tips=0", "advertising=1"};
           },
       .expectDone =
           [](const Site& site) {
             expectSwitches(site, "false", "true");
             expectStrings(site, "0", "1");
           },
       .fewestPoints = 12,
       .finishedByNextStart = false},
      {.name = "SwitchesWhoseFilesBecomeLonger",
       .prepare =
           [](const Site& site) {
             writeSwitches(site, {"<true/>", "<false/>"}, "", "");
             EXPECT_EQ(site.run({"share", "first-start"}).status, 0);
           },
       .words =
           [](const Site&) {
             return Words{"share", "tips=0", "advertising=1"};
           },
       .expectDone =
           [](const Site& site) {
             expectSwitches(site, "false", "true");
             expectStrings(site, "0", "1");
           },
       .fewestPoints = 12,
       .finishedByNextStart = false},
      {.name =
           "SwitchesThatWereWrittenBefore",  // a byte shorter, a byte longer, and of the same size
       .prepare =
           [](const Site& site) {
             writeSwitches(site, {"<true/>", "<false/>"}, "", "");
             EXPECT_EQ(site.run({"share", "first-start", "tips=0", "advertising=1"}).status, 0);
           },
       .words =
           [](const Site&) {
             return Words{"share", "tips=1", "advertising=0"};
           },
       .expectDone =
           [](const Site& site) {
             expectSwitches(site, "true", "false");
             expectStrings(site, "1", "0");
           },
       .fewestPoints = 12,
       .finishedByNextStart = false},
      {.name = "FirstStart",
       .prepare =
           [](const Site& site) {
             site.writeHelper("1.0");
             site.writeInformation("3.1", std::nullopt, longComment());
           },
       .words = [](const Site&) { return aStart; },
       .expectDone =
           [](const Site& site) {
             expectInstalled(site);
             expectRecords(site);
             expectSwitches(site, "true", "false");
           },
       .fewestPoints = 40},
      {.name = "DataPath",
       .prepare = [](const Site& site) { EXPECT_EQ(site.run(aStart).status, 0); },
       .words =
           [](const Site& site) {
             return Words{"share", "data-path=" + site.data().string()};
           },
       .expectDone =
           [](const Site& site) {
             EXPECT_TRUE(fs::is_directory(site.data() / "Log/Data"));
             expectPart(asJSON(site.settings()),
                        "\"DataCollectPath\": \"" + (site.data() / "Log/Data").string() + '"');
           },
       .fewestPoints = 3,
       .finishedByNextStart = false,
       .expectAlways =
           [](const Site& site) {
             const auto list = readDictionaryFile(site.settings());
             const bool recorded = list && list->find("DataCollectPath") != nullptr;
             EXPECT_TRUE(recorded || !fs::exists(site.data() / "Log/Data"))
                 << "a folder without a record is never recorded";
           }},
  };
  return all;
}

struct Disturbance {
  const char* name;
  Fault::Kind kind;
  int error;
};

void PrintTo(const Disturbance& disturbance, std::ostream* stream) { *stream << disturbance.name; }

constexpr Disturbance disturbances[] = {
    {"Killed", Fault::Kind::kill, 0},
    {"NoSpace", Fault::Kind::fail, ENOSPC},
    {"IOError", Fault::Kind::fail, EIO},
    {"AccessDenied", Fault::Kind::fail, EACCES},
    {"KilledHalfWay", Fault::Kind::killHalfWay, 0},
    {"FullHalfWay", Fault::Kind::fillHalfWay, 0},
};

ino_t inodeOf(const fs::path& path) {
  struct stat status {};
  return ::stat(path.c_str(), &status) == 0 ? status.st_ino : 0;
}

std::string shortened(const std::string& text) {
  constexpr std::size_t most = 600;
  return text.size() <= most ? text : text.substr(0, most) + "… " + std::to_string(text.size());
}

class SystemCall : public testing::TestWithParam<std::tuple<Scenario, Disturbance>> {
 protected:
  SystemCall() {
    scenario().prepare(site_);
    site_.keep();
    // Records the state after each of the operations, without and with a start that follows.
    const Words words = scenario().words(site_);
    for (std::size_t count = 0; count <= words.size(); ++count) {
      const Words first(words.begin(), words.begin() + static_cast<std::ptrdiff_t>(count));
      site_.reset();
      undisturbed_ = run(first);
      moments_.push_back(site_.entries());
      texts_.push_back(site_.texts());
      scenario().expectAlways(site_);
      if (count == words.size()) scenario().expectDone(site_);
      run(aStart);
      nextStarts_.push_back(site_.entries());
    }
    EXPECT_NE(moments_.front(), moments_.back()) << "nothing happens";
  }

  [[nodiscard]] static const Scenario& scenario() { return std::get<0>(GetParam()); }
  [[nodiscard]] static const Disturbance& disturbance() { return std::get<1>(GetParam()); }

  [[nodiscard]] static bool isHalfWay() {
    return disturbance().kind == Fault::Kind::killHalfWay ||
           disturbance().kind == Fault::Kind::fillHalfWay;
  }

  [[nodiscard]] static bool kills() {
    return disturbance().kind == Fault::Kind::kill ||
           disturbance().kind == Fault::Kind::killHalfWay;
  }

  GatedRun run(const Words& words) {
    GatedRun run = site_.run(words);
    EXPECT_EQ(run.status, 0) << testing::PrintToString(run.log);
    return run;
  }

  // Returns the calls that the disturbance can hit.
  [[nodiscard]] std::vector<std::size_t> points() const {
    std::vector<std::size_t> points;
    for (std::size_t i = 0; i < undisturbed_.calls.size(); ++i) {
      if (!isHalfWay() || undisturbed_.calls[i].writes) points.push_back(i + 1);
    }
    return points;
  }

  [[nodiscard]] std::string pointName(std::size_t at) const {
    const GatedCall& call = undisturbed_.calls[at - 1];
    return std::string(disturbance().name) + " at " + std::to_string(at) + " of " +
           std::to_string(undisturbed_.calls.size()) + ", " + call.name + ' ' +
           call.path.lexically_relative(site_.live()).string();
  }

  void disturbAt(std::size_t at) {
    const GatedRun run =
        site_.run(scenario().words(site_),
                  {.kind = disturbance().kind, .at = at, .error = disturbance().error});
    ASSERT_GE(run.calls.size(), at);
    EXPECT_EQ(run.calls[at - 1].name, undisturbed_.calls[at - 1].name);
    const bool asWanted =
        kills() ? WIFSIGNALED(run.status) && WTERMSIG(run.status) == SIGKILL : run.status == 0;
    EXPECT_TRUE(asWanted) << run.status << testing::PrintToString(run.log);
  }

  // Expects each entry as it was at one of the moments between two operations.
  void expectOldOrNew() {
    const Entries now = site_.entries();
    for (const std::string& name : knownNames()) {
      const auto found = now.find(name);
      if (found == now.end()) {
        EXPECT_TRUE(mayBeMissing(name)) << name << " is gone";
        continue;
      }
      EXPECT_TRUE(isAmong(moments_, name, found->second))
          << name << " is neither old nor new: " << shortened(found->second);
    }
    // Files that no error cut short are even equal letter for letter.
    for (const auto& [name, text] : site_.texts()) {
      EXPECT_TRUE(!kills() || isAmong(texts_, name, text))
          << name << " is neither old nor new: " << shortened(text);
    }
    if (kills()) scenario().expectAlways(site_);
  }

  void expectMendedByNextStart() {
    run(aStart);
    const Entries now = site_.entries();
    const auto& allowed = allowedAfterNextStart();
    for (const Entries& moment : allowed) {
      for (const auto& [name, contents] : moment) {
        const bool always = std::ranges::all_of(
            allowed, [&name = name](const Entries& other) { return other.contains(name); });
        EXPECT_TRUE(!always || now.contains(name)) << name << " is gone after the next start";
      }
    }
    for (const auto& [name, contents] : now) {
      EXPECT_TRUE(isAmong(allowed, name, contents))
          << name << " after the next start: " << shortened(contents);
    }
  }

  void expectSameFiles(ino_t information, ino_t strings) {
    EXPECT_EQ(inodeOf(site_.information()), information);
    EXPECT_EQ(inodeOf(site_.strings()), strings);
  }

  void tryAt(std::size_t at) {
    SCOPED_TRACE(pointName(at));
    site_.reset();
    const auto information = inodeOf(site_.information());
    const auto strings = inodeOf(site_.strings());
    disturbAt(at);
    // Half a write is neither old nor new, and only the next start can mend it.
    if (!isHalfWay()) expectOldOrNew();
    expectMendedByNextStart();
    expectSameFiles(information, strings);
  }

 private:
  [[nodiscard]] std::set<std::string> knownNames() const {
    std::set<std::string> names;
    for (const Entries& moment : moments_) {
      for (const auto& [name, contents] : moment) {
        if (contents != aDirectory) names.insert(name);
      }
    }
    return names;
  }

  [[nodiscard]] bool mayBeMissing(const std::string& name) const {
    const auto& exception = scenario().mayBeMissing;
    if (exception && (site_.live() / name).string().starts_with(exception(site_).string())) {
      return true;
    }
    return std::ranges::any_of(moments_,
                               [&](const Entries& moment) { return !moment.contains(name); });
  }

  static bool isAmong(const std::vector<Entries>& moments, const std::string& name,
                      const std::string& contents) {
    return std::ranges::any_of(moments, [&](const Entries& moment) {
      const auto entry = moment.find(name);
      return entry != moment.end() && entry->second == contents;
    });
  }

  [[nodiscard]] std::vector<Entries> allowedAfterNextStart() const {
    if (scenario().finishedByNextStart) return {nextStarts_.back()};
    return nextStarts_;
  }

  Site site_;
  GatedRun undisturbed_;
  std::vector<Entries> moments_;
  std::vector<Entries> texts_;
  std::vector<Entries> nextStarts_;
};

TEST_P(SystemCall, LeavesTheOldOrTheNewAndIsMendedByTheNextStart) {
  const auto all = points();
  ASSERT_GE(all.size(), isHalfWay() ? 1 : scenario().fewestPoints);
  // Tries another part of the points for each disturbance, and one point at least.
  constexpr std::size_t stride = QBDKR_POINT_STRIDE;
  const auto which =
      static_cast<std::size_t>(disturbance().kind) + static_cast<std::size_t>(disturbance().error);
  std::size_t tried = 0;
  for (std::size_t i = which % std::min(stride, all.size()); i < all.size(); i += stride) {
    tryAt(all[i]);
    ++tried;
  }
  std::cout << scenario().name << ", " << disturbance().name << ": " << all.size()
            << " points, tried " << tried << '\n';
}

// A power failure loses bytes that were written and not flushed, and names that their folder does
// not hold for good.
class Flushing : public testing::TestWithParam<Scenario> {};

TEST_P(Flushing, ComesBeforeAFileTakesItsPlaceAndAtTheEnd) {
  const Site site;
  GetParam().prepare(site);
  std::set<fs::path> unflushed;
  std::optional<fs::path> renamed;
  for (const GatedCall& call : site.run(GetParam().words(site)).calls) {
    if (call.name.starts_with("rename")) {
      EXPECT_EQ(unflushed, std::set<fs::path>()) << "when " << call.path << " takes its place";
      renamed = call.path;
    } else if (call.name == "syncfs") {
      unflushed.clear();
      renamed.reset();
    } else if (call.name == "fsync" || call.name == "fdatasync") {
      unflushed.erase(call.path);
      if (renamed && call.path == renamed->parent_path()) renamed.reset();
    } else if (call.writes || call.name == "ftruncate") {
      unflushed.insert(call.path);
    }
  }
  EXPECT_EQ(unflushed, std::set<fs::path>());
  EXPECT_FALSE(renamed.has_value()) << *renamed << " may have its old name again";
}

// The early flush is one of a large copy, and the other comes at its end.
TEST(EarlyFlushing, LeavesTheFlushAtTheEndInPlace) {
  const Site site;
  const Scenario& installation = scenarios().front();
  installation.prepare(site);
  const fs::path large = site.resourceCopy() / "Contents/large";
  writeFile(large, "");
  fs::resize_file(large, EarlyFlush::step);
  const auto calls = site.run(installation.words(site)).calls;
  const auto isFlush = [](const GatedCall& call) { return call.name == "syncfs"; };
  const auto placed = std::ranges::find_if(
      calls, [](const GatedCall& call) { return call.name.starts_with("rename"); });
  EXPECT_EQ(std::count_if(calls.begin(), placed, isFlush), 2);
}

INSTANTIATE_TEST_SUITE_P(EachOne, Flushing, testing::ValuesIn(scenarios()),
                         [](const auto& tested) { return std::string(tested.param.name); });

INSTANTIATE_TEST_SUITE_P(EachOne, SystemCall,
                         testing::Combine(testing::ValuesIn(scenarios()),
                                          testing::ValuesIn(disturbances)),
                         [](const auto& tested) {
                           return std::string(std::get<0>(tested.param).name) +
                                  std::get<1>(tested.param).name;
                         });

}  // namespace
}  // namespace qbdkr::test
