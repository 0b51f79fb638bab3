#pragma once

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include <ClientComm/Bundle.h>
#include <ClientComm/UserDefaults.h>
#include <QBDKRProductClient/QBHPHelper.h>
#include <QBDKRProductClient/QBHPHelperCommunicate.h>

#include "HeldThreads.h"
#include "Host.h"
#include "Platform/Files/FileLock.h"
#include "ProductClient/HostSystem.h"
#include "RecordingRunLoop.h"
#include "support/RecordingTransport.h"

namespace qbdkr::test {

// The workspace: opens nothing, and answers what it is told.
class RecordingWorkspace {
 public:
  bool open(const std::string& path);
  // Called in the place of opening.
  std::function<bool(const std::string& path)> answer = [](const std::string&) { return true; };
  [[nodiscard]] std::vector<std::string> opened() const;
  void clear();

 private:
  mutable std::mutex mutex_;
  std::vector<std::string> opened_;
};

// File locks: the real ones, without waiting for them if a test says so.
class WatchedLocks {
 public:
  FileLock acquire(const std::string& path, std::chrono::milliseconds time);
  // Whether a lock is waited for, and whether this file system has locks.
  std::atomic<bool> wait{true};
  std::atomic<bool> exist{true};
  // How long the framework would have waited for a path; 0 for one that it did not lock.
  [[nodiscard]] std::chrono::milliseconds patienceFor(const std::string& path) const;
  void clear();

 private:
  mutable std::mutex mutex_;
  std::map<std::string, std::chrono::milliseconds> patience_;
};

// A communicator in this process, over a host that each body gets for its own: a bundle, a home
// directory and their settings. Its threads are held, it opens nothing, and the transport records.
class CommunicatorTest : public testing::Test {
 protected:
  CommunicatorTest();
  ~CommunicatorTest() override;

  using Body = std::function<void(const Host&)>;
  using Strings = std::map<std::string, std::string>;

  // Runs a body with a new host of this information dictionary and an empty home directory. The
  // bundle has the strings files that are given, by the language of their folder.
  void withHost(const PropertyList::Dictionary& info, const Body& body,
                const Strings& infoPlistStrings = {});
  // The same with a host that has run before, as inUsedHost() says.
  void withUsedHost(const PropertyList::Dictionary& info, const Body& body,
                    const Strings& infoPlistStrings = {});

  // That of the host; made on first use.
  QBHPHelperCommunicate& communicator();
  // A facade over it with its timer on the recording loop; made on first use.
  QBHPHelper& facade();
  // Another one.
  [[nodiscard]] std::unique_ptr<QBHPHelper> makeFacade();
  [[nodiscard]] const Bundle& hostBundle() const { return *bundle_; }
  [[nodiscard]] UserDefaults& settings() { return *settings_; }

  RecordingTransport& transport = RecordingTransport::installed();
  HeldThreads threads;
  RecordingWorkspace workspace;
  WatchedLocks locks;
  RecordingRunLoop runLoop;
  // In the place of the clock.
  std::function<std::time_t()> now = HostSystem().now;

 private:
  void endHost();

  std::unique_ptr<Bundle> bundle_;
  std::unique_ptr<UserDefaults> settings_;
  std::unique_ptr<QBHPHelperCommunicate> communicator_;
  std::unique_ptr<QBHPHelper> facade_;
};

}  // namespace qbdkr::test
