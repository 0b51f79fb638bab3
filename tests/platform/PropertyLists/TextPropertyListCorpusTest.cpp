// Reads strings files as editors, tools and accidents make them.
//
// The expected value of strings/read/NAME.strings is NAME.xml beside it, or NAME.bplist if XML
// cannot hold one of its characters. The files of strings/refused must be refused.

#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <filesystem>
#include <optional>
#include <string>
#include <string_view>
#include <system_error>
#include <utility>
#include <vector>

#include <ClientComm/PropertyList.h>

#include "Platform/PropertyLists/PropertyListReader.h"
#include "Platform/PropertyLists/PropertyListWriter.h"
#include "Platform/PropertyLists/TextPropertyList.h"
#include "support/Environment.h"
#include "support/Repeated.h"

namespace qbdkr {
namespace {

using test::repeated;

namespace fs = std::filesystem;
using Array = PropertyList::Array;
using Data = PropertyList::Data;
using Dictionary = PropertyList::Dictionary;

// Wide enough for a sanitizer on a busy machine. Work that grows with the square of the size takes
// minutes over the large files.
constexpr std::chrono::seconds bound(10);

const fs::path corpus = fs::path(QBDKR_PLATFORM_TESTS) / "PropertyLists/strings";

// Returns the files in the order of their names. Empty without the folder, which a test reports.
std::vector<fs::path> filesIn(const std::string& folder) {
  std::vector<fs::path> files;
  std::error_code missing;
  for (const auto& entry : fs::directory_iterator(corpus / folder, missing)) {
    if (entry.path().extension() == ".strings") files.push_back(entry.path());
  }
  std::ranges::sort(files);
  return files;
}

// Returns the expected value of a file; absent if it must be refused. An expectation that cannot be
// read is a failure: it would otherwise agree with a reader that refuses everything.
std::optional<PropertyList> expectationFor(fs::path file) {
  if (file.parent_path().filename() == "refused") return std::nullopt;
  file.replace_extension(".xml");
  if (!fs::exists(file)) file.replace_extension(".bplist");
  std::optional<PropertyList> expected;
  if (fs::exists(file)) expected = parsePropertyList(test::readFile(file));
  EXPECT_TRUE(expected) << file;
  return expected;
}

std::string shown(const std::optional<PropertyList>& list) {
  if (!list) return "refused";
  return xmlPropertyList(*list).value_or("read, but not for XML").substr(0, 2000);
}

// Also reads back the text that is written for the value.
void expectInTime(std::string_view bytes, const std::optional<PropertyList>& expected) {
  const auto start = std::chrono::steady_clock::now();
  const std::optional<PropertyList> list = parsePropertyList(bytes);
  EXPECT_TRUE(list == expected) << shown(list);
  if (list && list->dictionary()) {
    const std::optional<std::string> written = stringsFileText(*list->dictionary());
    EXPECT_TRUE(written && parsePropertyList(*written) == list) << shown(list);
  }
  EXPECT_LT(std::chrono::steady_clock::now() - start, bound);
}

class StringsCorpus : public testing::TestWithParam<fs::path> {};

TEST_P(StringsCorpus, GivesWhatIsExpected) {
  const std::optional<PropertyList> expected = expectationFor(GetParam());
  expectInTime(test::readFile(GetParam()), expected);

  std::optional<Dictionary> dictionary;
  if (expected && expected->dictionary()) dictionary = *expected->dictionary();
  EXPECT_TRUE(readDictionaryFile(GetParam()) == dictionary);
}

std::string nameOf(const testing::TestParamInfo<fs::path>& tested) {
  std::string name = tested.param.stem();
  std::ranges::replace(name, '-', '_');
  return name;
}

INSTANTIATE_TEST_SUITE_P(Read, StringsCorpus, testing::ValuesIn(filesIn("read")), nameOf);
INSTANTIATE_TEST_SUITE_P(Refused, StringsCorpus, testing::ValuesIn(filesIn("refused")), nameOf);

// An empty folder must not pass.
TEST(StringsCorpusFolder, HoldsManyFiles) {
  EXPECT_GE(filesIn("read").size(), 30U);
  EXPECT_GE(filesIn("refused").size(), 30U);
}

// Large files are made here: their contents matter only in their number.
TEST(StringsCorpusLarge, ManyKeys) {
  std::string text;
  std::vector<Dictionary::Entry> entries;
  for (int i = 0; i < 100'000; ++i) {
    const std::string key = "key " + std::to_string(i);
    text.append("\"").append(key).append("\" = v;\n");
    entries.emplace_back(key, "v");
  }
  expectInTime(text, Dictionary::fromEntries(std::move(entries)));
}

TEST(StringsCorpusLarge, OneKeyOverAndOver) {
  expectInTime(repeated("k = v; k; ", 100'000) + "k = last;", Dictionary{{"k", "last"}});
}

TEST(StringsCorpusLarge, Comments) {
  const Dictionary expected{{"k", "v"}};
  expectInTime("/*" + repeated("*", 4'000'000) + "*/ k = v;", expected);
  expectInTime(repeated("/**/", 1'000'000) + "k = v;", expected);
  expectInTime(repeated("// /*\n", 700'000) + "k = v;", expected);
  expectInTime("k = v; //" + repeated("/", 4'000'000), expected);
  expectInTime("k = v; " + repeated("/* ", 1'000'000), std::nullopt);
}

TEST(StringsCorpusLarge, Blanks) {
  const std::string blanks = repeated(" \t\r\n\u2028", 250'000);
  expectInTime(blanks + "k" + blanks + "= v" + blanks, Dictionary{{"k", "v"}});
}

TEST(StringsCorpusLarge, Texts) {
  const std::string word = repeated("x", 1'000'000);
  expectInTime(word + " = " + word, Dictionary{{word, word}});
  expectInTime("k = \"" + repeated("\\n", 1'000'000) + "\"",
               Dictionary{{"k", repeated("\n", 1'000'000)}});
  expectInTime("k = \"" + repeated("\\Ud83d", 1'000'000) + "\"",
               Dictionary{{"k", repeated("\uFFFD", 1'000'000)}});
  expectInTime("k = \"" + repeated("'\\\"", 1'000'000), std::nullopt);
}

TEST(StringsCorpusLarge, Values) {
  expectInTime("k = (" + repeated("a, ", 250'000) + ");",
               Dictionary{{"k", Array(250'000, PropertyList("a"))}});
  expectInTime("k = <" + repeated("0f ", 1'000'000) + ">;",
               Dictionary{{"k", Data{repeated("\x0F", 1'000'000)}}});
  expectInTime(repeated("(", 4'000'000), std::nullopt);
  expectInTime(repeated("k = {", 1'000'000), std::nullopt);
}

}  // namespace
}  // namespace qbdkr
