#include <gtest/gtest.h>

#include <cstdint>
#include <limits>
#include <optional>
#include <string>

#include <ClientComm/PropertyList.h>

namespace qbdkr {
namespace {

using Array = PropertyList::Array;
using Dictionary = PropertyList::Dictionary;

TEST(PropertyListDictionary, FindsSetsAndErases) {
  Dictionary dictionary{{"a", 1}, {"b", "two"}};
  ASSERT_TRUE(dictionary.find("b"));
  EXPECT_EQ(*dictionary.find("b"), PropertyList("two"));
  EXPECT_EQ(dictionary.find("c"), nullptr);
  dictionary.set("a", true);
  dictionary.set("c", 3);
  EXPECT_EQ(dictionary, (Dictionary{{"a", true}, {"b", "two"}, {"c", 3}}));
  EXPECT_TRUE(dictionary.erase("a"));
  EXPECT_FALSE(dictionary.erase("a"));
  EXPECT_EQ(dictionary.size(), 2U);
  EXPECT_FALSE(dictionary.empty());
  EXPECT_TRUE(Dictionary().empty());
}

TEST(PropertyListDictionary, SetKeepsThePlaceOfAKey) {
  Dictionary dictionary{{"z", 1}, {"a", 2}};
  dictionary.set("z", 3);
  EXPECT_EQ(dictionary.begin()->first, "z");
  EXPECT_EQ(dictionary.begin()->second, PropertyList(3));
}

TEST(PropertyListDictionary, EqualsOneOfAnotherOrder) {
  EXPECT_EQ((Dictionary{{"a", 1}, {"b", 2}}), (Dictionary{{"b", 2}, {"a", 1}}));
  EXPECT_NE((Dictionary{{"a", 1}, {"b", 2}}), (Dictionary{{"b", 1}, {"a", 2}}));
  EXPECT_NE((Dictionary{{"a", 1}}), (Dictionary{{"a", 1}, {"b", 2}}));
  EXPECT_NE((Dictionary{{"a", 1}, {"c", 2}}), (Dictionary{{"b", 2}, {"a", 1}}));
}

TEST(PropertyListDictionary, LastOfRepeatedKeysWins) {
  const Dictionary dictionary{{"a", 1}, {"b", 2}, {"a", 3}, {"c", 4}, {"a", 5}};
  EXPECT_EQ(dictionary, (Dictionary{{"a", 5}, {"b", 2}, {"c", 4}}));
  std::string keys;
  for (const auto& [key, value] : dictionary) keys += key;
  EXPECT_EQ(keys, "abc");
}

TEST(PropertyListDictionary, IsCopiedDeeply) {
  const Dictionary original{{"a", Array{1, 2}}};
  Dictionary copy = original;
  copy.set("a", 0);
  EXPECT_EQ(original, (Dictionary{{"a", Array{1, 2}}}));
}

TEST(PropertyListValue, ReadsAsTextWhereItHasOne) {
  EXPECT_EQ(PropertyList("text").text(), "text");
  EXPECT_EQ(PropertyList("").text(), "");
  EXPECT_EQ(PropertyList(1001).text(), "1001");
  EXPECT_EQ(PropertyList(-7).text(), "-7");
  PropertyList::Integer largest;
  largest.magnitude = std::numeric_limits<std::uint64_t>::max();
  EXPECT_EQ(PropertyList(largest).text(), "18446744073709551615");
  EXPECT_EQ(PropertyList(3.1).text(), "3.1");
  EXPECT_EQ(PropertyList(2.0).text(), "2");
  EXPECT_EQ(PropertyList(1e20).text(), "1e+20");
  EXPECT_EQ(PropertyList(true).text(), "1");
  EXPECT_EQ(PropertyList(false).text(), "0");
  EXPECT_EQ(PropertyList(PropertyList::Date{0}).text(), std::nullopt);
  EXPECT_EQ(PropertyList(PropertyList::Data{"1"}).text(), std::nullopt);
  EXPECT_EQ(PropertyList(Array{"1"}).text(), std::nullopt);
  EXPECT_EQ(PropertyList(Dictionary{{"1", "1"}}).text(), std::nullopt);
}

TEST(PropertyListDictionary, TellsTheTextUnderAKey) {
  const Dictionary dictionary{{"text", "t"}, {"number", 7}, {"array", Array{"t"}}};
  EXPECT_EQ(dictionary.text("text"), "t");
  EXPECT_EQ(dictionary.text("number"), "7");
  EXPECT_EQ(dictionary.text("array"), std::nullopt);
  EXPECT_EQ(dictionary.text("missing"), std::nullopt);
}

TEST(PropertyListValue, TypesAreDifferent) {
  EXPECT_NE(PropertyList(1), PropertyList(true));
  EXPECT_NE(PropertyList(1), PropertyList(1.0));
  EXPECT_NE(PropertyList("1"), PropertyList(1));
  EXPECT_NE(PropertyList(Array{}), PropertyList(Dictionary()));
  EXPECT_EQ(PropertyList(), PropertyList(""));
}

}  // namespace
}  // namespace qbdkr
