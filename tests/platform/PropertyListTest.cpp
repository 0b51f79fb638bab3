#include <gtest/gtest.h>

#include <clocale>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <limits>
#include <locale>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <variant>
#include <vector>

#include <ClientComm/PropertyList.h>

#include "Platform/PropertyLists/PropertyListBounds.h"
#include "Platform/PropertyLists/PropertyListReader.h"
#include "Platform/PropertyLists/PropertyListWriter.h"
#include "Platform/PropertyLists/TextPropertyList.h"
#include "Platform/Text/Text.h"

namespace qbdkr {
namespace {

using namespace std::string_literals;
using namespace std::string_view_literals;
using Array = PropertyList::Array;
using Data = PropertyList::Data;
using Date = PropertyList::Date;
using Dictionary = PropertyList::Dictionary;
using Integer = PropertyList::Integer;

constexpr std::uint64_t twoTo63 = std::uint64_t{1} << 63;

Integer integerWith(std::uint64_t magnitude, bool negative = false) {
  Integer integer;
  integer.magnitude = magnitude;
  integer.negative = negative;
  return integer;
}

bool isRefused(std::string_view bytes) { return !parsePropertyList(bytes); }

std::optional<PropertyList> xmlValue(std::string_view element) {
  return parsePropertyList("<plist version=\"1.0\">" + std::string(element) + "</plist>");
}

bool isXMLRefused(std::string_view element) { return !xmlValue(element); }

std::optional<PropertyList> throughXML(const PropertyList& list) {
  const std::optional<std::string> xml = xmlPropertyList(list);
  return xml ? parsePropertyList(*xml) : std::nullopt;
}

PropertyList nestedArrays(int levels) {
  PropertyList list = Array{};
  for (int i = 1; i < levels; ++i) {
    Array outer;
    outer.push_back(std::move(list));
    list = std::move(outer);
  }
  return list;
}

std::string repeated(std::string_view text, int times) {
  std::string all;
  for (int i = 0; i < times; ++i) all += text;
  return all;
}

std::string bigEndian(std::uint64_t value, std::size_t width) {
  std::string bytes(width, '\0');
  for (std::size_t i = 0; i < width && i < 8; ++i) {
    bytes[width - 1 - i] = static_cast<char>(value >> (8 * i) & 0xFF);
  }
  return bytes;
}

// A binary list laid out by hand, so that each of its parts can be wrong.
struct BinaryList {
  std::vector<std::string> objects;
  std::uint64_t top = 0;
  std::size_t referenceWidth = 1;
  std::size_t offsetWidth = 2;

  [[nodiscard]] std::string bytes() const {
    std::string list = "bplist00";
    std::string table;
    for (const std::string& object : objects) {
      table += bigEndian(list.size(), offsetWidth);
      list += object;
    }
    const std::size_t tablePlace = list.size();
    list += table + std::string(6, '\0');
    list += bigEndian(offsetWidth, 1) + bigEndian(referenceWidth, 1);
    return list + bigEndian(objects.size(), 8) + bigEndian(top, 8) + bigEndian(tablePlace, 8);
  }
};

std::optional<PropertyList> binaryValue(std::string object) {
  return parsePropertyList(BinaryList{{std::move(object)}}.bytes());
}

bool isBinaryRefused(std::vector<std::string> objects) {
  return isRefused(BinaryList{std::move(objects)}.bytes());
}

class DecimalComma : public std::numpunct<char> {
 protected:
  char do_decimal_point() const override { return ','; }
  std::string do_grouping() const override { return "\3"; }
};

// The program's locale, both of C++ and as far as one is installed of C, with a decimal comma.
class LocaleWithDecimalComma {
 public:
  LocaleWithDecimalComma()
      : previousC_(std::setlocale(LC_ALL, nullptr)),
        previous_(std::locale::global(std::locale(std::locale::classic(), new DecimalComma))) {
    for (const char* name : {"de_DE.UTF-8", "fr_FR.UTF-8", "de_DE", "fr_FR"}) {
      if (std::setlocale(LC_NUMERIC, name)) return;
    }
  }
  LocaleWithDecimalComma(const LocaleWithDecimalComma&) = delete;
  LocaleWithDecimalComma& operator=(const LocaleWithDecimalComma&) = delete;
  ~LocaleWithDecimalComma() {
    std::locale::global(previous_);
    std::setlocale(LC_ALL, previousC_.c_str());
  }

