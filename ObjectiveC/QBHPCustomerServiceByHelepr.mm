#import <QBDKRProductClientObjC/QBHPCustomerServiceByHelepr.h>

#include <ClientComm/QBHPCustomerServiceByHelepr.h>

#import "ObjectiveC/Conversion.h"

using namespace qbdkr::objc;

using Shared = qbdkr::QBHPCustomerServiceByHelepr;

// One line for each call that fits into one.
// clang-format off
@implementation QBHPCustomerServiceByHelepr

+ (instancetype)share {
  static id const shared = [[QBHPCustomerServiceByHelepr alloc] init];
  return shared;
}

- (int16_t)customerService:(NSString*)productID versionID:(NSString*)versionID
    email:(NSString*)email attachment:(NSString*)attachment {
  return Shared::share().customerService(TextOf(productID), TextOf(versionID), TextOf(email),
                                         TextOf(attachment));
}

- (int16_t)checkForHeleprMessage:(NSString*)productID versionID:(NSString*)versionID {
  return Shared::share().checkForHeleprMessage(TextOf(productID), TextOf(versionID));
}

@end
// clang-format on
