#import <QBDKRProductClientObjC/QBHPSuiteInfo.h>

#include <ClientComm/QBHPSuiteInfo.h>

#import "ObjectiveC/Conversion.h"

using namespace qbdkr::objc;

@implementation QBHPSuiteInfo

@synthesize URL = _URL;
@synthesize width = _width;
@synthesize height = _height;

- (instancetype)initWithDate:(NSString*)date width:(int32_t)width height:(int32_t)height {
  if ((self = [super init]) != nil) {
    _URL = [date copy];
    _width = width;
    _height = height;
  }
  return self;
}

- (void)dealloc {
  RELEASE(_URL);
  DEALLOC
}

- (NSString*)description {
  return stringOf(std::string_view(
      qbdkr::QBHPSuiteInfo::initWithDate(TextOf(_URL), _width, _height).description()));
}

@end
