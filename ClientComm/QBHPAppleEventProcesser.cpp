#include "ClientComm/QBHPAppleEventProcesser.h"

#include "ClientComm/ClassRegistry.h"
#include "ClientComm/Exceptions.h"
#include "Platform/Bundle.h"
#include "Platform/Log.h"
#include "Platform/ProcessTable.h"
#include "Platform/SerialNumber.h"

namespace qbdkr {
namespace {

// Whether this thread makes an object for an event right now.
thread_local bool makingObject = false;

String textOfItem(const AppleEventDescriptor& list, std::size_t index) {
  const AppleEventDescriptor* item = list.descriptorAtIndex(index);
  return item == nullptr ? std::nullopt : item->stringValue();
}

std::string requiredText(const AppleEventDescriptor& list, std::size_t index) {
  auto text = textOfItem(list, index);
  if (!text) throw InvalidArgumentException("an item of an RPC event is not text");
  return *std::move(text);
}

// The bundle identifier of the application that sent an event; absent when its process is not known
// or belongs to no application.
String senderOf(const AppleEvent& event) {
  const AppleEventDescriptor* address = event.attributeDescriptor(keyAddressAttr);
  if (address == nullptr) return std::nullopt;
  const auto serial = address->coerceToDescriptorType(typeProcessSerialNumber);
  const auto number = serial ? serialNumberFromBytes(serial->data()) : std::nullopt;
  if (!number) return std::nullopt;
  const auto information = copyProcessInformation(*number);
  return information ? information->text(kCFBundleIdentifierKey) : std::nullopt;
}

}  // namespace

QBHPAppleEventProcesser& QBHPAppleEventProcesser::share() {
  static auto& processer = *new QBHPAppleEventProcesser;
  return processer;
}

QBHPAppleEventProcesser::QBHPAppleEventProcesser() { regist(); }

QBHPAppleEventProcesser::~QBHPAppleEventProcesser() { unRegist(); }

void QBHPAppleEventProcesser::regist() {
  AppleEventTransport::shared().setEventHandler(
      kCoreEventClass, kAECall,
      [this](const AppleEvent& event, AppleEvent& reply) { process(event, reply); });
}

void QBHPAppleEventProcesser::unRegist() {
  AppleEventTransport::shared().removeEventHandler(kCoreEventClass, kAECall);
}

void QBHPAppleEventProcesser::setObjectforKeyToMapTable(QBHPAppEventBase& object,
                                                        std::string_view forKey) {
  const std::lock_guard lock(mapMutex_);
  // An object that is made for an event must not push aside the singleton that another thread has
  // just registered.
  if (makingObject) {
    mapTable_.try_emplace(std::string(forKey), &object);
  } else {
    mapTable_.insert_or_assign(std::string(forKey), &object);
  }
}

void QBHPAppleEventProcesser::removeObjectforKeyToMapTable(std::string_view className) {
  // Not while a method of the object runs on another thread.
  const std::lock_guard notDispatching(dispatching_);
  const std::lock_guard lock(mapMutex_);
  if (const auto entry = mapTable_.find(className); entry != mapTable_.end())
    mapTable_.erase(entry);
}

void QBHPAppleEventProcesser::process(const AppleEvent& event, AppleEvent& withReplyEvent) {
  const AppleEventDescriptor* directObject = event.paramDescriptor(keyDirectObject);
  const AppleEventDescriptor* arguments =
      directObject == nullptr ? nullptr : directObject->descriptorAtIndex(3);
  if (arguments == nullptr) throw InvalidArgumentException("not an RPC event");

  std::vector<std::string> texts;
  texts.reserve(arguments->numberOfItems());
  for (std::size_t i = 1; i <= arguments->numberOfItems(); ++i) {
    texts.push_back(requiredText(*arguments, i));
  }
  const std::string className = requiredText(*directObject, 1);
  const std::string method = requiredText(*directObject, 2);
  const std::vector<Text> parameter(texts.begin(), texts.end());
  auto result = reflection(className, method, parameter, view(senderOf(event)));
  if (!result) return;
  withReplyEvent.setParamDescriptor(keyDirectObject,
                                    AppleEventDescriptor::withString(*std::move(result)));
}

String QBHPAppleEventProcesser::reflection(std::string_view className, std::string_view method,
                                           std::span<const Text> parameter, Text bundleID) {
  const std::lock_guard lock(dispatching_);
  QBHPAppEventBase* object = objectForClass(className);
  if (object == nullptr) {
    log("classname is a class but it not find");
    return std::nullopt;
  }
  try {
    object->setBundleID(bundleID);
    return object->performSelector(method, parameter);
  } catch (...) {  // whatever a method throws is its own affair; the sender gets no result
    return std::nullopt;
  }
}

QBHPAppEventBase* QBHPAppleEventProcesser::objectForClass(std::string_view className) {
  if (QBHPAppEventBase* registered = registeredObject(className)) return registered;
  // Without the lock: the object may register itself while it is made.
  makingObject = true;
  std::unique_ptr<QBHPAppEventBase> made;
  try {
    made = makeObject(className);
  } catch (...) {
    makingObject = false;
    throw;
  }
  makingObject = false;
  if (!made) return nullptr;
  const std::lock_guard lock(mapMutex_);
  made_.push_back(std::move(made));
  return mapTable_.try_emplace(std::string(className), made_.back().get()).first->second;
}

QBHPAppEventBase* QBHPAppleEventProcesser::registeredObject(std::string_view className) {
  const std::lock_guard lock(mapMutex_);
  const auto entry = mapTable_.find(className);
  return entry == mapTable_.end() ? nullptr : entry->second;
}

}  // namespace qbdkr
