#import <QBDKRProductClientObjC/QBHPHelperError.h>

#include <ClientComm/QBHPHelperError.h>

#import "ObjectiveC/Conversion.h"

using namespace qbdkr::objc;

NSString* const HelperCommunicateErrorDomain = @"HelperCommunicateErrorDomain";
NSString* const HelperCommunicateErrorDescription = @"HelperCommunicateErrorDescription";

@implementation QBHPHelperError

// clang-format off
+ (NSError*)errorWithCode:(NSString*)code :(NSString*)description {
  // clang-format on
  return raising([&] {
    return errorOf(qbdkr::QBHPHelperError::errorWithCode(TextOf(code), TextOf(description)));
  });
}

@end
