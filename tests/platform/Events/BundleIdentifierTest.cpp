#include <gtest/gtest.h>

#include <string>

#include "Platform/Events/BundleIdentifier.h"

namespace qbdkr {
namespace {

TEST(BundleIdentifier, HasElementsBetweenItsDots) {
  for (const std::string text :
       {"com.Acme.PhotoTool", "com.Acme", "Acme", "com.7zip", "a b.\u00E4"})
    EXPECT_TRUE(isBundleIdentifier(text)) << text;
  for (const std::string text : {"", ".", ".com", "com.", "com..Acme", ".."})
    EXPECT_FALSE(isBundleIdentifier(text)) << text;
}

TEST(BundleIdentifier, IsTextWithoutANUL) {
  EXPECT_FALSE(isBundleIdentifier(std::string("com\0Acme", 8)));
  EXPECT_FALSE(isBundleIdentifier("com.\xFF"));
  EXPECT_FALSE(isBundleIdentifier("com.\xC3"));
}

TEST(BundleIdentifier, Has255BytesAtMost) {
  EXPECT_TRUE(isBundleIdentifier(std::string(255, 'a')));
  EXPECT_FALSE(isBundleIdentifier(std::string(256, 'a')));
  // The bound counts bytes, not characters.
  std::string umlauts;
  for (int i = 0; i < 128; ++i) umlauts += "\u00E4";
  EXPECT_FALSE(isBundleIdentifier(umlauts));
}

}  // namespace
}  // namespace qbdkr
