#include <gtest/gtest.h>

#include <cstdint>
#include <limits>
#include <string>
#include <string_view>

#include <ClientComm/TextValue.h>

namespace qbdkr {
namespace {

using namespace std::string_view_literals;

constexpr std::int32_t largest = std::numeric_limits<std::int32_t>::max();
constexpr std::int32_t smallest = std::numeric_limits<std::int32_t>::min();

std::string repeated(std::string_view text, int count) {
  std::string result;
  for (int i = 0; i < count; ++i) result += text;
  return result;
}

TEST(IntValue, ReadsTheLeadingDigits) {
  EXPECT_EQ(intValue("0"), 0);
  EXPECT_EQ(intValue("7"), 7);
  EXPECT_EQ(intValue("300"), 300);
  EXPECT_EQ(intValue("0012"), 12);
  EXPECT_EQ(intValue("12abc"), 12);
  EXPECT_EQ(intValue("12.9"), 12);
  EXPECT_EQ(intValue("1 2"), 1);
  EXPECT_EQ(intValue("0x10"), 0);
}

TEST(IntValue, IsZeroWithoutLeadingDigits) {
  EXPECT_EQ(intValue(""), 0);
  EXPECT_EQ(intValue("abc"), 0);
  EXPECT_EQ(intValue("abc12"), 0);
  EXPECT_EQ(intValue("   "), 0);
  EXPECT_EQ(intValue("\t\n\v\f\r "), 0);
  EXPECT_EQ(intValue("-"), 0);
  EXPECT_EQ(intValue("+"), 0);
  EXPECT_EQ(intValue("."), 0);
}

TEST(IntValue, TakesBlanksThenOneSign) {
  EXPECT_EQ(intValue("-3"), -3);
  EXPECT_EQ(intValue("+3"), 3);
  EXPECT_EQ(intValue("  -12 "), -12);
  EXPECT_EQ(intValue("\t42"), 42);
  EXPECT_EQ(intValue("--3"), 0);
  EXPECT_EQ(intValue("+-3"), 0);
  EXPECT_EQ(intValue("- 3"), 0);
}

TEST(IntValue, IsClampedToThe32BitRange) {
  EXPECT_EQ(intValue("2147483647"), largest);
  EXPECT_EQ(intValue("2147483648"), largest);
  EXPECT_EQ(intValue("4294967296"), largest);
  EXPECT_EQ(intValue("99999999999"), largest);
  EXPECT_EQ(intValue("-2147483647"), smallest + 1);
  EXPECT_EQ(intValue("-2147483648"), smallest);
  EXPECT_EQ(intValue("-2147483649"), smallest);
  EXPECT_EQ(intValue("18446744073709551617"), largest);
  EXPECT_EQ(intValue("-18446744073709551617"), smallest);
}

TEST(IntValue, TakesDigitTextsOfAnyLength) {
  EXPECT_EQ(intValue(repeated("9", 1'000'000)), largest);
  EXPECT_EQ(intValue('-' + repeated("9", 1'000'000)), smallest);
  EXPECT_EQ(intValue(repeated("0", 1'000'000) + "5"), 5);
  EXPECT_EQ(intValue(repeated(" ", 1'000'000) + "6"), 6);
}

TEST(IntValue, ReadsDigitsOfEveryScript) {
  EXPECT_EQ(intValue("\uFF11\uFF12"), 12);         // full-width
  EXPECT_EQ(intValue("\u0661\u0662\u0663"), 123);  // Arabic-Indic
  EXPECT_EQ(intValue("-\u0967\u0968"), -12);       // Devanagari
  EXPECT_EQ(intValue("1\uFF12\u0663"), 123);
  EXPECT_EQ(intValue("\u00B2"), 0);      // superscript: a number, but no decimal digit
  EXPECT_EQ(intValue("\u2163"), 0);      // a Roman numeral
  EXPECT_EQ(intValue("\U0001D7D7"), 0);  // beyond the first plane: two halves, no digit
}

TEST(IntValue, TakesLeadingZerosOfEveryScript) {
  EXPECT_EQ(intValue("\uFF10\uFF10\uFF17"), 7);
  EXPECT_EQ(intValue(repeated("\uFF10", 1000) + "7"), 7);
  EXPECT_EQ(intValue("0" + repeated("\uFF10", 1000) + "\uFF18"), 8);
}

TEST(IntValue, TakesBytesThatAreNoText) {
  EXPECT_EQ(intValue("12\xFF"), 12);
  EXPECT_EQ(intValue("\xFF"
                     "12"),
            0);
  EXPECT_EQ(intValue("1\0002"sv), 1);
  EXPECT_EQ(intValue("\xEF\xBC"), 0);
}

TEST(BoolValue, IsTrueForTheLettersAndDigitsThatSayYes) {
  for (const std::string_view text : {"1", "9", "Y", "y", "T", "t", "YES", "yes", "true", "Tuesday",
                                      "5 o'clock", "  1", "\tY", "+1", "-1", "-t"}) {
    EXPECT_TRUE(boolValue(text)) << text;
  }
}

TEST(BoolValue, SkipsBlanksThenASignThenZeros) {
  EXPECT_TRUE(boolValue("0001"sv));
  EXPECT_TRUE(boolValue(" +0001"sv));
  EXPECT_TRUE(boolValue("-00Y"sv));
  EXPECT_FALSE(boolValue("+ 1"sv));
  EXPECT_FALSE(boolValue("--1"sv));
  EXPECT_FALSE(boolValue("0 1"sv));
  EXPECT_FALSE(boolValue("0+1"sv));
}

TEST(BoolValue, IsFalseForEverythingElse) {
  for (const std::string_view text :
       {""sv, "0"sv, "000"sv, "NO"sv, "no"sv, "N"sv, "false"sv, "on"sv, "   "sv, "-"sv, "+"sv,
        "\0"sv, "\xFF"sv, "\uFF11"sv, "xY"sv, ".1"sv}) {
    EXPECT_FALSE(boolValue(text)) << text;
  }
  EXPECT_FALSE(boolValue(std::string_view(repeated("0", 1'000'000))));
}

TEST(BoolValue, OfAPropertyListIsTheFlagTheNumberOrTheText) {
  EXPECT_TRUE(boolValue(PropertyList(true)));
  EXPECT_FALSE(boolValue(PropertyList(false)));
  EXPECT_TRUE(boolValue(PropertyList(1)));
  EXPECT_TRUE(boolValue(PropertyList(-1)));
  EXPECT_TRUE(boolValue(PropertyList(256)));
  EXPECT_FALSE(boolValue(PropertyList(0)));
  EXPECT_TRUE(boolValue(PropertyList(0.5)));
  EXPECT_FALSE(boolValue(PropertyList(0.0)));
  EXPECT_FALSE(boolValue(PropertyList(-0.0)));
  EXPECT_TRUE(boolValue(PropertyList("YES")));
  EXPECT_TRUE(boolValue(PropertyList("1")));
  EXPECT_FALSE(boolValue(PropertyList("NO")));
  EXPECT_FALSE(boolValue(PropertyList("")));
}

TEST(BoolValue, OfAnyOtherPropertyListIsFalse) {
  EXPECT_FALSE(boolValue(PropertyList(PropertyList::Array{true})));
  EXPECT_FALSE(boolValue(PropertyList(PropertyList::Dictionary{{"Y", true}})));
  EXPECT_FALSE(boolValue(PropertyList(PropertyList::Data{"1"})));
  EXPECT_FALSE(boolValue(PropertyList(PropertyList::Date{1})));
}

TEST(View, KeepsAbsentAndEmptyApart) {
  EXPECT_EQ(view(std::nullopt), std::nullopt);
  const String empty = "";
  ASSERT_TRUE(view(empty).has_value());
  EXPECT_EQ(*view(empty), "");
}

}  // namespace
}  // namespace qbdkr
