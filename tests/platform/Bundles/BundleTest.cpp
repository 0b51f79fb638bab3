#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/stat.h>

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <string>
#include <vector>

#include <ClientComm/Bundle.h>

#include "Platform/Bundles/EnclosingBundleLinux.h"
#include "Platform/Bundles/LocalizationLinux.h"
#include "Platform/PropertyLists/PropertyListWriter.h"
#include "platform/RestedFile.h"
#include "platform/TaskProcess.h"
#include "support/Environment.h"
#include "support/Sanitizers.h"

namespace qbdkr {
namespace {

namespace fs = std::filesystem;
using test::putOwnExecutable;
using test::TaskProcess;
using test::TemporaryDirectory;
using test::writeFile;
using Names = std::vector<std::string>;

void writeInfo(const fs::path& bundle, const PropertyList::Dictionary& info) {
  writeFile(bundle / "Contents/Info.plist", xmlPropertyList(info).value());
}

class Bundles : public testing::Test {
 protected:
  Bundles() { useLanguages({}); }
  ~Bundles() override { useLanguages({}); }

  static void useLanguages(const std::vector<std::pair<const char*, const char*>>& variables) {
    for (const char* name : {"LANGUAGE", "LC_ALL", "LC_MESSAGES", "LANG"}) unsetenv(name);
    for (const auto& [name, value] : variables) setenv(name, value, 1);
  }
  void addStrings(const std::string& language, const std::string& text) const {
    writeFile(path / "Contents/Resources" / (language + ".lproj") / "InfoPlist.strings", text);
  }
  void addResource(const std::string& name) const {
    writeFile(path / "Contents/Resources" / name, name);
  }

