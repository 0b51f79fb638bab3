#import <QBDKRProductClientObjC/QBHPAppleEventSender.h>

#include <algorithm>
#include <chrono>

#include <ClientComm/QBHPAppleEventSender.h>

#import "ObjectiveC/Conversion.h"

using namespace qbdkr::objc;

using Shared = qbdkr::QBHPAppleEventSender;

// One line for each call that fits into one.
// clang-format off
@implementation QBHPAppleEventSender

+ (instancetype)share {
  static id const shared = [[QBHPAppleEventSender alloc] init];
  return shared;
}

- (int16_t)sendEvnet:(NSString*)bundleID className:(NSString*)className
    selectName:(NSString*)selectName args:(NSArray*)args {
  return Shared::share().sendEvnet(TextOf(bundleID), TextOf(className), TextOf(selectName),
                                   TextsOf(args));
}

- (int16_t)sendEvnet:(NSString*)className selectName:(NSString*)selectName args:(NSArray*)args {
  return Shared::share().sendEvnet(TextOf(className), TextOf(selectName), TextsOf(args));
}

- (int16_t)sendEvnet:(NSString*)bundleID className:(NSString*)className
    selectName:(NSString*)selectName args:(NSArray*)args result:(NSString**)result {
  qbdkr::String text;
  const auto status = Shared::share().sendEvnet(TextOf(bundleID), TextOf(className),
                                                TextOf(selectName), TextsOf(args), text);
  *result = stringOf(text);
  return status;
}

- (int16_t)sendEvnet:(NSString*)className selectName:(NSString*)selectName args:(NSArray*)args
    result:(NSString**)result {
  qbdkr::String text;
  const auto status =
      Shared::share().sendEvnet(TextOf(className), TextOf(selectName), TextsOf(args), text);
  *result = stringOf(text);
  return status;
}

- (int16_t)flush:(NSTimeInterval)seconds {
  constexpr NSTimeInterval day = 86400;
  const std::chrono::duration<NSTimeInterval> time(std::min(day, std::max(0.0, seconds)));
  return Shared::share().flush(std::chrono::steady_clock::now() +
                               std::chrono::ceil<std::chrono::milliseconds>(time));
}

@end
// clang-format on
