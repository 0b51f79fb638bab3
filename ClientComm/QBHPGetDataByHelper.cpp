#include <ClientComm/QBHPGetDataByHelper.h>

#include "ClientComm/HelperRequest.h"
#include "Platform/Base/NeverDestroyed.h"

namespace qbdkr {

QBHPGetDataByHelper& QBHPGetDataByHelper::share() {
  static NeverDestroyed service([] { return QBHPGetDataByHelper(); });
  return *service;
}

String QBHPGetDataByHelper::clientIDFormHelper() {
  return askRequest(*this, kClientIDFormHelper, {});
}

String QBHPGetDataByHelper::isNotFirstStart() { return askRequest(*this, kIsNotFirstStart, {}); }

Request<String> QBHPGetDataByHelper::askClientIDFormHelper() const {
  return helperRequest(*this, kClientIDFormHelper, {});
}

Request<String> QBHPGetDataByHelper::askIsNotFirstStart() const {
  return helperRequest(*this, kIsNotFirstStart, {});
}

}  // namespace qbdkr
