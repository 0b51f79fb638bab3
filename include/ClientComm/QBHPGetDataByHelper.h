#pragma once

#include <string_view>

#include <ClientComm/Export.h>
#include <ClientComm/QBHPAppEventBase.h>
#include <ClientComm/Selector.h>
#include <ClientComm/TextValue.h>

namespace qbdkr {

// Asks the helper agent for what only it knows. It has no state: one object is as good as another.
// The queries block the calling thread until the helper agent answers, without limit, and return at
// once when it is not there. Any thread.
class QBDKR_EXPORT QBHPGetDataByHelper : public QBHPAppEventBase {
 public:
  static constexpr std::string_view kClassName = "QBHPGetDataByHelper";

  static QBHPGetDataByHelper& share();

  // The client identifier of this installation, as the helper agent gives it; absent without
  // answer.
  String clientIDFormHelper();
  static constexpr auto kClientIDFormHelper =
      selector<&QBHPGetDataByHelper::clientIDFormHelper>("clientIDFormHelper");

  // Whether this is not the first start, as the helper agent says it; absent without answer.
  String isNotFirstStart();
  static constexpr auto kIsNotFirstStart =
      selector<&QBHPGetDataByHelper::isNotFirstStart>("isNotFirstStart");

  [[nodiscard]] std::string_view className() const override { return kClassName; }
};

}  // namespace qbdkr