 private:
  std::string previousC_;
  std::locale previous_;
};

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

TEST(XMLPropertyList, ReadsEveryType) {
  EXPECT_EQ(xmlValue("<string>a &lt;b&gt; &#x1F600;<![CDATA[<c>]]></string>"),
            PropertyList("a <b> \U0001F600<c>"));
  EXPECT_EQ(xmlValue("<string/>"), PropertyList(""));
  EXPECT_EQ(xmlValue("<true/>"), PropertyList(true));
  EXPECT_EQ(xmlValue("<false></false>"), PropertyList(false));
  EXPECT_EQ(xmlValue("<integer> 12\n</integer>"), PropertyList(12));
  EXPECT_EQ(xmlValue("<real>-1.25e2</real>"), PropertyList(-125.0));
  EXPECT_EQ(xmlValue("<date>2001-01-02T00:00:01Z</date>"), PropertyList(Date{86401}));
  EXPECT_EQ(xmlValue("<data>\n\tAAEC\n\t/w==\n</data>"), PropertyList(Data{"\0\1\2\xFF"s}));
  EXPECT_EQ(xmlValue("<array><array/><dict/></array>"), PropertyList(Array{Array{}, Dictionary()}));
  EXPECT_EQ(xmlValue("<dict><key>k</key><string>v</string><key></key><true/></dict>"),
            PropertyList(Dictionary{{"k", "v"}, {"", true}}));
}

TEST(XMLPropertyList, KeepsTheSpaceOfTexts) {
  EXPECT_EQ(xmlValue("<string> \n\ta\n </string>"), PropertyList(" \n\ta\n "));
}

TEST(XMLPropertyList, ReadsIntegersOfEveryNotation) {
  EXPECT_EQ(xmlValue("<integer>+7</integer>"), PropertyList(7));
  EXPECT_EQ(xmlValue("<integer>0x1fF</integer>"), PropertyList(511));
  EXPECT_EQ(xmlValue("<integer>-0X10</integer>"), PropertyList(-16));
  EXPECT_EQ(xmlValue("<integer>-0</integer>"), PropertyList(0));
  EXPECT_EQ(xmlValue("<integer>007</integer>"), PropertyList(7));
}

TEST(XMLPropertyList, NegativeOneAndTwoToThe64MinusOneStayDifferent) {
  const std::uint64_t largest = std::numeric_limits<std::uint64_t>::max();
  const std::optional<PropertyList> one = xmlValue("<integer>-1</integer>");
  const std::optional<PropertyList> other = xmlValue("<integer>18446744073709551615</integer>");
  EXPECT_EQ(one, PropertyList(-1));
  EXPECT_EQ(other, PropertyList(integerWith(largest)));
  EXPECT_NE(one, other);
  EXPECT_EQ(throughXML(-1), one);
  EXPECT_EQ(throughXML(integerWith(largest)), other);
}

TEST(XMLPropertyList, RefusesIntegersOutOfRange) {
  EXPECT_EQ(xmlValue("<integer>-9223372036854775808</integer>"),
            PropertyList(std::numeric_limits<std::int64_t>::min()));
  EXPECT_TRUE(isXMLRefused("<integer>-9223372036854775809</integer>"));
  EXPECT_TRUE(isXMLRefused("<integer>18446744073709551616</integer>"));
  EXPECT_TRUE(isXMLRefused("<integer>0x10000000000000000</integer>"));
}

TEST(XMLPropertyList, RefusesMalformedIntegers) {
  for (const std::string_view text :
       {"", " ", "-", "+", "--1", "+-1", "1.5", "1 2", "0x", "0xg", "1a", "- 1", "0x-1"}) {
    EXPECT_TRUE(isXMLRefused("<integer>" + std::string(text) + "</integer>")) << text;
  }
}

TEST(XMLPropertyList, ReadsRealsThatAreNoNumbers) {
  constexpr double infinity = std::numeric_limits<double>::infinity();
  for (const std::string_view text : {"inf", "+inf", "infinity", "Infinity", "+INFINITY"}) {
    EXPECT_EQ(xmlValue("<real>" + std::string(text) + "</real>"), PropertyList(infinity)) << text;
  }
  EXPECT_EQ(xmlValue("<real>-infinity</real>"), PropertyList(-infinity));
  const std::optional<PropertyList> nan = xmlValue("<real>NaN</real>");
  ASSERT_TRUE(nan);
  EXPECT_TRUE(std::isnan(std::get<double>(nan->value())));
}

TEST(XMLPropertyList, RefusesMalformedReals) {
  for (const std::string_view text : {"", ".", "1,5", "1.5.2", "+-1", "nan(1)", "in", "infinityx",
                                      "0x1p3", "1e", "1e999", "1 2", "--1"}) {
    EXPECT_TRUE(isXMLRefused("<real>" + std::string(text) + "</real>")) << text;
  }
}

TEST(XMLPropertyList, RealsDoNotDependOnTheLocale) {
  const LocaleWithDecimalComma locale;
  EXPECT_EQ(xmlValue("<real>1.5</real>"), PropertyList(1.5));
  EXPECT_TRUE(isXMLRefused("<real>1,5</real>"));
  const std::optional<std::string> xml = xmlPropertyList(Array{1234.5, 1234567});
  ASSERT_TRUE(xml);
  EXPECT_NE(xml->find("<real>1234.5</real>"), std::string::npos);
  EXPECT_NE(xml->find("<integer>1234567</integer>"), std::string::npos);
  EXPECT_EQ(stringsFileText({{"k", 1234.5}}), "\"k\" = \"1234.5\";\n");
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

TEST(XMLPropertyList, RealsSurviveToTheLastBit) {
  for (const double real :
       {0.1, 1.0 / 3, 1e300, 5e-324, -0.0, 1e22, 123456789.0, std::numeric_limits<double>::max()}) {
    const std::optional<PropertyList> again = throughXML(real);
    ASSERT_TRUE(again);
    EXPECT_EQ(std::get<double>(again->value()), real);
    EXPECT_EQ(std::signbit(std::get<double>(again->value())), std::signbit(real));
  }
}

TEST(XMLPropertyList, RefusesMalformedDates) {
  for (const std::string_view text :
       {"", "2001-01-01", "2001-01-01T00:00:00", "2001-13-01T00:00:00Z", "2001-02-29T00:00:00Z",
        "2001-00-01T00:00:00Z", "2001-01-01T24:00:00Z", "2001-01-01T00:60:00Z",
        "2001-01-01T00:00:60Z", "2001-01-01T00:00:00.5Z", "2001-01-01T00:00:00+00:00",
        "01-01-01T00:00:00Z", "2001-01-01t00:00:00z", "-001-01-01T00:00:00Z"}) {
    EXPECT_TRUE(isXMLRefused("<date>" + std::string(text) + "</date>")) << text;
  }
}

TEST(XMLPropertyList, DatesReachFromYearZeroToYear9999) {
  EXPECT_EQ(xmlValue("<date>1970-01-01T00:00:00Z</date>"), PropertyList(Date{-978307200}));
  EXPECT_EQ(xmlValue("<date>2000-02-29T23:59:59Z</date>"), PropertyList(Date{-26438401}));
  for (const std::string_view text : {"0000-01-01T00:00:00Z", "9999-12-31T23:59:59Z"}) {
    const std::optional<PropertyList> date = xmlValue("<date>" + std::string(text) + "</date>");
    ASSERT_TRUE(date);
    const std::optional<std::string> xml = xmlPropertyList(*date);
    ASSERT_TRUE(xml);
    EXPECT_NE(xml->find(text), std::string::npos);
  }
}

TEST(XMLPropertyList, DatesLoseOnlyTheirFraction) {
  EXPECT_EQ(throughXML(Date{1.75}), PropertyList(Date{1}));
  EXPECT_EQ(throughXML(Date{-0.25}), PropertyList(Date{-1}));
}

TEST(XMLPropertyList, DatesThatCannotBeWrittenAreAbsent) {
  for (const double seconds :
       {1e300, -1e300, std::nan(""), std::numeric_limits<double>::infinity(), 3e11, -1e11}) {
    EXPECT_EQ(xmlPropertyList(Date{seconds}), std::nullopt) << seconds;
  }
}

TEST(XMLPropertyList, RefusesMalformedData) {
  for (const std::string_view text : {"A", "AA", "AAA", "AA=", "AA=A", "=",
                                      "====", "AAAA=", "A*==", "AAAA====", "A===", "\u00C4AAA"}) {
    EXPECT_TRUE(isXMLRefused("<data>" + std::string(text) + "</data>")) << text;
  }
  EXPECT_EQ(xmlValue("<data>A A = \r\n =</data>"), PropertyList(Data{"\0"s}));
  EXPECT_EQ(xmlValue("<data> </data>"), PropertyList(Data{}));
}

TEST(XMLPropertyList, LastOfRepeatedKeysWins) {
  EXPECT_EQ(xmlValue("<dict><key>a</key><true/><key>b</key><true/><key>a</key><false/></dict>"),
            PropertyList(Dictionary{{"a", false}, {"b", true}}));
}

TEST(XMLPropertyList, RefusesKeysAndValuesOutOfPlace) {
  EXPECT_TRUE(isXMLRefused("<dict><key>a</key></dict>"));
  EXPECT_TRUE(isXMLRefused("<dict><key>a</key><key>b</key><true/></dict>"));
  EXPECT_TRUE(isXMLRefused("<dict><true/></dict>"));
  EXPECT_TRUE(isXMLRefused("<dict><key>a</key><true/><true/></dict>"));
  EXPECT_TRUE(isXMLRefused("<array><key>a</key></array>"));
  EXPECT_TRUE(isXMLRefused("<key>a</key>"));
  EXPECT_TRUE(isXMLRefused("<true/><true/>"));
  EXPECT_TRUE(isXMLRefused(""));
}

TEST(XMLPropertyList, RefusesWrongElements) {
  EXPECT_TRUE(isXMLRefused("<null/>"));
  EXPECT_TRUE(isXMLRefused("<Array/>"));
  EXPECT_TRUE(isXMLRefused("<plist><true/></plist>"));
  EXPECT_TRUE(isXMLRefused("<string><b/></string>"));
  EXPECT_TRUE(isXMLRefused("<dict><key><string/></key><true/></dict>"));
  EXPECT_TRUE(isXMLRefused("<true>1</true>"));
  EXPECT_TRUE(isRefused("<?xml version=\"1.0\"?><dict/>"));
  EXPECT_TRUE(isRefused("<?xml version=\"1.0\"?><html/>"));
}

TEST(XMLPropertyList, RefusesTextOutsideElements) {
  EXPECT_TRUE(isXMLRefused("text<true/>"));
  EXPECT_TRUE(isXMLRefused("<true/>text"));
  EXPECT_TRUE(isXMLRefused("<array>text</array>"));
  EXPECT_TRUE(isXMLRefused("<array><![CDATA[text]]></array>"));
  EXPECT_TRUE(isXMLRefused("<dict>text<key>a</key><true/></dict>"));
  EXPECT_FALSE(isXMLRefused("\n<array>\n<!-- note --><true/>\n</array>\n"));
}

TEST(XMLPropertyList, RefusesTruncatedInputAtEveryLength) {
  const std::optional<std::string> xml = xmlPropertyList(Dictionary{{"k", Array{"v", 1, 2.5}}});
  ASSERT_TRUE(xml);
  const std::size_t closed = xml->size() - 1;  // the newline behind it is nobody's loss
  EXPECT_FALSE(isRefused(xml->substr(0, closed)));
  for (std::size_t length = 1; length < closed; ++length) {
    EXPECT_TRUE(isRefused(xml->substr(0, length))) << length;
  }
}

TEST(XMLPropertyList, RefusesTrailingGarbage) {
  const std::string xml = "<plist><true/></plist>";
  EXPECT_FALSE(isRefused(xml + "\n<!-- end -->"));
  EXPECT_TRUE(isRefused(xml + "x"));
  EXPECT_TRUE(isRefused(xml + xml));
  EXPECT_TRUE(isRefused(xml + "\0"s));
}

TEST(XMLPropertyList, RefusesWhatIsNotWellFormed) {
  EXPECT_TRUE(isXMLRefused("<array></dict>"));
  EXPECT_TRUE(isXMLRefused("<string>&</string>"));
  EXPECT_TRUE(isXMLRefused("<string>\x01</string>"));
  EXPECT_TRUE(isXMLRefused("<string>&#1;</string>"));
  EXPECT_TRUE(isXMLRefused("<string>\xFF</string>"));
  EXPECT_TRUE(isXMLRefused("<string>&#xD800;</string>"));
}

TEST(XMLPropertyList, AcceptsTheUsualDocumentType) {
  EXPECT_EQ(
      parsePropertyList(
          "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<!DOCTYPE plist PUBLIC \"-//Apple//DTD "
          "PLIST 1.0//EN\" \"http://www.apple.com/DTDs/PropertyList-1.0.dtd\">\n"
          "<plist version=\"1.0\"><true/></plist>"),
      PropertyList(true));
}

TEST(XMLPropertyList, RefusesEntitiesThatMultiply) {
  std::string bomb = "<!DOCTYPE plist [<!ENTITY a0 \"lol\">";
  for (int i = 1; i < 10; ++i) {
    const std::string reference = "&a" + std::to_string(i - 1) + ";";
    bomb += "<!ENTITY a" + std::to_string(i) + " \"" + repeated(reference, 10) + "\">";
  }
  EXPECT_TRUE(isRefused(bomb + "]><plist><string>&a9;</string></plist>"));
  EXPECT_TRUE(isRefused("<!DOCTYPE plist [<!ENTITY a \"b\">]><plist><true/></plist>"));
}

TEST(XMLPropertyList, RefusesExternalAndUnknownEntities) {
  EXPECT_TRUE(
      isRefused("<!DOCTYPE plist [<!ENTITY a SYSTEM \"file:///etc/passwd\">]>"
                "<plist><string>&a;</string></plist>"));
  EXPECT_TRUE(
      isRefused("<!DOCTYPE plist [<!ENTITY % a SYSTEM \"file:///etc/passwd\"> %a;]>"
                "<plist><true/></plist>"));
  EXPECT_TRUE(
      isRefused("<!DOCTYPE plist SYSTEM \"file:///etc/passwd\">"
                "<plist><string>&a;</string></plist>"));
  EXPECT_TRUE(isXMLRefused("<string>&a;</string>"));
}

TEST(XMLPropertyList, ReadsUTF16WhateverItDeclares) {
  const std::u16string xml =
      u"\uFEFF<?xml version=\"1.0\" encoding=\"UTF-16\"?><plist><string>\u263A\U0001F600</string>"
      u"</plist>";
  for (const bool isBigEndian : {false, true}) {
    for (const std::size_t first : {0U, 1U}) {
      std::string bytes;
      for (const char16_t unit : xml.substr(first)) {
        const std::string pair = bigEndian(unit, 2);
        bytes += isBigEndian ? pair : std::string(pair.rbegin(), pair.rend());
      }
      EXPECT_EQ(parsePropertyList(bytes), PropertyList("\u263A\U0001F600"));
    }
  }
}

TEST(XMLPropertyList, DeepNestingIsRefusedWithoutOverflow) {
  const std::string opening = repeated("<array>", 100'000);
  EXPECT_TRUE(isXMLRefused(opening));
  EXPECT_TRUE(isXMLRefused(opening + repeated("</array>", 100'000)));
  EXPECT_TRUE(isXMLRefused(repeated("<dict><key>k</key>", 100'000)));
  EXPECT_TRUE(isXMLRefused(repeated("<string>", 100'000)));
}

TEST(XMLPropertyList, AcceptsTwoHundredFiftySixLevelsAndNoMore) {
  EXPECT_EQ(throughXML(nestedArrays(256)), nestedArrays(256));
  EXPECT_TRUE(isXMLRefused(repeated("<array>", 257) + repeated("</array>", 257)));
  EXPECT_EQ(xmlPropertyList(nestedArrays(257)), std::nullopt);
}

TEST(XMLPropertyList, AcceptsAMillionValuesAndNoMore) {
  const std::string values = repeated("<true/>", 999'999);
  EXPECT_FALSE(isXMLRefused("<array>" + values + "</array>"));
  EXPECT_TRUE(isXMLRefused("<array>" + values + "<true/></array>"));
  EXPECT_TRUE(xmlPropertyList(Array(999'000, true)));
  EXPECT_EQ(xmlPropertyList(Array(1'000'000, true)), std::nullopt);
}

TEST(XMLPropertyList, AcceptsSixteenMebibytesAndNoMore) {
  const std::string frame = "<plist><string></string></plist>";
  const std::string text((16 << 20) - frame.size(), 'x');
  EXPECT_FALSE(isRefused("<plist><string>" + text + "</string></plist>"));
  EXPECT_TRUE(isRefused("<plist><string>x" + text + "</string></plist>"));
  EXPECT_EQ(xmlPropertyList(std::string(16 << 20, 'x')), std::nullopt);
  EXPECT_EQ(xmlPropertyList(Data{std::string(13 << 20, 'x')}), std::nullopt);
}

TEST(XMLPropertyList, ManyKeysDoNotTakeQuadraticTime) {
  std::string entries;
  for (int i = 0; i < 400'000; ++i) entries += "<key>" + std::to_string(i) + "</key><true/>";
  const std::optional<PropertyList> list = xmlValue("<dict>" + entries + "</dict>");
  ASSERT_TRUE(list && list->dictionary());
  EXPECT_EQ(list->dictionary()->size(), 400'000U);
}

TEST(XMLPropertyListWriter, WritesWithTabsInTheOrderGiven) {
  const Dictionary dictionary{
      {"z", Array{1, true, Array{}}}, {"a", "<&>"}, {"e", Dictionary()}, {"d", Data{"\0\1\2"s}}};
  EXPECT_EQ(xmlPropertyList(dictionary),
            "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n"
            "<!DOCTYPE plist PUBLIC \"-//Apple//DTD PLIST 1.0//EN\" "
            "\"http://www.apple.com/DTDs/PropertyList-1.0.dtd\">\n"
            "<plist version=\"1.0\">\n"
            "<dict>\n"
            "\t<key>z</key>\n"
            "\t<array>\n"
            "\t\t<integer>1</integer>\n"
            "\t\t<true/>\n"
            "\t\t<array/>\n"
            "\t</array>\n"
            "\t<key>a</key>\n"
            "\t<string>&lt;&amp;&gt;</string>\n"
            "\t<key>e</key>\n"
            "\t<dict/>\n"
            "\t<key>d</key>\n"
            "\t<data>\n"
            "\tAAEC\n"
            "\t</data>\n"
            "</dict>\n"
            "</plist>\n");
}

TEST(XMLPropertyListWriter, WhatItWritesIsReadBack) {
  std::string everyByte;
  for (int i = 0; i < 256; ++i) everyByte += static_cast<char>(i);
  const PropertyList list =
      Array{"",
            " a\r\n\tb\r ]]> \x7F\u0085\u2028\uFFFD\U0010FFFF",
            Data{everyByte},
            Data{"a"},
            Data{"ab"},
            Dictionary{{"\r<key>&\n", -1}, {"", Array{Dictionary(), 0.5, Date{-1}}}},
            integerWith(twoTo63),
            integerWith(twoTo63, true),
            std::numeric_limits<double>::infinity(),
            -std::numeric_limits<double>::infinity(),
            true,
            false};
  EXPECT_EQ(throughXML(list), list);
}

TEST(XMLPropertyListWriter, TextsThatCannotBeWrittenAreAbsent) {
  for (int code = 0; code < 0x20; ++code) {
    const std::string text(1, static_cast<char>(code));
    const bool hasPlace = code == '\t' || code == '\n' || code == '\r';
    EXPECT_EQ(xmlPropertyList(text).has_value(), hasPlace) << code;
    EXPECT_EQ(xmlPropertyList(Dictionary{{text, true}}).has_value(), hasPlace) << code;
  }
  for (const char* text : {"\xFF", "\xC3", "\xED\xA0\x80", "\xC0\x80", "\uFFFE", "\uFFFF"}) {
    EXPECT_EQ(xmlPropertyList(Array{PropertyList(text)}), std::nullopt);
    EXPECT_EQ(xmlPropertyList(Dictionary{{text, true}}), std::nullopt);
  }
}

TEST(XMLPropertyListWriter, IntegersBeyondTheRangeAreAbsent) {
  EXPECT_EQ(xmlPropertyList(integerWith(twoTo63 + 1, true)), std::nullopt);
  EXPECT_TRUE(xmlPropertyList(integerWith(twoTo63, true)));
}

TEST(BinaryPropertyList, ReadsIntegersOfEveryWidth) {
  EXPECT_EQ(binaryValue("\x10\xFF"s), PropertyList(255));
  EXPECT_EQ(binaryValue("\x11\xFF\xFF"s), PropertyList(65535));
  EXPECT_EQ(binaryValue("\x12\xFF\xFF\xFF\xFF"s), PropertyList(std::int64_t{4294967295}));
  EXPECT_EQ(binaryValue("\x13" + bigEndian(twoTo63, 8)),
            PropertyList(std::numeric_limits<std::int64_t>::min()));
  EXPECT_EQ(binaryValue("\x14" + bigEndian(5, 16)), PropertyList(5));
  EXPECT_EQ(binaryValue("\x14" + std::string(15, '\xFF') + "\xFE"), PropertyList(-2));
}

TEST(BinaryPropertyList, NegativeOneAndTwoToThe64MinusOneStayDifferent) {
  const std::string ones(8, '\xFF');
  const std::optional<PropertyList> one = binaryValue("\x13" + ones);
  const std::optional<PropertyList> other = binaryValue("\x14" + std::string(8, '\0') + ones);
  EXPECT_EQ(one, PropertyList(-1));
  EXPECT_EQ(other, PropertyList(integerWith(std::numeric_limits<std::uint64_t>::max())));
  EXPECT_NE(one, other);
}

TEST(BinaryPropertyList, RefusesIntegersOutOfRange) {
  EXPECT_TRUE(isBinaryRefused({"\x14" + bigEndian(1, 8) + bigEndian(0, 8)}));
  EXPECT_TRUE(isBinaryRefused({"\x14" + std::string(8, '\xFF') + bigEndian(0, 8)}));
  EXPECT_TRUE(isBinaryRefused({"\x15" + std::string(32, '\0')}));
}

TEST(BinaryPropertyList, ReadsTheOtherScalars) {
  EXPECT_EQ(binaryValue("\x08"), PropertyList(false));
  EXPECT_EQ(binaryValue("\x09"), PropertyList(true));
  EXPECT_EQ(binaryValue("\x22\x3F\xC0\0\0"s), PropertyList(1.5));
  EXPECT_EQ(binaryValue("\x23\xBF\xF8\0\0\0\0\0\0"s), PropertyList(-1.5));
  EXPECT_EQ(binaryValue("\x33\x3F\xF0\0\0\0\0\0\0"s), PropertyList(Date{1}));
  EXPECT_EQ(binaryValue("\x43\0\1\xFF"s), PropertyList(Data{"\0\1\xFF"s}));
  EXPECT_EQ(binaryValue("\x53"
                        "abc"),
            PropertyList("abc"));
  EXPECT_EQ(binaryValue("\x50"), PropertyList(""));
  EXPECT_EQ(binaryValue("\x63\x26\x3A\xD8\x3D\xDE\0"s), PropertyList("\u263A\U0001F600"));
  EXPECT_EQ(binaryValue("\x61\xD8\x3D"), PropertyList("\uFFFD"));
}

TEST(BinaryPropertyList, ReadsLongCounts) {
  const std::string text(300, 'x');
  EXPECT_EQ(binaryValue("\x5F\x11\x01\x2C" + text), PropertyList(text));
  EXPECT_EQ(binaryValue("\x5F\x13" + bigEndian(300, 8) + text), PropertyList(text));
  EXPECT_EQ(binaryValue("\x5F\x10\x02xy"), PropertyList("xy"));
}

TEST(BinaryPropertyList, ReadsContainers) {
  EXPECT_EQ(parsePropertyList(BinaryList{{"\xA2\1\2", "\x09", "\xA0"}}.bytes()),
            PropertyList(Array{true, Array{}}));
  EXPECT_EQ(parsePropertyList(BinaryList{{"\xC1\1", "\x09"}}.bytes()), PropertyList(Array{true}));
  EXPECT_EQ(parsePropertyList(BinaryList{
                {"\xD2\1\2\3\3",
                 "\x51"
                 "a",
                 "\x61\x26\x3A",
                 "\x10\7"}}.bytes()),
            PropertyList(Dictionary{{"a", 7}, {"\u263A", 7}}));
  EXPECT_EQ(binaryValue("\xD0"), PropertyList(Dictionary()));
}

TEST(BinaryPropertyList, ReadsIdentifiersAsDictionaries) {
  EXPECT_EQ(binaryValue("\x80\7"), PropertyList(Dictionary{{"CF$UID", 7}}));
  EXPECT_EQ(binaryValue("\x81\1\0"s), PropertyList(Dictionary{{"CF$UID", 256}}));
  EXPECT_TRUE(isBinaryRefused({"\x8F" + std::string(16, '\0')}));
}

TEST(BinaryPropertyList, LastOfRepeatedKeysWins) {
  EXPECT_EQ(parsePropertyList(BinaryList{{"\xD2\1\1\2\3", "\x51k", "\x08", "\x09"}}.bytes()),
            PropertyList(Dictionary{{"k", true}}));
}

TEST(BinaryPropertyList, NullMakesTheWholeListAbsent) {
  EXPECT_TRUE(isBinaryRefused({"\0"s}));
  EXPECT_TRUE(isBinaryRefused({"\xA1\1", "\0"s}));
}

TEST(BinaryPropertyList, RefusesUnknownObjects) {
  for (const int marker :
       {0x01, 0x0F, 0x0A, 0x20, 0x21, 0x24, 0x30, 0x32, 0x70, 0x90, 0xB0, 0xE0, 0xF0}) {
    EXPECT_TRUE(
        isBinaryRefused({std::string(1, static_cast<char>(marker)) + std::string(16, '\0')}))
        << marker;
  }
}

TEST(BinaryPropertyList, RefusesKeysThatAreNoTexts) {
  EXPECT_TRUE(isBinaryRefused({"\xD1\1\1", "\x10\1"}));
  EXPECT_TRUE(isBinaryRefused({"\xD1\1\2", "\x41k", "\x09"}));
}

TEST(BinaryPropertyList, RefusesTextThatIsNotASCII) { EXPECT_TRUE(isBinaryRefused({"\x51\xE9"})); }

TEST(BinaryPropertyList, RefusesDatesThatAreNoPointsInTime) {
  EXPECT_TRUE(isBinaryRefused({"\x33\x7F\xF8\0\0\0\0\0\0"s}));
  EXPECT_TRUE(isBinaryRefused({"\x33\x7F\xF0\0\0\0\0\0\0"s}));
}

TEST(BinaryPropertyList, RefusesObjectsThatReachIntoTheTable) {
  EXPECT_TRUE(
      isBinaryRefused({"\x52"
                       "a"}));
  EXPECT_TRUE(
      isBinaryRefused({"\x13"
                       "abc"}));
  EXPECT_TRUE(isBinaryRefused({"\x5F"}));
  EXPECT_TRUE(isBinaryRefused({"\x5F\x13" + bigEndian(~std::uint64_t{0}, 8)}));
  EXPECT_TRUE(isBinaryRefused({"\x6F\x13" + bigEndian(twoTo63, 8)}));
  EXPECT_TRUE(isBinaryRefused({"\xAF\x13" + bigEndian(~std::uint64_t{0} / 2, 8)}));
  EXPECT_TRUE(isBinaryRefused({"\xDF\x13" + bigEndian(twoTo63, 8)}));
  EXPECT_TRUE(isBinaryRefused({"\x5F\x14" + bigEndian(1, 16) + "a"}));
  EXPECT_TRUE(
      isBinaryRefused({"\x5F\x51"
                       "a"}));
}

TEST(BinaryPropertyList, RefusesReferencesToNothing) {
  EXPECT_TRUE(isBinaryRefused({"\xA1\1"}));
  EXPECT_TRUE(isBinaryRefused({"\xA1\xFF"}));
  EXPECT_TRUE(isBinaryRefused({"\xD1\1\2", "\x51k"}));
}

TEST(BinaryPropertyList, RefusesBrokenTrailers) {
  const std::string good = BinaryList{{"\xA1\1", "\x09"}}.bytes();
  ASSERT_FALSE(isRefused(good));
  const std::size_t trailer = good.size() - 32;
  const auto isRefusedWith = [&](std::size_t place, std::uint64_t value, std::size_t width) {
    std::string bad = good;
    bad.replace(trailer + place, width, bigEndian(value, width));
    return isRefused(bad);
  };
  for (const std::uint64_t width : {0U, 1U, 3U, 9U, 255U}) {
    EXPECT_TRUE(isRefusedWith(6, width, 1)) << width;
  }
  for (const std::uint64_t width : {0U, 2U, 9U, 255U}) {
    EXPECT_TRUE(isRefusedWith(7, width, 1)) << width;
  }
  for (const std::uint64_t number : {std::uint64_t{0}, std::uint64_t{1}, std::uint64_t{3}, twoTo63,
                                     ~std::uint64_t{0}, twoTo63 + 2}) {
    EXPECT_TRUE(isRefusedWith(8, number, 8)) << number;
    EXPECT_TRUE(number < 2 || isRefusedWith(16, number, 8)) << number;
    EXPECT_TRUE(isRefusedWith(24, number, 8)) << number;
  }
}

TEST(BinaryPropertyList, RefusesOffsetsOutsideTheObjects) {
  const std::string good = BinaryList{{"\xA1\1", "\x09"}}.bytes();
  const std::size_t table = good.size() - 32 - 4;
  for (const std::uint64_t offset :
       {std::uint64_t{0}, std::uint64_t{7}, std::uint64_t{table}, std::uint64_t{0xFFFF}}) {
    std::string bad = good;
    bad.replace(table + 2, 2, bigEndian(offset, 2));
    EXPECT_TRUE(isRefused(bad)) << offset;
  }
}

TEST(BinaryPropertyList, RefusesTruncatedInputAtEveryLength) {
  const std::string good = BinaryList{{"\xD1\1\2", "\x51k", "\x62\x26\x3A\x26\x3B"}}.bytes();
  ASSERT_FALSE(isRefused(good));
  for (std::size_t length = 6; length < good.size(); ++length) {
    EXPECT_TRUE(isRefused(good.substr(0, length))) << length;
  }
}

TEST(BinaryPropertyList, RefusesTrailingGarbage) {
  const std::string good = BinaryList{{"\x09"}}.bytes();
  EXPECT_TRUE(isRefused(good + "x"));
  EXPECT_TRUE(isRefused(good + good));
}

TEST(BinaryPropertyList, RefusesOtherVersions) {
  std::string list = BinaryList{{"\x09"}}.bytes();
  list.replace(0, 8, "bplist15");
  EXPECT_TRUE(isRefused(list));
  EXPECT_TRUE(isRefused("bplist"));
  EXPECT_TRUE(isRefused("bplist00"));
}

TEST(BinaryPropertyList, RefusesCycles) {
  EXPECT_TRUE(isBinaryRefused({"\xA1\0"s}));
  EXPECT_TRUE(isBinaryRefused({"\xAA" + std::string(10, '\0')}));
  EXPECT_TRUE(isBinaryRefused({"\xA1\1", "\xA1\2", "\xC1\0"s}));
  EXPECT_TRUE(isBinaryRefused({"\xD1\1\0"s, "\x51k"}));
}

TEST(BinaryPropertyList, SharedReferencesThatExpandToGigabytesAreRefused) {
  BinaryList bomb;
  for (char i = 1; i <= 9; ++i) bomb.objects.push_back("\xAA" + std::string(10, i));
  bomb.objects.push_back("\x55hello");
  ASSERT_LT(bomb.bytes().size(), 300U);
  EXPECT_TRUE(isRefused(bomb.bytes()));
}

TEST(BinaryPropertyList, TheBoundsAreThoseOfTheReader) {
  using propertylist::Bounds;
  const auto isRead = [](const std::string& list, const Bounds& bounds) {
    return propertylist::parseDictionary(list, bounds).has_value();
  };
  // A dictionary of an array, which holds a text twice.
  const std::string list = BinaryList{{"\xD1\1\2", "\x51k", "\xA2\3\3", "\x55hello"}}.bytes();
  EXPECT_TRUE(isRead(list, {list.size(), 2, 4, 11}));
  EXPECT_FALSE(isRead(list, {list.size() - 1, 2, 4, 11}));
  EXPECT_FALSE(isRead(list, {list.size(), 1, 4, 11}));
  EXPECT_FALSE(isRead(list, {list.size(), 2, 3, 11}));
  EXPECT_FALSE(isRead(list, {list.size(), 2, 4, 10}));
}

TEST(BinaryPropertyList, StandsForTwoValuesForEachOfItsBytesAtMost) {
  // An array holds an array 200 times, which holds a number 199 times; nothing holds the data.
  constexpr std::size_t values = 1 + 200 * (1 + 199);
  const auto list = [](std::size_t padding) {
    return BinaryList{{"\xAF\x11" + bigEndian(200, 2) + std::string(200, '\1'),
                       "\xAF\x11" + bigEndian(199, 2) + std::string(199, '\2'), "\x10\7",
                       "\x4F\x12" + bigEndian(padding, 4) + std::string(padding, 'x')},
                      0,
                      1,
                      4}
        .bytes();
  };
  const std::size_t padding = (values + 1) / 2 - list(0).size();
  ASSERT_EQ(list(padding).size(), (values + 1) / 2);
  EXPECT_EQ(parsePropertyList(list(padding)), Array(200, Array(199, 7)));
  EXPECT_TRUE(isRefused(list(padding - 1)));
}

TEST(BinaryPropertyList, OneLongTextNamedManyTimesIsRefused) {
  const std::string text = "\x5F\x12" + bigEndian(1 << 20, 4) + std::string(1 << 20, 'x');
  const std::string count = "\x12" + bigEndian(100'000, 4);
  EXPECT_TRUE(
      isRefused(BinaryList{{"\xAF" + count + std::string(100'000, '\1'), text}, 0, 1, 4}.bytes()));
  EXPECT_TRUE(isRefused(BinaryList{
      {"\xDF" + count + std::string(100'000, '\1') + std::string(100'000, '\2'), text, "\x09"},
      0,
      1,
      4}
                            .bytes()));
}

TEST(BinaryPropertyList, SharedReferencesAreCountedEachTime) {
  const auto list = [](std::uint64_t count) {
    return BinaryList{
        {"\xAF\x12" + bigEndian(count, 4) + std::string(static_cast<std::size_t>(count), '\1'),
         "\x09"},
        0,
        1,
        4}
        .bytes();
  };
  EXPECT_FALSE(isRefused(list(999'999)));
  EXPECT_TRUE(isRefused(list(1'000'000)));
}

TEST(BinaryPropertyList, DeepNestingIsRefusedWithoutOverflow) {
  const auto nested = [](std::uint64_t levels) {
    BinaryList list;
    list.referenceWidth = 4;
    list.offsetWidth = 4;
    for (std::uint64_t i = 1; i < levels; ++i) list.objects.push_back("\xA1" + bigEndian(i, 4));
    list.objects.emplace_back("\xA0");
    return list.bytes();
  };
  EXPECT_EQ(parsePropertyList(nested(256)), nestedArrays(256));
  EXPECT_TRUE(isRefused(nested(257)));
  EXPECT_TRUE(isRefused(nested(100'000)));
}

TEST(BinaryPropertyList, WhatItReadsCanBeWritten) {
  // An identifier is one object but a level of its own.
  const auto identifierWithin = [](int levels) {
    BinaryList list;
    list.referenceWidth = 2;
    for (int i = 1; i <= levels; ++i) {
      list.objects.push_back("\xA1" + bigEndian(static_cast<std::uint64_t>(i), 2));
    }
    list.objects.emplace_back("\x80\5");
    return list.bytes();
  };
  const std::optional<PropertyList> read = parsePropertyList(identifierWithin(255));
  ASSERT_TRUE(read);
  EXPECT_EQ(throughXML(*read), read);
  EXPECT_TRUE(isRefused(identifierWithin(256)));
}

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

}  // namespace
}  // namespace qbdkr
