#pragma once

#include <array>
#include <cstddef>
#include <string_view>

#include <ClientComm/QBHPAppEventBase.h>
#include <ClientComm/Selector.h>
#include <ClientComm/Status.h>
#include <ClientComm/TextValue.h>

namespace qbdkr {

// Joins the names of a class and of its method for the record, with one blank between them unless
// one is empty. Cuts them where the record would. Allocates nothing.
class MethodText {
 public:
  MethodText(std::string_view className, std::string_view methodName);

  [[nodiscard]] std::string_view text() const { return {text_.data(), size_}; }

 private:
  void add(std::string_view part);

  std::array<char, 240> text_{};
  std::size_t size_ = 0;
};

// Record a request that failed, and one that was answered with nothing. Allocate nothing. Any
// thread.
void recordPost(OSErr status, Text bundleID, Text className, Text methodName) noexcept;
void recordAnswer(OSErr status, bool hasResult, Text bundleID, Text className,
                  Text methodName) noexcept;

// Records that a delegate was destroyed before it was removed.
void recordDelegateDestroyed(const QBHPAppEventBase& service) noexcept;

// Records a report for which the host has no delegate.
void recordNotTaken(const QBHPAppEventBase& service, Selector method) noexcept;

}  // namespace qbdkr