  TemporaryDirectory directory;
  const fs::path path = directory.path() / "Sample.app";
};

TEST_F(Bundles, ADirectoryIsABundleAndNothingElseIs) {
  EXPECT_FALSE(Bundle::withPath(path).has_value());
  writeFile(directory.path() / "file", "");
  EXPECT_FALSE(Bundle::withPath(directory.path() / "file").has_value());
  EXPECT_FALSE(Bundle::withPath("").has_value());
  fs::create_directories(path);
  const auto bundle = Bundle::withPath(path);
  ASSERT_TRUE(bundle.has_value());
  EXPECT_EQ(bundle->bundlePath(), path);
  EXPECT_EQ(bundle->objectForInfoDictionaryKey("CFBundleIdentifier"), nullptr);
}

TEST_F(Bundles, ANumberReadsAsItsDigitsWhereATextIsWanted) {
  writeInfo(path, {{"CFBundleVersion", 3.1},
                   {"PID", 1001},
                   {"True", true},
                   {"False", false},
                   {"Date", PropertyList::Date{1}},
                   {"Data", PropertyList::Data{"1"}},
                   {"Array", PropertyList::Array{"1"}},
                   {"Dictionary", PropertyList::Dictionary{{"1", "1"}}}});
  const auto bundle = Bundle::withPath(path).value();
  EXPECT_EQ(bundle.infoString("CFBundleVersion"), "3.1");
  EXPECT_EQ(bundle.infoString("PID"), "1001");
  EXPECT_EQ(bundle.infoString("True"), "1");
  EXPECT_EQ(bundle.infoString("False"), "0");
  for (const char* key : {"Date", "Data", "Array", "Dictionary"}) {
    EXPECT_EQ(bundle.infoString(key), std::nullopt) << key;
  }
}

TEST_F(Bundles, InformationIsThatOfTheFile) {
  writeInfo(path, {{"CFBundleVersion", "1.0"}, {"Number", 7}, {"Empty", ""}});
  const auto bundle = Bundle::withPath(path).value();
  EXPECT_EQ(bundle.infoString("CFBundleVersion"), "1.0");
  EXPECT_EQ(bundle.infoString("Empty"), "");
  EXPECT_EQ(bundle.infoString("Number"), "7");
  EXPECT_EQ(*bundle.objectForInfoDictionaryKey("Number"), PropertyList(7));
  EXPECT_EQ(bundle.infoString("cfbundleversion"), std::nullopt);
  EXPECT_EQ(bundle.objectForInfoDictionaryKey("Missing"), nullptr);
}

TEST_F(Bundles, InformationIsReadWhenTheObjectIsMade) {
  writeInfo(path, {{"CFBundleVersion", "1.0"}});
  const auto before = Bundle::withPath(path).value();
  const auto copy = before;
  writeInfo(path, {{"CFBundleVersion", "2.0"}});
  EXPECT_EQ(before.infoString("CFBundleVersion"), "1.0");
  EXPECT_EQ(copy.infoString("CFBundleVersion"), "1.0");
  EXPECT_EQ(Bundle::withPath(path)->infoString("CFBundleVersion"), "2.0");
  fs::remove_all(path);
  EXPECT_EQ(before.infoString("CFBundleVersion"), "1.0");
}

TEST_F(Bundles, GarbageIsNoInformation) {
  for (const char* garbage : {"", "\x01\x02", "<plist>", "<plist><array/></plist>", "bplist00xx"}) {
    writeFile(path / "Contents/Info.plist", garbage);
    const auto bundle = Bundle::withPath(path);
    ASSERT_TRUE(bundle.has_value());
    EXPECT_EQ(bundle->infoString("CFBundleVersion"), std::nullopt);
    EXPECT_EQ(bundle->executablePath(), std::nullopt);
  }
  fs::remove(path / "Contents/Info.plist");
  fs::create_directories(path / "Contents/Info.plist");
  EXPECT_TRUE(Bundle::withPath(path).has_value());
}

TEST_F(Bundles, LocalizedKeysStandOverThoseOfTheFile) {
  writeInfo(path, {{"CFBundleName", "Sample"}, {"PID", "1"}});
  addStrings("de", "\"CFBundleName\" = \"Beispiel\";\nPID = \"2\";\n\"New\" = \"neu\";\n");
  addStrings("en", "\"CFBundleName\" = \"Example\";\n");
  useLanguages({{"LANG", "de_DE.UTF-8"}});
  const auto bundle = Bundle::withPath(path).value();
  EXPECT_EQ(bundle.infoString("CFBundleName"), "Beispiel");
  EXPECT_EQ(bundle.infoString("PID"), "2");
  EXPECT_EQ(bundle.infoString("New"), "neu");
  useLanguages({{"LANG", "en_GB.UTF-8"}});
  EXPECT_EQ(Bundle::withPath(path)->infoString("CFBundleName"), "Example");
  EXPECT_EQ(Bundle::withPath(path)->infoString("PID"), "1");
  useLanguages({{"LANG", "fr_FR.UTF-8"}});
  EXPECT_EQ(Bundle::withPath(path)->infoString("CFBundleName"), "Sample");
}

TEST_F(Bundles, StringsThatCannotBeReadChangeNothing) {
  writeInfo(path, {{"CFBundleName", "Sample"}});
  addStrings("de", "\"CFBundleName\" = ");
  useLanguages({{"LANG", "de"}});
  EXPECT_EQ(Bundle::withPath(path)->infoString("CFBundleName"), "Sample");
}

TEST_F(Bundles, LocalizationsAreTheLanguageFolders) {
  writeInfo(path, {});
  for (const char* name : {"en.lproj/x", "de.lproj/x", "Base.lproj/x", "other/x", "lproj/x"}) {
    addResource(name);
  }
  auto names = Bundle::withPath(path)->localizations();
  std::ranges::sort(names);
  EXPECT_EQ(names, (Names{"de", "en"}));
}

struct LanguageCase {
  std::vector<std::pair<const char*, const char*>> variables;
  Names folders;
  Names preferred;
};

TEST_F(Bundles, PreferredLocalizationIsTheBestForTheUser) {
  const std::vector<LanguageCase> cases{
      {{{"LANG", "de_DE.UTF-8"}}, {"en", "de"}, {"de"}},
      {{{"LANG", "pt_BR.UTF-8"}}, {"pt", "pt-BR", "en"}, {"pt-BR"}},
      {{{"LANG", "pt_BR.UTF-8"}}, {"pt_BR", "pt"}, {"pt_BR"}},
      {{{"LANG", "pt_BR.UTF-8"}}, {"en", "pt"}, {"pt"}},
      {{{"LANG", "pt_BR.UTF-8"}}, {"pt-PT", "en"}, {"pt-PT"}},
      {{{"LANG", "zh_CN"}}, {"en", "zh-Hans", "zh-Hant"}, {"zh-Hans"}},
      {{{"LANG", "zh_SG.UTF-8"}}, {"zh-Hant", "zh-Hans"}, {"zh-Hans"}},
      {{{"LANG", "zh_TW"}}, {"en", "zh-Hans", "zh-Hant"}, {"zh-Hant"}},
      {{{"LANG", "zh_HK.UTF-8"}}, {"zh-Hans", "zh-Hant"}, {"zh-Hant"}},
      {{{"LANG", "zh_CN"}}, {"zh_CN", "zh-Hans"}, {"zh_CN"}},
      {{{"LANG", "sr_RS@latin"}}, {"sr", "en"}, {"sr"}},
      {{{"LANG", "de_DE.UTF-8@euro"}}, {"de"}, {"de"}},
      {{{"LANG", "DE_de"}}, {"de"}, {"de"}},
      {{{"LANGUAGE", "fr:de:en"}, {"LANG", "es_ES"}}, {"en", "de"}, {"de", "en"}},
      {{{"LANGUAGE", "::de"}, {"LANG", "en"}}, {"en", "de"}, {"de", "en"}},
      // Only one locale counts, and an empty variable is unset.
      {{{"LC_ALL", "fr_FR"}, {"LC_MESSAGES", "de_DE"}, {"LANG", "en_US"}},
       {"en", "de", "fr"},
       {"fr"}},
      {{{"LC_MESSAGES", "de_DE"}, {"LANG", "en_US"}}, {"en", "de"}, {"de"}},
      {{{"LC_ALL", "fr_FR"}, {"LANG", "de_DE"}}, {"de"}, {}},
      {{{"LC_ALL", ""}, {"LC_MESSAGES", "de_DE"}, {"LANG", "en_US"}}, {"en", "de"}, {"de"}},
      {{{"LC_ALL", ""}, {"LC_MESSAGES", ""}, {"LANG", "en_US"}}, {"en", "de"}, {"en"}},
      // C and POSIX turn off translation, even with LANGUAGE.
      {{{"LC_ALL", "C"}, {"LANG", "de_DE"}}, {"de", "en"}, {}},
      {{{"LC_MESSAGES", "POSIX"}, {"LANG", "de_DE"}}, {"de", "en"}, {}},
      {{{"LANG", "C"}, {"LANGUAGE", "de"}}, {"de"}, {}},
      {{{"LC_ALL", "POSIX"}, {"LANGUAGE", "de"}, {"LANG", "de_DE"}}, {"de"}, {}},
      {{{"LANGUAGE", "de"}}, {"de"}, {}},
      {{{"LANGUAGE", "de"}, {"LANG", ""}}, {"de"}, {}},
      {{{"LC_ALL", ""}, {"LC_MESSAGES", "C"}, {"LANGUAGE", "de"}, {"LANG", "fr"}}, {"de"}, {}},
      // An encoding alone names no language, and turns nothing off.
      {{{"LC_ALL", "C.UTF-8"}, {"LANG", "de_DE"}}, {"de", "en", "c"}, {}},
      {{{"LC_ALL", "C.UTF-8"}, {"LANGUAGE", "de"}}, {"de", "en"}, {"de"}},
      // LANGUAGE comes before the locale, and ends where it turns translation off.
      {{{"LANGUAGE", "de"}, {"LC_ALL", "fr_FR"}, {"LANG", "en_US"}},
       {"en", "de", "fr"},
       {"de", "fr"}},
      {{{"LANGUAGE", "fr:C:de"}, {"LANG", "en_US"}}, {"en", "de", "fr"}, {"fr"}},
      {{{"LANGUAGE", "POSIX"}, {"LANG", "de_DE"}}, {"de"}, {}},
      {{{"LANGUAGE", "de:"}, {"LANG", "en_US"}}, {"en", "de"}, {"de", "en"}},
      {{{"LANGUAGE", ""}, {"LANG", "de_DE"}}, {"de"}, {"de"}},
      {{{"LANG", "fr"}}, {"de", "en"}, {}},
      {{}, {"de", "en"}, {}},
      {{{"LANG", "de"}}, {}, {}},
  };
  for (const auto& [variables, folders, preferred] : cases) {
    useLanguages(variables);
    std::string described;
    for (const auto& [name, value] : variables)
      described.append(name).append("=").append(value) += ' ';
    EXPECT_EQ(preferredLanguages(folders, {}), preferred) << described;
  }
}

TEST_F(Bundles, DevelopmentRegionIsTheLastResort) {
  const PropertyList::Dictionary info{{"CFBundleDevelopmentRegion", "en"}};
  useLanguages({{"LANG", "fr"}});
  EXPECT_EQ(preferredLanguages({"de", "en"}, info), Names{"en"});
  useLanguages({});
  EXPECT_EQ(preferredLanguages({"de", "en"}, info), Names{"en"});
  useLanguages({{"LC_ALL", "C"}, {"LANGUAGE", "de"}, {"LANG", "de_DE"}});
  EXPECT_EQ(preferredLanguages({"de", "en"}, info), Names{"en"});
  useLanguages({{"LANG", "de"}});
  EXPECT_EQ(preferredLanguages({"de", "en"}, info), Names{"de"});
  useLanguages({{"LANG", "fr"}});
  EXPECT_EQ(preferredLanguages({"de"}, info), Names{});
  EXPECT_EQ(preferredLanguages({"de"}, {{"CFBundleDevelopmentRegion", 7}}), Names{});
  EXPECT_EQ(preferredLanguages({"en_US"}, {{"CFBundleDevelopmentRegion", "en_US"}}),
            Names{"en_US"});
}

TEST_F(Bundles, ResourcesAreFoundByNameAndType) {
  writeInfo(path, {});
  addResource("Helper.app/Contents/Info.plist");
  addResource("page.html");
  addResource("noextension");
  const auto bundle = Bundle::withPath(path).value();
  const fs::path resources = path / "Contents/Resources";
  EXPECT_EQ(bundle.pathForResource("Helper", "app"), resources / "Helper.app");
  EXPECT_EQ(bundle.pathForResource("page", "html"), resources / "page.html");
  EXPECT_EQ(bundle.pathForResource("noextension", ""), resources / "noextension");
  EXPECT_EQ(bundle.pathForResource("Helper", "html"), std::nullopt);
  EXPECT_EQ(bundle.pathForResource("Helper.app", "app"), std::nullopt);
  EXPECT_EQ(bundle.pathForResource(std::string_view("page.html\0", 10), ""), std::nullopt);
}

TEST_F(Bundles, LocalizedResourcesComeAfterTheOthers) {
  writeInfo(path, {});
  addResource("de.lproj/both.html");
  addResource("both.html");
  addResource("de.lproj/only.html");
  addResource("en.lproj/english.html");
  useLanguages({{"LANG", "de"}});
  const auto bundle = Bundle::withPath(path).value();
  const fs::path resources = path / "Contents/Resources";
  EXPECT_EQ(bundle.pathForResource("both", "html"), resources / "both.html");
  EXPECT_EQ(bundle.pathForResource("only", "html"), resources / "de.lproj/only.html");
  EXPECT_EQ(bundle.pathForResource("english", "html"), std::nullopt);
}

TEST_F(Bundles, ExecutableIsTheOneThatIsNamed) {
  writeInfo(path, {{"CFBundleExecutable", "tool"}});
  EXPECT_EQ(Bundle::withPath(path)->executablePath(), std::nullopt);  // it does not exist
  writeFile(path / "Contents/Linux/tool", "");
  EXPECT_EQ(Bundle::withPath(path)->executablePath(), path / "Contents/Linux/tool");
}

TEST_F(Bundles, ExecutableCannotLeaveTheBundle) {
  writeFile(directory.path() / "outside", "");
  writeFile(path / "Contents/Linux/below/tool", "");
  for (const char* name : {"../../../outside", "../Info.plist", "/bin/sh", "..", ".", "",
                           "below/tool", "below", "./below/tool"}) {
    writeInfo(path, {{"CFBundleExecutable", name}});
    EXPECT_EQ(Bundle::withPath(path)->executablePath(), std::nullopt) << name;
  }
  writeInfo(path, {{"CFBundleExecutable", 7}});
  EXPECT_EQ(Bundle::withPath(path)->executablePath(), std::nullopt);
}

TEST_F(Bundles, ABundleOfAnExecutableIsTheNearestAboveIt) {
  writeInfo(path, {{"CFBundleIdentifier", "outer"}});
  const fs::path inner = path / "Contents/Resources/Inner.app";
  writeInfo(inner, {{"CFBundleIdentifier", "inner"}});
  const auto identifierFor = [](const fs::path& executable) {
    const auto found = bundleOfExecutable(executable.string());
    if (!found) return std::string("(none)");
    const PropertyList* value = found->info->find("CFBundleIdentifier");
    return value == nullptr ? std::string("(no identifier)") : *value->string();
  };
  EXPECT_EQ(identifierFor(path / "Contents/Linux/tool"), "outer");
  EXPECT_EQ(identifierFor(inner / "Contents/Linux/tool"), "inner");
  EXPECT_EQ(identifierFor(path / "Contents/deep/er/still/tool"), "outer");
  EXPECT_EQ(identifierFor(directory.path() / "tool"), "(none)");
  EXPECT_EQ(identifierFor("/bin/sh"), "(none)");
  EXPECT_EQ(identifierFor("relative/tool"), "(none)");
  EXPECT_EQ(identifierFor(""), "(none)");
  EXPECT_EQ(identifierFor("/"), "(none)");
  EXPECT_EQ(bundleOfExecutable((inner / "Contents/Linux/tool").string())->path, inner);
}

TEST_F(Bundles, AReplacedExecutableStillBelongsToItsBundle) {
  writeInfo(path, {{"CFBundleIdentifier", "outer"}});
  const auto found = bundleOfExecutable((path / "Contents/Linux/tool").string() + " (deleted)");
  ASSERT_TRUE(found.has_value());
  EXPECT_EQ(found->path, path);
  EXPECT_EQ(*found->info->find("CFBundleIdentifier"), PropertyList("outer"));
}

TEST_F(Bundles, InformationOfAnExecutableIsWithoutLocalization) {
  writeInfo(path, {{"CFBundleName", "Sample"}});
  addStrings("de", "\"CFBundleName\" = \"Beispiel\";\n");
  useLanguages({{"LANG", "de"}});
  const auto found = bundleOfExecutable((path / "Contents/Linux/tool").string());
  EXPECT_EQ(*found->info->find("CFBundleName"), PropertyList("Sample"));
}

TEST_F(Bundles, InformationOfAnExecutableFollowsItsFile) {
  const std::string executable = path / "Contents/Linux/tool";
  writeInfo(path, {{"CFBundleVersion", "1.0"}});
  const auto before = bundleOfExecutable(executable);
  writeInfo(path, {{"CFBundleVersion", "1.1"}});  // of the same length
  const auto after = bundleOfExecutable(executable);
  EXPECT_EQ(*before->info->find("CFBundleVersion"), PropertyList("1.0"));
  EXPECT_EQ(*after->info->find("CFBundleVersion"), PropertyList("1.1"));
  writeFile(path / "Contents/Info.plist", "garbage \x01");
  EXPECT_TRUE(bundleOfExecutable(executable)->info->empty());
}

// Asks a process for its main bundle: path, identifier, name, executable.
Names mainBundleOf(const fs::path& executable) {
  return TaskProcess({"main-bundle"}, executable).outputToItsEnd();
}

TEST_F(Bundles, MainBundleIsTheOneAroundTheRunningExecutable) {
  writeInfo(path, {{"CFBundleIdentifier", "com.Acme.Sample"},
                   {"CFBundleName", "Sample"},
                   {"CFBundleExecutable", "Sample"}});
  putOwnExecutable(path / "Contents/Linux/Sample");
  EXPECT_EQ(mainBundleOf(path / "Contents/Linux/Sample"),
            (Names{path, "com.Acme.Sample", "Sample", path / "Contents/Linux/Sample"}));
}

// The bundle of any program's executable. Its information is read within narrow bounds, that of a
// process's own bundles within wide ones.
class ForeignBundles : public Bundles {
 protected:
  static constexpr std::size_t mebibyte = std::size_t{1} << 20;

