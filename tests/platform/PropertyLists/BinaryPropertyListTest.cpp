#include <gtest/gtest.h>

#include <cstddef>
#include <cstdint>
#include <limits>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include <ClientComm/PropertyList.h>

#include "Platform/PropertyLists/PropertyListBounds.h"
#include "Platform/PropertyLists/PropertyListReader.h"
#include "platform/PropertyLists/PropertyListSamples.h"

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
using test::throughXML;
using test::twoTo63;

// Lays out a binary list. A test can make each part wrong.
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

}  // namespace
}  // namespace qbdkr
