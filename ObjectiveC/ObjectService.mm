#import "ObjectiveC/ObjectService.h"

#import <objc/runtime.h>

#include <cstdlib>
#include <memory>
#include <utility>

#include <ClientComm/ClassRegistry.h>

#import "ObjectiveC/Conversion.h"

namespace qbdkr::objc {
namespace {

// Tells whether another process may call a method by its name: methods of the base, among them
// those that count references, and those that make an object or take it apart are not for it.
bool isForEvents(SEL selector, std::string_view name) {
  return !name.starts_with("init") && !name.starts_with('.') &&
         ![::QBHPAppEventBase instancesRespondToSelector:selector];
}

// Returns a method that a service class implements; null if there is no such method. Does not make
// a selector of the name, which the runtime would keep for ever.
SEL selectorOf(Class service, std::string_view name) {
  SEL found = nullptr;
  for (; service != [::QBHPAppEventBase class] && service != Nil && found == nullptr;
       service = class_getSuperclass(service)) {
    unsigned count = 0;
    ::Method* const methods = class_copyMethodList(service, &count);
    for (unsigned i = 0; i < count && found == nullptr; ++i) {
      const SEL selector = method_getName(methods[i]);
      if (name == sel_getName(selector) && isForEvents(selector, name)) found = selector;
    }
    std::free(methods);
  }
  return found;
}

bool isService(Class found) {
  while (found != Nil && found != [::QBHPAppEventBase class]) found = class_getSuperclass(found);
  return found != Nil;
}

std::unique_ptr<qbdkr::QBHPAppEventBase> makeService(std::string_view className) {
  const Pool pool;
  const Class found = NSClassFromString(stringOf(className));
  if (!isService(found)) return nullptr;
  ::QBHPAppEventBase* const object = AUTORELEASE([[found alloc] init]);
  if (object == nil) return nullptr;
  return std::make_unique<ObjectService>(object, std::string(className));
}

// Set when the library is loaded.
[[maybe_unused]] const bool finderIsSet = (setClassFinder(makeService), true);

}  // namespace

ObjectService::ObjectService(::QBHPAppEventBase* object, std::string className)
    : object_(RETAIN(object)), className_(std::move(className)) {}

ObjectService::~ObjectService() { RELEASE(object_); }

void ObjectService::setBundleID(Text bundleID) {
  const Pool pool;
  [object_ setBundleID:stringOf(bundleID)];
}

String ObjectService::performSelector(std::string_view selector, std::span<const Text> objects) {
  const Pool pool;
  const SEL method = selectorOf([object_ class], selector);
  if (method == nullptr) return qbdkr::QBHPAppEventBase::performSelector(selector, objects);
  NSMutableArray* const arguments = [NSMutableArray array];
  for (const Text& text : objects) [arguments addObject:stringOf(text)];
  // The method may remove the object, and with it this one.
  ::QBHPAppEventBase* const object = AUTORELEASE(RETAIN(object_));
  const id result = [object performSelector:method withObjects:arguments];
  return [result isKindOfClass:[NSString class]] ? String(TextOf(result).orEmpty()) : std::nullopt;
}

}  // namespace qbdkr::objc
