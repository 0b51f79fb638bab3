#import <QBDKRProductClientObjC/QBHPProcessList.h>

#include <ClientComm/QBHPProcessList.h>

#import "ObjectiveC/Conversion.h"

using namespace qbdkr::objc;

namespace {

qbdkr::QBHPProcessList& processes() { return qbdkr::QBHPProcessList::share(); }

}  // namespace

@implementation QBHPProcessList

+ (instancetype)share {
  static id const shared = [[QBHPProcessList alloc] init];
  return shared;
}

- (NSArray*)getBSDProcessList {
  NSMutableArray* const list = [NSMutableArray array];
  for (const auto& process : processes().getBSDProcessList())
    [list addObject:dictionaryOf(process)];
  return list;
}

- (NSDictionary*)infoForPID:(int32_t)pid {
  const auto information = processes().infoForPID(pid);
  return information == nullptr ? nil : dictionaryOf(*information);
}

- (BOOL)applicationIsRunning:(NSString*)bundleIdentifier bundlePath:(NSString*)bundlePath {
  return processes().applicationIsRunning(TextOf(bundleIdentifier), TextOf(bundlePath));
}

@end
