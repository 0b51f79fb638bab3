#include <gtest/gtest.h>

#include <cmath>
#include <cstddef>
#include <cstdint>
#include <limits>
#include <string>
#include <variant>

#include "Platform/PropertyLists/PropertyListConversionMacOS.h"
#include "Platform/Text/CoreFoundationTextMacOS.h"
#include "macos/doubles/CFObject.h"
#include "platform/PropertyLists/PropertyListSamples.h"

namespace qbdkr {
namespace {

using Array = PropertyList::Array;
using Data = PropertyList::Data;
using Date = PropertyList::Date;
using Dictionary = PropertyList::Dictionary;
using test::integerWith;
using test::nestedArrays;
using test::twoTo63;

std::optional<PropertyList> thereAndBack(const PropertyList& list) {
  const auto made = propertyListFor(list);
  return made ? propertyListFrom(made.get()) : std::nullopt;
}

// An object that no property list can hold.
CFRef<CFURLRef> foreignObject() { return directoryURL("/"); }

// Each test ends with as many objects as it began with.
class PropertyListConversionMacOS : public testing::Test {
 protected:
  void TearDown() override { EXPECT_EQ(doubles::liveObjects(), before_); }

 private:
  const std::size_t before_ = doubles::liveObjects();
};

TEST_F(PropertyListConversionMacOS, KeepsEveryType) {
  const Dictionary list{{"array", Array{1, "two", Array{}}},
                        {"data", Data{std::string("\0\xFF", 2)}},
                        {"date", Date{-1.5}},
                        {"dictionary", Dictionary{{"", true}}},
                        {"false", false},
                        {"real", 0.1},
                        {"text", "Gr\u00FC\u00DFe \U0001F600"}};
  EXPECT_EQ(thereAndBack(list), PropertyList(list));
}

TEST_F(PropertyListConversionMacOS, IntegersBeyond64SignedBitsDoNotComeBackNegative) {
  for (const std::uint64_t magnitude : {twoTo63, twoTo63 + 5, 2 * (twoTo63 - 1) + 1}) {
    EXPECT_EQ(thereAndBack(integerWith(magnitude)), PropertyList(integerWith(magnitude)));
  }
}

TEST_F(PropertyListConversionMacOS, IntegersOf64SignedBitsAreKept) {
  for (const std::int64_t integer : {std::int64_t{-1}, std::int64_t{0}, std::int64_t{5},
                                     std::numeric_limits<std::int64_t>::max()}) {
    EXPECT_EQ(thereAndBack(integer), PropertyList(integer));
  }
  EXPECT_EQ(thereAndBack(integerWith(twoTo63, true)), PropertyList(integerWith(twoTo63, true)));
}

TEST_F(PropertyListConversionMacOS, ZeroKeepsItsSign) {
  const auto zero = thereAndBack(-0.0);
  ASSERT_TRUE(zero);
  EXPECT_TRUE(std::signbit(std::get<double>(zero->value())));
}

TEST_F(PropertyListConversionMacOS, DictionariesComeInTheOrderOfTheirKeys) {
  const auto made = propertyListFor(Dictionary{{"b", 1}, {"c", 2}, {"a", 3}});
  const auto list = propertyListFrom(made.get());
  ASSERT_TRUE(list);
  std::string keys;
  for (const auto& [key, value] : *list->dictionary()) keys += key;
  EXPECT_EQ(keys, "abc");
}

TEST_F(PropertyListConversionMacOS, DictionariesLeaveForeignObjectsOut) {
  const CFRef<CFMutableDictionaryRef> made(CFDictionaryCreateMutable(
      kCFAllocatorDefault, 0, &kCFTypeDictionaryKeyCallBacks, &kCFTypeDictionaryValueCallBacks));
  const auto text = stringFromText("text");
  CFDictionarySetValue(made.get(), text.get(), text.get());
  CFDictionarySetValue(made.get(), foreignObject().get(), text.get());
  const auto key = stringFromText("key");
  CFDictionarySetValue(made.get(), key.get(), foreignObject().get());
  EXPECT_EQ(dictionaryFrom(made.get()), (Dictionary{{"text", "text"}}));
}

TEST_F(PropertyListConversionMacOS, NothingElseHoldsAForeignObject) {
  EXPECT_EQ(propertyListFrom(foreignObject().get()), std::nullopt);
  const CFRef<CFMutableArrayRef> made(
      CFArrayCreateMutable(kCFAllocatorDefault, 0, &kCFTypeArrayCallBacks));
  CFArrayAppendValue(made.get(), foreignObject().get());
  EXPECT_EQ(propertyListFrom(made.get()), std::nullopt);
}

TEST_F(PropertyListConversionMacOS, NothingExceedsTheBounds) {
  EXPECT_EQ(thereAndBack(nestedArrays(256)), nestedArrays(256));
  EXPECT_FALSE(propertyListFor(nestedArrays(257)));
  const auto made = propertyListFor(Dictionary{{"k", Array{1, Array{2}}}});
  EXPECT_TRUE(propertyListFrom(made.get(), {.levels = 3, .values = 5}));
  EXPECT_EQ(propertyListFrom(made.get(), {.levels = 2, .values = 5}), std::nullopt);
  EXPECT_EQ(propertyListFrom(made.get(), {.levels = 3, .values = 4}), std::nullopt);
}

TEST_F(PropertyListConversionMacOS, NothingIsMadeOfTextThatIsNotUTF8) {
  EXPECT_FALSE(propertyListFor("\xFF"));
  EXPECT_FALSE(propertyListFor(Array{"\xFF"}));
  EXPECT_FALSE(propertyListFor(Dictionary{{"\xFF", 1}}));
}

TEST_F(PropertyListConversionMacOS, TextsKeepEveryUnit) {
  const std::string text("a\0\uFEFF\uFFFE\U0001F600", 12);
  EXPECT_EQ(thereAndBack(text), PropertyList(text));
  const std::u16string half(1, char16_t{0xD83D});
  EXPECT_EQ(unitsFromString(stringFromUnits(half).get()), half);
  EXPECT_EQ(textFromString(stringFromUnits(half).get()), "\uFFFD");
}

}  // namespace
}  // namespace qbdkr
