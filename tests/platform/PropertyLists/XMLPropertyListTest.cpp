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
#include <variant>

#include <ClientComm/PropertyList.h>

#include "Platform/PropertyLists/PropertyListReader.h"
#include "Platform/PropertyLists/PropertyListWriter.h"
#include "Platform/PropertyLists/TextPropertyList.h"
#include "platform/PropertyLists/PropertyListSamples.h"
#include "support/Repeated.h"

namespace qbdkr {
namespace {

using namespace std::string_literals;
using Array = PropertyList::Array;
using Data = PropertyList::Data;
using Date = PropertyList::Date;
using Dictionary = PropertyList::Dictionary;
using test::bigEndian;
using test::integerWith;
using test::isRefused;
using test::nestedArrays;
using test::repeated;
using test::throughXML;

std::optional<PropertyList> xmlValue(std::string_view element) {
  return parsePropertyList("<plist version=\"1.0\">" + std::string(element) + "</plist>");
}

bool isXMLRefused(std::string_view element) { return !xmlValue(element); }

class DecimalComma : public std::numpunct<char> {
 protected:
  char do_decimal_point() const override { return ','; }
  std::string do_grouping() const override { return "\3"; }
};

// Sets a locale with a decimal comma, for C++ and, if one is installed, for C.
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

// Other readers make a private object of such a dictionary.
TEST(XMLPropertyList, IdentifiersOfArchivesAreDictionaries) {
  const auto list = xmlValue(
      "<array><true/><dict><key>CF$UID</key><integer>1</integer></dict><string>x</string></array>");
  EXPECT_EQ(list, PropertyList(Array{true, Dictionary{{"CF$UID", 1}}, "x"}));
  ASSERT_TRUE(list);
  EXPECT_EQ(throughXML(*list), list);
}

// XML has no form in which they could be written again.
TEST(XMLPropertyList, RefusesReferencesToControlCharacters) {
  EXPECT_EQ(xmlValue("<string>&#9;&#10;&#13;&#x7F;</string>"), PropertyList("\t\n\r\x7F"));
  EXPECT_EQ(throughXML("\t\n\r\x7F"), PropertyList("\t\n\r\x7F"));
  for (const std::string_view reference : {"&#0;", "&#x1;", "&#8;", "&#x1F;", "&#xFFFE;"}) {
    EXPECT_TRUE(isXMLRefused("<string>" + std::string(reference) + "</string>")) << reference;
    EXPECT_TRUE(isXMLRefused("<dict><key>" + std::string(reference) + "</key><true/></dict>"));
  }
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
  const std::size_t closed = xml->size() - 1;  // the last newline may be missing
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

}  // namespace
}  // namespace qbdkr
