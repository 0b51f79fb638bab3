#include <gtest/gtest.h>
#include <sys/stat.h>

#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>
#include <string_view>

#include <ClientComm/PropertyList.h>

#include "Platform/PropertyLists/PropertyListReader.h"
#include "Platform/PropertyLists/PropertyListWriter.h"
#include "platform/PropertyLists/PropertyListSamples.h"
#include "support/Environment.h"
#include "support/OrdinaryUser.h"

namespace qbdkr {
namespace {

using namespace std::string_literals;
using namespace std::string_view_literals;
using Dictionary = PropertyList::Dictionary;
using propertylist::contentsOfFile;
using test::isRefused;
using test::utf16;

TEST(AnyPropertyList, OverSixteenMebibytesIsRefused) {
  EXPECT_TRUE(isRefused(std::string((16 << 20) + 1, ' ')));
  EXPECT_FALSE(isRefused(std::string(16 << 20, ' ')));
}

TEST(AnyPropertyList, RefusesWhatIsNoText) {
  EXPECT_TRUE(
      isRefused("\x7F"
                "ELF\2\1\1\0"sv));
  EXPECT_TRUE(isRefused("\x89PNG\r\n"));
  EXPECT_TRUE(isRefused("\0\0"sv));
  EXPECT_TRUE(isRefused("\0"sv));
  EXPECT_TRUE(isRefused("\xFF"));
}

class DictionaryFile : public testing::Test {
 protected:
  [[nodiscard]] std::string path(const std::string& name) const { return folder_.path() / name; }
  [[nodiscard]] std::string file(const std::string& name, std::string_view contents) const {
    test::writeFile(path(name), std::string(contents));
    return path(name);
  }

