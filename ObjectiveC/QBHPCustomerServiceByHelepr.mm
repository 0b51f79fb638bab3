#import <QBDKRProductClientObjC/QBHPCustomerServiceByHelepr.h>

#include <ClientComm/QBHPCustomerServiceByHelepr.h>

#import "ObjectiveC/Conversion.h"

using namespace qbdkr::objc;

namespace {

qbdkr::QBHPCustomerServiceByHelepr& service() {
  return qbdkr::QBHPCustomerServiceByHelepr::share();
}

}  // namespace

@implementation QBHPCustomerServiceByHelepr

+ (instancetype)share {
  static id const shared = [[QBHPCustomerServiceByHelepr alloc] init];
  return shared;
}

- (int16_t)customerService:(NSString*)productID
                 versionID:(NSString*)versionID
                     email:(NSString*)email
                attachment:(NSString*)attachment {
  return service().customerService(TextOf(productID), TextOf(versionID), TextOf(email),
                                   TextOf(attachment));
}

- (int16_t)checkForHeleprMessage:(NSString*)productID versionID:(NSString*)versionID {
  return service().checkForHeleprMessage(TextOf(productID), TextOf(versionID));
}

@end
