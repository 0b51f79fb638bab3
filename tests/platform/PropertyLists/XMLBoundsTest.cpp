#include <gtest/gtest.h>

#include <string>
#include <string_view>

#include "Platform/PropertyLists/XMLBounds.h"
#include "support/Repeated.h"

namespace qbdkr::propertylist {
namespace {

using test::repeated;

constexpr std::size_t many = 1000;

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
  // Readers may differ on an element with attributes.
  EXPECT_FALSE(nestsNoDeeperThan(1, "<array><array a=\"/\"/></array>"));
}

TEST(XMLBounds, WhatIsNoMarkupHidesNoLevel) {
  EXPECT_FALSE(nestsNoDeeperThan(3, repeated("<array><!-- </array> -->", 4)));
  EXPECT_FALSE(nestsNoDeeperThan(3, repeated("<array><![CDATA[</array>]]>", 4)));
  EXPECT_FALSE(nestsNoDeeperThan(3, repeated("<array><?a </array>?>", 4)));
  EXPECT_FALSE(nestsNoDeeperThan(9, "<array a=\"</array></array>\">"));
  EXPECT_FALSE(nestsNoDeeperThan(9, "<array <array>>"));
}

TEST(XMLBounds, ATagThatEndsInAQuotationIsRefusedForWhatItMayHide) {
  EXPECT_FALSE(nestsNoDeeperThan(3, "<plist a=\"><!--\">" + repeated("<array>", 4) + "-->"));
  EXPECT_FALSE(nestsNoDeeperThan(9, "<plist a='\">'><true/></plist>"));
  EXPECT_FALSE(nestsNoDeeperThan(9, "<!DOCTYPE plist SYSTEM \"><!--\" [<!ENTITY a \"b\">]>-->"));
  EXPECT_TRUE(nestsNoDeeperThan(9, "<plist a=\"it's\" b='\"'><true/></plist>"));
}

TEST(XMLBounds, TagsHaveABound) {
  const auto withAttribute = [](std::size_t size) {
    return "<plist a=\"" + std::string(size, 'a') + "\"></plist>";
  };
  EXPECT_TRUE(nestsNoDeeperThan(9, withAttribute(4000)));
  EXPECT_FALSE(nestsNoDeeperThan(9, withAttribute(5000)));
}

TEST(XMLBounds, ACommentOrInstructionThatEndsWhereItBeginsIsRefused) {
  for (const char* begin : {"<!-->", "<!--->", "<?>"}) {
    EXPECT_FALSE(nestsNoDeeperThan(9, std::string("<plist>") + begin + "</plist>")) << begin;
  }
  EXPECT_TRUE(nestsNoDeeperThan(9, "<plist><!----><!-- - --><?a?></plist>"));
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
            "<plist/>");
  EXPECT_EQ(withoutXMLDeclaration(" \n<?xml?><!-- a --><plist/>"), "<!-- a --><plist/>");
  EXPECT_EQ(withoutXMLDeclaration("<?xml?><?a?><plist/>"), "<?a?><plist/>");
  EXPECT_EQ(withoutXMLDeclaration("<plist/>"), "<plist/>");
}

TEST(XMLDeclaration, WhatIsNoXMLBehindItIsRefusedForWhatItMayBeToAReader) {
  for (const std::string_view text :
       {std::string_view("<?xml?>((((", 11), std::string_view("<?xml?>{a=b;}"),
        std::string_view("<?xml?><?xml version=\"1.0\" encoding=\"UTF-7\"?><plist/>"),
        std::string_view("<?xml?>\xEF\xBB\xBF<plist/>"), std::string_view("<?xml?>\0<plist/>", 16),
        std::string_view("<?xml?><\0p", 10), std::string_view("<plist><string>\0</string>", 25),
        std::string_view("<?xml?>"), std::string_view("<?xml never ends"), std::string_view()}) {
    EXPECT_EQ(withoutXMLDeclaration(text), std::nullopt) << text;
  }
}

}  // namespace
}  // namespace qbdkr::propertylist
