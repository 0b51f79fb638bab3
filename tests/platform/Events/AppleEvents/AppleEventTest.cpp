#include <gtest/gtest.h>

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <limits>
#include <string>
#include <utility>

#include <ClientComm/AppleEvent.h>

namespace qbdkr {
namespace {

AppleEventDescriptor text(const char* value) { return AppleEventDescriptor::withString(value); }

AppleEventDescriptor listOfTexts(std::initializer_list<const char*> values) {
  auto list = AppleEventDescriptor::list();
  for (const char* value : values) list.insertDescriptor(text(value), 0);
  return list;
}

AppleEventDescriptor processAddress(std::int32_t processID) {
  std::string bytes(sizeof processID, '\0');
  std::memcpy(bytes.data(), &processID, sizeof processID);
  return AppleEventDescriptor::withBytes(typeKernelProcessID, bytes);
}

TEST(AppleEventCodes, AreTheirASCIIInBigEndian) {
  EXPECT_EQ(typeNull, 0x6E756C6CU);
  EXPECT_EQ(typeUnicodeText, 0x75747874U);
  EXPECT_EQ(typeAEList, 0x6C697374U);
  EXPECT_EQ(typeApplicationBundleID, 0x62756E64U);
  EXPECT_EQ(typeProcessSerialNumber, 0x70736E20U);
  EXPECT_EQ(kCoreEventClass, 0x61657674U);
  EXPECT_EQ(kAECall, 0x63616C6CU);
  EXPECT_EQ(keyDirectObject, 0x2D2D2D2DU);
  EXPECT_EQ(keyAddressAttr, 0x61646472U);
}

TEST(AppleEventDescriptorTest, TheDefaultIsTheNullDescriptor) {
  const AppleEventDescriptor null;
  EXPECT_EQ(null.descriptorType(), typeNull);
  EXPECT_EQ(null.data(), "");
  EXPECT_EQ(null.stringValue(), std::nullopt);
  EXPECT_EQ(null.numberOfItems(), 0U);
  EXPECT_EQ(null.descriptorAtIndex(1), nullptr);
}

TEST(AppleEventDescriptorTest, TextIsTextAndNothingElseIs) {
  EXPECT_EQ(text("\u263A").stringValue(), "\u263A");
  EXPECT_EQ(text("").stringValue(), "");
  EXPECT_EQ(AppleEventDescriptor::withBytes(fourCharCode("long"), "abcd").stringValue(),
            std::nullopt);
  EXPECT_EQ(AppleEventDescriptor::list().stringValue(), std::nullopt);
}

TEST(AppleEventDescriptorTest, BytesAreKeptAsTheyAre) {
  const std::string bytes("a\0\xFF", 3);
  const auto descriptor = AppleEventDescriptor::withBytes(fourCharCode("bund"), bytes);
  EXPECT_EQ(descriptor.descriptorType(), typeApplicationBundleID);
  EXPECT_EQ(descriptor.data(), bytes);
}

TEST(AppleEventDescriptorTest, ListIndexesBeginAtOne) {
  const auto list = listOfTexts({"a", "b"});
  EXPECT_EQ(list.numberOfItems(), 2U);
  EXPECT_EQ(list.descriptorAtIndex(0), nullptr);
  ASSERT_NE(list.descriptorAtIndex(1), nullptr);
  EXPECT_EQ(*list.descriptorAtIndex(1), text("a"));
  EXPECT_EQ(*list.descriptorAtIndex(2), text("b"));
  EXPECT_EQ(list.descriptorAtIndex(3), nullptr);
  EXPECT_EQ(list.descriptorAtIndex(std::numeric_limits<std::size_t>::max()), nullptr);
}

TEST(AppleEventDescriptorTest, InsertReplacesAnItemThatIsThere) {
  auto list = listOfTexts({"a", "b"});
  EXPECT_TRUE(list.insertDescriptor(text("c"), 1));
  EXPECT_EQ(list, listOfTexts({"c", "b"}));
}

TEST(AppleEventDescriptorTest, InsertAppendsBehindTheLastAndAtZero) {
  auto list = AppleEventDescriptor::list();
  EXPECT_TRUE(list.insertDescriptor(text("a"), 1));
  EXPECT_TRUE(list.insertDescriptor(text("b"), 2));
  EXPECT_TRUE(list.insertDescriptor(text("c"), 0));
  EXPECT_EQ(list, listOfTexts({"a", "b", "c"}));
}

TEST(AppleEventDescriptorTest, InsertFurtherOutChangesNothing) {
  auto list = listOfTexts({"a"});
  EXPECT_FALSE(list.insertDescriptor(text("b"), 3));
  EXPECT_FALSE(list.insertDescriptor(text("b"), std::numeric_limits<std::size_t>::max()));
  EXPECT_EQ(list, listOfTexts({"a"}));
}

TEST(AppleEventDescriptorTest, InsertIntoWhatIsNoListChangesNothing) {
  auto string = text("a");
  EXPECT_FALSE(string.insertDescriptor(text("b"), 0));
  EXPECT_FALSE(string.insertDescriptor(text("b"), 1));
  EXPECT_EQ(string, text("a"));
  AppleEventDescriptor null;
  EXPECT_FALSE(null.insertDescriptor(text("b"), 1));
  EXPECT_EQ(null, AppleEventDescriptor());
}

TEST(AppleEventDescriptorTest, CopiesAreDeep) {
  auto original = listOfTexts({"a"});
  const auto copy = original;
  original.insertDescriptor(text("b"), 1);
  EXPECT_EQ(copy, listOfTexts({"a"}));
}

TEST(AppleEventDescriptorTest, EqualityIsThatOfTypeBytesAndItems) {
  EXPECT_EQ(text("a"), text("a"));
  EXPECT_NE(text("a"), text("b"));
  EXPECT_NE(text("a"), AppleEventDescriptor::withBytes(typeApplicationBundleID, "a"));
  EXPECT_NE(listOfTexts({"a"}), listOfTexts({"a", "a"}));
  EXPECT_NE(listOfTexts({}), AppleEventDescriptor());
}

TEST(AppleEventCoercion, ToItsOwnTypeIsItself) {
  EXPECT_EQ(text("a").coerceToDescriptorType(typeUnicodeText), text("a"));
  EXPECT_EQ(AppleEventDescriptor().coerceToDescriptorType(typeNull), AppleEventDescriptor());
  EXPECT_EQ(listOfTexts({"a"}).coerceToDescriptorType(typeAEList), listOfTexts({"a"}));
}

TEST(AppleEventCoercion, AProcessAddressBecomesEightBytesInBigEndian) {
  EXPECT_EQ(
      processAddress(0x01020304).coerceToDescriptorType(typeProcessSerialNumber),
      AppleEventDescriptor::withBytes(typeProcessSerialNumber, std::string("\0\0\0\0\1\2\3\4", 8)));
  EXPECT_EQ(
      processAddress(1).coerceToDescriptorType(typeProcessSerialNumber),
      AppleEventDescriptor::withBytes(typeProcessSerialNumber, std::string("\0\0\0\0\0\0\0\1", 8)));
}

TEST(AppleEventCoercion, IsAbsentForEveryOther) {
  EXPECT_EQ(AppleEventDescriptor().coerceToDescriptorType(typeProcessSerialNumber), std::nullopt);
  EXPECT_EQ(text("1234").coerceToDescriptorType(typeProcessSerialNumber), std::nullopt);
  EXPECT_EQ(listOfTexts({}).coerceToDescriptorType(typeProcessSerialNumber), std::nullopt);
  EXPECT_EQ(processAddress(1).coerceToDescriptorType(typeUnicodeText), std::nullopt);
  EXPECT_EQ(processAddress(0).coerceToDescriptorType(typeProcessSerialNumber), std::nullopt);
  EXPECT_EQ(processAddress(-1).coerceToDescriptorType(typeProcessSerialNumber), std::nullopt);
  EXPECT_EQ(text("a").coerceToDescriptorType(fourCharCode("long")), std::nullopt);
  for (const char* bytes : {"", "abc", "abcde", "abcdefgh"}) {
    EXPECT_EQ(AppleEventDescriptor::withBytes(typeKernelProcessID, bytes)
                  .coerceToDescriptorType(typeProcessSerialNumber),
              std::nullopt);
  }
}

TEST(AppleEventTest, AnEmptyReplyRecordIsOfTheNullType) {
  const AppleEvent reply;
  EXPECT_EQ(reply.eventClass(), typeNull);
  EXPECT_EQ(reply.eventID(), typeNull);
  EXPECT_EQ(reply.target(), AppleEventDescriptor());
  EXPECT_EQ(reply.paramDescriptor(keyDirectObject), nullptr);
  EXPECT_EQ(reply.attributeDescriptor(keyAddressAttr), nullptr);
}

TEST(AppleEventTest, KeepsWhatItWasMadeOf) {
  const AppleEvent event(kCoreEventClass, kAECall, text("target"), 7, 8);
  EXPECT_EQ(event.eventClass(), kCoreEventClass);
  EXPECT_EQ(event.eventID(), kAECall);
  EXPECT_EQ(event.target(), text("target"));
  EXPECT_EQ(event.returnID(), 7);
  EXPECT_EQ(event.transactionID(), 8);
}

TEST(AppleEventTest, ParametersAndAttributesAreSeparateAndReplaced) {
  AppleEvent event;
  event.setParamDescriptor(keyDirectObject, text("parameter"));
  EXPECT_EQ(event.attributeDescriptor(keyDirectObject), nullptr);
  event.setAttributeDescriptor(keyDirectObject, text("attribute"));
  EXPECT_EQ(*event.paramDescriptor(keyDirectObject), text("parameter"));
  EXPECT_EQ(*event.attributeDescriptor(keyDirectObject), text("attribute"));
  event.setParamDescriptor(keyDirectObject, text("other"));
  EXPECT_EQ(*event.paramDescriptor(keyDirectObject), text("other"));
  event.setParamDescriptor(fourCharCode("more"), text("more"));
  EXPECT_EQ(*event.paramDescriptor(keyDirectObject), text("other"));
  EXPECT_EQ(*event.paramDescriptor(fourCharCode("more")), text("more"));
}

}  // namespace
}  // namespace qbdkr
