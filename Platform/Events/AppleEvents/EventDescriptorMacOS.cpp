#include "Platform/Events/AppleEvents/EventDescriptorMacOS.h"

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "Platform/Events/AppleEvents/SerialNumber.h"
#include "Platform/Text/Text.h"

namespace qbdkr {
namespace {

// Our names and numbers are the system's.
static_assert(typeNull == ::typeNull && typeUnicodeText == ::typeUnicodeText);
static_assert(typeAEList == ::typeAEList && typeKernelProcessID == ::typeKernelProcessID);
static_assert(typeProcessSerialNumber == ::typeProcessSerialNumber);
static_assert(typeApplicationBundleID == ::typeApplicationBundleID);
static_assert(kCoreEventClass == ::kCoreEventClass && keyDirectObject == ::keyDirectObject);
static_assert(keyAddressAttr == ::keyAddressAttr);
static_assert(kAutoGenerateReturnID == ::kAutoGenerateReturnID);
static_assert(kAnyTransactionID == ::kAnyTransactionID);
static_assert(kAENoReply == ::kAENoReply && kAEWaitReply == ::kAEWaitReply);
static_assert(kAEDefaultTimeout == ::kAEDefaultTimeout && kNoTimeOut == ::kNoTimeOut);
static_assert(noErr == ::noErr && paramErr == ::paramErr && procNotFound == ::procNotFound);
static_assert(connectionInvalid == ::connectionInvalid && errAETimeout == ::errAETimeout);
static_assert(errAEEventNotHandled == ::errAEEventNotHandled);
static_assert(errAEEventNotPermitted == ::errAEEventNotPermitted);
static_assert(errAEEventFailed == ::errAEEventFailed);

OSErr makeBytes(FourCharCode type, const void* bytes, std::size_t size, EventDescriptor& made) {
  return AECreateDesc(type, bytes, static_cast<Size>(size), made.receive());
}

// Makes a text, which is UTF-16 in the processor's byte order here.
OSErr makeText(const std::string& text, EventDescriptor& made) {
  if (!isSendable(text)) return paramErr;
  const std::u16string units = utf16FromUTF8(text);
  return makeBytes(typeUnicodeText, units.data(), units.size() * sizeof(char16_t), made);
}

// The words of a serial number are big-endian in ours, and in the processor's order in a
// descriptor.
OSErr makeSerialNumber(const ProcessSerialNumber& from, EventDescriptor& made) {
  const ::ProcessSerialNumber number{from.highLongOfPSN, from.lowLongOfPSN};
  return makeBytes(typeProcessSerialNumber, &number, sizeof number, made);
}

OSErr makeList(const AppleEventDescriptor& from, EventDescriptor& made) {
  OSErr status = AECreateList(nullptr, 0, 0, made.receive());
  for (std::size_t i = 1; status == noErr && i <= from.numberOfItems(); ++i) {
    EventDescriptor item;
    status = makeDescriptor(*from.descriptorAtIndex(i), item);
    if (status == noErr) status = AEPutDesc(made.receive(), static_cast<long>(i), item.get());
  }
  return status;
}

std::optional<std::string> bytesOf(const AEDesc& desc, std::size_t most = mostEventContent) {
  const Size size = AEGetDescDataSize(&desc);
  if (size < 0 || static_cast<std::size_t>(size) > most) return std::nullopt;
  std::string bytes(static_cast<std::size_t>(size), '\0');
  if (size > 0 && AEGetDescData(&desc, bytes.data(), size) != noErr) return std::nullopt;
  return bytes;
}

std::string inBigEndian(const std::string& serialNumber) {
  ::ProcessSerialNumber number{};
  std::memcpy(&number, serialNumber.data(), sizeof number);
  return bytesOfSerialNumber({number.highLongOfPSN, number.lowLongOfPSN});
}

std::optional<std::string> sendableText(std::optional<std::string> text) {
  return text && isSendable(*text) ? std::move(text) : std::nullopt;
}

constexpr char16_t swapped(char16_t unit) {
  const unsigned int wide = unit;
  return static_cast<char16_t>(wide << 8U | wide >> 8U);
}

// Reads UTF-16 by its mark, without one in the processor's byte order. No conversion of the system
// is asked for that: what becomes of marks and of an empty text is nowhere promised.
std::optional<std::string> textFromUnits(const AEDesc& desc) {
  const auto bytes = bytesOf(desc, mostTextBytes);
  if (!bytes || bytes->size() % sizeof(char16_t) != 0) return std::nullopt;
  constexpr char16_t mark = 0xFEFF;
  std::u16string units(bytes->size() / sizeof(char16_t), u'\0');
  std::memcpy(units.data(), bytes->data(), bytes->size());
  if (units.starts_with(swapped(mark))) std::ranges::transform(units, units.begin(), swapped);
  const std::u16string_view text = units;
  return sendableText(utf8FromUTF16(text.substr(text.starts_with(mark) ? 1 : 0)));
}

// Gets one item of a list, as it is.
bool getItem(const AEDesc& list, long index, EventDescriptor& item) {
  AEKeyword keyword = 0;
  return AEGetNthDesc(&list, index, typeWildCard, &keyword, item.receive()) == noErr;
}

// Returns a text of a list; the null descriptor if the item is not text.
AppleEventDescriptor textAt(const AEDesc& list, long index) {
  EventDescriptor item;
  auto text = getItem(list, index, item) ? textFrom(*item.get()) : std::nullopt;
  return text ? AppleEventDescriptor::withString(*std::move(text)) : AppleEventDescriptor();
}

// Returns the count of a list's items; 0 for every other type.
long countOf(const AEDesc& list) {
  long count = 0;
  const bool isList = list.descriptorType == typeAEList && AECountItems(&list, &count) == noErr;
  return isList ? count : 0;
}

std::optional<AppleEventDescriptor> textsFrom(const AEDesc& list, EventAllowance& allowance) {
  const long count = countOf(list);
  auto texts = AppleEventDescriptor::list();
  for (long i = 1; i <= count; ++i) {
    auto text = textAt(list, i);
    if (!allowance.takeArgument(text.data())) return std::nullopt;
    texts.insertDescriptor(std::move(text), 0);
  }
  return texts;
}

}  // namespace

OSErr makeDescriptor(const AppleEventDescriptor& from, EventDescriptor& made) {
  const std::string& bytes = from.data();
  if (from.descriptorType() == typeAEList) return makeList(from, made);
  if (from.descriptorType() == typeUnicodeText) return makeText(bytes, made);
  if (from.descriptorType() == typeProcessSerialNumber) {
    if (const auto number = serialNumberFromBytes(bytes)) return makeSerialNumber(*number, made);
  }
  return makeBytes(from.descriptorType(), bytes.data(), bytes.size(), made);
}

std::optional<AppleEventDescriptor> plainDescriptor(const AEDesc& desc) {
  auto bytes = bytesOf(desc);
  if (!bytes) return std::nullopt;
  if (desc.descriptorType == typeProcessSerialNumber &&
      bytes->size() == sizeof(::ProcessSerialNumber)) {
    bytes = inBigEndian(*bytes);
  }
  return AppleEventDescriptor::withBytes(desc.descriptorType, std::move(*bytes));
}

std::optional<std::string> textFrom(const AEDesc& desc) {
  if (desc.descriptorType == typeUnicodeText) return textFromUnits(desc);
  if (desc.descriptorType == typeUTF8Text) return sendableText(bytesOf(desc));
  // A list of one text would become that text.
  if (desc.descriptorType == typeNull || desc.descriptorType == typeAEList) return std::nullopt;
  EventDescriptor coerced;
  if (AECoerceDesc(&desc, typeUnicodeText, coerced.receive()) != noErr) return std::nullopt;
  return textFromUnits(*coerced.get());
}

std::optional<AppleEventDescriptor> rpcObjectFrom(const AEDesc& desc) {
  if (countOf(desc) == 0) return AppleEventDescriptor();
  auto object = AppleEventDescriptor::list();
  EventAllowance allowance;
  for (long i = 1; i <= 2; ++i) {
    auto name = textAt(desc, i);
    if (!allowance.takeName(name.data())) return std::nullopt;
    object.insertDescriptor(std::move(name), 0);
  }
  EventDescriptor list;
  if (!getItem(desc, 3, list)) return object;
  auto arguments = textsFrom(*list.get(), allowance);
  if (!arguments) return std::nullopt;
  object.insertDescriptor(*std::move(arguments), 3);
  return object;
}

}  // namespace qbdkr
