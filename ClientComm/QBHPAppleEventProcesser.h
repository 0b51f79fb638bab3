#pragma once

#include <map>
#include <memory>
#include <mutex>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "ClientComm/QBHPAppEventBase.h"
#include "ClientComm/Text.h"
#include "Platform/AppleEvent.h"
#include "Platform/Export.h"

namespace qbdkr {

// Receives every RPC event of the process, on the main run loop, and calls the method that it names
// on the object that is registered under its class name. Where none is registered but the class is
// known, an object is made, and kept. Methods never overlap: each runs under a lock of this object,
// and may itself send requests.
//
// Only events of an application with a bundle identifier are dispatched. An unknown class is
// logged; an unknown method, a wrong number of arguments and an exception are not, and all of them
// give a reply without a result.
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

  // Registers an object, which must live until it is removed, under a class name; replaces one that
  // is there. Removing waits while a method runs on another thread. Any thread.
  void setObjectforKeyToMapTable(QBHPAppEventBase& object, std::string_view forKey);
  void removeObjectforKeyToMapTable(std::string_view className);

  // Handles one event, whose sender the platform vouches for, and stores a result in the reply.
  // Throws InvalidArgumentException for an event that is not of the form; the platform answers it.
  // Blocks as the method does.
  void process(const AppleEvent& event, AppleEvent& withReplyEvent);

 private:
  String reflection(std::string_view className, std::string_view method,
                    std::span<const Text> parameter, Text bundleID);
  QBHPAppEventBase* objectForClass(std::string_view className);
  QBHPAppEventBase* registeredObject(std::string_view className);

  std::mutex mapMutex_;
  std::map<std::string, QBHPAppEventBase*, std::less<>> mapTable_;
  std::vector<std::unique_ptr<QBHPAppEventBase>> made_;  // kept although another may replace them
  std::recursive_mutex dispatching_;
};

}  // namespace qbdkr