 private:
  test::TemporaryDirectory folder_;
};

TEST_F(DictionaryFile, IsReadInEveryForm) {
  const Dictionary expected{{"k", "v"}};
  EXPECT_EQ(readDictionaryFile(file("a.strings", "k = v;")), expected);
  EXPECT_EQ(readDictionaryFile(file("b.strings", utf16("k = v;", true, false))), expected);
  EXPECT_EQ(readDictionaryFile(file("c.plist", *xmlPropertyList(expected))), expected);
  EXPECT_EQ(readDictionaryFile(file("empty.strings", "")), std::nullopt);
  EXPECT_EQ(readDictionaryFile(file("blank.strings", "\n")), Dictionary());
  EXPECT_EQ(readDictionaryFile(file("comment.strings", "/* no pair */")), Dictionary());
}

TEST_F(DictionaryFile, WithoutADictionaryIsAbsent) {
  EXPECT_EQ(readDictionaryFile(file("a", "(a, b)")), std::nullopt);
  EXPECT_EQ(readDictionaryFile(file("b", "\"k\"")), std::nullopt);
  EXPECT_EQ(readDictionaryFile(file("c", *xmlPropertyList("text"))), std::nullopt);
  EXPECT_EQ(readDictionaryFile(file("d", "{ broken")), std::nullopt);
}

TEST_F(DictionaryFile, ThatDoesNotExistIsAbsent) {
  EXPECT_EQ(readDictionaryFile(path("none")), std::nullopt);
  EXPECT_EQ(readDictionaryFile(""), std::nullopt);
}

TEST_F(DictionaryFile, PathIsNotCutAtAZero) {
  EXPECT_EQ(readDictionaryFile(file("a.strings", "k = v;") + "\0.other"s), std::nullopt);
}

TEST_F(DictionaryFile, FolderIsAbsent) { EXPECT_EQ(readDictionaryFile(path("")), std::nullopt); }

TEST_F(DictionaryFile, PipeWithoutWriterDoesNotHang) {
  ASSERT_EQ(::mkfifo(path("pipe").c_str(), 0600), 0);
  EXPECT_EQ(readDictionaryFile(path("pipe")), std::nullopt);
}

TEST_F(DictionaryFile, DeviceIsAbsent) {
  EXPECT_EQ(readDictionaryFile("/dev/zero"), std::nullopt);
  EXPECT_EQ(readDictionaryFile("/dev/null"), std::nullopt);
}

TEST_F(DictionaryFile, OverSixteenMebibytesIsAbsent) {
  const std::string exact = "k = v; //" + std::string((16 << 20) - 9, 'x');
  EXPECT_EQ(readDictionaryFile(file("exact", exact)), (Dictionary{{"k", "v"}}));
  EXPECT_EQ(readDictionaryFile(file("large", exact + "x")), std::nullopt);
  const std::string huge = file("huge", "");
  std::filesystem::resize_file(huge, std::uintmax_t{1} << 40);
  EXPECT_EQ(readDictionaryFile(huge), std::nullopt);
}

TEST(ContentsOfFile, AreThoseOfARegularFileWithinTheBound) {
  const test::TemporaryDirectory directory;
  const std::string path = directory.path() / "file";
  test::writeFile(path, "12345");
  EXPECT_EQ(contentsOfFile(path, 5).bytes, "12345");
  EXPECT_TRUE(contentsOfFile(path, 5).isConclusive);
  EXPECT_EQ(contentsOfFile(path, 4).bytes, std::nullopt);
  EXPECT_TRUE(contentsOfFile(path, 4).isConclusive);
  EXPECT_EQ(contentsOfFile(directory.path(), 5).bytes, std::nullopt);
  EXPECT_TRUE(contentsOfFile(directory.path(), 5).isConclusive);
}

TEST(ContentsOfFile, AreConclusiveForAFileThatIsRefused) {
  const test::TemporaryDirectory directory;
  const std::string path = directory.path() / "file";
  test::writeFile(path, "12345");
  std::filesystem::permissions(path, std::filesystem::perms::none);
  test::giveToOrdinaryUser(directory.path());
  EXPECT_TRUE(test::asOrdinaryUser([&path] {
    const auto contents = contentsOfFile(path, 5);
    return !contents.bytes && contents.isConclusive;
  }));
}

TEST(ContentsOfFile, AreNotConclusiveForAFileThatIsNotThere) {
  const test::TemporaryDirectory directory;
  const auto contents = contentsOfFile(directory.path() / "none", 5);
  EXPECT_EQ(contents.bytes, std::nullopt);
  EXPECT_FALSE(contents.isConclusive);
}

TEST(FaultOfADictionaryFile, NamesTheLine) {
  const test::TemporaryDirectory directory;
  const std::string path = directory.path() / "file";
  const auto fault = [&path](const std::string& contents) {
    test::writeFile(path, contents);
    return faultOfDictionaryFile(path);
  };
  EXPECT_EQ(fault("<plist><dict/></plist>"), std::nullopt);
  EXPECT_EQ(fault("<?xml version=\"1.0\"?>\n<plist>\n<dict></plist>"), "line 3: mismatched tag");
  EXPECT_EQ(fault("<plist>\n<dict>\n<key>a</key><int>1</int></dict></plist>"),
            "line 3: not allowed there in a property list");
  EXPECT_EQ(fault("<plist><array/></plist>"), "its outermost value is not a dictionary");
  EXPECT_EQ(fault(""), "it is empty");
  EXPECT_EQ(fault("bplist00"), "it is a damaged binary property list");
  EXPECT_EQ(fault("\xFF"), "it is neither UTF-8 nor UTF-16");
  EXPECT_EQ(fault("{ a = "), "it is neither XML nor another form of a property list");
}

TEST(FaultOfADictionaryFile, NamesTheReasonForWhichItIsNotRead) {
  const test::TemporaryDirectory directory;
  EXPECT_EQ(faultOfDictionaryFile(directory.path()), "it is not a regular file");
  EXPECT_EQ(faultOfDictionaryFile(directory.path() / "none"), "No such file or directory");
}

}  // namespace
}  // namespace qbdkr
