#import <QBDKRProductClientObjC/QBHPHelperCommunicate.h>
#import <QBDKRProductClientObjC/QBHPHelperControl.h>

#include <ClientComm/QBHPHelperControl.h>
#include <QBDKRProductClient/QBHPHelperCommunicate.h>

#import "ObjectiveC/Conversion.h"
#import "ObjectiveC/Delegate.h"

using namespace qbdkr::objc;

namespace {

qbdkr::QBHPHelperControl& service() { return qbdkr::QBHPHelperControl::share(); }

class ControlDelegate final
    : public Delegate<qbdkr::QBHPWillHelperExitDelegate, qbdkr::QBHPDidCheckServerOpenDelegate> {
 public:
  void willHelperExit() override {
    const Pool pool;
    [get() willHelperExit];
  }

  void didCheckServerOpen(bool open, const qbdkr::Error* error) override {
    const Pool pool;
    [get() didCheckServerOpen:open:error == nullptr ? nil : errorOf(*error)];
  }
};

ControlDelegate& theDelegate() {
  static auto& instance = *new ControlDelegate;
  return instance;
}

}  // namespace

// One line for each call that fits into one.
// clang-format off
@implementation QBHPHelperControl

+ (instancetype)share {
  static id const shared = [[QBHPHelperControl alloc] init];
  return shared;
}

- (instancetype)init {
  raising([] { service(); });
  return [super init];
}

- (void)setHelperCtrlDelegate:(id<QBHPHelperControlCallBackDelegate>)delegate {
  theDelegate().set(delegate);
  service().setHelperCtrlDelegate(delegate == nil ? nullptr : &theDelegate());
}

- (id<QBHPHelperControlCallBackDelegate>)helperCtrlDelegate {
  auto* const delegate = service().helperCtrlDelegate();
  if (delegate == &theDelegate()) return theDelegate().get();
  const bool isCommunicator = dynamic_cast<qbdkr::QBHPHelperCommunicate*>(delegate) != nullptr;
  return isCommunicator ? (id)[QBHPHelperCommunicate share] : nil;
}

- (int16_t)start:(NSString*)productID prodeuctVersion:(NSString*)prodeuctVersion {
  return service().start(TextOf(productID), TextOf(prodeuctVersion));
}

- (int16_t)stop:(NSString*)productID prodeuctVersion:(NSString*)prodeuctVersion {
  return service().stop(TextOf(productID), TextOf(prodeuctVersion));
}

- (int16_t)show:(NSString*)productID prodeuctVersion:(NSString*)prodeuctVersion {
  return service().show(TextOf(productID), TextOf(prodeuctVersion));
}

- (int16_t)hide:(NSString*)productID prodeuctVersion:(NSString*)prodeuctVersion {
  return service().hide(TextOf(productID), TextOf(prodeuctVersion));
}

- (int16_t)isAlive:(NSString*)productID prodeuctVersion:(NSString*)prodeuctVersion {
  return service().isAlive(TextOf(productID), TextOf(prodeuctVersion));
}

- (int16_t)exitHelper:(NSString*)productID productVersion:(NSString*)productVersion {
  return service().exitHelper(TextOf(productID), TextOf(productVersion));
}

- (int16_t)helperExitNotify:(NSString*)text { return service().helperExitNotify(TextOf(text)); }
- (BOOL)saveEnableADToPlistFile { return service().saveEnableADToPlistFile(); }

- (int16_t)checkServerOpenCallBack:(NSString*)text :(NSString*)open
                                  :(NSString*)errorCode :(NSString*)errorMessage {
  return raising([&] {
    return service().checkServerOpenCallBack(TextOf(text), TextOf(open), TextOf(errorCode),
                                             TextOf(errorMessage));
  });
}

@end
// clang-format on
