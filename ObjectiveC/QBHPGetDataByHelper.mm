#import <QBDKRProductClientObjC/QBHPGetDataByHelper.h>

#include <ClientComm/QBHPGetDataByHelper.h>

#import "ObjectiveC/Conversion.h"

using namespace qbdkr::objc;

namespace {

qbdkr::QBHPGetDataByHelper& service() { return qbdkr::QBHPGetDataByHelper::share(); }

}  // namespace

@implementation QBHPGetDataByHelper

+ (instancetype)share {
  static id const shared = [[QBHPGetDataByHelper alloc] init];
  return shared;
}

- (NSString*)clientIDFormHelper {
  return stringOf(service().clientIDFormHelper());
}

- (NSString*)isNotFirstStart {
  return stringOf(service().isNotFirstStart());
}

@end
