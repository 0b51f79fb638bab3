#import <QBDKRProductClientObjC/QBHPGetDataByHelper.h>

#include <ClientComm/QBHPGetDataByHelper.h>

#import "ObjectiveC/Conversion.h"

using namespace qbdkr::objc;

using Shared = qbdkr::QBHPGetDataByHelper;

// One line for each call that fits into one.
// clang-format off
@implementation QBHPGetDataByHelper

+ (instancetype)share {
  static id const shared = [[QBHPGetDataByHelper alloc] init];
  return shared;
}

- (NSString*)clientIDFormHelper { return stringOf(Shared::share().clientIDFormHelper()); }
- (NSString*)isNotFirstStart { return stringOf(Shared::share().isNotFirstStart()); }

@end
// clang-format on
