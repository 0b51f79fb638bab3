#import <QBDKRProductClientObjC/QBHPUpgradeByHelper.h>

#include <ClientComm/QBHPUpgradeByHelper.h>

#import "ObjectiveC/Conversion.h"
#import "ObjectiveC/Delegate.h"

using namespace qbdkr::objc;

namespace {

qbdkr::QBHPUpgradeByHelper& service() { return qbdkr::QBHPUpgradeByHelper::share(); }

class UpgradeDelegate final : public Delegate<qbdkr::QBHPProductWillUpgradeDelegate> {
 public:
  void productWillUpgrade(const qbdkr::Error* error) override {
    const Pool pool;
    [get() productWillUpgrade:error == nullptr ? nil : errorOf(*error)];
  }
};

UpgradeDelegate& theDelegate() {
  static auto& instance = *new UpgradeDelegate;
  return instance;
}

}  // namespace

// One line for each call that fits into one.
// clang-format off
@implementation QBHPUpgradeByHelper

+ (instancetype)share {
  static id const shared = [[QBHPUpgradeByHelper alloc] init];
  return shared;
}

- (instancetype)init {
  raising([] { service(); });
  return [super init];
}

- (void)setProductUpgradeDelegate:(id<QBHPProductUpgradeCallBackDelegate>)delegate {
  theDelegate().set(delegate);
  service().setProductUpgradeDelegate(delegate == nil ? nullptr : &theDelegate());
}

- (id<QBHPProductUpgradeCallBackDelegate>)productUpgradeDelegate {
  return service().productUpgradeDelegate() == &theDelegate() ? theDelegate().get() : nil;
}

- (BOOL)isUpgradeQueryResopned { return service().isUpgradeQueryResopned(); }

- (int16_t)productReadyToUpgrade:(NSString*)productID versionID:(NSString*)versionID
    ready:(NSString*)ready {
  return service().productReadyToUpgrade(TextOf(productID), TextOf(versionID), TextOf(ready));
}

- (int16_t)productUpgrade:(NSString*)productID versionID:(NSString*)versionID {
  return service().productUpgrade(TextOf(productID), TextOf(versionID));
}

- (int16_t)productUpgradeCallBack:(NSString*)first :(NSString*)second
                                 :(NSString*)errorCode :(NSString*)errorMessage {
  return raising([&] {
    return service().productUpgradeCallBack(TextOf(first), TextOf(second), TextOf(errorCode),
                                            TextOf(errorMessage));
  });
}

@end
// clang-format on
