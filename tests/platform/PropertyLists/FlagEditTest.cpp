#include <gtest/gtest.h>

#include <limits>
#include <string>
#include <string_view>
#include <vector>

#include <ClientComm/PropertyList.h>

#include "Platform/PropertyLists/FlagEdit.h"
#include "Platform/PropertyLists/PropertyListBounds.h"
#include "Platform/PropertyLists/PropertyListReader.h"
#include "Platform/PropertyLists/PropertyListWriter.h"
#include "platform/PropertyLists/PropertyListSamples.h"

namespace qbdkr {
namespace {

using Array = PropertyList::Array;
using Dictionary = PropertyList::Dictionary;
using test::integerWith;
using test::nestedArrays;

constexpr std::string_view key = "Flag";

std::string written(const PropertyList& list) { return xmlPropertyList(list).value(); }

bool isEdited(std::string_view text) { return FlagEdit::find(text, key).has_value(); }

std::string replaced(std::string text, std::string_view from, std::string_view to) {
  const auto place = text.find(from);
  EXPECT_NE(place, std::string::npos) << from;
  return text.replace(place, from.size(), to);
}

// Every kind of value that is edited, with texts that need care.
Dictionary everything() {
  return {{"Text", "a <b> & \"c\" 'd' \r\n\te"},
          {"<&>", "ä€😀\u0085\u007f"},
          {"", ""},
          {"Numbers", Array{0, -7, integerWith(~std::uint64_t{0}), integerWith(test::twoTo63, true),
                            2.5, -1e300, std::numeric_limits<double>::infinity()}},
          {"Date", PropertyList::Date{694224000}},
          {"Empty", Array{Array{}, Dictionary{}}},
          {"Inside", Dictionary{{"Flag", "not this one"}, {"Text", true}}}};
}

void expectWhatIsWrittenOf(Dictionary list) {
  const std::string text = written(list);
  const auto edit = FlagEdit::find(text, key);
  ASSERT_TRUE(edit) << text;
  const PropertyList* const before = list.find(key);
  EXPECT_EQ(edit->flag(), before == nullptr ? std::nullopt : std::optional(*before == true));
  for (const bool flag : {true, false}) {
    list.set(key, flag);
    EXPECT_EQ(edit->with(flag), written(list));
  }
}

TEST(FlagEdit, GivesWhatIsWrittenOfTheChangedList) {
  Dictionary list = everything();
  expectWhatIsWrittenOf(list);
  list.set(key, true);
  expectWhatIsWrittenOf(list);
  list.set("Behind", Array{1, 2});
  expectWhatIsWrittenOf(list);
  expectWhatIsWrittenOf({{"Flag", false}, {"Other", "text"}});
  expectWhatIsWrittenOf({{"Flag", true}});
  expectWhatIsWrittenOf({{"Other", "text"}});
}

// Each of these texts is either no list, or another text than what is written of its list.
TEST(FlagEdit, LeavesOtherFormsToTheReader) {
  const std::string text = written(Dictionary{{"Flag", true}, {"Number", 7}, {"Text", "a > b"}});
  ASSERT_TRUE(isEdited(text));
  const std::vector<std::pair<std::string_view, std::string_view>> changes{
      {"<?xml", " <?xml"},
      {"UTF-8", "utf-8"},
      {"<dict>\n", "<dict><!-- -->\n"},
      {"<dict>\n", "<dict>\n\n"},
      {"\t<key>Flag", "<key>Flag"},
      {"\t<key>Flag", "\t\t<key>Flag"},
      {"\t<key>Flag", "    <key>Flag"},
      {"\t<true/>", "\t\t<true/>"},
      {"\t<true/>", "<true/>"},
      {"<true/>", "<true></true>"},
      {"<true/>", "<true />"},
      {"<integer>7", "<integer>+7"},
      {"<integer>7", "<integer>07"},
      {"<integer>7", "<integer> 7"},
      {"<integer>7", "<integer>0x7"},
      {"<integer>7", "<integer>"},
      {"a &gt; b", "a > b"},
      {"a &gt; b", "a &#62; b"},
      {"a &gt; b", "a &quot; b"},
      {"a &gt; b", "a &amp b"},
      {"a &gt; b", "a \r b"},
      {"a &gt; b", "a \x01 b"},
      {"a &gt; b", "a \xC0\x80 b"},
      {"a &gt; b", "a \xEF\xBF\xBF b"},
      {"a &gt; b", "<![CDATA[a]]>"},
      {"</string>", "</string >"},
      {"</string>", "</integer>"},
      {"</dict>", "\t</dict>"},
      {"</dict>", "</array>"},
      {"</dict>\n", "</dict>\n\n"},
      {"</plist>\n", "</plist>"},
      {"</plist>\n", "</plist>\n "},
      {"</plist>\n", ""},
  };
  for (const auto& [from, to] : changes) {
    EXPECT_FALSE(isEdited(replaced(text, from, to))) << from << " -> " << to;
  }
  for (std::size_t size = 0; size < text.size(); ++size) {
    EXPECT_FALSE(isEdited(std::string_view(text).substr(0, size))) << size;
  }
  EXPECT_FALSE(isEdited("\xEF\xBB\xBF" + text));
}

TEST(FlagEdit, LeavesRealsAndDatesOfOtherNotationsToTheReader) {
  const std::string text = written(Dictionary{{"Real", 2.5}, {"Date", PropertyList::Date{0}}});
  ASSERT_TRUE(isEdited(text));
  for (const std::string_view real : {"2.50", "+2.5", "25e-1", "", "two"}) {
    EXPECT_FALSE(isEdited(replaced(text, ">2.5<", ">" + std::string(real) + "<"))) << real;
  }
  for (const std::string_view date : {" 2001-01-01T00:00:00Z", "2001-13-01T00:00:00Z", ""}) {
    EXPECT_FALSE(isEdited(replaced(text, "2001-01-01T00:00:00Z", date))) << date;
  }
}

TEST(FlagEdit, LeavesOtherListsToTheReader) {
  EXPECT_FALSE(isEdited(written(Array{true})));
  EXPECT_FALSE(isEdited(written(true)));
  EXPECT_FALSE(isEdited(written(Dictionary{})));
  EXPECT_FALSE(isEdited(written(Dictionary{{"Data", PropertyList::Data{"bytes"}}})));
  EXPECT_FALSE(isEdited(""));
}

TEST(FlagEdit, LeavesValuesThatAreNoFlagsToTheReader) {
  for (const PropertyList& value : {PropertyList("1"), PropertyList(1), PropertyList(Array{}),
                                    PropertyList(Dictionary{{"a", true}})}) {
    EXPECT_FALSE(isEdited(written(Dictionary{{"Flag", value}})));
  }
}

// Of repeated keys, the reader takes the last value and the first place.
TEST(FlagEdit, LeavesRepeatedKeysToTheReader) {
  const std::string outside = written(Dictionary{{"a", 1}, {"b", 2}, {"c", 3}});
  EXPECT_FALSE(isEdited(replaced(outside, "<key>c<", "<key>a<")));
  const std::string inside = written(Dictionary{{"d", Dictionary{{"a", 1}, {"b", 2}}}, {"b", 0}});
  EXPECT_TRUE(isEdited(inside));
  EXPECT_FALSE(isEdited(replaced(inside, "<key>b<", "<key>a<")));
  const std::string flags = written(Dictionary{{"Flag", true}, {"Flug", false}});
  EXPECT_FALSE(isEdited(replaced(flags, "Flug", "Flag")));
}

TEST(FlagEdit, LeavesKeysThatNeedAnEscapeToTheReader) {
  const std::string text = written(Dictionary{{"a", true}});
  EXPECT_TRUE(FlagEdit::find(text, "ä"));
  for (const std::string_view other :
       {"a&b", "a<b", "a>b", "a\rb", "\x01", "\xFF", "\xEF\xBF\xBE"}) {
    EXPECT_FALSE(FlagEdit::find(text, other)) << other;
  }
}

TEST(FlagEdit, KeepsTheBoundOnLevels) {
  EXPECT_TRUE(isEdited(written(Dictionary{{"Deep", nestedArrays(255)}})));
  std::string deeper = written(Dictionary{{"Deep", nestedArrays(255)}});
  deeper = replaced(deeper, std::string(255, '\t') + "<array/>\n",
                    std::string(255, '\t') + "<array>\n" + std::string(256, '\t') + "<array/>\n" +
                        std::string(255, '\t') + "</array>\n");
  EXPECT_FALSE(parsePropertyList(deeper));
  EXPECT_FALSE(isEdited(deeper));
}

TEST(FlagEdit, KeepsTheBoundOnValues) {
  constexpr std::size_t most = propertylist::maximumValues;
  const auto listOf = [](std::size_t values) {
    return written(Dictionary{{"Flags", Array(values - 2, true)}});
  };
  const std::string full = listOf(most);
  const auto edit = FlagEdit::find(full, key);
  ASSERT_TRUE(edit);
  EXPECT_FALSE(edit->with(true));
  const std::string roomy = listOf(most - 1);
  EXPECT_TRUE(FlagEdit::find(roomy, key)->with(true));
  EXPECT_FALSE(isEdited(replaced(full, "\t\t<true/>\n", "\t\t<true/>\n\t\t<true/>\n")));
  // A flag that is there takes no more room.
  const std::string with = written(Dictionary{{"Flag", true}, {"Flags", Array(most - 3, true)}});
  EXPECT_TRUE(FlagEdit::find(with, key)->with(false));
}

TEST(FlagEdit, KeepsTheBoundOnBytes) {
  const std::string text = written(Dictionary{{"Text", ""}});
  const auto listOf = [&text](std::size_t size) {
    return replaced(text, "</string>", std::string(size - text.size(), 'x') + "</string>");
  };
  const std::string full = listOf(propertylist::maximumBytes);
  ASSERT_TRUE(isEdited(full));
  EXPECT_FALSE(FlagEdit::find(full, key)->with(true));
  EXPECT_FALSE(isEdited(listOf(propertylist::maximumBytes + 1)));
  constexpr std::size_t added = std::string_view("\t<key>Flag</key>\n\t<true/>\n").size();
  const std::string roomy = listOf(propertylist::maximumBytes - added);
  EXPECT_TRUE(FlagEdit::find(roomy, key)->with(true));
  EXPECT_FALSE(FlagEdit::find(roomy, key)->with(false));
}

}  // namespace
}  // namespace qbdkr