  void write(const std::string& information) const {
    writeFile(path / "Contents/Info.plist", information);
  }
  void writePadded(std::size_t size) const {
    std::string text = xmlPropertyList(PropertyList::Dictionary{{"Key", "Value"}}).value();
    text.resize(size, '\n');
    write(text);
  }
  // Returns the information that another process finds. Expects it to find the path in any case.
  [[nodiscard]] PropertyList::Dictionary information() const {
    const auto found = bundleOfExecutable((path / "Contents/Linux/Sample").string());
    EXPECT_TRUE(found.has_value());
    if (!found) return {};
    EXPECT_EQ(found->path, path);
    return *found->info;
  }
  // Returns the bytes that this process has read from anywhere.
  static std::size_t bytesRead() {
    const std::string statistics = test::readFile("/proc/self/io");
    return std::stoul(statistics.substr(statistics.find("rchar: ") + 7));
  }
  [[nodiscard]] bool isReadAsOwn() const {
    return Bundle::withPath(path)->objectForInfoDictionaryKey("Key") != nullptr;
  }
};

TEST_F(ForeignBundles, InformationHasOneMebibyteAtMost) {
  writePadded(mebibyte);
  EXPECT_EQ(information(), (PropertyList::Dictionary{{"Key", "Value"}}));
  writePadded(mebibyte + 1);
  EXPECT_EQ(information(), PropertyList::Dictionary());
  EXPECT_TRUE(isReadAsOwn());
}

TEST_F(ForeignBundles, AFileOfMoreIsNotEvenRead) {
  writePadded(mebibyte + 1);
  const auto before = bytesRead();
  EXPECT_EQ(information(), PropertyList::Dictionary());
  EXPECT_LT(bytesRead() - before, mebibyte);
}

TEST_F(ForeignBundles, InformationHasTenThousandValuesAtMost) {
  const auto writeArray = [this](std::size_t count) {
    write(xmlPropertyList(PropertyList::Dictionary{{"Key", PropertyList::Array(count, true)}})
              .value());
  };
  writeArray(9'998);  // plus the array and the dictionary
  EXPECT_FALSE(information().empty());
  writeArray(9'999);
  EXPECT_TRUE(information().empty());
  EXPECT_TRUE(isReadAsOwn());
}

TEST_F(ForeignBundles, OldStyleInformationHasTheSameBounds) {
  const auto writeArray = [this](std::size_t count) {
    std::string values;
    for (std::size_t i = 0; i < count; ++i) values += "a,";
    write("{Key = (" + values + ");}");
  };
  writeArray(9'998);
  EXPECT_FALSE(information().empty());
  writeArray(9'999);
  EXPECT_TRUE(information().empty());
  EXPECT_TRUE(isReadAsOwn());
  write("{Key = " + std::string(31, '(') + std::string(31, ')') + ";}");
  EXPECT_FALSE(information().empty());
  write("{Key = " + std::string(32, '(') + std::string(32, ')') + ";}");
  EXPECT_TRUE(information().empty());
  EXPECT_TRUE(isReadAsOwn());
}

TEST_F(ForeignBundles, InformationHasThirtyTwoLevelsAtMost) {
  const auto writeNested = [this](int levels) {
    PropertyList list = PropertyList::Array();
    for (int level = 1; level < levels; ++level) list = PropertyList::Array{list};
    write(xmlPropertyList(PropertyList::Dictionary{{"Key", list}}).value());
  };
  writeNested(31);  // plus the dictionary
  EXPECT_FALSE(information().empty());
  writeNested(32);
  EXPECT_TRUE(information().empty());
  EXPECT_TRUE(isReadAsOwn());
}

TEST_F(ForeignBundles, WhatCannotBeReadIsReadOnce) {
  // A source file of the tests has rested, and is not a property list.
  const fs::path source = fs::path(QBDKR_PLATFORM_TESTS) / "Files/FileTreeTest.cpp";
  fs::create_directories(path / "Contents");
  fs::create_symlink(source, path / "Contents/Info.plist");
  const auto size = fs::file_size(source);
  const auto before = bytesRead();
  EXPECT_EQ(information(), PropertyList::Dictionary());
  const auto once = bytesRead();
  EXPECT_GE(once - before, size);
  for (int call = 0; call < 10; ++call) EXPECT_EQ(information(), PropertyList::Dictionary());
  EXPECT_LT(bytesRead() - once, size);
}

TEST_F(ForeignBundles, AReadThatFailsForWantOfADescriptorIsNotRemembered) {
  if (test::hasSanitizer) GTEST_SKIP() << "a sanitizer needs descriptors of its own";
  fs::create_directories(path / "Contents");
  fs::create_symlink(test::restedFile("First.plist"), path / "Contents/Info.plist");
  rlimit before{};
  getrlimit(RLIMIT_NOFILE, &before);
  const rlimit none{0, before.rlim_max};
  ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &none), 0);
  const PropertyList::Dictionary without = information();
  setrlimit(RLIMIT_NOFILE, &before);
  EXPECT_TRUE(without.empty());
  EXPECT_FALSE(information().empty());
}

TEST_F(ForeignBundles, AnExecutableIsSixtyFourDirectoriesBelowAtMost) {
  writeInfo(path, {{"Key", "Value"}});
  std::string directories;
  for (int level = 1; level < 64; ++level) directories += "/d";
  const std::string at64 = path.string() + directories + "/Sample";
  const std::string at65 = path.string() + directories + "/d/Sample";
  ASSERT_TRUE(bundleOfExecutable(at64).has_value());
  EXPECT_EQ(bundleOfExecutable(at64)->path, path);
  EXPECT_FALSE(bundleOfExecutable(at65).has_value());
}

TEST_F(ForeignBundles, ADirectoryOutsideAnyBundleIsNotLookedThroughAgain) {
  const fs::path executable = path.parent_path() / "Tool";
  PlacesOutsideBundles outside;
  EXPECT_FALSE(bundleOfExecutable(executable.string(), outside).has_value());
  EXPECT_TRUE(outside.contains(executable.parent_path().string()));
  writeInfo(path.parent_path(), {{"Key", "Value"}});
  EXPECT_FALSE(bundleOfExecutable(executable.string(), outside).has_value());
  EXPECT_TRUE(bundleOfExecutable(executable.string()).has_value());
}

TEST_F(ForeignBundles, ABundleInADirectoryOutsideAnyBundleIsFound) {
  PlacesOutsideBundles outside;
  EXPECT_FALSE(bundleOfExecutable((path.parent_path() / "Tool").string(), outside).has_value());
  writeInfo(path, {{"Key", "Value"}});
  const auto found = bundleOfExecutable((path / "Contents/Linux/Sample").string(), outside);
  ASSERT_TRUE(found.has_value());
  EXPECT_EQ(found->path, path);
}

TEST_F(ForeignBundles, ADirectoryTooFarBelowItsBundleHidesItFromNoOther) {
  writeInfo(path, {{"Key", "Value"}});
  std::string directories;
  for (int level = 1; level < 64; ++level) directories += "/d";
  const std::string at64 = path.string() + directories + "/Sample";
  const std::string at65 = path.string() + directories + "/d/Sample";
  PlacesOutsideBundles outside;
  EXPECT_FALSE(bundleOfExecutable(at65, outside).has_value());
  EXPECT_TRUE(bundleOfExecutable(at64, outside).has_value());
}

TEST_F(ForeignBundles, TheMainBundleIsReadWithinTheWideBounds) {
  std::string text =
      xmlPropertyList(PropertyList::Dictionary{{"CFBundleIdentifier", "com.Acme.Sample"}}).value();
  text.resize(2 * mebibyte, '\n');
  write(text);
  putOwnExecutable(path / "Contents/Linux/Sample");
  EXPECT_EQ(mainBundleOf(path / "Contents/Linux/Sample").at(1), "com.Acme.Sample");
}

TEST_F(Bundles, MainBundleIsLocalized) {
  writeInfo(path, {{"CFBundleIdentifier", "com.Acme.Sample"}, {"CFBundleName", "Sample"}});
  addStrings("de", "\"CFBundleName\" = \"Beispiel\";\n");
  putOwnExecutable(path / "Contents/Linux/Sample");
  useLanguages({{"LANG", "de_AT.UTF-8"}});
  EXPECT_EQ(mainBundleOf(path / "Contents/Linux/Sample").at(2), "Beispiel");
}

TEST_F(Bundles, MainBundleIsFoundThroughALink) {
  writeInfo(path, {{"CFBundleIdentifier", "com.Acme.Sample"}});
  putOwnExecutable(path / "Contents/Linux/Sample");
  fs::create_symlink(path / "Contents/Linux/Sample", directory.path() / "link");
  EXPECT_EQ(mainBundleOf(directory.path() / "link").at(1), "com.Acme.Sample");
}

TEST_F(Bundles, MainBundleOfAProcessOutsideAnyIsItsDirectoryWithoutInformation) {
  putOwnExecutable(directory.path() / "bin/tool");
  EXPECT_EQ(mainBundleOf(directory.path() / "bin/tool"),
            (Names{directory.path() / "bin", "(none)", "(none)", "(none)"}));
}

}  // namespace
}  // namespace qbdkr
