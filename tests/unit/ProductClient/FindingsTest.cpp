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

TEST(FindingsTest, SentenceShowsTextsFromOutside) {
  const std::string path = "/a\n{}";
  EXPECT_EQ(Sentence("Nothing is there.").text(), "Nothing is there.");
  EXPECT_EQ(Sentence("{} is not \"{}\".", {path, "b"}).text(), R"(/a\n{} is not "b".)");
  EXPECT_EQ(Sentence("{}", {std::string(301, 'x')}).text(), std::string(300, 'x') + "...");
}

TEST(FindingsTest, SentenceTakesReadyTextsAsTheyAre) {
  const std::string list(301, 'x');
  EXPECT_EQ(Sentence("It holds {+}, and {}.", {list, "{+}"}).text(),
            "It holds " + list + ", and {+}.");
  EXPECT_EQ(Sentence("{+}", {"a{}"}).text(), "a{}");
}

TEST(FindingsTest, FindingHoldsBothSentences) {
  Findings findings;
  findings.warning("subject", {"{} is bad.", {"It"}}, {"Mend {}.", {"it"}});
  findings.ok("other", "All is well.");
  const auto found = findings.take();
  ASSERT_EQ(found.size(), 2U);
  EXPECT_EQ(found[0].severity, Finding::Severity::warning);
  EXPECT_EQ(found[0].subject, "subject");
  EXPECT_EQ(found[0].text, "It is bad.");
  EXPECT_EQ(found[0].remedy, "Mend it.");
  EXPECT_EQ(found[1].severity, Finding::Severity::ok);
  EXPECT_EQ(found[1].remedy, "");
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
