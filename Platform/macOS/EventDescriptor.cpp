#include "Platform/macOS/EventDescriptor.h"

#include <cstdint>
#include <cstring>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "Platform/ProcessTable.h"
#include "Platform/RPCEvent.h"
#include "Platform/Text.h"

namespace qbdkr {
namespace {

// The names and numbers of our own are the system's.
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

// The direct object is a list, and so is its third item.
constexpr std::size_t listLevels = 2;

OSErr makeBytes(FourCharCode type, const void* bytes, std::size_t size, EventDescriptor& made) {
  return AECreateDesc(type, bytes, static_cast<Size>(size), made.receive());
}

// Text is UTF-16 in the processor's own byte order here.
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

std::optional<std::string> bytesOf(const AEDesc& desc) {
  const Size size = AEGetDescDataSize(&desc);
  if (size < 0 || static_cast<std::size_t>(size) > mostEventContent) return std::nullopt;
  std::string bytes(static_cast<std::size_t>(size), '\0');
  if (size > 0 && AEGetDescData(&desc, bytes.data(), size) != noErr) return std::nullopt;
  return bytes;
}

std::string inBigEndian(const std::string& serialNumber) {
  ::ProcessSerialNumber number{};
  std::memcpy(&number, serialNumber.data(), sizeof number);
  return bytesOfSerialNumber({number.highLongOfPSN, number.lowLongOfPSN});
}

// Reads what came from outside, with one budget for the whole of it.
class Reader {
 public:
  std::optional<AppleEventDescriptor> read(const AEDesc& desc, std::size_t level) {
    if (desc.descriptorType == typeAEList) return list(desc, level);
    auto value = text(desc);
    // Text that is none would be taken for UTF-8 further on.
    if (!value && desc.descriptorType != typeUnicodeText) value = plainDescriptor(desc);
    return value && allowance_.take(value->data()) ? std::move(value) : std::nullopt;
  }

 private:
  // As UTF-8 from the system, which knows in what order and with what mark the units came.
  static std::optional<AppleEventDescriptor> text(const AEDesc& desc) {
    EventDescriptor coerced;
    if (desc.descriptorType == typeNull ||
        AECoerceDesc(&desc, typeUTF8Text, coerced.receive()) != noErr) {
      return std::nullopt;
    }
    auto utf8 = bytesOf(*coerced.get());
    if (!utf8 || !isSendable(*utf8)) return std::nullopt;
    return AppleEventDescriptor::withString(std::move(*utf8));
  }

  std::optional<AppleEventDescriptor> list(const AEDesc& desc, std::size_t level) {
    long count = 0;
    if (level == listLevels || !allowance_.take({})) return std::nullopt;
    if (AECountItems(&desc, &count) != noErr) return std::nullopt;
    std::vector<AppleEventDescriptor> items;
    for (long i = 1; i <= count; ++i) {
      EventDescriptor item;
      AEKeyword keyword = 0;
      if (AEGetNthDesc(&desc, i, typeWildCard, &keyword, item.receive()) != noErr) {
        return std::nullopt;
      }
      auto value = read(*item.get(), level + 1);
      if (!value) return std::nullopt;
      items.push_back(std::move(*value));
    }
    return AppleEventDescriptor::list(std::move(items));
  }

  EventAllowance allowance_;
};

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

std::optional<AppleEventDescriptor> textualDescriptor(const AEDesc& desc) {
  return Reader().read(desc, 0);
}

}  // namespace qbdkr
