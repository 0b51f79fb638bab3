#pragma once

#import <QBDKRProductClientObjC/QBHPAppEventBase.h>

#include <span>
#include <string>
#include <string_view>

#include <ClientComm/QBHPAppEventBase.h>
#include <ClientComm/TextValue.h>

namespace qbdkr::objc {

// Stands for an Objective-C service in the dispatcher, and retains it.
class ObjectService final : public qbdkr::QBHPAppEventBase {
 public:
  ObjectService(::QBHPAppEventBase* object, std::string className);
  ~ObjectService() override;

  [[nodiscard]] std::string_view className() const override { return className_; }
  void setBundleID(Text bundleID) override;
  String performSelector(std::string_view selector, std::span<const Text> objects) override;

 private:
  ::QBHPAppEventBase* object_;
  std::string className_;
};

}  // namespace qbdkr::objc
