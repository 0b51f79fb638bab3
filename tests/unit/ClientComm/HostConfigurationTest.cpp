#include <gtest/gtest.h>

#include "ClientComm/HostConfiguration.h"
#include "Host.h"

namespace qbdkr::test {
namespace {

String productIDOf(const PropertyList& stored) {
  return HostConfiguration(bundleWith({{"PID", stored}})).productID();
}

TEST(HostConfigurationTest, ProductIDIsTheTextAsItStands) {
  for (const char* stored : {"4711", "", " aB "}) EXPECT_EQ(productIDOf(stored), stored);
}

TEST(HostConfigurationTest, ProductIDThatIsANumberIsItsDigits) {
  EXPECT_EQ(productIDOf(1001), "1001");
  EXPECT_EQ(productIDOf(3.5), "3.5");
  EXPECT_EQ(productIDOf(true), "1");
  EXPECT_EQ(productIDOf(false), "0");
}

TEST(HostConfigurationTest, ProductIDWithoutATextIsAbsent) {
  EXPECT_EQ(productIDOf(PropertyList::Array{"4711"}), std::nullopt);
}

TEST(HostConfigurationTest, ProductIDIsAbsentWithoutTheKey) {
  EXPECT_EQ(HostConfiguration(bundleWith({{"CFBundleName", "Host"}})).productID(), std::nullopt);
}

}  // namespace
}  // namespace qbdkr::test
