#include "ClientComm/RequestRecord.h"

#include <algorithm>

#include "Platform/Record/Record.h"

namespace qbdkr {

MethodText::MethodText(std::string_view className, std::string_view methodName) {
  add(className);
  if (!className.empty() && !methodName.empty()) add(" ");
  add(methodName);
}

void MethodText::add(std::string_view part) {
  const auto fitting = part.substr(0, text_.size() - size_);
  std::ranges::copy(fitting, text_.begin() + static_cast<std::ptrdiff_t>(size_));
  size_ += fitting.size();
}

void recordPost(OSErr status, Text bundleID, Text className, Text methodName) noexcept {
  recordAnswer(status, true, bundleID, className, methodName);
}

void recordAnswer(OSErr status, bool hasResult, Text bundleID, Text className,
                  Text methodName) noexcept {
  if (status == noErr && hasResult) return;
  const MethodText method(className.value_or(""), methodName.value_or(""));
  record(status == noErr ? StepKind::emptyAnswer : StepKind::requestFailed, status,
         bundleID.value_or(""), method.text());
}

void recordDelegateDestroyed(const QBHPAppEventBase& service) noexcept {
  record(StepKind::delegateDestroyed, service.className());
}

void recordNotTaken(const QBHPAppEventBase& service, Selector method) noexcept {
  record(StepKind::reportNotTaken, MethodText(service.className(), method.text()).text());
}

}  // namespace qbdkr
