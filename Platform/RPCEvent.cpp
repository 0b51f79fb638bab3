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

bool isListOfTexts(const AppleEventDescriptor& list) {
  if (list.descriptorType() != typeAEList) return false;
  EventAllowance allowance;
  for (std::size_t i = 1; i <= list.numberOfItems(); ++i) {
    const AppleEventDescriptor& item = *list.descriptorAtIndex(i);
    if (!isText(item) || !allowance.take(item.data())) return false;
  }
  return true;
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

bool isRPCEvent(const AppleEvent& event) {
  const AppleEventDescriptor* object = event.paramDescriptor(keyDirectObject);
  return event.target().descriptorType() == typeApplicationBundleID && object != nullptr &&
         object->numberOfItems() == 3 && isName(*object->descriptorAtIndex(1)) &&
         isName(*object->descriptorAtIndex(2)) && isListOfTexts(*object->descriptorAtIndex(3));
}

}  // namespace qbdkr
