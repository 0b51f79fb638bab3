#import <QBDKRProductClientObjC/QBHPAppleEventProcesser.h>

#include <map>
#include <memory>
#include <mutex>
#include <string>

#include <ClientComm/QBHPAppleEventProcesser.h>

#import "ObjectiveC/Conversion.h"
#import "ObjectiveC/ObjectService.h"

using namespace qbdkr::objc;

namespace {

// The services that were registered, by their names.
struct Services {
  std::mutex mutex;
  std::multimap<std::string, std::unique_ptr<ObjectService>> services;
};

Services& registered() {
  static auto& instance = *new Services;
  return instance;
}

}  // namespace

// One line for each call that fits into one.
// clang-format off
@implementation QBHPAppleEventProcesser

+ (instancetype)share {
  static id const shared = [[QBHPAppleEventProcesser alloc] init];
  return shared;
}

- (instancetype)init {
  raising([] { qbdkr::QBHPAppleEventProcesser::share(); });
  return [super init];
}

- (void)regist { qbdkr::QBHPAppleEventProcesser::share().regist(); }
- (void)unRegist { qbdkr::QBHPAppleEventProcesser::share().unRegist(); }

- (void)setObjectforKeyToMapTable:(QBHPAppEventBase*)object forKey:(NSString*)key {
  const std::string name = TextOf(key).orEmpty();
  auto service = std::make_unique<ObjectService>(object, name);
  qbdkr::QBHPAppleEventProcesser::share().setObjectforKeyToMapTable(*service, name);
  const std::lock_guard lock(registered().mutex);
  registered().services.emplace(name, std::move(service));
}

- (void)removeObjectforKeyToMapTable:(NSString*)className {
  const std::string name = TextOf(className).orEmpty();
  qbdkr::QBHPAppleEventProcesser::share().removeObjectforKeyToMapTable(name);
  std::multimap<std::string, std::unique_ptr<ObjectService>> removed;  // ends without the lock
  const std::lock_guard lock(registered().mutex);
  while (auto service = registered().services.extract(name)) removed.insert(std::move(service));
}

@end
// clang-format on
