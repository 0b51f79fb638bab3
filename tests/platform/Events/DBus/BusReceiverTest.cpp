#include <gtest/gtest.h>

#include <cstddef>

#include "Platform/Events/DBus/BusReceiver.h"

namespace qbdkr {
namespace {

constexpr std::size_t megabyte = std::size_t{1} << 20U;

TEST(ParkingSpaceTest, TakesManySmallEvents) {
  ParkingSpace space;
  for (int i = 0; i < 63; ++i) space.take(0);
  EXPECT_FALSE(space.isFull());
  space.take(0);
  EXPECT_TRUE(space.isFull());
  space.giveBack(0);
  EXPECT_FALSE(space.isFull());
}

TEST(ParkingSpaceTest, TakesFewLargeEvents) {
  ParkingSpace space;
  space.take(megabyte);
  EXPECT_FALSE(space.isFull());
  space.take(megabyte);
  EXPECT_TRUE(space.isFull());
  space.giveBack(megabyte);
  EXPECT_FALSE(space.isFull());
  space.take(64 * megabyte);
  EXPECT_TRUE(space.isFull());
  space.giveBack(64 * megabyte);
  EXPECT_FALSE(space.isFull());
}

}  // namespace
}  // namespace qbdkr
