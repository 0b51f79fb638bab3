#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <string>
#include <variant>

#include "Platform/PropertyLists/NativeReal.h"
#include "Platform/PropertyLists/PropertyListScalars.h"
#include "platform/PropertyLists/PropertyListSamples.h"

namespace qbdkr {
namespace {

using propertylist::realFromText;
using propertylist::scientificText;
using propertylist::textFromReal;

TEST(NativeRealMacOS, RealsSurviveXMLToTheLastBit) {
  for (const double real :
       {0.0, -0.0, 0.1, 1.0 / 3, 1e300, 5e-324, -1e22, std::numeric_limits<double>::max()}) {
    const auto again = test::throughXML(real);
    ASSERT_TRUE(again);
    EXPECT_EQ(std::get<double>(again->value()), real);
    EXPECT_EQ(std::signbit(std::get<double>(again->value())), std::signbit(real));
  }
}

TEST(NativeRealMacOS, WritesTheFewestDigits) {
  EXPECT_EQ(scientificText(0.1), "1e-01");
  EXPECT_EQ(scientificText(-0.0), "-0e+00");
  EXPECT_EQ(scientificText(1234.5), "1.2345e+03");
  EXPECT_EQ(textFromReal(1.0 / 3), "0.3333333333333333");
}

TEST(NativeRealMacOS, ReadsOnlyWholeDecimalNumbers) {
  EXPECT_EQ(realFromText("-1.25e2"), -125.0);
  EXPECT_EQ(realFromText("+.5"), 0.5);
  EXPECT_EQ(realFromText("5."), 5.0);
  for (const char* text : {"", ".", "1,5", "1.5.2", "+-1", "nan(1)", "in", "infinityx", "0x1p3",
                           "1e", "e5", "1 2", " 1", "1 ", "--1"}) {
    EXPECT_EQ(realFromText(text), std::nullopt) << text;
  }
  EXPECT_EQ(realFromText(std::string_view("1\0", 2)), std::nullopt);
}

TEST(NativeRealMacOS, RefusesWhatIsOutOfRange) {
  EXPECT_EQ(realFromText("1e999"), std::nullopt);
  EXPECT_EQ(realFromText("-1e-999"), std::nullopt);
  EXPECT_EQ(realFromText("0.0e-999"), 0.0);
  EXPECT_EQ(realFromText("0e5"), 0.0);
}

}  // namespace
}  // namespace qbdkr
