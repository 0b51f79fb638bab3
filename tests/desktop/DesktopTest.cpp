// Tests the samples with windows: a real host and helper agent, whose buttons are pressed.

#include <gtest/gtest.h>
#include <signal.h>

#include <filesystem>
#include <memory>
#include <regex>
#include <set>
#include <string>

#include "support/ChildProcess.h"
#include "support/Environment.h"
#include "support/ProcessEnd.h"
#include "support/Scene.h"

namespace qbdkr::test {
namespace {

namespace fs = std::filesystem;

class Desktop : public testing::Test {
 protected:
  Desktop() {
    fs::create_directories(bundle.parent_path());
    fs::copy(QBDKR_DESKTOP_HOST, bundle,
             fs::copy_options::recursive | fs::copy_options::copy_symlinks);
    for (const fs::path& contents :
         {bundle / "Contents", bundle / "Contents/Resources/DeskHelper.app/Contents"}) {
      replaceInFile(contents / "Info.plist", "com.Acme.DeskHelper", scene.helperID());
      replaceInFile(contents / "Info.plist", "com.Acme.PhotoDesk", scene.hostID());
    }
    scene.environment()["QT_QPA_PLATFORM"] = "offscreen";
    scene.environment()["LC_ALL"] = "C.UTF-8";
  }

  void start(const std::string& running = "The helper agent is running") {
    begin();
    const auto program = bundle / "Contents/Linux/PhotoDesk";
    host = std::make_unique<ChildProcess>(std::vector<std::string>{program.string(), "--drive"},
                                          scene.options());
    await("host 1.0: ← didCheckServerOpen: 1");
    await("host 1.0: " + running);
  }

  // Begins a step, whose lines are awaited in any order.
  void begin() { begun_ = scene.transcript().lines().size(); }

  // Waits for a line of this step.
  std::string await(const std::string& part) { return scene.transcript().waitFor({part}, begun_); }

  void tell(const std::string& command) {
    begin();
    host->write(command + '\n');
  }

  void press(const std::string& button) {
    tell("press " + button);
    await("host 1.0: pressed " + button);
  }

  std::string read(const std::string& name) {
    tell("read " + name);
    const std::string start = "host 1.0: " + name + ": ";
    const std::string line = await(start);
    return line.substr(line.find(start) + start.size());
  }

  void killHelper() {
    begin();
    ::kill(scene.helperProcess(), SIGKILL);
  }

  [[nodiscard]] std::string runningState() const {
    return "The helper agent is running: version 1.0, process " +
           std::to_string(scene.helperProcess());
  }

  Scene scene;
  const fs::path bundle = scene.directory() / "Applications/PhotoDesk.app";
  std::unique_ptr<ChildProcess> host;

