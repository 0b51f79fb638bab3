// Tests what "qbhp new-product" makes and refuses. The test of the package builds a product, and
// runs it.

#include <gtest/gtest.h>

#include <filesystem>
#include <string>
#include <vector>

#include "support/Environment.h"
#include "tool/ToolRun.h"

namespace qbdkr::test {
namespace {

namespace fs = std::filesystem;

class ToolNewProduct : public testing::Test, protected ToolAtHome {
 protected:
  // Makes products in a folder of their own.
  [[nodiscard]] ToolResult make(const std::string& words, const std::string& before = "") const {
    return tool.runShell("cd " + place.string() + " && " + before + " qbhp new-product " + words);
  }

  const fs::path place = directory.path() / "products";

 private:
  const bool isMade_ = fs::create_directory(place);
};

TEST_F(ToolNewProduct, NamesAndIdentifiersAreFilledIn) {
  EXPECT_EQ(make("Sketch --identifier com.Acme").code, 0);
  const std::string lists = readFile(place / "Sketch/CMakeLists.txt");
  EXPECT_NE(lists.find("set(HOST_NAME Sketch)\nset(HOST_IDENTIFIER com.Acme.Sketch)\n"),
            std::string::npos);
  EXPECT_EQ(make("Sketch --directory other").code, 0);
  const std::string others = readFile(place / "other/CMakeLists.txt");
  EXPECT_NE(others.find("set(HOST_IDENTIFIER com.example.Sketch)\n"), std::string::npos);
}

TEST_F(ToolNewProduct, TheHelperAgentIsInCPlusPlusOrInPython) {
  EXPECT_EQ(make("Sketch").code, 0);
  EXPECT_TRUE(fs::exists(place / "Sketch/helper/helper.cpp"));
  EXPECT_FALSE(fs::exists(place / "Sketch/helper/helper.py"));
  EXPECT_EQ(make("Snake --python").code, 0);
  EXPECT_TRUE(fs::exists(place / "Snake/helper/helper.py"));
  EXPECT_FALSE(fs::exists(place / "Snake/helper/helper.cpp"));
}

TEST_F(ToolNewProduct, WhatExistsIsRefusedAndStaysAsItIs) {
  fs::create_directory(place / "Folder");
  writeFile(place / "File", "text");
  fs::create_symlink("nowhere", place / "Link");
  for (const std::string name : {"Folder", "File", "Link"}) {
    const auto result = make(name);
    EXPECT_EQ(result.code, 1) << name;
    EXPECT_EQ(result.errors, "qbhp new-product: " + name + " exists already\n");
  }
  EXPECT_TRUE(fs::is_empty(place / "Folder"));
  EXPECT_EQ(readFile(place / "File"), "text");
  EXPECT_EQ(fs::read_symlink(place / "Link"), "nowhere");
  EXPECT_FALSE(fs::exists(place / "nowhere"));
}

TEST_F(ToolNewProduct, NamesThatABuildOrTheBusCannotTakeAreRefused) {
  const std::string longest(64, 'A');
  for (const std::string& words :
       {std::string("test"), std::string("9Lives"), std::string("'My Tool'"), std::string("A/B"),
        std::string("../A"), std::string("Ärger"), std::string("A.b"), std::string("''"),
        longest + "A", std::string("A --identifier ''"), std::string("A --identifier com..Acme"),
        std::string("A --identifier com.7zip"), std::string("A --identifier 'com.A b'"),
        "A --identifier com." + longest + longest}) {
    const auto result = make(words);
    EXPECT_EQ(result.code, 2) << words << result.errors;
    EXPECT_EQ(result.output, "") << words;
  }
  EXPECT_TRUE(fs::is_empty(place));
  EXPECT_EQ(make(longest + " --identifier com." + longest).code, 0);
}

TEST_F(ToolNewProduct, AProductThatCannotBeMadeLeavesNothing) {
  const auto result = make("Sketch", "trap '' XFSZ; ulimit -f 1;");
  EXPECT_EQ(result.code, 1);
  EXPECT_TRUE(result.errors.starts_with("qbhp new-product: cannot write Sketch/")) << result.errors;
  EXPECT_TRUE(fs::is_empty(place));
  EXPECT_EQ(make("Sketch --directory nowhere/Sketch").errors,
            "qbhp new-product: cannot make nowhere/Sketch: No such file or directory\n");
}

TEST_F(ToolNewProduct, CommandsThatAreNamedCanBeCopiedIntoAShell) {
  const auto result = make(R"(Sketch --directory "it's mine")");
  EXPECT_NE(result.output.find("\ncmake --build 'it'\\''s mine/build'\n"), std::string::npos)
      << result.output;
}

}  // namespace
}  // namespace qbdkr::test
