#include "Seams.h"

#include <atomic>
#include <stdexcept>
#include <utility>

#include "Platform/Bundles/Bundle.h"
#include "Platform/Defaults/UserDefaults.h"
#include "Platform/Files/FileLock.h"
#include "Platform/Processes/ProcessTable.h"

namespace qbdkr::test {
namespace {

std::atomic<RecordingRunLoop*> runLoop{nullptr};
std::atomic<RecordingWorkspace*> workspace{nullptr};
std::atomic<HeldThreads*> threads{nullptr};
std::atomic<OtherInformation*> information{nullptr};
std::atomic<WatchedProcessTable*> processTable{nullptr};
std::atomic<WatchedDefaults*> defaults{nullptr};
std::atomic<ImpatientLocks*> locks{nullptr};

}  // namespace

RecordingRunLoop::RecordingRunLoop() { runLoop = this; }
RecordingRunLoop::~RecordingRunLoop() { runLoop = nullptr; }

std::shared_ptr<RunLoopTimer> RecordingRunLoop::scheduleTimer(std::chrono::milliseconds interval,
                                                              TimerTask task) {
  timers_.push_back(std::make_shared<Timer>(interval, std::move(task)));
  return timers_.back();
}

RecordingWorkspace::RecordingWorkspace() { workspace = this; }
RecordingWorkspace::~RecordingWorkspace() { workspace = nullptr; }

bool RecordingWorkspace::open(const std::string& path) {
  {
    const std::lock_guard lock(mutex_);
    opened_.push_back(path);
  }
  return answer(path);
}

std::vector<std::string> RecordingWorkspace::opened() const {
  const std::lock_guard lock(mutex_);
  return opened_;
}

HeldThreads::HeldThreads() { threads = this; }
HeldThreads::~HeldThreads() { threads = nullptr; }

bool HeldThreads::hold(std::function<void()> body) {
  onDetach();
  const std::lock_guard lock(mutex_);
  if (refuses) return false;
  bodies_.push_back(std::move(body));
  return true;
}

std::size_t HeldThreads::count() const {
  const std::lock_guard lock(mutex_);
  return bodies_.size();
}

void HeldThreads::runNext() {
  std::function<void()> body;
  {
    const std::lock_guard lock(mutex_);
    if (bodies_.empty()) throw std::logic_error("no thread was detached");
    body = std::move(bodies_.front());
    bodies_.erase(bodies_.begin());
  }
  body();
}

OtherInformation::OtherInformation(PropertyList::Dictionary info) : info_(std::move(info)) {
  information = this;
}
OtherInformation::~OtherInformation() { information = nullptr; }

std::optional<std::string> OtherInformation::string(std::string_view key) const {
  const PropertyList* value = info_.find(key);
  return value == nullptr ? std::nullopt : std::optional(*value->string());
}

WatchedProcessTable::WatchedProcessTable() { processTable = this; }
WatchedProcessTable::~WatchedProcessTable() { processTable = nullptr; }

WatchedDefaults::WatchedDefaults(std::function<void(std::string_view)> afterRead)
    : afterRead_(std::move(afterRead)) {
  defaults = this;
}
WatchedDefaults::~WatchedDefaults() { defaults = nullptr; }

ImpatientLocks::ImpatientLocks() { locks = this; }
ImpatientLocks::~ImpatientLocks() { locks = nullptr; }

void ImpatientLocks::note(const std::string& path, std::chrono::milliseconds patience) {
  const std::lock_guard lock(mutex_);
  patience_[path] = patience;
}

std::chrono::milliseconds ImpatientLocks::patienceFor(const std::string& path) const {
  const std::lock_guard lock(mutex_);
  const auto found = patience_.find(path);
  return found == patience_.end() ? std::chrono::milliseconds(0) : found->second;
}

}  // namespace qbdkr::test