 private:
  std::size_t begun_ = 0;
};

TEST_F(Desktop, ButtonsShowAndHideTheWindowOfTheHelperAgent) {
  start();
  press("show");
  await("helper: window is shown");
  press("hide");
  await("helper: window is hidden");
  press("show");
  await("helper: window is shown");
  EXPECT_EQ(host->finish(), 0);
}

TEST_F(Desktop, AnswersAppearInTheLog) {
  start();
  press("page");
  await("← netErrorPagePath: 0");
  press("suite");
  await("← unRegSuiteInfo: 0, url = https://www.acme.example/suite/1002 width = 300 height = 200");
  press("client");
  await("← clientIDFormHelper: 0, ");
  const std::string log = read("log");
  EXPECT_NE(log.find("← netErrorPagePath: 0, ~/.local/share/Acme/DeskHelper.app/Contents/"
                     "Resources/NetworkError.html | "),
            log.npos)
      << log;
  EXPECT_TRUE(std::regex_search(log, std::regex("← clientIDFormHelper: 0, [0-9a-f]{32}"))) << log;
}

TEST_F(Desktop, StateFollowsTheHelperAgent) {
  start();
  EXPECT_EQ(read("state"), runningState());
  const pid_t first = scene.helperProcess();
  killHelper();
  await("host 1.0: The helper agent is lost");
  await("host 1.0: The helper agent is running");
  EXPECT_NE(scene.helperProcess(), first);
  EXPECT_EQ(read("state"), runningState());
}

TEST_F(Desktop, UpgradeIsAskedInADialogBehindWhichAllGoesOn) {
  start();
  press("upgrade");
  await("← productWillUpgrade");
  tell("press show");
  await("behind a dialog: show");
  killHelper();
  await("host 1.0: The helper agent is running");
  await("← didCheckServerOpen: 1");
  press("now");
  await("helper: answer to the upgrade: 1");
  press("upgrade");
  await("← productWillUpgrade");
  press("later");
  await("helper: answer to the upgrade: 0");
  press("show");
  await("helper: window is shown");
}

TEST_F(Desktop, BothEndWhenTheyAreToldTo) {
  start();
  const ProcessEnd helperEnd(scene.helperProcess());
  begin();
  ::kill(scene.helperProcess(), SIGTERM);
  await("← willHelperExit");
  await("helper: exits");
  EXPECT_TRUE(helperEnd.comesWithin(patience));
  host->signal(SIGTERM);
  EXPECT_EQ(host->wait(), 0);
}

TEST_F(Desktop, TextsAreInTheLanguageOfTheUser) {
  scene.environment()["LANGUAGE"] = "de";
  start("Das Hilfsprogramm läuft");
  EXPECT_NE(read("state").find("Das Hilfsprogramm läuft: Version 1.0"), std::string::npos);
}

TEST_F(Desktop, TakesAPictureOfItselfAtEachScaleAndInTheDark) {
  for (const auto& [scale, scheme] : {std::pair("1", "light"), std::pair("2", "dark")}) {
    scene.environment()["QT_SCALE_FACTOR"] = scale;
    scene.environment()["ACME_SCHEME"] = scheme;
    start();
    const fs::path file = scene.directory() / "picture.png";
    tell("picture " + file.string());
    await("host 1.0: picture ");
    EXPECT_EQ(readFile(file).substr(1, 3), "PNG");
    EXPECT_GT(fs::file_size(file), 5000U) << "it is empty";
    EXPECT_EQ(host->finish(), 0);
  }
}

// Returns the first groups of all matches in a file.
std::set<std::string> matchesIn(const fs::path& file, const std::string& pattern) {
  const std::string text = readFile(file);
  const std::regex each(pattern);
  std::set<std::string> found;
  for (std::sregex_iterator at(text.begin(), text.end(), each); at != std::sregex_iterator(); ++at)
    found.insert((*at)[1]);
  return found;
}

TEST(DesktopTexts, EachOneIsTranslated) {
  for (const std::string name : {"PhotoDesk", "DeskHelper"}) {
    const fs::path sources = fs::path(QBDKR_DESKTOP_SOURCES) / name;
    const auto used = matchesIn(sources / (name + ".cpp"), R"re(text\(\s*"([^"]+)")re");
    auto translated =
        matchesIn(sources / "Resources/de.lproj/InfoPlist.strings", R"re("([^"]+)" =)re");
    EXPECT_EQ(translated.erase("CFBundleName"), 1U);
    EXPECT_EQ(used, translated) << name;
    EXPECT_GT(used.size(), 3U);
  }
}

TEST(DesktopEntries, NameTheProgramAndTheIcon) {
  const fs::path resources = fs::path(QBDKR_DESKTOP_HOST) / "Contents/Resources";
  for (const fs::path& file :
       {resources / "com.Acme.PhotoDesk.desktop",
        resources / "DeskHelper.app/Contents/Resources/com.Acme.DeskHelper.desktop"}) {
    for (const auto* pattern : {R"re(Exec="(.+)")re", "Icon=(.+)"}) {
      const auto named = matchesIn(file, pattern);
      ASSERT_EQ(named.size(), 1U) << file << pattern;
      EXPECT_TRUE(fs::exists(*named.begin())) << *named.begin();
    }
  }
}

}  // namespace
}  // namespace qbdkr::test
