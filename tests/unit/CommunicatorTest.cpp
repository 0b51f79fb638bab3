#include "CommunicatorTest.h"

#include <filesystem>
#include <utility>

#include <ClientComm/QBHPAppleEventProcesser.h>
#include <ClientComm/QBHPHelperControl.h>
#include <ClientComm/QBHPUpgradeByHelper.h>

#include "ClientComm/HostConfiguration.h"

namespace qbdkr::test {
namespace {

class TestCommunicator : public QBHPHelperCommunicate {
 public:
  TestCommunicator(HostConfiguration host, UserDefaults& settings, const SystemCalls& system)
      : QBHPHelperCommunicate(std::move(host), settings, system) {}
};

class TestFacade : public QBHPHelper {
 public:
  TestFacade(QBHPHelperCommunicate& communicator, RunLoop& loop) : QBHPHelper(communicator, loop) {}
};

}  // namespace

bool RecordingWorkspace::open(const std::string& path) {
  {
    const std::lock_guard lock(mutex_);
    opened_.push_back(path);
  }
  return answer(path);
}

bool RecordingWorkspace::waitForEnd(const std::string& path, std::chrono::milliseconds time) {
  {
    const std::lock_guard lock(mutex_);
    awaited_.emplace_back(path, time);
  }
  onWaitForEnd(path);
  return true;
}

std::vector<std::pair<std::string, std::chrono::milliseconds>> RecordingWorkspace::awaited() const {
  const std::lock_guard lock(mutex_);
  return awaited_;
}

std::vector<std::string> RecordingWorkspace::opened() const {
  const std::lock_guard lock(mutex_);
  return opened_;
}

void RecordingWorkspace::clear() {
  const std::lock_guard lock(mutex_);
  opened_.clear();
  awaited_.clear();
  onWaitForEnd = [](const std::string&) {};
  answer = [](const std::string&) { return true; };
  startsProcesses = true;
}

FileLock WatchedLocks::acquire(const std::string& path, std::chrono::milliseconds time) {
  {
    const std::lock_guard lock(mutex_);
    patience_[path] = time;
  }
  return FileLock::acquire(exist ? path : "", wait ? time : std::chrono::milliseconds(0));
}

std::chrono::milliseconds WatchedLocks::patienceFor(const std::string& path) const {
  const std::lock_guard lock(mutex_);
  const auto found = patience_.find(path);
  return found == patience_.end() ? std::chrono::milliseconds(0) : found->second;
}

void WatchedLocks::clear() {
  const std::lock_guard lock(mutex_);
  patience_.clear();
  wait = true;
  exist = true;
}

CommunicatorTest::CommunicatorTest() { transport.reset(); }
CommunicatorTest::~CommunicatorTest() { endHost(); }

void CommunicatorTest::withHost(const PropertyList::Dictionary& info, const Body& body,
                                const Strings& infoPlistStrings) {
  const TemporaryDirectory root;
  const Host host = writeHost(root.path(), info, infoPlistStrings);
  useHome(host.home);
  bundle_ = std::make_unique<Bundle>(Bundle::withPath(host.bundle).value());
  settings_ =
      std::make_unique<UserDefaults>(bundle_->infoString(kCFBundleIdentifierKey).value_or(""));
  body(host);
  endHost();
}

void CommunicatorTest::withUsedHost(const PropertyList::Dictionary& info, const Body& body,
                                    const Strings& infoPlistStrings) {
  withHost(info, afterEarlierStarts(body), infoPlistStrings);
}

QBHPHelperCommunicate& CommunicatorTest::communicator() {
  if (communicator_) return *communicator_;
  // Another test may have ended a dispatcher, or a control of its own.
  auto& processer = QBHPAppleEventProcesser::share();
  processer.regist();
  processer.setObjectforKeyToMapTable(QBHPHelperControl::share(), QBHPHelperControl::kClassName);
  SystemCalls system;
  system.startThread = threads.starter();
  system.open = [this](const std::string& path, const std::function<void()>& onStart,
                       Placement placement) {
    workspace.placement = placement;
    if (workspace.startsProcesses) onStart();
    return workspace.open(path);
  };
  system.waitForEnd = [this](Text, const std::string& path, std::chrono::milliseconds time) {
    return workspace.waitForEnd(path, time);
  };
  system.lock = [this](const std::string& path, std::chrono::milliseconds time) {
    return locks.acquire(path, time);
  };
  system.reachedProcess = [this](const std::string&) { return reachedProcess(); };
  system.now = [this] { return now(); };
  communicator_ =
      std::make_unique<TestCommunicator>(HostConfiguration(*bundle_), *settings_, system);
  return *communicator_;
}

QBHPHelper& CommunicatorTest::facade() {
  if (!facade_) facade_ = makeFacade();
  return *facade_;
}

std::unique_ptr<QBHPHelper> CommunicatorTest::makeFacade() {
  return std::make_unique<TestFacade>(communicator(), runLoop);
}

void CommunicatorTest::endHost() {
  facade_.reset();
  runLoop.clear();
  QBHPHelperControl::share().setHelperCtrlDelegate(nullptr);
  QBHPUpgradeByHelper::share().setProductUpgradeDelegate(nullptr);
  communicator_.reset();
  settings_.reset();
  bundle_.reset();
  threads.clear();
  workspace.clear();
  locks.clear();
  transport.reset();
}

}  // namespace qbdkr::test