extern "C" {

// A reference is a pointer to the linker.
qbdkr::RunLoop* __real__ZN5qbdkr7RunLoop7currentEv();
qbdkr::RunLoop* __wrap__ZN5qbdkr7RunLoop7currentEv();
qbdkr::RunLoop* __wrap__ZN5qbdkr7RunLoop7currentEv() {
  if (auto* runLoop = qbdkr::test::runLoop.load()) return runLoop;
  return __real__ZN5qbdkr7RunLoop7currentEv();
}

bool __real__ZN5qbdkr8openFileERKNSt7__cxx1112basic_stringIcSt11char_traitsIcESaIcEEE(
    const std::string& path);
bool __wrap__ZN5qbdkr8openFileERKNSt7__cxx1112basic_stringIcSt11char_traitsIcESaIcEEE(
    const std::string& path);
bool __wrap__ZN5qbdkr8openFileERKNSt7__cxx1112basic_stringIcSt11char_traitsIcESaIcEEE(
    const std::string& path) {
  if (auto* workspace = qbdkr::test::workspace.load()) return workspace->open(path);
  return __real__ZN5qbdkr8openFileERKNSt7__cxx1112basic_stringIcSt11char_traitsIcESaIcEEE(path);
}

bool __real__ZN5qbdkr15detachNewThreadESt8functionIFvvEE(std::function<void()> body);
bool __wrap__ZN5qbdkr15detachNewThreadESt8functionIFvvEE(std::function<void()> body);
bool __wrap__ZN5qbdkr15detachNewThreadESt8functionIFvvEE(std::function<void()> body) {
  if (auto* threads = qbdkr::test::threads.load()) return threads->hold(std::move(body));
  return __real__ZN5qbdkr15detachNewThreadESt8functionIFvvEE(std::move(body));
}

int __real__ZN5qbdkr17queryProcessTableEPNS_13ProcessRecordEPm(qbdkr::ProcessRecord* buffer,
                                                               std::size_t* length);
int __wrap__ZN5qbdkr17queryProcessTableEPNS_13ProcessRecordEPm(qbdkr::ProcessRecord* buffer,
                                                               std::size_t* length);
int __wrap__ZN5qbdkr17queryProcessTableEPNS_13ProcessRecordEPm(qbdkr::ProcessRecord* buffer,
                                                               std::size_t* length) {
  const int error = __real__ZN5qbdkr17queryProcessTableEPNS_13ProcessRecordEPm(buffer, length);
  if (auto* table = qbdkr::test::processTable.load()) {
    ++table->queries;
    if (buffer != nullptr) table->onCopy();
  }
  return error;
}

}  // extern "C"

// What returns an object cannot be declared as a function of C.
namespace qbdkr::test {

std::optional<std::string> realInfoString(const Bundle* bundle, std::string_view key) __asm__(
    "__real__ZNK5qbdkr6Bundle10infoStringB5cxx11ESt17basic_string_viewIcSt11char_traitsIcEE");
std::optional<std::string> wrapInfoString(const Bundle* bundle, std::string_view key) __asm__(
    "__wrap__ZNK5qbdkr6Bundle10infoStringB5cxx11ESt17basic_string_viewIcSt11char_traitsIcEE");
std::optional<std::string> wrapInfoString(const Bundle* bundle, std::string_view key) {
  if (const auto* other = information.load()) return other->string(key);
  return realInfoString(bundle, key);
}

std::optional<PropertyList> realObject(const UserDefaults* from, std::string_view key) __asm__(
    "__real__ZNK5qbdkr12UserDefaults6objectESt17basic_string_viewIcSt11char_traitsIcEE");
std::optional<PropertyList> wrapObject(const UserDefaults* from, std::string_view key) __asm__(
    "__wrap__ZNK5qbdkr12UserDefaults6objectESt17basic_string_viewIcSt11char_traitsIcEE");
std::optional<PropertyList> wrapObject(const UserDefaults* from, std::string_view key) {
  auto value = realObject(from, key);
  if (const auto* watched = defaults.load()) watched->wasRead(key);
  return value;
}

FileLock realAcquire(const std::string& path, std::chrono::milliseconds patience) __asm__(
    "__real__ZN5qbdkr8FileLock7acquireERKNSt7__cxx1112basic_stringIcSt11char_traitsIcESaIcEEENSt6"
    "chrono8durationIlSt5ratioILl1ELl1000EEEE");
FileLock wrapAcquire(const std::string& path, std::chrono::milliseconds patience) __asm__(
    "__wrap__ZN5qbdkr8FileLock7acquireERKNSt7__cxx1112basic_stringIcSt11char_traitsIcESaIcEEENSt6"
    "chrono8durationIlSt5ratioILl1ELl1000EEEE");
FileLock wrapAcquire(const std::string& path, std::chrono::milliseconds patience) {
  auto* impatient = locks.load();
  if (impatient == nullptr) return realAcquire(path, patience);
  impatient->note(path, patience);
  return realAcquire(impatient->exist ? path : "", std::chrono::milliseconds(0));
}

}  // namespace qbdkr::test
