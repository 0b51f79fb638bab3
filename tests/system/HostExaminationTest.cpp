// Tests the examination of hosts: for each mistake, the first error is its cause, and the text
// names the key, path or identifier that is wrong.

#include <gtest/gtest.h>
#include <signal.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "Platform/Base/Descriptor.h"
#include "Platform/Events/PeerLookup.h"
#include "ProductClient/HostExamination.h"
#include "support/ChildProcess.h"
#include "support/OrdinaryUser.h"
#include "support/ProcessEnd.h"
#include "support/Programs.h"
#include "support/Sample.h"
#include "support/Scene.h"

namespace qbdkr::test {
namespace {

namespace fs = std::filesystem;
using Severity = Finding::Severity;

// Sets the environment of this process, as examineHost() takes that for the host's.
class OwnEnvironment {
 public:
  explicit OwnEnvironment(const Environment& variables) {
    for (const auto& [name, value] : variables) {
      const char* before = std::getenv(name.c_str());
      before_[name] = before == nullptr ? std::nullopt : std::optional(std::string(before));
      ::setenv(name.c_str(), value.c_str(), 1);
    }
  }
  OwnEnvironment(const OwnEnvironment&) = delete;
  OwnEnvironment& operator=(const OwnEnvironment&) = delete;
  ~OwnEnvironment() {
    for (const auto& [name, value] : before_) {
      if (value) {
        ::setenv(name.c_str(), value->c_str(), 1);
      } else {
        ::unsetenv(name.c_str());
      }
    }
  }

 private:
  std::map<std::string, std::optional<std::string>> before_;
};

std::string described(const std::vector<Finding>& findings) {
  std::string text;
  for (const Finding& finding : findings) {
    text += std::to_string(static_cast<int>(finding.severity)) + ' ' + finding.subject + ": " +
            finding.text + " | " + finding.remedy + '\n';
  }
  return text;
}

// A host with a helper agent among its resources, and all that it needs.
struct Stage {
  Scene scene;
  TestBundle host = scene.makeHost("Host", "1.0");
  fs::path helper = host.resources() / "ProbeHelper.app";

  [[nodiscard]] fs::path helperInfo() const { return helper / "Contents/Info.plist"; }
  [[nodiscard]] fs::path program() const {
    return helper / "Contents/Linux" / helperProbe().filename();
  }

  // Changes the helper agent's keys; an empty value removes one.
  void setHelperKeys(const InfoKeys& changes) const {
    InfoKeys keys{{"CFBundleIdentifier", scene.helperID()},
                  {"CFBundleVersion", "1.0"},
                  {"CFBundleExecutable", helperProbe().filename().string()}};
    for (const auto& [key, value] : changes) keys[key] = value;
    std::erase_if(keys, [](const auto& entry) { return entry.second.empty(); });
    writeFile(helperInfo(), informationPropertyList(keys));
  }

  // The program is a link to the file of all tests.
  void replaceProgram(const std::string& contents, mode_t mode = 0755) const {
    fs::remove(program());
    writeFile(program(), contents);
    ::chmod(program().c_str(), mode);
  }

  void install() const {
    fs::create_directories(scene.installDirectory());
    fs::copy(helper, scene.installedHelper(), fs::copy_options::recursive);
  }

  [[nodiscard]] fs::path installedProgram() const {
    return scene.installedHelper() / "Contents/Linux" / helperProbe().filename();
  }

  void replaceInstalledProgram(const std::string& contents) const {
    fs::remove(installedProgram());
    writeFile(installedProgram(), contents);
    ::chmod(installedProgram().c_str(), 0755);
  }

  [[nodiscard]] std::vector<Finding> examine() const { return examineAt(host.path()); }
  [[nodiscard]] std::vector<Finding> examineAt(const fs::path& path) const {
    const OwnEnvironment environment(options.environment);
    return examineHost(path);
  }

