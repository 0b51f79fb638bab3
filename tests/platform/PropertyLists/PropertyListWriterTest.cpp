#include <gtest/gtest.h>

#include <limits>
#include <optional>
#include <string>

#include <ClientComm/PropertyList.h>

#include "Platform/PropertyLists/PropertyListWriter.h"
#include "platform/PropertyLists/PropertyListSamples.h"

namespace qbdkr {
namespace {

using namespace std::string_literals;
using Array = PropertyList::Array;
using Data = PropertyList::Data;
using Date = PropertyList::Date;
using Dictionary = PropertyList::Dictionary;
using test::integerWith;
using test::throughXML;
using test::twoTo63;

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

}  // namespace
}  // namespace qbdkr
