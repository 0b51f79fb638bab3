#include <gtest/gtest.h>

#include <string>
#include <vector>

#include <ClientComm/Exceptions.h>
#include <ClientComm/QBHPVersion.h>

#include "Platform/Text/Text.h"

namespace qbdkr {
namespace {

using Components = std::vector<std::u16string>;

// Compares both ways round.
void expectOrder(Text a, Text b, int expected) {
  EXPECT_EQ(compareVersion(a, b), expected)
      << a.value_or("(null)") << " to " << b.value_or("(null)");
  EXPECT_EQ(compareVersion(b, a), -expected)
      << b.value_or("(null)") << " to " << a.value_or("(null)");
}

TEST(TypeOfCharacter, IsThatOfTheFirstUnit) {
  EXPECT_EQ(typeOfCharacter(u"0"), CharacterType::digit);
  EXPECT_EQ(typeOfCharacter(u"9x"), CharacterType::digit);
  EXPECT_EQ(typeOfCharacter(u"x9"), CharacterType::other);
  EXPECT_EQ(typeOfCharacter(u"-"), CharacterType::other);
  EXPECT_EQ(typeOfCharacter(u" "), CharacterType::other);
  EXPECT_EQ(typeOfCharacter(u"-1"), CharacterType::other);
}

TEST(TypeOfCharacter, HasTheNumbersThatCallersKnow) {
  EXPECT_EQ(static_cast<int>(CharacterType::digit), 0);
  EXPECT_EQ(static_cast<int>(CharacterType::other), 1);
  EXPECT_EQ(static_cast<int>(CharacterType::dot), 2);
}

TEST(TypeOfCharacter, ADotIsOneOnlyWhenItStandsAlone) {
  EXPECT_EQ(typeOfCharacter(u"."), CharacterType::dot);
  EXPECT_EQ(typeOfCharacter(u".."), CharacterType::other);
  EXPECT_EQ(typeOfCharacter(u".1"), CharacterType::other);
}

TEST(TypeOfCharacter, DigitsAreThoseOfEveryScript) {
  EXPECT_EQ(typeOfCharacter(u"\uFF11"), CharacterType::digit);
  EXPECT_EQ(typeOfCharacter(u"\u0663"), CharacterType::digit);
  EXPECT_EQ(typeOfCharacter(u"\u00B2"), CharacterType::other);
  EXPECT_EQ(typeOfCharacter(u"\uFF0E"), CharacterType::other);  // a full-width dot is no dot
}

TEST(TypeOfCharacter, HalfACharacterIsOther) {
  EXPECT_EQ(typeOfCharacter(u"\U0001F600"), CharacterType::other);
  EXPECT_EQ(typeOfCharacter(u"\U0001D7D9"), CharacterType::other);  // a digit of two units
  EXPECT_EQ(typeOfCharacter(std::u16string(1, 0xD83D)), CharacterType::other);
  EXPECT_EQ(typeOfCharacter(std::u16string(1, 0xDE00)), CharacterType::other);
}

TEST(TypeOfCharacter, EmptyStringThrowsRangeException) {
  EXPECT_THROW((void)typeOfCharacter(u""), RangeException);
}

TEST(SplitVersionString, GathersRunsAndLeavesDotsAlone) {
  EXPECT_EQ(splitVersionString("1.0"), (Components{u"1", u".", u"0"}));
  EXPECT_EQ(splitVersionString("1..2"), (Components{u"1", u".", u".", u"2"}));
  EXPECT_EQ(splitVersionString("10b3"), (Components{u"10", u"b", u"3"}));
  EXPECT_EQ(splitVersionString("2.1.0-beta12"),
            (Components{u"2", u".", u"1", u".", u"0", u"-beta", u"12"}));
  EXPECT_EQ(splitVersionString("3.0 beta"), (Components{u"3", u".", u"0", u" beta"}));
  EXPECT_EQ(splitVersionString("..."), (Components{u".", u".", u"."}));
  EXPECT_EQ(splitVersionString(".5"), (Components{u".", u"5"}));
  EXPECT_EQ(splitVersionString("5."), (Components{u"5", u"."}));
  EXPECT_EQ(splitVersionString("b.c"), (Components{u"b", u".", u"c"}));
  EXPECT_EQ(splitVersionString("7"), (Components{u"7"}));
}

TEST(SplitVersionString, AbsentAndEmptyHaveNoComponents) {
  EXPECT_EQ(splitVersionString(std::nullopt), Components{});
  EXPECT_EQ(splitVersionString(""), Components{});
}

TEST(SplitVersionString, TakesCharactersOneUnitAtATime) {
  EXPECT_EQ(splitVersionString("1\U0001F6002"), (Components{u"1", u"\U0001F600", u"2"}));
  EXPECT_EQ(splitVersionString("\U0001D7D9"), (Components{u"\U0001D7D9"}));
  EXPECT_EQ(splitVersionString("\uFF11\uFF12.3"), (Components{u"\uFF11\uFF12", u".", u"3"}));
}

TEST(SplitVersionString, ComponentsJoinedAreTheText) {
  for (const char* version :
       {"1.0", "1..2", "a.b.c", "2.1.0-beta12", ". .", "\U0001F600.1x\u00E9"}) {
    std::u16string joined;
    for (const auto& component : splitVersionString(version)) joined += component;
    EXPECT_EQ(joined, utf16FromUTF8(version));
  }
}

TEST(CompareVersion, EqualTextsAreEqual) {
  for (const char* version : {"", "1", "1.0", "1.0b2", "...", "beta", "\U0001F600"}) {
    expectOrder(version, version, 0);
  }
}

TEST(CompareVersion, AbsentIsLikeEmpty) {
  expectOrder(std::nullopt, std::nullopt, 0);
  expectOrder(std::nullopt, "", 0);
  expectOrder(std::nullopt, "1.0", -1);
  expectOrder(std::nullopt, "beta", 1);
}

TEST(CompareVersion, EmptyOrdersBeforeANumberAndAfterLetters) {
  expectOrder("", "1.0", -1);
  expectOrder("", ".", -1);
  expectOrder("", "beta", 1);
}

TEST(CompareVersion, NumbersAreComparedAsNumbers) {
  expectOrder("1.10", "1.9", 1);
  expectOrder("1.01", "1.1", 0);
  expectOrder("01", "1", 0);
  expectOrder("2.0", "10.0", -1);
}

TEST(CompareVersion, GoingOnWithADotOrANumberIsNewer) {
  expectOrder("1.0", "1.0.0", -1);
  expectOrder("1.0", "1.0.1", -1);
  expectOrder("1", "1.", -1);
  expectOrder("b", "b1", -1);
}

TEST(CompareVersion, GoingOnWithLettersIsAPreRelease) {
  expectOrder("1.0", "1.0b2", 1);
  expectOrder("1.0", "1.0a", 1);
  expectOrder("1.0", "1.0-rc1", 1);
  expectOrder("1.0", "1.0 ", 1);
}

TEST(CompareVersion, PreReleasesAreOrderedByLettersThenNumber) {
  expectOrder("1.0b2", "1.0b10", -1);
  expectOrder("1.0a9", "1.0b1", -1);
  expectOrder("1.0b1", "1.0b1", 0);
}

TEST(CompareVersion, LettersRankBelowADotAndADotBelowANumber) {
  expectOrder("1.0beta", "1.0.1", -1);
  expectOrder("1.a", "1.1", -1);
  expectOrder("1..2", "1.2", -1);
  expectOrder("a", ".", -1);
  expectOrder(".", "1", -1);
  expectOrder("a", "1", -1);
}

TEST(CompareVersion, LettersAreComparedWithCase) {
  expectOrder("1.0a", "1.0A", 1);
  expectOrder("1.0Z", "1.0a", -1);
}

TEST(CompareVersion, CanonicallyEquivalentLettersAreEqual) {
  expectOrder("1.0\u00E9", "1.0e\u0301", 0);
  expectOrder("1.0\u212B", "1.0\u00C5", 0);
  expectOrder("1.0\u00E9", "1.0e", 1);
}

TEST(CompareVersion, NumbersBeyond32BitsAreClamped) {
  expectOrder("1.99999999999", "1.99999999998", 0);
  expectOrder("1.2147483647", "1.2147483648", 0);
  expectOrder("1.2147483646", "1.2147483647", -1);
  expectOrder("1.99999999999", "1.5", 1);
  expectOrder(std::string(100'000, '9'), std::string(99'999, '9'), 0);
}

TEST(CompareVersion, DigitsOfEveryScriptAreNumbers) {
  expectOrder("\uFF11.\uFF11\uFF10", "1.9", 1);
  expectOrder("1.\uFF12", "1.2", 0);
  expectOrder("1.\u0663", "1.2", 1);
}

TEST(CompareVersion, CharactersOfTwoUnitsAreLetters) {
  expectOrder("1.0\U0001F600", "1.0", -1);
  expectOrder("1.0\U0001F600", "1.0.1", -1);
  expectOrder("1.\U0001D7D9", "1.1", -1);  // a digit of two units is no number
  expectOrder("1.0\U0001F600", "1.0\U0001F601", -1);
}

TEST(CompareVersion, BytesThatAreNoTextAreLetters) {
  expectOrder("1.0\xFF", "1.0", -1);
  expectOrder("1.0\xFF", "1.0\xFE", 0);
}

TEST(CompareVersion, IsAnOrderOverMixedVersions) {
  const std::vector<const char*> ascending{"1.0a",  "1.0b1", "1.0b2", "1.0b10", "1.0",  "1.0.",
                                           "1.0.0", "1.0.1", "1.1",   "1.9",    "1.10", "2"};
  for (std::size_t i = 0; i < ascending.size(); ++i) {
    for (std::size_t j = i + 1; j < ascending.size(); ++j) {
      expectOrder(ascending[i], ascending[j], -1);
    }
  }
}

}  // namespace
}  // namespace qbdkr