  SpawnOptions options = scene.options();
};

std::optional<Finding> firstOf(const std::vector<Finding>& findings, Severity severity) {
  const auto found = std::ranges::find(findings, severity, &Finding::severity);
  return found == findings.end() ? std::nullopt : std::optional(*found);
}

std::optional<Finding> about(const std::vector<Finding>& findings, const std::string& subject) {
  const auto found = std::ranges::find(findings, subject, &Finding::subject);
  return found == findings.end() ? std::nullopt : std::optional(*found);
}

bool hasWords(const std::string& text, const std::vector<std::string>& words) {
  return std::ranges::all_of(
      words, [&](const std::string& word) { return text.find(word) != std::string::npos; });
}

// A mistake: how it is made, and the words of the first error.
struct Mistake {
  const char* name;
  std::function<void(Stage&)> make;
  const char* subject;
  std::function<std::vector<std::string>(const Stage&)> words;
};

using Words = std::vector<std::string>;

void PrintTo(const Mistake& mistake, std::ostream* stream) { *stream << mistake.name; }

std::function<Words(const Stage&)> say(Words words) {
  return [words = std::move(words)](const Stage&) { return words; };
}

void makeFIFO(const fs::path& path) { EXPECT_EQ(::mkfifo(path.c_str(), 0600), 0); }

const std::vector<Mistake> mistakes{
    {"IdentifierKeyMisspelled",
     [](Stage& stage) {
       stage.host.setKeys({{"Helper Bundle indentifiter", ""},
                           {"Helper Bundle identifier", stage.scene.helperID()}});
     },
     "helper-identifier", say({"\"Helper Bundle indentifiter\"", "\"Helper Bundle identifier\""})},
    {"IdentifierKeyInAnotherCase",
     [](Stage& stage) {
       stage.host.setKeys({{"Helper Bundle indentifiter", ""},
                           {"helper bundle Indentifiter", stage.scene.helperID()}});
     },
     "helper-identifier", say({"\"helper bundle Indentifiter\""})},
    {"IdentifierKeyMissing",
     [](Stage& stage) {
       stage.host.setKeys({{"Helper Bundle indentifiter", ""}});
     },
     "helper-identifier", say({"\"Helper Bundle indentifiter\" is missing"})},
    {"IdentifiersDiffer",
     [](Stage& stage) {
       stage.setHelperKeys({{"CFBundleIdentifier", "com.Acme.Other"}});
     },
     "helper-identity",
     [](const Stage& stage) {
       return Words{"com.Acme.Other", stage.scene.helperID()};
     }},
    {"IdentifierOfOneElement",
     [](Stage& stage) {
       stage.host.setKeys({{"Helper Bundle indentifiter", "Helper"}});
       stage.setHelperKeys({{"CFBundleIdentifier", "Helper"}});
     },
     "helper-identifier", say({"\"Helper\"", "-50"})},
    {"HostIdentifierOfOneElement",
     [](Stage& stage) {
       stage.host.setKeys({{"CFBundleIdentifier", "PhotoTool"}});
     },
     "host-identifier", say({"\"PhotoTool\""})},
    {"HostIdentifierMissing",
     [](Stage& stage) {
       stage.host.setKeys({{"CFBundleIdentifier", ""}});
     },
     "host-identifier", say({"CFBundleIdentifier"})},
    {"WrongHelperName",
     [](Stage& stage) {
       stage.host.setKeys({{"Helepr App name", "ProbeHelpr"}});
     },
     "helper-bundle", say({"ProbeHelpr.app", "ProbeHelper.app is there"})},
    {"HelperNameWithExtension",
     [](Stage& stage) {
       stage.host.setKeys({{"Helepr App name", "ProbeHelper.app"}});
     },
     "helper-bundle", say({"ProbeHelper.app.app"})},
    {"HelperNameKeyMisspelled",
     [](Stage& stage) {
       stage.host.setKeys({{"Helepr App name", ""}, {"Helper Ap name", "ProbeHelper"}});
     },
     "helper-name", say({"\"Helepr App name\"", "\"Helper Ap name\""})},
    {"HelperNameIsAPath",
     [](Stage& stage) {
       stage.host.setKeys({{"Helepr App name", "Tools/ProbeHelper"}});
     },
     "helper-name", say({"\"Tools/ProbeHelper\""})},
    {"InstallPathMissing",
     [](Stage& stage) {
       stage.host.setKeys({{"Helper loaction path", ""}});
     },
     "install-path", say({"\"Helper loaction path\" is missing"})},
    {"InstallPathKeyMisspelled",
     [](Stage& stage) {
       stage.host.setKeys({{"Helper loaction path", ""}, {"Helper loction path", "/tmp/x"}});
     },
     "install-path", say({"\"Helper loction path\""})},
    {"NoExecutableBit", [](Stage& stage) { stage.replaceProgram("#!/bin/sh\n", 0644); },
     "helper-executable",
     [](const Stage& stage) {
       return Words{stage.program().string(), "may not be executed"};
     }},
    {"WrongExecutable",
     [](Stage& stage) {
       stage.setHelperKeys({{"CFBundleExecutable", "Agent"}});
     },
     "helper-executable",
     [](const Stage&) {
       return Words{"\"Agent\"", "holds " + helperProbe().filename().string()};
     }},
    {"ExecutableKeyMissing",
     [](Stage& stage) {
       stage.setHelperKeys({{"CFBundleExecutable", ""}});
     },
     "helper-executable", say({"CFBundleExecutable is missing"})},
    {"ExecutableIsADirectory",
     [](Stage& stage) {
       fs::remove(stage.program());
       fs::create_directories(stage.program());
     },
     "helper-executable",
     [](const Stage& stage) {
       return Words{stage.program().string(), "regular"};
     }},
    {"EmptyExecutable", [](Stage& stage) { stage.replaceProgram(""); }, "helper-executable",
     [](const Stage& stage) {
       return Words{stage.program().string(), "is empty"};
     }},
    {"TextAsExecutable", [](Stage& stage) { stage.replaceProgram("echo Hello\n"); },
     "helper-executable",
     [](const Stage& stage) {
       return Words{stage.program().string(), "neither an ELF program"};
     }},
    {"ScriptWithAMissingInterpreter",
     [](Stage& stage) { stage.replaceProgram("#!/opt/nowhere/python9 -u\n"); }, "helper-executable",
     say({"\"/opt/nowhere/python9\""})},
    {"ScriptWithLineEndsOfAnotherSystem",
     [](Stage& stage) { stage.replaceProgram("#!/bin/sh\r\nexit\r\n"); }, "helper-executable",
     say({"\"/bin/sh\\r\""})},
    {"ScriptWhoseInterpreterIsNotFound",
     [](Stage& stage) { stage.replaceProgram("#!/usr/bin/env python99\n"); }, "helper-executable",
     say({"\"python99\"", "PATH"})},
    {"LibraryMissing",
     [](Stage& stage) {
       fs::remove(stage.program());
       linkOrCopy(hostProbe(), stage.program());
     },
     "helper-libraries",
     [](const Stage& stage) {
       return Words{stage.program().string(), hostLibraries()[0].filename().string(),
                    hostLibraries()[1].filename().string()};
     }},
    {"HelperWithoutIdentifier",
     [](Stage& stage) {
       stage.setHelperKeys({{"CFBundleIdentifier", ""}});
     },
     "helper-identity",
     [](const Stage& stage) {
       return Words{"CFBundleIdentifier", stage.helperInfo().string()};
     }},
    {"HelperWithoutInformation", [](Stage& stage) { fs::remove(stage.helperInfo()); },
     "helper-information", [](const Stage& stage) { return Words{stage.helperInfo().string()}; }},
    {"HelperIsAFile",
     [](Stage& stage) {
       fs::remove_all(stage.helper);
       writeFile(stage.helper, "x");
     },
     "helper-bundle", [](const Stage& stage) { return Words{stage.helper.string()}; }},
    {"HelperInformationMalformed",
     [](Stage& stage) { writeFile(stage.helperInfo(), "<plist><dict>\n<key>a</dict></plist>"); },
     "helper-information", say({"line 2"})},
    {"HostOutsideABundle", [](Stage& stage) { fs::remove(stage.host.infoFile()); }, "host-bundle",
     [](const Stage& stage) {
       return Words{"is not a bundle", stage.host.infoFile().string()};
     }},
    {"MalformedInformation",
     [](Stage& stage) {
       writeFile(stage.host.infoFile(),
                 "<?xml version=\"1.0\"?>\n<plist>\n<dict>\n<key>PID</key>\n"
                 "<string>1</strng>\n</dict>\n</plist>\n");
     },
     "host-information",
     [](const Stage& stage) {
       return Words{stage.host.infoFile().string(), "line 5", "mismatched tag"};
     }},
    {"InformationWithAForeignElement",
     [](Stage& stage) {
       writeFile(stage.host.infoFile(),
                 "<plist>\n<dict>\n<key>PID</key>\n<int>1</int>\n</dict>\n"
                 "</plist>\n");
     },
     "host-information", say({"line 4"})},
    {"EmptyInformation", [](Stage& stage) { writeFile(stage.host.infoFile(), ""); },
     "host-information", say({"it is empty"})},
    {"InformationIsAFIFO",
     [](Stage& stage) {
       fs::remove(stage.host.infoFile());
       makeFIFO(stage.host.infoFile());
     },
     "host-information", say({"not a regular file"})},
    {"InformationIsAList",
     [](Stage& stage) { writeFile(stage.host.infoFile(), "<plist><array/></plist>"); },
     "host-information", say({"not a dictionary"})},
    {"NoBus",
     [](Stage& stage) {
       stage.options.environment["DBUS_SESSION_BUS_ADDRESS"] = "unix:path=/nowhere/bus";
     },
     "session-bus", say({"unix:path=/nowhere/bus", "No such file"})},
    {"BusThatHasEnded", [](Stage& stage) { stage.scene.bus().kill(); }, "session-bus",
     [](const Stage& stage) {
       return Words{stage.options.environment.at("DBUS_SESSION_BUS_ADDRESS"), "refused"};
     }},
    {"FileInPlaceOfTheInstallDirectory",
     [](Stage& stage) { writeFile(stage.scene.installDirectory(), "x"); }, "install-directory",
     [](const Stage& stage) {
       return Words{stage.scene.installDirectory().string(), "is not a directory"};
     }},
    {"FileAboveTheInstallDirectory",
     [](Stage& stage) { writeFile(stage.scene.installDirectory().parent_path(), "x"); },
     "install-directory",
     [](const Stage& stage) {
       return Words{stage.scene.installDirectory().parent_path().string() + " is not a directory"};
     }},
    {"InstallDirectoryOfTheKernel",
     [](Stage& stage) {
       stage.host.setKeys({{"Helper loaction path", "/proc/Acme"}});
     },
     "install-directory", say({"/proc/Acme", "proc"})},
    {"RelativeInstallDirectory",
     [](Stage& stage) {
       stage.host.setKeys({{"Helper loaction path", "Acme/Agents"}});
     },
     "install-directory",
     [](const Stage&) {
       return Words{"\"Acme/Agents\"", (fs::current_path() / "Acme/Agents").string()};
     }},
    {"InstallDirectoryOfAnUnknownUser",
     [](Stage& stage) {
       stage.host.setKeys({{"Helper loaction path", "~nobody-here/x"}});
     },
     "install-directory", say({"\"~nobody-here/x\"", "relative"})},
    {"FIFOAmongTheResources",
     [](Stage& stage) { makeFIFO(stage.helper / "Contents/Resources/pipe"); }, "helper-contents",
     [](const Stage& stage) {
       return Words{(stage.helper / "Contents/Resources/pipe").string(), "a FIFO"};
     }},
    {"SocketAmongTheResources",
     [](Stage& stage) {
       const Descriptor socket(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
       sockaddr_un address{};
       address.sun_family = AF_UNIX;
       const std::string short_ = "/tmp/qbdkr-socket-" + std::to_string(::getpid());
       short_.copy(address.sun_path, sizeof address.sun_path - 1);
       EXPECT_EQ(::bind(socket.get(), reinterpret_cast<sockaddr*>(&address), sizeof address), 0);
       fs::rename(short_, stage.helper / "socket");
     },
     "helper-contents", say({"/socket", "a socket"})},
    {"InstalledCopyIsDamaged",
     [](Stage& stage) {
       stage.install();
       stage.replaceInstalledProgram("");
     },
     "installed-executable",
     [](const Stage& stage) {
       return Words{stage.installedProgram().string(), "is empty"};
     }},
    {"InstalledCopyLacksALibrary",
     [](Stage& stage) {
       stage.install();
       fs::remove(stage.installedProgram());
       linkOrCopy(hostProbe(), stage.installedProgram());
     },
     "installed-libraries",
     [](const Stage& stage) { return Words{stage.installedProgram().string()}; }},
    {"InstalledCopyOfAnotherIdentifier",
     [](Stage& stage) {
       stage.install();
       writeFile(stage.scene.installedHelper() / "Contents/Info.plist",
                 informationPropertyList({{"CFBundleIdentifier", "com.Acme.Old"},
                                          {"CFBundleVersion", "1.0"},
                                          {"CFBundleExecutable", helperProbe().filename()}}));
     },
     "installed-identity", say({"com.Acme.Old"})},
    {"NamesOfAProductOfItsOwn",
     [](Stage& stage) {
       fs::rename(stage.helper, stage.host.resources() / "Borealis Uploader.app");
       stage.host.setKeys({{"Helepr App name", ""},
                           {"Helper App name", "Borealis-Uploader"},
                           {"Helper loaction path", ""},
                           {"Helper location path", "~/Borealis"}});
     },
     "helper-bundle", say({"Borealis-Uploader.app", "Borealis Uploader.app is there"})},
    {"ScriptWithALinkToAnInterpreterThatMustBeTheInstalledCopy",
     [](Stage& stage) {
       stage.replaceProgram("#!/bin/sh\nexec \"${0%/*}/interpreter\"\n");
       fs::create_symlink("/bin/cat", stage.program().parent_path() / "interpreter");
       stage.host.setKeys({{"Helper must be installed copy", "YES"}});
     },
     "helper-executable", say({"-1743", "/bin/sh"})},
    {"ScriptThatMustBeTheInstalledCopy",
     [](Stage& stage) {
       stage.replaceProgram("#!/bin/sh\n");
       stage.host.setKeys({{"Helper must be installed copy", "YES"}});
     },
     "helper-executable", say({"-1743", "/bin/sh"})},
};

class HostMistake : public testing::TestWithParam<Mistake> {};

TEST_P(HostMistake, IsTheFirstError) {
  Stage stage;
  GetParam().make(stage);
  const auto findings = stage.examine();
  const auto error = firstOf(findings, Severity::error);
  ASSERT_TRUE(error) << described(findings);
  EXPECT_EQ(error->subject, GetParam().subject) << described(findings);
  for (const std::string& word : GetParam().words(stage)) {
    EXPECT_NE(error->text.find(word), std::string::npos) << word << "\nis not in\n" << error->text;
  }
  EXPECT_FALSE(error->remedy.empty());
  EXPECT_EQ(std::ranges::count(findings, Severity::error, &Finding::severity), 1)
      << "a consequence was taken for an error\n"
      << described(findings);
}

INSTANTIATE_TEST_SUITE_P(, HostMistake, testing::ValuesIn(mistakes),
                         [](const auto& mistake) { return mistake.param.name; });

class HostExamination : public testing::Test {
 protected:
  Stage stage;
};

TEST_F(HostExamination, FindsNothingWrongWithACorrectHost) {
  const auto findings = stage.examine();
  EXPECT_FALSE(firstOf(findings, Severity::error)) << described(findings);
  EXPECT_FALSE(firstOf(findings, Severity::warning)) << described(findings);
  EXPECT_TRUE(hasWords(about(findings, "version").value_or(Finding()).text, {"installs", "1.0"}));
}

TEST_F(HostExamination, FindsNothingWrongWithTheSample) {
  const Sample sample(stage.scene);
  const auto findings = stage.examineAt(sample.path());
  EXPECT_FALSE(firstOf(findings, Severity::error)) << described(findings);
  EXPECT_FALSE(firstOf(findings, Severity::warning)) << described(findings);
}

TEST_F(HostExamination, FindsNothingWrongWithAHostAtWork) {
  const auto host = stage.scene.startAndShare(stage.host);
  const auto findings = stage.examine();
  EXPECT_FALSE(firstOf(findings, Severity::error)) << described(findings);
  EXPECT_FALSE(firstOf(findings, Severity::warning)) << described(findings);
  const auto owner = about(findings, "name-owner").value_or(Finding());
  EXPECT_TRUE(hasWords(owner.text, {std::to_string(stage.scene.helperProcess())})) << owner.text;
  EXPECT_TRUE(hasWords(about(findings, "version").value_or(Finding()).text,
                       {"keeps", "helper in conetent's version is lower"}));
}

TEST_F(HostExamination, WritesNothing) {
  stage.install();
  const std::string before = treeDigest(stage.scene.directory());
  (void)stage.examine();
  EXPECT_EQ(treeDigest(stage.scene.directory()), before);
}

TEST_F(HostExamination, ToleratesAProductIdentifierThatIsAnInteger) {
  std::string text = readFile(stage.host.infoFile());
  const std::string before = "<string>1001</string>";
  text.replace(text.find(before), before.size(), "<integer>1001</integer>");
  writeFile(stage.host.infoFile(), text);
  const auto findings = stage.examine();
  EXPECT_FALSE(firstOf(findings, Severity::error)) << described(findings);
  const auto product = about(findings, "product-id").value_or(Finding());
  EXPECT_EQ(product.severity, Severity::note);
  EXPECT_TRUE(hasWords(product.text, {"an integer", "\"1001\""})) << product.text;
}

TEST_F(HostExamination, WarnsOfAMissingProductIdentifier) {
  stage.host.setKeys({{"PID", ""}, {"pid", "1001"}});
  const auto warning = firstOf(stage.examine(), Severity::warning).value_or(Finding());
  EXPECT_EQ(warning.subject, "product-id");
  EXPECT_TRUE(hasWords(warning.text, {"\"PID\"", "\"pid\""})) << warning.text;
}

TEST_F(HostExamination, WarnsOfATextThatIsNoFlag) {
  stage.host.setKeys({{"Helper is supervised", "on"}});
  const auto warning = firstOf(stage.examine(), Severity::warning).value_or(Finding());
  EXPECT_EQ(warning.subject, "flag");
  EXPECT_TRUE(hasWords(warning.text, {"\"Helper is supervised\"", "\"on\"", "false"}));
}

TEST_F(HostExamination, KnowsTheFlagOfTheScope) {
  stage.host.setKeys({{"Helper in own scope", "on"}});
  EXPECT_TRUE(hasWords(firstOf(stage.examine(), Severity::warning).value_or(Finding()).text,
                       {"\"Helper in own scope\"", "\"on\"", "false"}));
  stage.host.setKeys({{"Helper in own scope", ""}, {"Helper in own Skope", "YES"}});
  EXPECT_TRUE(hasWords(firstOf(stage.examine(), Severity::warning).value_or(Finding()).text,
                       {"\"Helper in own Skope\"", "\"Helper in own scope\""}));
}

TEST_F(HostExamination, WarnsOfAMisspelledFlag) {
  stage.host.setKeys({{"Helper is supervized", "YES"}});
  const auto warning = firstOf(stage.examine(), Severity::warning).value_or(Finding());
  EXPECT_EQ(warning.subject, "flag");
  EXPECT_TRUE(hasWords(warning.text, {"\"Helper is supervized\"", "\"Helper is supervised\""}));
}

TEST_F(HostExamination, NamesTheSpellingThatCounts) {
  stage.host.setKeys({{"Helper App name", "Other"}});
  const auto warning = firstOf(stage.examine(), Severity::warning).value_or(Finding());
  EXPECT_EQ(warning.subject, "helper-name");
  EXPECT_TRUE(hasWords(warning.text, {"\"Helepr App name\" counts, with \"ProbeHelper\""}));
}

TEST_F(HostExamination, NamesThePathThatCounts) {
  stage.host.setKeys({{"Helper location path", "/elsewhere"}});
  const auto warning = firstOf(stage.examine(), Severity::warning).value_or(Finding());
  EXPECT_EQ(warning.subject, "install-path");
  EXPECT_TRUE(hasWords(warning.text, {"\"Helper loaction path\" counts"})) << warning.text;
}

TEST_F(HostExamination, DoesNotPromiseToInstallAResourceThatCannotBeInstalled) {
  EXPECT_TRUE(about(stage.examine(), "version"));
  makeFIFO(stage.helper / "Contents/Resources/pipe");
  EXPECT_FALSE(about(stage.examine(), "version"));
  fs::remove(stage.helper / "Contents/Resources/pipe");
  stage.replaceProgram("");
  EXPECT_FALSE(about(stage.examine(), "version"));
}

TEST_F(HostExamination, TellsAnUpgradeAndAJudgementThatItMakesUnimportant) {
  stage.install();
  stage.replaceInstalledProgram("");
  stage.setHelperKeys({{"CFBundleVersion", "1.1"}});
  const auto findings = stage.examine();
  EXPECT_FALSE(firstOf(findings, Severity::error)) << described(findings);
  EXPECT_TRUE(
      hasWords(about(findings, "version").value_or(Finding()).text, {"replaces", "1.0", "1.1"}));
}

TEST_F(HostExamination, KnowsThatASupervisedHostRepairsADamagedCopy) {
  stage.host.setKeys({{"Helper is supervised", "YES"}});
  stage.install();
  stage.replaceInstalledProgram("");
  const auto findings = stage.examine();
  EXPECT_FALSE(firstOf(findings, Severity::error)) << described(findings);
  EXPECT_EQ(about(findings, "installed-executable").value_or(Finding()).severity,
            Severity::warning);
}

TEST_F(HostExamination, KnowsThatASupervisedHostDoesNotRepairANewerCopy) {
  stage.host.setKeys({{"Helper is supervised", "YES"}});
  stage.install();
  stage.replaceInstalledProgram("");
  stage.setHelperKeys({{"CFBundleVersion", "0.9"}});
  EXPECT_EQ(firstOf(stage.examine(), Severity::error).value_or(Finding()).subject,
            "installed-executable");
}

TEST_F(HostExamination, TakesNoFaultOfAResourceForTheCauseWhileTheInstalledCopyIsKept) {
  stage.install();
  stage.setHelperKeys({{"CFBundleIdentifier", "com.Acme.Other"}});
  auto findings = stage.examine();
  EXPECT_FALSE(firstOf(findings, Severity::error)) << described(findings);
  EXPECT_EQ(firstOf(findings, Severity::warning).value_or(Finding()).subject, "helper-identity");
  stage.setHelperKeys({{"CFBundleIdentifier", "com.Acme.Other"}, {"CFBundleVersion", "1.1"}});
  findings = stage.examine();
  EXPECT_EQ(firstOf(findings, Severity::error).value_or(Finding()).subject, "helper-identity");
}

TEST_F(HostExamination, KnowsThatAnUpgradeThatCannotBeCopiedLeavesTheInstalledCopyInUse) {
  stage.install();
  stage.setHelperKeys({{"CFBundleVersion", "1.1"}});
  makeFIFO(stage.helper / "Contents/Resources/pipe");
  const auto findings = stage.examine();
  EXPECT_FALSE(firstOf(findings, Severity::error)) << described(findings);
  EXPECT_EQ(firstOf(findings, Severity::warning).value_or(Finding()).subject, "helper-contents");
}

TEST_F(HostExamination, WarnsOfAProgramThatIsKeptAlthoughItDiffers) {
  stage.install();
  stage.replaceInstalledProgram("#!/bin/sh\n");
  const auto findings = stage.examine();
  const auto version = about(findings, "version").value_or(Finding());
  EXPECT_EQ(version.severity, Severity::warning) << described(findings);
  EXPECT_TRUE(hasWords(version.text, {"1.0", "another program"})) << version.text;
}

TEST_F(HostExamination, WarnsOfLibrariesThatAnInstalledCopyLeavesBehind) {
  fs::remove(stage.program());
  linkOrCopy(hostProbe(), stage.program());
  stage.options.environment["LD_LIBRARY_PATH"] = (stage.host.path() / "Contents/Frameworks");
  const auto findings = stage.examine();
  EXPECT_FALSE(firstOf(findings, Severity::error)) << described(findings);
  const auto warning = firstOf(findings, Severity::warning).value_or(Finding());
  EXPECT_EQ(warning.subject, "helper-libraries") << described(findings);
}

TEST_F(HostExamination, TellsLeftoversOfADeployment) {
  stage.install();
  fs::create_directories(stage.scene.installDirectory() / ".ProbeHelper.app.qbhp-staging-AbCdEf");
  const auto findings = stage.examine();
  EXPECT_TRUE(hasWords(about(findings, "unfinished-work").value_or(Finding()).text,
                       {".ProbeHelper.app.qbhp-staging-AbCdEf"}));
  EXPECT_FALSE(firstOf(findings, Severity::warning)) << described(findings);
}

TEST_F(HostExamination, AcceptsAnInstalledCopyOfAnotherHost) {
  stage.install();
  fs::remove_all(stage.helper);
  const auto findings = stage.examine();
  EXPECT_FALSE(firstOf(findings, Severity::error)) << described(findings);
  EXPECT_EQ(firstOf(findings, Severity::warning).value_or(Finding()).subject, "helper-bundle");
}

TEST_F(HostExamination, WarnsOfTheSwitchThatKeepsTheHelperAgentAway) {
  writeFile(stage.scene.home().preferencesFile(stage.scene.helperID()),
            "<plist><dict><key>QBHPServerClosed</key><true/></dict></plist>");
  const auto warning = firstOf(stage.examine(), Severity::warning).value_or(Finding());
  EXPECT_EQ(warning.subject, "server-switch");
  EXPECT_TRUE(hasWords(warning.text, {"QBHPServerClosed", stage.scene.helperID()}));
}

TEST_F(HostExamination, LeadsFromAFileInABundleToTheBundle) {
  const auto findings = stage.examineAt(stage.host.executable());
  const auto error = firstOf(findings, Severity::error).value_or(Finding());
  EXPECT_EQ(error.subject, "host-bundle");
  EXPECT_TRUE(hasWords(error.remedy, {stage.host.path().string()})) << error.remedy;
}

TEST_F(HostExamination, NamesAHelperAgentThatIsLeftOverOnAnotherBus) {
  stage.install();
  auto options = stage.scene.options();
  options.environment["DBUS_SESSION_BUS_ADDRESS"] = "unix:path=/nowhere/bus";
  const ChildProcess leftover({stage.installedProgram()}, options);
  const std::string process = std::to_string(leftover.processID());
  const auto findings = stage.examine();
  const auto error = firstOf(findings, Severity::error).value_or(Finding());
  EXPECT_EQ(error.subject, "processes") << described(findings);
  EXPECT_TRUE(hasWords(error.text, {"process " + process, stage.scene.helperID()})) << error.text;
  EXPECT_TRUE(hasWords(error.remedy, {"kill " + process})) << error.remedy;
}

TEST_F(HostExamination, NamesASecondProcessBesideTheOneThatIsReached) {
  const auto host = stage.scene.startAndShare(stage.host);
  auto options = stage.scene.options();
  options.environment["DBUS_SESSION_BUS_ADDRESS"] = "unix:path=/nowhere/bus";
  const ChildProcess second({stage.installedProgram()}, options);
  const auto findings = stage.examine();
  const auto warning = firstOf(findings, Severity::warning).value_or(Finding());
  EXPECT_EQ(warning.subject, "processes") << described(findings);
  EXPECT_TRUE(hasWords(warning.text, {std::to_string(second.processID())})) << warning.text;
  EXPECT_FALSE(firstOf(findings, Severity::error)) << described(findings);
}

TEST_F(HostExamination, NamesAProcessThatHoldsTheNameAndIsNotTheInstalledCopy) {
  stage.install();
  const TestBundle other =
      stage.scene.makeHelper("1.0", stage.scene.directory() / "Elsewhere", "Impostor");
  const ChildProcess process({other.executable()}, stage.scene.options());
  while (about(stage.examine(), "name-owner")->severity != Severity::warning) ::usleep(1000);
  const auto warning = firstOf(stage.examine(), Severity::warning).value_or(Finding());
  EXPECT_TRUE(hasWords(warning.text, {std::to_string(process.processID()), other.path().string()}));
  stage.host.setKeys({{"Helper must be installed copy", "YES"}});
  const auto findings = stage.examine();
  const auto error = firstOf(findings, Severity::error).value_or(Finding());
  EXPECT_EQ(error.subject, "name-owner") << described(findings);
  EXPECT_TRUE(hasWords(error.text, {"-1743"})) << error.text;
}

TEST_F(HostExamination, AcceptsAScriptThatRunsAnInterpreterOfItsBundleAsTheInstalledCopy) {
  fs::rename(stage.program(), stage.program().parent_path() / "interpreter");
  stage.replaceProgram("#!/bin/sh\nexec \"${0%/*}/interpreter\"\n");
  stage.host.setKeys({{"Helper must be installed copy", "YES"}});
  const auto before = stage.examine();
  EXPECT_FALSE(firstOf(before, Severity::error)) << described(before);
  const auto host = stage.scene.startAndShare(stage.host);
  EXPECT_EQ(host->call("ask " + stage.scene.helperID() + " Probe echo: x"), "0 x");
  const auto findings = stage.examine();
  EXPECT_FALSE(firstOf(findings, Severity::error)) << described(findings);
}

TEST_F(HostExamination, NamesADirectoryThatThisUserMayNotWrite) {
  const fs::path directory = stage.scene.installDirectory();
  fs::create_directories(directory);
  giveToOrdinaryUser(stage.scene.directory());
  fs::permissions(directory, fs::perms::owner_read | fs::perms::owner_exec);
  EXPECT_TRUE(asOrdinaryUser([&] {
    const auto error = firstOf(stage.examine(), Severity::error).value_or(Finding());
    return error.subject == "install-directory" &&
           hasWords(error.text, {directory.string(), "cannot be written"});
  }));
}

TEST_F(HostExamination, NamesAResourceThatThisUserMayNotRead) {
  const fs::path secret = stage.helper / "Contents/Resources/secret";
  writeFile(secret, "x");
  giveToOrdinaryUser(stage.scene.directory());
  fs::permissions(secret, fs::perms::none);
  EXPECT_TRUE(asOrdinaryUser([&] {
    const auto error = firstOf(stage.examine(), Severity::error).value_or(Finding());
    return error.subject == "helper-contents" && hasWords(error.text, {secret.string()});
  }));
}

TEST_F(HostExamination, AsksABusThatIsStuckForABoundedTime) {
  ::kill(stage.scene.bus().daemonProcess(), SIGSTOP);
  const OwnEnvironment environment(stage.options.environment);
  const auto lookup = lookUpPeer(stage.scene.helperID(), std::chrono::milliseconds(50));
  ::kill(stage.scene.bus().daemonProcess(), SIGCONT);
  EXPECT_EQ(lookup.obstacle, "it does not answer");
  EXPECT_EQ(lookup.process, std::nullopt);
}

TEST_F(HostExamination, StartsNoBusThatAnAddressNames) {
  const fs::path mark = stage.scene.directory() / "started";
  stage.options.environment["DBUS_SESSION_BUS_ADDRESS"] =
      "unixexec:path=/usr/bin/touch,argv1=" + mark.string();
  EXPECT_EQ(about(stage.examine(), "session-bus").value_or(Finding()).severity, Severity::note);
  EXPECT_FALSE(fs::exists(mark));
}

TEST_F(HostExamination, SurvivesPathsThatAreNone) {
  for (const std::string& path : {std::string(), std::string("a\0b", 3), std::string(10'000, 'x'),
                                  std::string("/nowhere"), std::string("\xFF\x1b[2J")}) {
    const auto findings = examineHost(path);
    ASSERT_EQ(findings.size(), 1U);
    EXPECT_EQ(findings.front().subject, "host-bundle");
    EXPECT_EQ(findings.front().text.find('\x1b'), std::string::npos);
  }
}

}  // namespace
}  // namespace qbdkr::test
