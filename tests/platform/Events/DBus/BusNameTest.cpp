#include <gtest/gtest.h>

#include <string>
#include <string_view>

#include "Platform/Events/DBus/BusName.h"

namespace qbdkr {
namespace {

TEST(BusName, AllowedIdentifiersAreTheirOwnNames) {
  for (const char* identifier : {"com.Acme.Helper", "a.b", "com.Acme.Photo_Tool", "com.Acme.Tool2",
                                 "_a._b", "com.Acme.a-b", "-a.-b"}) {
    EXPECT_EQ(busNameOfIdentifier(identifier), identifier);
  }
}

TEST(BusName, ALeadingDigitOfAnElementIsEscaped) {
  EXPECT_EQ(busNameOfIdentifier("com.7zip.a"), "com._37zip.a");
  EXPECT_EQ(busNameOfIdentifier("7zip.com"), "_37zip.com");
  EXPECT_EQ(busNameOfIdentifier("com.0"), "com._30");
  EXPECT_EQ(busNameOfIdentifier("com.77"), "com._377");
}

TEST(BusName, EachByteThatIsNotAllowedIsEscapedInLowerCase) {
  EXPECT_EQ(busNameOfIdentifier("com.Gr\u00FC\u00DFe"), "com.Gr_c3_bc_c3_9fe");
  EXPECT_EQ(busNameOfIdentifier("com.a b"), "com.a_20b");
  EXPECT_EQ(busNameOfIdentifier("com.a/b"), "com.a_2fb");
  EXPECT_EQ(busNameOfIdentifier("com.a:b"), "com.a_3ab");
  EXPECT_EQ(busNameOfIdentifier(":1.42"), "_3a1._342");
  EXPECT_EQ(busNameOfIdentifier(std::string_view("a.\0", 3)), "a._00");
}

TEST(BusName, NeedsTwoElementsAndNoneEmpty) {
  for (const char* identifier :
       {"", "com", ".", "..", ".com", "com.", "com..Helper", "a.b.", ".a.b"}) {
    EXPECT_EQ(busNameOfIdentifier(identifier), std::nullopt) << identifier;
  }
}

TEST(BusName, HasAtMost255Bytes) {
  EXPECT_EQ(busNameOfIdentifier("a." + std::string(253, 'b')), "a." + std::string(253, 'b'));
  EXPECT_EQ(busNameOfIdentifier("a." + std::string(254, 'b')), std::nullopt);
  // The bound holds for the name, not for the identifier.
  EXPECT_TRUE(busNameOfIdentifier("a." + std::string(84, '#') + 'b').has_value());
  EXPECT_EQ(busNameOfIdentifier("a." + std::string(84, '#') + "bb"), std::nullopt);
  EXPECT_EQ(busNameOfIdentifier(std::string(1'000'000, 'a')), std::nullopt);
}

}  // namespace
}  // namespace qbdkr
