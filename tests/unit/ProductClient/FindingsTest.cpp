#include <gtest/gtest.h>

#include "ProductClient/Findings.h"

namespace qbdkr::test {
namespace {

using Processes = std::vector<pid_t>;
using Names = std::vector<std::string>;

TEST(FindingsTest, ShownTextIsEscapedAndCut) {
  EXPECT_EQ(shown("a\n\xFF"), R"(a\n\xff)");
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
