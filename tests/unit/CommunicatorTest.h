#pragma once

#include <gtest/gtest.h>
#include <sys/types.h>

#include <atomic>
#include <chrono>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include <ClientComm/Bundle.h>
#include <ClientComm/UserDefaults.h>
#include <QBDKRProductClient/QBHPHelper.h>
#include <QBDKRProductClient/QBHPHelperCommunicate.h>

#include "HeldThreads.h"
#include "Host.h"
#include "Platform/Files/FileLock.h"
#include "ProductClient/SystemCalls.h"
#include "RecordingRunLoop.h"
#include "support/RecordingTransport.h"

namespace qbdkr::test {

// Replaces the workspace: opens nothing, records the paths, and returns the answer of the test.
class RecordingWorkspace {
 public:
  bool open(const std::string& path);
  // Called instead of opening an application.
  std::function<bool(const std::string& path)> answer = [](const std::string&) { return true; };
  [[nodiscard]] std::vector<std::string> opened() const;
  // False if the applications run already.
  bool startsProcesses = true;
  Placement placement = Placement::withHost;  // of the last one that was opened

  // Records the wait for an application's end, and returns at once.
  bool waitForEnd(const std::string& path, std::chrono::milliseconds time);
  std::function<void(const std::string& path)> onWaitForEnd = [](const std::string&) {};
  [[nodiscard]] std::vector<std::pair<std::string, std::chrono::milliseconds>> awaited() const;

  void clear();

 private:
  mutable std::mutex mutex_;
  std::vector<std::string> opened_;
  std::vector<std::pair<std::string, std::chrono::milliseconds>> awaited_;
};

// Takes real file locks. A test can turn off the waiting, or the locks.
class WatchedLocks {
 public:
  FileLock acquire(const std::string& path, std::chrono::milliseconds time);
  // Whether to wait for a lock, and whether this file system has locks.
  std::atomic<bool> wait{true};
  std::atomic<bool> exist{true};
  // Returns the patience with which the framework last locked a path; 0 if it did not.
  [[nodiscard]] std::chrono::milliseconds patienceFor(const std::string& path) const;
  void clear();

 private:
  mutable std::mutex mutex_;
  std::map<std::string, std::chrono::milliseconds> patience_;
};

// Runs a communicator in this process. Each body gets a host of its own: a bundle, a home directory
// and their settings. The test runs the communicator's threads; nothing is opened or sent.
class CommunicatorTest : public testing::Test {
 protected:
  CommunicatorTest();
  ~CommunicatorTest() override;

  using Body = std::function<void(const Host&)>;
  using Strings = std::map<std::string, std::string>;

  // Runs a body with a new host and an empty home directory. The bundle has this information
  // dictionary, and these strings files by the language of their folder.
  void withHost(const PropertyList::Dictionary& info, const Body& body,
                const Strings& infoPlistStrings = {});
  // Does the same with a host that has run before, as inUsedHost() does.
  void withUsedHost(const PropertyList::Dictionary& info, const Body& body,
                    const Strings& infoPlistStrings = {});

  // Returns the host's communicator, made on first use.
  QBHPHelperCommunicate& communicator();
  // Returns its facade, made on first use, with the timer on the recording loop.
  QBHPHelper& facade();
  // Makes another facade.
  [[nodiscard]] std::unique_ptr<QBHPHelper> makeFacade();
  [[nodiscard]] const Bundle& hostBundle() const { return *bundle_; }
  [[nodiscard]] UserDefaults& settings() { return *settings_; }

  RecordingTransport& transport = RecordingTransport::installed();
  HeldThreads threads;
  RecordingWorkspace workspace;
  WatchedLocks locks;
  RecordingRunLoop runLoop;
  // Replaces the question which process requests reach.
  std::function<std::optional<pid_t>()> reachedProcess = [] { return std::nullopt; };
  // Replaces the clock.
  std::function<std::time_t()> now = SystemCalls().now;

 private:
  void endHost();

  std::unique_ptr<Bundle> bundle_;
  std::unique_ptr<UserDefaults> settings_;
  std::unique_ptr<QBHPHelperCommunicate> communicator_;
  std::unique_ptr<QBHPHelper> facade_;
};

}  // namespace qbdkr::test
