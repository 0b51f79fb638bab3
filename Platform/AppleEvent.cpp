#include "Platform/AppleEvent.h"

#include <algorithm>
#include <atomic>

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
  return platformCoercion(*this, type);
}

AppleEvent::AppleEvent(FourCharCode eventClass, FourCharCode eventID, AppleEventDescriptor&& target,
                       std::int16_t returnID, std::int32_t transactionID)
    : eventClass_(eventClass),
      eventID_(eventID),
      target_(std::move(target)),
      returnID_(returnID),
      transactionID_(transactionID) {}

namespace {

template <class Fields>
auto find(Fields& fields, FourCharCode keyword) {
  return std::ranges::find(fields, keyword, [](const auto& field) { return field.first; });
}

template <class Fields>
const AppleEventDescriptor* lookUp(const Fields& fields, FourCharCode keyword) {
  const auto field = find(fields, keyword);
  return field == fields.end() ? nullptr : &field->second;
}

template <class Fields>
void store(Fields& fields, FourCharCode keyword, AppleEventDescriptor&& value) {
  const auto field = find(fields, keyword);
  if (field == fields.end()) {
    fields.emplace_back(keyword, std::move(value));
  } else {
    field->second = std::move(value);
  }
}

std::atomic<AppleEventTransport*> replacement{nullptr};

}  // namespace

const AppleEventDescriptor* AppleEvent::paramDescriptor(FourCharCode keyword) const {
  return lookUp(params_, keyword);
}

const AppleEventDescriptor* AppleEvent::attributeDescriptor(FourCharCode keyword) const {
  return lookUp(attributes_, keyword);
}

void AppleEvent::setParamDescriptor(FourCharCode keyword, AppleEventDescriptor&& value) {
  store(params_, keyword, std::move(value));
}

void AppleEvent::setAttributeDescriptor(FourCharCode keyword, AppleEventDescriptor&& value) {
  store(attributes_, keyword, std::move(value));
}

AppleEventTransport& AppleEventTransport::shared() {
  if (AppleEventTransport* transport = replacement.load()) return *transport;
  return platformAppleEventTransport();
}

void AppleEventTransport::replaceShared(AppleEventTransport* transport) {
  replacement.store(transport);
}

}  // namespace qbdkr
