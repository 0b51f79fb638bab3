#pragma once

#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include <ClientComm/AppleEvent.h>
#include <ClientComm/Export.h>
#include <ClientComm/QBHPAppEventBase.h>
#include <ClientComm/TextValue.h>

namespace qbdkr {

struct RPCEvent;

// Receives every RPC event of the process on the main run loop, and calls the named method on the
// object registered under the class name. Without such an object it makes one of a known class
// (ClassRegistry.h), and keeps it. Methods run under a lock of this object, one thread at a time,
// and may themselves send requests.
//
// Only events of an application with a bundle identifier are dispatched. A missing or unknown class
// is logged; an unknown method, too many arguments and an exception of a method are not. All of
// them give a reply without a result. If a class's constructor throws, the platform answers with an
// error.
class QBDKR_EXPORT QBHPAppleEventProcesser {
 public:
  // Returns the dispatcher of this process, made and installed on first use, never destroyed. Any
  // thread. Throws as RunLoop::main() does; a later call then tries again.
  static QBHPAppleEventProcesser& share();

  // Installs itself, and removes the handler on destruction.
  QBHPAppleEventProcesser();
  QBHPAppleEventProcesser(const QBHPAppleEventProcesser&) = delete;
  QBHPAppleEventProcesser& operator=(const QBHPAppleEventProcesser&) = delete;
  ~QBHPAppleEventProcesser();

  // Install this object as the process's handler of RPC events, and remove the handler. Any thread;
  // do not wait.
  void regist();
  void unRegist();

  // Registers an object under a class name. It replaces an earlier one, unless the dispatcher is
  // making it for an event. Events may reach the object at once, so a constructor registers last.
  // Any thread; does not wait.
  void setObjectforKeyToMapTable(QBHPAppEventBase& object, std::string_view forKey);

  // Removes the entry of a class name. Any thread. Does not wait for a method that runs on the main
  // thread, because that may wait for the calling thread. Destroy an object on the main thread, or
  // while no event can come for it.
  void removeObjectforKeyToMapTable(std::string_view className);

  // Handles one event in its form on macOS, and stores a result in the reply. Takes the sender from
  // the address in the event. A name that is missing or not text counts as absent, a missing list
  // as empty. Throws InvalidArgumentException, before it calls anything, if an argument is not
  // text. Runs on the calling thread; blocks as the method does.
  void process(const AppleEvent& event, AppleEvent& withReplyEvent);

 private:
  String dispatch(const RPCEvent& event, const String& sender);
  String reflection(Text className, Text method, std::span<const Text> parameter, Text bundleID);
  QBHPAppEventBase* objectForClass(std::string_view className);
  QBHPAppEventBase* registeredObject(std::string_view className);

  std::mutex mapMutex_;
  std::map<std::string, QBHPAppEventBase*, std::less<>> mapTable_;
  std::vector<std::unique_ptr<QBHPAppEventBase>> made_;  // kept as long as this object
  std::recursive_mutex dispatching_;
};

}  // namespace qbdkr
