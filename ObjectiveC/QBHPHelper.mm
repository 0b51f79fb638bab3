#import <QBDKRProductClientObjC/QBHPHelper.h>

#include <QBDKRProductClient/QBHPHelper.h>

#import "ObjectiveC/Conversion.h"

using namespace qbdkr::objc;

namespace {

// Returns the facade that an object stands for: its own, or that of the process.
qbdkr::QBHPHelper& facade(void* own) {
  return own == nullptr ? qbdkr::QBHPHelper::share() : *static_cast<qbdkr::QBHPHelper*>(own);
}

}  // namespace

@interface QBHPHelper ()
- (instancetype)initShared;
@end

// One line for each call that fits into one.
// clang-format off
@implementation QBHPHelper

+ (instancetype)share {
  raising([] { qbdkr::QBHPHelper::share(); });
  static id const shared = [[QBHPHelper alloc] initShared];
  return shared;
}

- (instancetype)initShared { return [super init]; }

- (instancetype)init {
  if ((self = [super init]) != nil) _own = raising([] { return new qbdkr::QBHPHelper; });
  return self;
}

- (void)dealloc {
  delete static_cast<qbdkr::QBHPHelper*>(_own);
  DEALLOC
}

- (void)autoautoStartIntervaTimerMethod:(id)timer { (void)timer; }

- (QBHPSuiteInfo*)unRegSuiteInfo {
  void* const own = _own;
  return raising([own] { return suiteInfoOf(facade(own).unRegSuiteInfo()); });
}

- (QBHPSuiteInfo*)regSuiteInfo {
  void* const own = _own;
  return raising([own] { return suiteInfoOf(facade(own).regSuiteInfo()); });
}

- (void)startHelper { facade(_own).startHelper(); }
- (void)stopHelper { facade(_own).stopHelper(); }
- (void)directUploadData { facade(_own).directUploadData(); }
- (void)setProductCollectStatus:(BOOL)status { facade(_own).setProductCollectStatus(status); }

- (void)customStringDataCollect:(NSString*)target value:(NSString*)value {
  facade(_own).customStringDataCollect(TextOf(target), TextOf(value));
}

- (void)autoCreatedIncreaseDataCollect:(NSString*)target key:(NSString*)key {
  facade(_own).autoCreatedIncreaseDataCollect(TextOf(target), TextOf(key));
}

- (void)commIncreaseDataCollect:(NSString*)target key:(NSString*)key {
  facade(_own).commIncreaseDataCollect(TextOf(target), TextOf(key));
}

- (int16_t)uploadProductFile:(NSString*)email filePath:(NSString*)filePath title:(NSString*)title
    description:(NSString*)description {
  return facade(_own).uploadProductFile(TextOf(email), TextOf(filePath), TextOf(title),
                                        TextOf(description));
}

- (BOOL)productCollectStatus { return facade(_own).productCollectStatus(); }
- (NSString*)netErrorPagePath { return stringOf(facade(_own).netErrorPagePath()); }

- (void)setDataCollectPID:(NSString*)productID {
  facade(_own).setDataCollectPID(TextOf(productID));
}

- (void)setTipsEnable:(BOOL)enable { facade(_own).setTipsEnable(enable); }

@end
// clang-format on
