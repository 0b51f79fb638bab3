#pragma once

#include <string_view>

#include <ClientComm/Export.h>
#include <ClientComm/QBHPAppEventBase.h>
#include <ClientComm/Request.h>
#include <ClientComm/Selector.h>
#include <ClientComm/TextValue.h>

namespace qbdkr {

// Asks the helper agent for values that only it knows. Objects have no state. A query blocks the
// calling thread until the helper agent answers or goes away, without limit, and returns at once if
// it is not running. It throws nothing. Any thread.
//
// A call that returns a Request makes the same query, and sends nothing yet: it can be given a
// deadline and be cancelled, and need not block. It throws std::bad_alloc. Any thread.
class QBDKR_EXPORT QBHPGetDataByHelper : public QBHPAppEventBase {
 public:
  // The class name in RPC events.
  static constexpr std::string_view kClassName = "QBHPGetDataByHelper";

  // Returns the service of this process, made on first use, never destroyed. Any thread.
  static QBHPGetDataByHelper& share();

  // Returns the client identifier of this installation; absent if the answer is empty or missing.
  String clientIDFormHelper();
  static constexpr auto kClientIDFormHelper =
      selector<&QBHPGetDataByHelper::clientIDFormHelper>("clientIDFormHelper");
  [[nodiscard]] Request<String> askClientIDFormHelper() const;

  // Returns whether this is not the first start, in the helper agent's words; absent if the answer
  // is empty or missing.
  String isNotFirstStart();
  static constexpr auto kIsNotFirstStart =
      selector<&QBHPGetDataByHelper::isNotFirstStart>("isNotFirstStart");
  [[nodiscard]] Request<String> askIsNotFirstStart() const;

  [[nodiscard]] std::string_view className() const override { return kClassName; }
};

}  // namespace qbdkr
