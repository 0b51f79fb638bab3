#import <QBDKRProductClientObjC/QBHPProcessList.h>

#include <ClientComm/QBHPProcessList.h>

#import "ObjectiveC/Conversion.h"

using namespace qbdkr::objc;

using Shared = qbdkr::QBHPProcessList;

@implementation QBHPProcessList

+ (instancetype)share {
  static id const shared = [[QBHPProcessList alloc] init];
  return shared;
}

- (NSArray*)getBSDProcessList {
  NSMutableArray* const list = [NSMutableArray array];
  for (const auto& process : Shared::share().getBSDProcessList())
    [list addObject:dictionaryOf(process)];
  return list;
}

- (NSDictionary*)infoForPID:(int32_t)pid {
  const auto information = Shared::share().infoForPID(pid);
  return information == nullptr ? nil : dictionaryOf(*information);
}

- (BOOL)applicationIsRunning:(NSString*)bundleIdentifier bundlePath:(NSString*)bundlePath {
  return Shared::share().applicationIsRunning(TextOf(bundleIdentifier), TextOf(bundlePath));
}

@end
