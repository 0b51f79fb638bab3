#include <map>
#include <mutex>
#include <string>

#include <ClientComm/ClassRegistry.h>
#include <ClientComm/QBHPCustomerServiceByHelepr.h>
#include <ClientComm/QBHPGetDataByHelper.h>
#include <ClientComm/QBHPHelperControl.h>
#include <ClientComm/QBHPUpgradeByHelper.h>
#include <ClientComm/QBHPUploadByHelper.h>

#include "Platform/Base/NeverDestroyed.h"

namespace qbdkr {
namespace {

template <class Service>
std::unique_ptr<QBHPAppEventBase> make() {
  return std::make_unique<Service>();
}

struct Registry {
  std::mutex mutex;
  std::map<std::string, ClassMaker, std::less<>> makers{
      {std::string(QBHPCustomerServiceByHelepr::kClassName), make<QBHPCustomerServiceByHelepr>},
      {std::string(QBHPGetDataByHelper::kClassName), make<QBHPGetDataByHelper>},
      {std::string(QBHPHelperControl::kClassName), make<QBHPHelperControl>},
      {std::string(QBHPUpgradeByHelper::kClassName), make<QBHPUpgradeByHelper>},
      {std::string(QBHPUploadByHelper::kClassName), make<QBHPUploadByHelper>},
  };
  ClassFinder finder = nullptr;
};

Registry& registry() {
  static NeverDestroyed instance([] { return Registry(); });
  return *instance;
}

}  // namespace

void registerClass(std::string_view className, ClassMaker maker) {
  const std::lock_guard lock(registry().mutex);
  registry().makers.insert_or_assign(std::string(className), maker);
}

void setClassFinder(ClassFinder finder) {
  const std::lock_guard lock(registry().mutex);
  registry().finder = finder;
}

std::unique_ptr<QBHPAppEventBase> makeObject(std::string_view className) {
  ClassMaker maker = nullptr;
  ClassFinder finder = nullptr;
  {
    const std::lock_guard lock(registry().mutex);
    const auto entry = registry().makers.find(className);
    if (entry != registry().makers.end()) maker = entry->second;
    finder = registry().finder;
  }
  if (maker != nullptr) return maker();
  return finder == nullptr ? nullptr : finder(className);
}

}  // namespace qbdkr
