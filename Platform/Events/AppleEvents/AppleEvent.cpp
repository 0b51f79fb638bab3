#include <algorithm>
#include <cstring>

#include <ClientComm/AppleEvent.h>
#include <ClientComm/Status.h>

#include "Platform/Events/AppleEvents/SerialNumber.h"
#include "Platform/Processes/NativeProcesses.h"

namespace qbdkr {

AppleEventDescriptor AppleEventDescriptor::list(std::vector<AppleEventDescriptor> items) {
  AppleEventDescriptor list(typeAEList, {});
  list.items_ = std::move(items);
  return list;
}

std::optional<std::string> AppleEventDescriptor::stringValue() const {
  if (type_ != typeUnicodeText) return std::nullopt;
  return bytes_;
}

const AppleEventDescriptor* AppleEventDescriptor::descriptorAtIndex(std::size_t index) const {
  if (index == 0 || index > items_.size()) return nullptr;
  return &items_[index - 1];
}

bool AppleEventDescriptor::insertDescriptor(AppleEventDescriptor&& item, std::size_t index) {
  if (type_ != typeAEList || index > items_.size() + 1) return false;
  if (index == 0 || index == items_.size() + 1) {
    items_.push_back(std::move(item));
  } else {
    items_[index - 1] = std::move(item);
  }
  return true;
}

std::optional<AppleEventDescriptor> AppleEventDescriptor::coerceToDescriptorType(
    FourCharCode type) const {
  if (type == type_) return *this;
  std::int32_t processID = 0;
  if (type != typeProcessSerialNumber || type_ != typeKernelProcessID ||
      bytes_.size() != sizeof processID) {
    return std::nullopt;
  }
  std::memcpy(&processID, bytes_.data(), sizeof processID);
  ProcessSerialNumber number{};
  if (getProcessForPID(processID, &number) != noErr) return std::nullopt;
  return withBytes(typeProcessSerialNumber, bytesOfSerialNumber(number));
}

AppleEvent::AppleEvent(FourCharCode eventClass, FourCharCode eventID, AppleEventDescriptor&& target,
                       std::int16_t returnID, std::int32_t transactionID)
    : eventClass_(eventClass),
      eventID_(eventID),
      target_(std::move(target)),
      returnID_(returnID),
      transactionID_(transactionID) {}

const AppleEventDescriptor* AppleEvent::Fields::find(FourCharCode keyword) const {
  if (first && first->first == keyword) return &first->second;
  const auto other = std::ranges::find(others, keyword, &Field::first);
  return other == others.end() ? nullptr : &other->second;
}

void AppleEvent::Fields::set(FourCharCode keyword, AppleEventDescriptor&& value) {
  if (!first || first->first == keyword) {
    first.emplace(keyword, std::move(value));
    return;
  }
  const auto other = std::ranges::find(others, keyword, &Field::first);
  if (other == others.end()) {
    others.emplace_back(keyword, std::move(value));
  } else {
    other->second = std::move(value);
  }
}

const AppleEventDescriptor* AppleEvent::paramDescriptor(FourCharCode keyword) const {
  return params_.find(keyword);
}

const AppleEventDescriptor* AppleEvent::attributeDescriptor(FourCharCode keyword) const {
  return attributes_.find(keyword);
}

void AppleEvent::setParamDescriptor(FourCharCode keyword, AppleEventDescriptor&& value) {
  params_.set(keyword, std::move(value));
}

void AppleEvent::setAttributeDescriptor(FourCharCode keyword, AppleEventDescriptor&& value) {
  attributes_.set(keyword, std::move(value));
}

}  // namespace qbdkr
