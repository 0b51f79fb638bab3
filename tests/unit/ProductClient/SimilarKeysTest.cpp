#include <gtest/gtest.h>

#include "ClientComm/InfoKeys.h"
#include "ProductClient/SimilarKeys.h"

namespace qbdkr::test {
namespace {

using Dictionary = PropertyList::Dictionary;

TEST(SimilarKeysTest, DistanceCountsLettersAndDigitsAlone) {
  EXPECT_EQ(keyDistance("Helper App name", "helperappname", 9), 0U);
  EXPECT_EQ(keyDistance("Helper App name", "HELPER_APP-NAME", 9), 0U);
  EXPECT_EQ(keyDistance("PID", "PIDs", 9), 1U);
  EXPECT_EQ(keyDistance("PID", "PD", 9), 1U);
  EXPECT_EQ(keyDistance("PID", "PXD", 9), 1U);
  EXPECT_EQ(keyDistance("indentifiter", "identifier", 9), 2U);
  EXPECT_EQ(keyDistance("", "abc", 9), 3U);
  EXPECT_EQ(keyDistance("abc", "", 9), 3U);
  EXPECT_EQ(keyDistance("abcdef", "uvwxyz", 4), 4U);
}

TEST(SimilarKeysTest, FindsTheNearestKey) {
  const Dictionary keys{
      {"Helper Bundle identifer", "a"}, {"Helper Bundle identifier", "b"}, {"Helper Bundle", "c"}};
  EXPECT_EQ(keyMeantAs(infokey::helperBundleIdentifier, keys), "Helper Bundle identifier");
}

TEST(SimilarKeysTest, TakesNoKeyThatHasItsOwnMeaning) {
  EXPECT_EQ(keyMeantAs(infokey::heleprAppName, Dictionary{{"Helper App name", "a"}}), std::nullopt);
  EXPECT_EQ(keyMeantAs("CFBundleVersion", Dictionary{{"CFBundleName", "a"}}), std::nullopt);
}

TEST(SimilarKeysTest, TakesNoKeyThatIsFarAway) {
  EXPECT_EQ(keyMeantAs("PID", Dictionary{{"UID", "a"}}), std::nullopt);
  EXPECT_EQ(keyMeantAs("PID", Dictionary{{"pid", "a"}}), "pid");
  EXPECT_EQ(keyMeantAs(infokey::helperBundleIdentifier, Dictionary{{"Helper Bundle name", "a"}}),
            std::nullopt);
  EXPECT_EQ(keyMeantAs("PID", {}), std::nullopt);
}

TEST(SimilarKeysTest, IgnoresLongKeys) {
  EXPECT_EQ(keyMeantAs("PID", Dictionary{{"PID" + std::string(100'000, ' '), "a"}}), std::nullopt);
}

}  // namespace
}  // namespace qbdkr::test
