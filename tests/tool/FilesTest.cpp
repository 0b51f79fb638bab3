// Tests the commands of the tool that need no other process.

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <filesystem>
#include <string>
#include <vector>

#include "tool/ToolRun.h"

namespace qbdkr::test {
namespace {

namespace fs = std::filesystem;

class ToolFiles : public testing::Test, protected ToolAtHome {
 protected:
  ToolFiles() {
    writeFile(list, R"(<?xml version="1.0" encoding="UTF-8"?>
<plist version="1.0"><dict><key>Name</key><string>Caf&#233;</string><key>Flag</key><true/>
<key>Count</key><integer>-3</integer><key>Size</key><real>0.5</real>
<key>When</key><date>2026-01-31T12:00:00Z</date><key>Bytes</key><data>AP8Q</data>
<key>Nested</key><dict><key>Inner</key><array><string>a</string><integer>1</integer></array></dict>
</dict></plist>
)");
  }

  const std::string list = path("list.plist");  // has one entry of each type
};

TEST_F(ToolFiles, VersionsAreComparedWithTheDecidingComponents) {
  const auto newer = tool.run({"versions", "2.1.0", "2.1b3"});
  EXPECT_EQ(newer.code, 0);
  EXPECT_EQ(newer.output,
            "newer: 2.1.0 > 2.1b3\n"
            "decided by component 4: \".\" (a dot) > \"b\" (letters)\n");
  EXPECT_EQ(tool.run({"versions", "1.0b3", "1.0"}).output,
            "older: 1.0b3 < 1.0\ndecided by component 4: \"b\" (letters) < nothing\n");
  EXPECT_EQ(tool.run({"versions", "1.10", "1.010"}).output, "same: 1.10 = 1.010\n");
  EXPECT_EQ(tool.run({"versions", "1.10", "1.9", "--json"}).json(),
            JSON({{"relation", "newer"},
                  {"order", 1},
                  {"first", {"1", ".", "10"}},
                  {"second", {"1", ".", "9"}},
                  {"decidedBy", {{"component", 3}, {"first", "10"}, {"second", "9"}}}}));
}

TEST_F(ToolFiles, VersionsAnswerAQuestionByTheExitCode) {
  EXPECT_EQ(tool.run({"versions", "1", "2", "--is", "older"}).code, 0);
  EXPECT_EQ(tool.run({"versions", "1", "2", "--is", "newer"}).code, 1);
  EXPECT_EQ(tool.run({"versions", "1", "2", "--is", "equal"}).code, 2);
}

TEST_F(ToolFiles, PropertyListIsPrintedForReadersAndAsJSON) {
  EXPECT_EQ(tool.run({"plist", "read", list}).output,
            "Name: \"Café\"\nFlag: true\nCount: -3\nSize: 0.5\nWhen: 2026-01-31T12:00:00Z\n"
            "Bytes: <00ff10>\nNested:\n  Inner:\n    - \"a\"\n    - 1\n");
  EXPECT_EQ(tool.run({"plist", "read", list, "Name"}).output, "Café\n");
  EXPECT_EQ(tool.run({"plist", "read", list, "Count"}).output, "-3\n");
  EXPECT_EQ(tool.run({"plist", "read", list, "--json"}).json(),
            JSON({{"Name", "Café"},
                  {"Flag", true},
                  {"Count", -3},
                  {"Size", 0.5},
                  {"When", "2026-01-31T12:00:00Z"},
                  {"Bytes", "AP8Q"},
                  {"Nested", {{"Inner", {"a", 1}}}}}));
}

TEST_F(ToolFiles, PropertyListThatCannotBeReadIsAFailure) {
  EXPECT_EQ(tool.run({"plist", "read", list, "None"}).errors,
            "qbhp plist read: " + list + " has no key \"None\"\n");
  EXPECT_EQ(tool.run({"plist", "read", list, "None"}).code, 1);
  const auto missing = tool.run({"plist", "read", path("none")});
  EXPECT_EQ(missing.errors,
            "qbhp plist read: cannot read " + path("none") + ": No such file or directory\n");
  EXPECT_EQ(missing.code, 1);
  writeFile(path("other"), "<plist><dict>");
  EXPECT_EQ(
      tool.run({"plist", "read", path("other")}).errors,
      "qbhp plist read: " + path("other") + " is no property list: line 1: no element found\n");
  EXPECT_EQ(tool.run({"plist", "read"}).code, 2);
}

TEST_F(ToolFiles, WritingChangesOneKeyAndKeepsTheModeAndALink) {
  fs::permissions(list, fs::perms::owner_read | fs::perms::owner_write | fs::perms::group_read);
  fs::create_symlink("list.plist", path("link"));
  auto expected = tool.run({"plist", "read", list, "--json"}).json();
  const std::vector<std::vector<std::string>> values{{"Flag", "false", "flag"},
                                                     {"Count", "18446744073709551615", "integer"},
                                                     {"Size", "-1e-9", "real"},
                                                     {"When", "1999-12-31T23:59:59Z", "date"},
                                                     {"Bytes", "", "data"},
                                                     {"Name", "<a & b>", "string"},
                                                     {"New", "[not, a, list]", "string"}};
  for (const auto& value : values) {
    const auto written =
        tool.run({"plist", "write", path("link"), value[0], "--type", value[2], "--", value[1]});
    EXPECT_EQ(written.code, 0) << written.errors;
  }
  expected["Flag"] = false;
  expected["Count"] = 18446744073709551615U;
  expected["Size"] = -1e-9;
  expected["When"] = "1999-12-31T23:59:59Z";
  expected["Bytes"] = "";
  expected["Name"] = "<a & b>";
  expected["New"] = "[not, a, list]";
  EXPECT_EQ(tool.run({"plist", "read", list, "--json"}).json(), expected);
  EXPECT_TRUE(fs::is_symlink(path("link")));
  EXPECT_EQ(modeOf(list), mode_t{0640});
  EXPECT_EQ(namesIn(directory.path()),
            (std::vector<std::string>{"bin", "home", "link", "list.plist", "tmp"}));
}

TEST_F(ToolFiles, WritingRefusesAndLeavesTheFile) {
  const std::string before = readFile(list);
  EXPECT_EQ(tool.run({"plist", "write", list, "Flag", "maybe", "--type", "flag"}).code, 2);
  EXPECT_EQ(
      tool.run({"plist", "write", list, "Date", "2026-02-30T00:00:00Z", "--type", "date"}).code, 2);
  EXPECT_EQ(tool.run({"plist", "write", list, "Name", "\x01"}).code, 1);
  EXPECT_EQ(tool.run({"plist", "write", list, "Name", "\xff"}).code, 2);
  EXPECT_EQ(readFile(list), before);
  writeFile(path("commented"), "<plist><dict><!-- kept --><key>A</key><true/></dict></plist>");
  const auto refused = tool.run({"plist", "write", path("commented"), "A", "b"});
  EXPECT_EQ(refused.code, 1);
  EXPECT_NE(refused.errors.find("has comments, which would be lost"), std::string::npos);
  EXPECT_NE(readFile(path("commented")).find("kept"), std::string::npos);
  EXPECT_EQ(tool.run({"plist", "write", path("commented"), "A", "b", "--drop-comments"}).code, 0);
  EXPECT_EQ(tool.run({"plist", "read", path("commented")}).output, "A: \"b\"\n");
  writeFile(path("binary"), std::string("bplist00\xd0\x08\0\0\0\0\0\0\x01\x01\0\0\0\0\0\0\0\x01"
                                        "\0\0\0\0\0\0\0\0\0\0\0\0\0\0\0\x09",
                                        42));
  ASSERT_EQ(tool.run({"plist", "read", path("binary")}).code, 0);
  EXPECT_NE(tool.run({"plist", "write", path("binary"), "A", "b"}).errors.find("convert it first"),
            std::string::npos);
}

TEST_F(ToolFiles, ListIsConvertedToXMLAndToText) {
  writeFile(path("a.strings"), "/* a comment */ \"Key\" = \"Value\";\nOther = 'x y';\n");
  const auto xml = tool.run({"strings", "convert", path("a.strings"), "--to", "xml"});
  EXPECT_NE(xml.output.find("<key>Key</key>\n\t<string>Value</string>"), std::string::npos)
      << xml.output;
  const auto written =
      tool.run({"plist", "convert", path("a.strings"), "--to", "xml", "-o", path("a.plist")});
  EXPECT_EQ(written.code, 0);
  EXPECT_EQ(written.output, "");
  EXPECT_EQ(readFile(path("a.plist")), xml.output);
  const auto made = tool.runShell("umask 027; cd " + directory.path().string() +
                                  "; qbhp plist convert a.strings --to xml -o new.plist");
  EXPECT_EQ(made.code, 0) << made.errors;
  EXPECT_EQ(modeOf(path("new.plist")), mode_t{0640});
  EXPECT_EQ(tool.run({"plist", "convert", path("a.plist"), "--to", "text"}).output,
            "\"Key\" = \"Value\";\n\"Other\" = \"x y\";\n");
  EXPECT_EQ(tool.run({"plist", "convert", path("a.plist"), "--to", "binary"}).code, 2);
  EXPECT_EQ(
      tool.run({"plist", "convert", path("a.plist"), "--to", "xml", "-o", path("none/b")}).code, 1);
}

TEST_F(ToolFiles, StringsFileKeepsItsEncoding) {
  const std::string utf16("\xFF\xFE\"\0K\0\"\0=\0\"\0V\0\"\0;\0", 18);
  writeFile(path("a.strings"), utf16);
  EXPECT_EQ(tool.run({"strings", "write", path("a.strings"), "K", "ä"}).code, 0);
  EXPECT_EQ(readFile(path("a.strings")).substr(0, 4), std::string("\xFF\xFE\"\0", 4));
  EXPECT_EQ(tool.run({"strings", "read", path("a.strings"), "K"}).output, "ä\n");
  EXPECT_EQ(tool.run({"strings", "write", path("a.strings"), "K", "v", "--type", "flag"}).code, 2);
}

TEST_F(ToolFiles, StringsFileWithAnAddressHasNoCommentThere) {
  writeFile(path("a.strings"), "\"U\" = \"https://a.example/\\\"//b\";\n");
  EXPECT_EQ(tool.run({"strings", "write", path("a.strings"), "K", "v"}).code, 0);
  writeFile(path("b.strings"), "\"U\" = \"x\"; // comment\n");
  EXPECT_EQ(tool.run({"strings", "write", path("b.strings"), "K", "v"}).code, 1);
}

TEST_F(ToolFiles, DefaultsAreReadAndWritten) {
  EXPECT_EQ(tool.run({"defaults", "read", "com.Acme.Notes"}).errors,
            "qbhp defaults read: nothing is stored for \"com.Acme.Notes\"\n");
  EXPECT_EQ(
      tool.run({"defaults", "write", "com.Acme.Notes", "Open", "true", "--type", "flag"}).code, 0);
  EXPECT_EQ(tool.run({"defaults", "write", "com.Acme.Notes", "Name", "a b"}).code, 0);
  EXPECT_EQ(tool.run({"defaults", "read", "com.Acme.Notes"}).output, "Open: true\nName: \"a b\"\n");
  EXPECT_EQ(tool.run({"defaults", "read", "com.Acme.Notes", "Name"}).output, "a b\n");
  EXPECT_EQ(tool.run({"defaults", "read", "com.Acme.Notes", "--json"}).json(),
            JSON({{"Open", true}, {"Name", "a b"}}));
  EXPECT_EQ(tool.run({"defaults", "read", "com.Acme.Notes", "None"}).code, 1);
  EXPECT_EQ(tool.run({"defaults", "write", "../Notes", "Name", "x"}).errors,
            "qbhp defaults write: \"../Notes\" cannot be a domain; that of a host is its bundle"
            " identifier\n");
  EXPECT_EQ(tool.run({"defaults", "read", "../Notes"}).code, 2);
  EXPECT_EQ(tool.run({"defaults", "write", "com.Acme.Notes", "Name", "\x02"}).code, 1);
  EXPECT_TRUE(fs::exists(home.preferencesFile("com.Acme.Notes")));
}

}  // namespace
}  // namespace qbdkr::test
