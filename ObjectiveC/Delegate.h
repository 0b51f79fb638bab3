#pragma once

#import <Foundation/Foundation.h>

#include <atomic>

#include <ClientComm/Selector.h>

#import "ObjectiveC/Conversion.h"

namespace qbdkr::objc {

// Stands for the delegate of a service, with interfaces of it. Does not retain it, and asks it
// before each report whether it implements the method.
template <class... Interfaces>
class Delegate : public Interfaces... {
 public:
  void set(id object) { object_ = (__bridge void*)object; }
  [[nodiscard]] id get() const { return (__bridge id)object_.load(); }

  [[nodiscard]] bool respondsTo(Selector report) const override {
    const Pool pool;
    return [get() respondsToSelector:NSSelectorFromString(stringOf(report.text()))] == YES;
  }

 private:
  std::atomic<void*> object_{nullptr};
};

}  // namespace qbdkr::objc
