#import <QBDKRProductClientObjC/QBHPConfig.h>

#include <ClientComm/QBHPConfig.h>

#import "ObjectiveC/Conversion.h"

using namespace qbdkr::objc;

// One line for each call that fits into one.
// clang-format off
@implementation QBHPConfig

+ (NSString*)brandName { return raising([] { return stringOf(qbdkr::QBHPConfig::brandName()); }); }

+ (NSString*)helperName {
  return raising([] { return stringOf(qbdkr::QBHPConfig::helperName()); });
}

+ (NSString*)helperPID { return stringOf(qbdkr::QBHPConfig::helperPID()); }

@end
// clang-format on
