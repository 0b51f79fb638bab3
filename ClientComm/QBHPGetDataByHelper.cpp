#include "ClientComm/QBHPGetDataByHelper.h"

#include "ClientComm/HelperRequest.h"

namespace qbdkr {

QBHPGetDataByHelper& QBHPGetDataByHelper::share() {
  static auto& service = *new QBHPGetDataByHelper;
  return service;
}

String QBHPGetDataByHelper::clientIDFormHelper() {
  return askRequest(*this, kClientIDFormHelper, {});
}

String QBHPGetDataByHelper::isNotFirstStart() { return askRequest(*this, kIsNotFirstStart, {}); }

}  // namespace qbdkr
