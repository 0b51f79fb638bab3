#include "Platform/RPCEvent.h"

#include "Platform/Text.h"

namespace qbdkr {
namespace {

bool isText(const AppleEventDescriptor& item) {
  return item.descriptorType() == typeUnicodeText && isSendable(item.data());
}

bool isName(const AppleEventDescriptor& item) {
  return isText(item) && item.data().size() <= longestEventName;
}

// What is no text has no characters.
bool hasGoodText(const AppleEventDescriptor& item) {
  return item.descriptorType() != typeUnicodeText || isSendable(item.data());
}

bool fitsName(const AppleEventDescriptor* item) {
  return item == nullptr || (item->data().size() <= longestEventName && hasGoodText(*item));
}

bool fitItems(const AppleEventDescriptor& list, bool (*isGood)(const AppleEventDescriptor&)) {
  EventAllowance allowance;
  for (std::size_t i = 1; i <= list.numberOfItems(); ++i) {
    const AppleEventDescriptor& item = *list.descriptorAtIndex(i);
    if (!isGood(item) || !allowance.take(item.data())) return false;
  }
  return true;
}

bool isListOfTexts(const AppleEventDescriptor& list) {
  return list.descriptorType() == typeAEList && fitItems(list, isText);
}

bool isRPCObject(const AppleEventDescriptor& directObject) {
  return directObject.numberOfItems() == 3 && isName(*directObject.descriptorAtIndex(1)) &&
         isName(*directObject.descriptorAtIndex(2)) &&
         isListOfTexts(*directObject.descriptorAtIndex(3));
}

}  // namespace

bool isSendable(std::string_view text) {
  // Every text of every event comes by here. Without an early end the loop takes many bytes at a
  // time.
  unsigned char all = 0;
  bool hasNUL = false;
  for (const char byte : text) {
    all |= static_cast<unsigned char>(byte);
    hasNUL |= byte == '\0';
  }
  if (hasNUL) return false;
  return all < 0x80 || isValidUTF8(text);
}

bool isWithinBounds(const AppleEventDescriptor& directObject) {
  const AppleEventDescriptor* list = directObject.descriptorAtIndex(3);
  return fitsName(directObject.descriptorAtIndex(1)) &&
         fitsName(directObject.descriptorAtIndex(2)) &&
         (list == nullptr || fitItems(*list, hasGoodText));
}

bool isRPCEvent(FourCharCode eventClass, FourCharCode eventID) {
  return eventClass == kCoreEventClass && eventID == kAECall;
}

bool isRPCEvent(const AppleEvent& event) {
  const AppleEventDescriptor& target = event.target();
  const AppleEventDescriptor* object = event.paramDescriptor(keyDirectObject);
  return isRPCEvent(event.eventClass(), event.eventID()) &&
         target.descriptorType() == typeApplicationBundleID &&
         target.data().find('\0') == std::string::npos && object != nullptr && isRPCObject(*object);
}

}  // namespace qbdkr
