#include <ClientComm/QBHPCustomerServiceByHelepr.h>

#include "ClientComm/HelperRequest.h"
#include "Platform/Base/NeverDestroyed.h"

namespace qbdkr {

QBHPCustomerServiceByHelepr& QBHPCustomerServiceByHelepr::share() {
  static NeverDestroyed service([] { return QBHPCustomerServiceByHelepr(); });
  return *service;
}

OSErr QBHPCustomerServiceByHelepr::customerService(Text productID, Text versionID, Text email,
                                                   Text attachment) {
  return postRequest(*this, kCustomerService, {productID, versionID, email, attachment},
                     "%@ %@ %@ %@ %@ ");
}

OSErr QBHPCustomerServiceByHelepr::checkForHeleprMessage(Text productID, Text versionID) {
  return postRequest(*this, kCheckForHeleprMessage, {productID, versionID}, "%@ %@ %@ ");
}

}  // namespace qbdkr
