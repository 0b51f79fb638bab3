#include <gtest/gtest.h>

#include "Platform/Text/Text.h"
#include "ProductClient/Findings.h"

namespace qbdkr::test {
namespace {

using Processes = std::vector<pid_t>;
using Names = std::vector<std::string>;

TEST(FindingsTest, ShownTextHasNoCommandsForATerminal) {
  EXPECT_EQ(shown("a b/\xC3\xA4\xE2\x82\xAC\xF0\x9F\x98\x80"),
            "a b/\xC3\xA4\xE2\x82\xAC\xF0\x9F\x98\x80");
  EXPECT_EQ(shown("\x1b[2J\n\x7f"), "\\x1b[2J\\x0a\\x7f");
  EXPECT_EQ(shown("\xC2\x9B|\xC2\xA0"), "\\xc2\\x9b|\xC2\xA0");
  EXPECT_EQ(shown("\xE2\x80\xAE|\xE2\x81\xA6|\xE2\x80\xA6"),
            "\\xe2\\x80\\xae|\\xe2\\x81\\xa6|\xE2\x80\xA6");
}

TEST(FindingsTest, ShownTextIsUTF8) {
  EXPECT_EQ(shown("\xFF|\xC3"), "\\xff|\\xc3");
  EXPECT_EQ(shown("\xE2\x82|\xF0\x9F"), "\\xe2\\x82|\\xf0\\x9f");
  for (int byte = 0; byte < 256; ++byte) {
    EXPECT_TRUE(isValidUTF8(shown(std::string(3, static_cast<char>(byte)))));
  }
}

TEST(FindingsTest, ShownTextIsCut) {
  EXPECT_EQ(shown(std::string(300, 'x')), std::string(300, 'x'));
  EXPECT_EQ(shown(std::string(301, 'x')), std::string(300, 'x') + "...");
}

TEST(FindingsTest, ListsReadAsASentence) {
  EXPECT_EQ(listOf(Names{"a"}), "a");
  EXPECT_EQ(listOf(Names{"a", "b"}), "a and b");
  EXPECT_EQ(listOf(Names{"a", "b", "c"}), "a, b and c");
  EXPECT_EQ(listOf(Names(10, "a")), "a, a, a, a, a, a, a, a and 2 more");
  EXPECT_EQ(listOf(Processes{7}), "process 7");
  EXPECT_EQ(listOf(Processes{7, 8}), "processes 7 and 8");
}

}  // namespace
}  // namespace qbdkr::test
