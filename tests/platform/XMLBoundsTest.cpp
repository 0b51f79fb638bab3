#include <gtest/gtest.h>

#include <string>
#include <string_view>

#include "Platform/XMLBounds.h"

namespace qbdkr::propertylist {
namespace {

constexpr std::size_t many = 1000;

std::string repeated(std::string_view text, std::size_t times) {
  std::string result;
  for (std::size_t i = 0; i < times; ++i) result += text;
  return result;
}

bool nestsNoDeeperThan(std::size_t levels, std::string_view xml) {
  return isBoundedXML(xml, many, levels);
}

TEST(XMLBounds, CountTheElementsThatAreOpenAtATime) {
  constexpr std::string_view list =
      "<plist><dict><key>a</key><array><string>b</string></array></dict></plist>";
  EXPECT_TRUE(nestsNoDeeperThan(4, list));
  EXPECT_FALSE(nestsNoDeeperThan(3, list));
  EXPECT_TRUE(nestsNoDeeperThan(1, repeated("<string>a</string>", many)));
  EXPECT_FALSE(nestsNoDeeperThan(many - 1, repeated("<array>", many)));
}

TEST(XMLBounds, CountTheElementsOfAllLevels) {
  EXPECT_TRUE(isBoundedXML(repeated("<string></string>", 10), 10, 1));
  EXPECT_FALSE(isBoundedXML(repeated("<string></string>", 11), 10, 1));
  EXPECT_FALSE(isBoundedXML(repeated("<true/>", 11), 10, 1));
}

TEST(XMLBounds, ElementsWithoutContentsAreNoLevel) {
  EXPECT_TRUE(nestsNoDeeperThan(1, "<array><true/><false /><dict/><array/></array>"));
  // With attributes nobody can tell what a reader makes of it.
  EXPECT_FALSE(nestsNoDeeperThan(1, "<array><array a=\"/\"/></array>"));
}

TEST(XMLBounds, WhatIsNoMarkupHidesNoLevel) {
  EXPECT_FALSE(nestsNoDeeperThan(3, repeated("<array><!-- </array> -->", 4)));
  EXPECT_FALSE(nestsNoDeeperThan(3, repeated("<array><![CDATA[</array>]]>", 4)));
  EXPECT_FALSE(nestsNoDeeperThan(3, repeated("<array><?a </array>?>", 4)));
  EXPECT_FALSE(nestsNoDeeperThan(3, repeated("<array><?></array>?>", 4)));
  EXPECT_FALSE(nestsNoDeeperThan(9, "<array a=\"</array></array>\">"));
  EXPECT_FALSE(nestsNoDeeperThan(9, "<array <array>>"));
}

TEST(XMLBounds, ATagThatEndsInAQuotationIsRefusedForWhatItMayHide) {
  EXPECT_FALSE(nestsNoDeeperThan(3, "<plist a=\"><!--\">" + repeated("<array>", 4) + "-->"));
  EXPECT_FALSE(nestsNoDeeperThan(9, "<plist a='\">'><true/></plist>"));
  EXPECT_FALSE(nestsNoDeeperThan(9, "<!DOCTYPE plist SYSTEM \"><!--\" [<!ENTITY a \"b\">]>-->"));
  EXPECT_TRUE(nestsNoDeeperThan(9, "<plist a=\"it's\" b='\"'><true/></plist>"));
}

TEST(XMLBounds, WhatIsNoMarkupIsNoLevel) {
  EXPECT_TRUE(nestsNoDeeperThan(1, "<string><!-- <a><b><c> --><![CDATA[<a><b><c>]]></string>"));
  EXPECT_TRUE(nestsNoDeeperThan(0, "<!-- <a><b> -->"));
  EXPECT_TRUE(nestsNoDeeperThan(0, "<!-- never ends <a><b>"));
  EXPECT_TRUE(nestsNoDeeperThan(0, "plain text"));
  EXPECT_TRUE(nestsNoDeeperThan(0, ""));
}

TEST(XMLBounds, ADocumentTypeMayNotDeclareAnything) {
  EXPECT_TRUE(nestsNoDeeperThan(
      1,
      "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<!DOCTYPE plist PUBLIC \"-//Apple//DTD PLIST "
      "1.0//EN\" \"http://www.apple.com/DTDs/PropertyList-1.0.dtd\">\n<plist></plist>"));
  EXPECT_FALSE(nestsNoDeeperThan(9, "<!DOCTYPE plist [<!ENTITY a \"b\">]><plist></plist>"));
  EXPECT_FALSE(nestsNoDeeperThan(9, "<!DOCTYPE plist [ ]><plist></plist>"));
  EXPECT_FALSE(nestsNoDeeperThan(9, "<plist><!DOCTYPE plist></plist>"));
  EXPECT_FALSE(nestsNoDeeperThan(9, "<!DOCTYPE plist SYSTEM \">\" [<!ENTITY a \"b\">]>"));
  EXPECT_FALSE(nestsNoDeeperThan(9, "<!-"));
  EXPECT_FALSE(nestsNoDeeperThan(9, "<!ENTITY a \"b\"><plist></plist>"));
}

TEST(XMLBounds, ATextThatEndsTooEarlyIsLeftToTheReader) {
  EXPECT_TRUE(nestsNoDeeperThan(1, "<"));
  EXPECT_TRUE(nestsNoDeeperThan(1, "<array"));
  EXPECT_TRUE(nestsNoDeeperThan(0, "</"));
  EXPECT_TRUE(nestsNoDeeperThan(0, "</a></a></a>"));
  EXPECT_TRUE(nestsNoDeeperThan(0, "<?"));
}

TEST(XMLDeclaration, IsTakenOff) {
  EXPECT_EQ(withoutXMLDeclaration("<?xml version=\"1.0\" encoding=\"UTF-16\"?>\n<plist/>"),
            "\n<plist/>");
  EXPECT_EQ(withoutXMLDeclaration(" \n<?xml?><plist/>"), "<plist/>");
  EXPECT_EQ(withoutXMLDeclaration("<plist/>"), "<plist/>");
  EXPECT_EQ(withoutXMLDeclaration("<?xml never ends"), "");
  EXPECT_EQ(withoutXMLDeclaration(""), "");
}

}  // namespace
}  // namespace qbdkr::propertylist
