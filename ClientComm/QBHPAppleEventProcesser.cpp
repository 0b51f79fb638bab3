#include <optional>

#include <ClientComm/ClassRegistry.h>
#include <ClientComm/Exceptions.h>
#include <ClientComm/LogHandler.h>
#include <ClientComm/QBHPAppleEventProcesser.h>

#include "ClientComm/RequestRecord.h"
#include "Platform/Base/NeverDestroyed.h"
#include "Platform/Events/AppleEvents/RPCAppleEvent.h"
#include "Platform/Events/RPCTransport.h"
#include "Platform/Record/Record.h"

namespace qbdkr {
namespace {

// The class of which this thread is making an object for an event.
thread_local std::optional<std::string_view> classBeingMade;

// Sets that class, and restores the previous one: a constructor may dispatch events itself, and so
// make an object of another class.
class MakingOf {
 public:
  explicit MakingOf(std::string_view className) : before_(classBeingMade) {
    classBeingMade = className;
  }
  MakingOf(const MakingOf&) = delete;
  MakingOf& operator=(const MakingOf&) = delete;
  ~MakingOf() { classBeingMade = before_; }

 private:
  std::optional<std::string_view> before_;
};

}  // namespace

QBHPAppleEventProcesser& QBHPAppleEventProcesser::share() {
  static NeverDestroyed processer([] { return QBHPAppleEventProcesser(); });
  return *processer;
}

QBHPAppleEventProcesser::QBHPAppleEventProcesser() { regist(); }

QBHPAppleEventProcesser::~QBHPAppleEventProcesser() { unRegist(); }

void QBHPAppleEventProcesser::regist() {
  RPCTransport::shared().setHandler(
      [this](const RPCEvent& event, const String& sender) { return dispatch(event, sender); });
}

void QBHPAppleEventProcesser::unRegist() { RPCTransport::shared().removeHandler(); }

void QBHPAppleEventProcesser::setObjectforKeyToMapTable(QBHPAppEventBase& object,
                                                        std::string_view forKey) {
  const std::lock_guard lock(mapMutex_);
  // An object made for an event must not replace the singleton of its class that another thread has
  // just registered. Any other object replaces the entry.
  if (classBeingMade == forKey) {
    mapTable_.try_emplace(std::string(forKey), &object);
  } else {
    mapTable_.insert_or_assign(std::string(forKey), &object);
  }
}

void QBHPAppleEventProcesser::removeObjectforKeyToMapTable(std::string_view className) {
  // Does not take the lock of dispatching: a running method may wait for this thread.
  const std::lock_guard lock(mapMutex_);
  if (const auto entry = mapTable_.find(className); entry != mapTable_.end())
    mapTable_.erase(entry);
}

void QBHPAppleEventProcesser::process(const AppleEvent& event, AppleEvent& withReplyEvent) {
  const auto read = rpcEventOf(event);
  if (!read) throw InvalidArgumentException("an argument of an RPC event is not text");
  auto result = dispatch(*read, senderOf(event));
  if (result) setResult(withReplyEvent, *std::move(result));
}

String QBHPAppleEventProcesser::dispatch(const RPCEvent& event, const String& sender) {
  const std::vector<Text> parameter(event.arguments.begin(), event.arguments.end());
  return reflection(view(event.className), view(event.methodName), parameter, view(sender));
}

String QBHPAppleEventProcesser::reflection(Text className, Text method,
                                           std::span<const Text> parameter, Text bundleID) {
  QBHPAppEventBase* object = className ? objectForClass(*className) : nullptr;
  if (object == nullptr) {
    log(LogLevel::error, LogCategory::report, "classname is a class but it not find", {});
    record(StepKind::classUnknown, className.value_or(""), bundleID.value_or(""));
    return std::nullopt;
  }
  try {
    const std::lock_guard lock(dispatching_);
    object->setBundleID(bundleID);
    return method ? object->performSelector(*method, parameter) : std::nullopt;
  } catch (...) {  // the sender gets no result
    record(bundleID ? StepKind::methodFailed : StepKind::senderRefused,
           MethodText(*className, method.value_or("")).text(), bundleID.value_or(""));
    return std::nullopt;
  }
}

QBHPAppEventBase* QBHPAppleEventProcesser::objectForClass(std::string_view className) {
  if (QBHPAppEventBase* registered = registeredObject(className)) return registered;
  std::unique_ptr<QBHPAppEventBase> made;
  {
    // Holds no lock: the constructor may register the object.
    const MakingOf making(className);
    made = makeObject(className);
  }
  if (!made) return nullptr;
  const std::lock_guard lock(mapMutex_);
  // Kept in any case: the destructor removes the entry of its class, which may be another object's.
  made_.push_back(std::move(made));
  return mapTable_.try_emplace(std::string(className), made_.back().get()).first->second;
}

QBHPAppEventBase* QBHPAppleEventProcesser::registeredObject(std::string_view className) {
  const std::lock_guard lock(mapMutex_);
  const auto entry = mapTable_.find(className);
  return entry == mapTable_.end() ? nullptr : entry->second;
}

}  // namespace qbdkr
