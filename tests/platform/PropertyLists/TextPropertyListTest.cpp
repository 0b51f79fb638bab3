#include <gtest/gtest.h>

#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include <ClientComm/PropertyList.h>

#include "Platform/PropertyLists/PropertyListReader.h"
#include "Platform/PropertyLists/PropertyListWriter.h"
#include "Platform/PropertyLists/TextPropertyList.h"
#include "platform/PropertyLists/PropertyListSamples.h"

namespace qbdkr {
namespace {

using namespace std::string_literals;
using namespace std::string_view_literals;
using Array = PropertyList::Array;
using Data = PropertyList::Data;
using Dictionary = PropertyList::Dictionary;
using test::isRefused;
using test::utf16;

// Reads a text as the value of the only key, k.
std::optional<PropertyList> valueOf(const std::string& text) {
  const std::optional<PropertyList> list = parsePropertyList("k = " + text + ";");
  if (!list || !list->dictionary() || !list->dictionary()->find("k")) return std::nullopt;
  return *list->dictionary()->find("k");
}

TEST(StringsFileReader, ReadsPairs) {
  EXPECT_EQ(parsePropertyList("\"a\" = \"b\";\n\"c\"=\"d\";"),
            PropertyList(Dictionary{{"a", "b"}, {"c", "d"}}));
}

TEST(StringsFileReader, ReadsBareAndSingleQuotedKeysAndValues) {
  EXPECT_EQ(parsePropertyList("key_1 = /a/b.c:d-e$; 'k 2' = 'it \"is\"'; -3 = 4;"),
            PropertyList(Dictionary{{"key_1", "/a/b.c:d-e$"}, {"k 2", "it \"is\""}, {"-3", "4"}}));
}

TEST(StringsFileReader, KeepsTheOrderOfKeys) {
  const std::optional<PropertyList> list = parsePropertyList("z=1; a=2; m=3;");
  ASSERT_TRUE(list && list->dictionary());
  std::string keys;
  for (const auto& [key, value] : *list->dictionary()) keys += key;
  EXPECT_EQ(keys, "zam");
}

TEST(StringsFileReader, SkipsComments) {
  EXPECT_EQ(parsePropertyList("/* a = b; * / ** */ // \"x\n k /**/ = // y\r v /* z */ ; //"),
            PropertyList(Dictionary{{"k", "v"}}));
  EXPECT_EQ(valueOf("http://host/*x*/y"), std::nullopt);
  EXPECT_EQ(valueOf("http://host/y"), PropertyList("http://host/y"));
  EXPECT_EQ(valueOf("\"// no /* comment */\""), PropertyList("// no /* comment */"));
}

TEST(StringsFileReader, TakesUnicodeSeparatorsForSpace) {
  EXPECT_EQ(parsePropertyList("// c\u2028k\u2029=\u2028v;"), PropertyList(Dictionary{{"k", "v"}}));
}

TEST(StringsFileReader, DecodesEscapes) {
  EXPECT_EQ(valueOf(R"("\a\b\f\n\r\t\v\"\'\\\?")"), PropertyList("\a\b\f\n\r\t\v\"'\\?"));
  EXPECT_EQ(valueOf("\"a\\\nb\""), PropertyList("a\nb"));
}

TEST(StringsFileReader, DecodesOctalEscapesOfUpToThreeDigits) {
  EXPECT_EQ(valueOf(R"("\101\1012\7\08\12x")"), PropertyList("AA2\a\0"
                                                             "8\nx"sv));
}

TEST(StringsFileReader, DecodesHighOctalEscapesAsNextStep) {
  EXPECT_EQ(valueOf(R"("\200\201\267\341\373\275\376")"),
            PropertyList("\u00A0\u00C0\u2022\u00C6\u00DF\u2030\uFFFD"));
  EXPECT_EQ(valueOf(R"("\400")"), std::nullopt);
}

TEST(StringsFileReader, DecodesUnicodeEscapes) {
  EXPECT_EQ(valueOf(R"("\U263a\u263A\U41\U0041z\U00411")"), PropertyList("\u263A\u263AAAzA1"));
  EXPECT_EQ(valueOf(R"("\Ud83d\Ude00\ud83d\ude00")"), PropertyList("\U0001F600\U0001F600"));
}

TEST(StringsFileReader, ReplacesHalvesOfPairsInEscapes) {
  EXPECT_EQ(valueOf(R"("\Ud83d")"), PropertyList("\uFFFD"));
  EXPECT_EQ(valueOf(R"("\Ude00\Ud83d!")"), PropertyList("\uFFFD\uFFFD!"));
  EXPECT_EQ(valueOf(R"("\Ud83d\U0041")"), PropertyList("\uFFFDA"));
  EXPECT_EQ(valueOf(R"("\Ud83d\Ud83d\Ude00")"), PropertyList("\uFFFD\U0001F600"));
}

TEST(StringsFileReader, RefusesEscapesWithoutEnd) {
  EXPECT_TRUE(isRefused(R"(k = "\U";)"));
  EXPECT_TRUE(isRefused(R"(k = "\Ud83d\U";)"));
  EXPECT_TRUE(isRefused(R"(k = "\)"));
  EXPECT_TRUE(isRefused(R"(k = "\")"));
}

TEST(StringsFileReader, ReadsArraysDictionariesAndData) {
  EXPECT_EQ(valueOf("(a, \"b\", (), (c,),)"),
            PropertyList(Array{"a", "b", Array{}, Array{PropertyList("c")}}));
  EXPECT_EQ(valueOf("{ a = b; c = { }; }"),
            PropertyList(Dictionary{{"a", "b"}, {"c", Dictionary()}}));
  EXPECT_EQ(valueOf("<00fF 4\n1 >"), PropertyList(Data{"\0\xFF\x41"s}));
  EXPECT_EQ(valueOf("<>"), PropertyList(Data{}));
}

TEST(StringsFileReader, ReadsASoleValue) {
  EXPECT_EQ(parsePropertyList("{ a = b; } // c"), PropertyList(Dictionary{{"a", "b"}}));
  EXPECT_EQ(parsePropertyList(" (a)\n"), PropertyList(Array{PropertyList("a")}));
  EXPECT_EQ(parsePropertyList("<dead>"), PropertyList(Data{"\xDE\xAD"}));
  EXPECT_EQ(parsePropertyList("\"text\""), PropertyList("text"));
  EXPECT_EQ(parsePropertyList("text"), PropertyList("text"));
}

TEST(StringsFileReader, KeyWithoutValueStandsForItself) {
  EXPECT_EQ(parsePropertyList("\"k\"; b; c = d;"),
            PropertyList(Dictionary{{"k", "k"}, {"b", "b"}, {"c", "d"}}));
}

TEST(StringsFileReader, LastOfRepeatedKeysWins) {
  EXPECT_EQ(parsePropertyList("a = 1; b = 2; a = 3; \"a\" = 4;"),
            PropertyList(Dictionary{{"a", "4"}, {"b", "2"}}));
}

TEST(StringsFileReader, EmptyFileIsAnEmptyDictionary) {
  const PropertyList empty{Dictionary()};
  for (const std::string_view text :
       {""sv, " \n"sv, "// c"sv, "/* c */"sv, "\xEF\xBB\xBF"sv, "\xFF\xFE"sv, "\xFE\xFF"sv}) {
    EXPECT_EQ(parsePropertyList(text), empty) << text;
  }
}

TEST(StringsFileReader, OnlyTheLastSemicolonMayBeMissing) {
  EXPECT_EQ(parsePropertyList("a = b; c = d"), PropertyList(Dictionary{{"a", "b"}, {"c", "d"}}));
  EXPECT_EQ(parsePropertyList("{a = b}"), PropertyList(Dictionary{{"a", "b"}}));
  EXPECT_TRUE(isRefused("a = b c = d;"));
  EXPECT_TRUE(isRefused("\"a\" = \"b\"\n\"c\" = \"d\";"));
  EXPECT_TRUE(isRefused("\"a\" \"b\";"));
}

TEST(StringsFileReader, RefusesMalformedText) {
  for (const std::string_view text : {"a = ;"sv,
                                      "= b;"sv,
                                      ";"sv,
                                      "a = b;;"sv,
                                      "a == b;"sv,
                                      "a = b; }"sv,
                                      "{ a = b;"sv,
                                      "{ a = b; } c"sv,
                                      "{ a = b; };"sv,
                                      "(a b)"sv,
                                      "(,)"sv,
                                      "(a,,b)"sv,
                                      "(a"sv,
                                      "(a)(b)"sv,
                                      "<0>"sv,
                                      "<0g>"sv,
                                      "<00"sv,
                                      "<00> 1"sv,
                                      "\"a"sv,
                                      "'a\""sv,
                                      "k = \"a;\n"sv,
                                      "/* a"sv,
                                      "a = b; /* c"sv,
                                      "(a) = b;"sv,
                                      "{ (a) = b; }"sv,
                                      "a = b, c;"sv,
                                      "a = b ? c;"sv,
                                      "a=\u00FC;"sv,
                                      ")"sv,
                                      "@"sv,
                                      "a = @;"sv,
                                      "\"a\" = \"\xFF\";"sv,
                                      "a = \0;"sv}) {
    EXPECT_TRUE(isRefused(text)) << text;
  }
}

TEST(StringsFileReader, ReadsEveryEncodingWithAndWithoutMark) {
  const std::string text = "\"k\" = \"Gr\u00FC\u00DFe \u263A\U0001F600\";";
  const PropertyList expected(Dictionary{{"k", "Gr\u00FC\u00DFe \u263A\U0001F600"}});
  EXPECT_EQ(parsePropertyList(text), expected);
  EXPECT_EQ(parsePropertyList("\xEF\xBB\xBF" + text), expected);
  for (const bool isBigEndian : {false, true}) {
    for (const bool hasMark : {false, true}) {
      EXPECT_EQ(parsePropertyList(utf16(text, isBigEndian, hasMark)), expected);
    }
  }
}

TEST(StringsFileReader, RefusesBrokenUTF16) {
  EXPECT_TRUE(isRefused(utf16("a = b;", false, true) + "x"));
  EXPECT_TRUE(isRefused("\"\0\x3D\xD8\"\0"sv));  // half a pair between quotes
  EXPECT_TRUE(isRefused("\"\0\0\xDE\"\0"sv));
  EXPECT_TRUE(isRefused("\"\0\x3D\xD8"sv));
}

TEST(StringsFileReader, OtherFormsMayStandInAStringsFile) {
  const Dictionary dictionary{{"k", "v"}, {"n", 1}};
  const std::optional<std::string> xml = xmlPropertyList(dictionary);
  ASSERT_TRUE(xml);
  EXPECT_EQ(parsePropertyList(*xml), PropertyList(dictionary));
  EXPECT_EQ(parsePropertyList(utf16(*xml, false, true)), PropertyList(dictionary));
}

TEST(StringsFileReader, DeepNestingIsRefusedWithoutOverflow) {
  for (const std::string opening : {"(", "{a=", "k=("}) {
    std::string text;
    for (int i = 0; i < 100'000; ++i) text += opening;
    EXPECT_TRUE(isRefused(text));
  }
  const std::string closed = std::string(100'000, '(') + std::string(100'000, ')');
  EXPECT_TRUE(isRefused(closed));
}

TEST(StringsFileReader, AcceptsTwoHundredFiftySixLevelsAndNoMore) {
  EXPECT_FALSE(isRefused(std::string(256, '(') + std::string(256, ')')));
  EXPECT_TRUE(isRefused(std::string(257, '(') + std::string(257, ')')));
  EXPECT_FALSE(isRefused("k=" + std::string(255, '(') + std::string(255, ')') + ";"));
  EXPECT_TRUE(isRefused("k=" + std::string(256, '(') + std::string(256, ')') + ";"));
}

TEST(StringsFileReader, AcceptsAMillionValuesAndNoMore) {
  std::string text = "(";
  for (int i = 0; i < 999'999; ++i) text += "a,";
  EXPECT_FALSE(isRefused(text + ")"));
  EXPECT_TRUE(isRefused(text + "a)"));
}

TEST(StringsFileReader, ManyKeysDoNotTakeQuadraticTime) {
  std::string text;
  for (int i = 0; i < 500'000; ++i) text += "k" + std::to_string(i % 300'000) + ";";
  const std::optional<PropertyList> list = parsePropertyList(text);
  ASSERT_TRUE(list && list->dictionary());
  EXPECT_EQ(list->dictionary()->size(), 300'000U);
}

TEST(StringsFileWriter, WritesOnePairALine) {
  EXPECT_EQ(stringsFileText({{"k", "v"}, {"a b", ""}}), "\"k\" = \"v\";\n\"a b\" = \"\";\n");
  EXPECT_EQ(stringsFileText({}), "");
}

TEST(StringsFileWriter, EscapesOnlyWhatItMust) {
  EXPECT_EQ(stringsFileText({{"k", "\"\\\n\r\t'\a\x7F\u0085\u00A0\u2028\U0001F600/*"}}),
            "\"k\" = \"\\\"\\\\\\n\\r\\t'\\U0007\\U007f\\U0085\u00A0\u2028\U0001F600/*\";\n");
  EXPECT_EQ(stringsFileText({{"k", "\0"sv}}), "\"k\" = \"\\U0000\";\n");
}

TEST(StringsFileWriter, WhatItWritesIsReadBack) {
  std::string everything;
  for (char16_t unit = 0; unit < 0x300; ++unit) everything += utf8FromUTF16({&unit, 1});
  const Dictionary dictionary{{everything, everything}, {"", "\\U0041\\101"}, {"k;", "= }"}};
  const std::optional<std::string> text = stringsFileText(dictionary);
  ASSERT_TRUE(text);
  EXPECT_EQ(parsePropertyList(*text), PropertyList(dictionary));
  EXPECT_EQ(parsePropertyList(utf16(*text, false, true)), PropertyList(dictionary));
}

TEST(StringsFileWriter, WritesOtherValuesInTheirOldStyleForm) {
  const Dictionary dictionary{{"yes", true},
                              {"no", false},
                              {"n", -1},
                              {"r", 1.5},
                              {"d", PropertyList::Date{0}},
                              {"b", Data{"\0\xFF"s}},
                              {"a", Array{"x", Array{}, 2}},
                              {"s", Dictionary{{"k", "v"}, {"e", Dictionary()}}}};
  EXPECT_EQ(stringsFileText(dictionary),
            "\"yes\" = \"1\";\n\"no\" = \"0\";\n\"n\" = \"-1\";\n\"r\" = \"1.5\";\n"
            "\"d\" = \"2001-01-01T00:00:00Z\";\n\"b\" = <00ff>;\n\"a\" = (\"x\", (), \"2\");\n"
            "\"s\" = {\"k\" = \"v\"; \"e\" = {}; };\n");
}

TEST(StringsFileWriter, OldStyleValuesAreReadBack) {
  const Dictionary dictionary{{"b", Data{"\0\xFF"s}},
                              {"a", Array{"x", Array{}, Data{}, Dictionary{{"k", Array{}}}}}};
  const std::optional<std::string> text = stringsFileText(dictionary);
  ASSERT_TRUE(text);
  EXPECT_EQ(parsePropertyList(*text), PropertyList(dictionary));
}

TEST(StringsFileWriter, RefusesWhatIsNotUTF8) {
  EXPECT_EQ(stringsFileText({{"k", "\xFF"}}), std::nullopt);
  EXPECT_EQ(stringsFileText({{"\xED\xA0\x80", "v"}}), std::nullopt);
  EXPECT_EQ(stringsFileText({{"k", Array{PropertyList("\xC0\x80")}}}), std::nullopt);
}

TEST(StringsFileWriter, RefusesWhatItsReaderWouldRefuse) {
  PropertyList deep = Array{};
  for (int i = 0; i < 300; ++i) deep = Array{std::move(deep)};
  EXPECT_EQ(stringsFileText({{"k", deep}}), std::nullopt);
  EXPECT_EQ(stringsFileText({{"k", std::string(9 << 20, 'x')}}), std::nullopt);
  EXPECT_EQ(stringsFileText({{"k", PropertyList::Date{1e300}}}), std::nullopt);
  EXPECT_EQ(stringsFileText({{"k", Array(1'000'000)}}), std::nullopt);
}

TEST(StringsFileText, RealsAreAsShortAsTheyCanBeAndPlainWhereThatIsUsual) {
  for (const auto& [real, text] :
       std::vector<std::pair<double, std::string>>{{0, "0"},
                                                   {-0.0, "-0"},
                                                   {10, "10"},
                                                   {100, "100"},
                                                   {-1200000, "-1200000"},
                                                   {0.1, "0.1"},
                                                   {123.456, "123.456"},
                                                   {-2.25, "-2.25"},
                                                   {0.0001, "0.0001"},
                                                   {0.00001, "1e-05"},
                                                   {1e15, "1000000000000000"},
                                                   {1e16, "1e+16"},
                                                   {1.5e300, "1.5e+300"},
                                                   {5e-324, "5e-324"}}) {
    EXPECT_EQ(stringsFileText({{"k", real}}), "\"k\" = \"" + text + "\";\n");
  }
}

}  // namespace
}  // namespace qbdkr
