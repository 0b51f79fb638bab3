#pragma once

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

// Receives every RPC event of the process, on the main run loop, and calls the method that it names
// on the object that is registered under its class name. If none is registered but the class is
// known (ClassRegistry.h), an object is made, and kept. Methods never overlap: each runs under a
// lock of this object, and may itself send requests.
//
// Only events of an application with a bundle identifier are dispatched. An unknown class, or an
// event that names none, is logged. An unknown method, too many arguments and an exception are not
// logged. All of them give a reply without a result.
class QBDKR_EXPORT QBHPAppleEventProcesser {
 public:
  // The dispatcher of this process; made on first use, which installs it, and never destroyed.
  static QBHPAppleEventProcesser& share();

  QBHPAppleEventProcesser();
  QBHPAppleEventProcesser(const QBHPAppleEventProcesser&) = delete;
  QBHPAppleEventProcesser& operator=(const QBHPAppleEventProcesser&) = delete;
  ~QBHPAppleEventProcesser();

  // Installs and removes this object as the process's handler of RPC events. Any thread, at once.
  void regist();
  void unRegist();

  // Registers an object under a class name, and replaces one that is there. Events may reach the
  // object from then on, so a constructor that registers does so last. Any thread, at once.
  void setObjectforKeyToMapTable(QBHPAppEventBase& object, std::string_view forKey);

  // Removes the entry of a class name. Any thread, at once: a method of the object that runs on the
  // main thread is not waited for, because that may itself wait for the thread that removes. An
  // object is therefore destroyed on the main thread, or while no event can come for it.
  void removeObjectforKeyToMapTable(std::string_view className);

  // Handles one event in its form on macOS, whose sender the system vouches for, and stores a
  // result in the reply. A name that is missing or not text counts as absent, and a missing list
  // has no arguments. Only an argument that is not text throws InvalidArgumentException, before
  // anything is called; the platform answers it. Blocks as the method does.
  void process(const AppleEvent& event, AppleEvent& withReplyEvent);

 private:
  String dispatch(const RPCEvent& event, const String& sender);
  String reflection(Text className, Text method, std::span<const Text> parameter, Text bundleID);
  QBHPAppEventBase* objectForClass(std::string_view className);
  QBHPAppEventBase* registeredObject(std::string_view className);

  std::mutex mapMutex_;
  std::map<std::string, QBHPAppEventBase*, std::less<>> mapTable_;
  std::vector<std::unique_ptr<QBHPAppEventBase>> made_;  // as long as this object
  std::recursive_mutex dispatching_;
};

}  // namespace qbdkr
