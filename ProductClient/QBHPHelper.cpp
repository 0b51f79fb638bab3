#include "ProductClient/QBHPHelper.h"

#include <time.h>

#include <array>
#include <atomic>
#include <chrono>
#include <memory>
#include <mutex>
#include <string>

#include "Platform/Base/NeverDestroyed.h"
#include "Platform/Defaults/UserDefaults.h"

namespace qbdkr {
namespace {

constexpr std::chrono::seconds autoStartInterval(60);
constexpr std::string_view installTimeKey = "installTime";

// Shared by all facade objects.
std::atomic<QBHPHelperCommunicate*> cmmt{nullptr};

struct AutoStartTimer {
  std::mutex mutex;
  std::shared_ptr<RunLoopTimer> timer;
};

AutoStartTimer& autoStartTimer() {
  static NeverDestroyed instance([] { return AutoStartTimer(); });
  return *instance;
}

bool isAutoStartTimer(const RunLoopTimer* timer) {
  const std::lock_guard lock(autoStartTimer().mutex);
  return timer != nullptr && timer == autoStartTimer().timer.get();
}

// Local time as yyyyMMddHHmmss.
std::string installTime() {
  const std::time_t now = std::chrono::system_clock::to_time_t(std::chrono::system_clock::now());
  std::tm local{};
  localtime_r(&now, &local);
  std::array<char, 32> text{};
  std::strftime(text.data(), text.size(), "%Y%m%d%H%M%S", &local);
  return text.data();
}

struct ClearFlag {
  void operator()(std::atomic_flag* flag) const { flag->clear(); }
};

// Once in the life of the host's user defaults, although a tick and the host may be here at once.
void recordInstallTime() {
  static std::atomic_flag isBusy;
  if (isBusy.test_and_set()) return;
  const std::unique_ptr<std::atomic_flag, ClearFlag> cleared(&isBusy);
  UserDefaults& defaults = UserDefaults::standard();
  if (defaults.object(installTimeKey)) return;
  defaults.setObject(installTimeKey, PropertyList(installTime()));
  defaults.synchronize();
}

// The timer outlives a facade object that is destroyed, so neither may need one.
void startNow() {
  recordInstallTime();
  cmmt.load()->autoRestartHelper();
}

void tick(const RunLoopTimer& timer) {
  if (isAutoStartTimer(&timer)) startNow();
}

}  // namespace

QBHPHelper& QBHPHelper::share() {
  static NeverDestroyed helper([] { return QBHPHelper(); });
  return *helper;
}

QBHPHelper::QBHPHelper() {
  cmmt = &QBHPHelperCommunicate::share();
  auto timer = RunLoop::current().scheduleTimer(autoStartInterval, tick);
  const std::lock_guard lock(autoStartTimer().mutex);
  autoStartTimer().timer = std::move(timer);
}

QBHPHelper::~QBHPHelper() {
  const std::lock_guard lock(autoStartTimer().mutex);
  if (autoStartTimer().timer) autoStartTimer().timer->invalidate();
  autoStartTimer().timer.reset();
}

void QBHPHelper::startHelper() { startNow(); }

void QBHPHelper::stopHelper() { cmmt.load()->stopHelper(); }

void QBHPHelper::directUploadData() { cmmt.load()->directUploadData(); }

bool QBHPHelper::productCollectStatus() { return cmmt.load()->productCollectStatus(); }

void QBHPHelper::setProductCollectStatus(bool status) {
  cmmt.load()->setProductCollectStatus(status);
}

void QBHPHelper::customStringDataCollect(Text target, Text value) {
  cmmt.load()->customStringDataCollect(target, value);
}

void QBHPHelper::autoCreatedIncreaseDataCollect(Text target, Text key) {
  cmmt.load()->autoCreatedIncreaseDataCollect(target, key);
}

void QBHPHelper::commIncreaseDataCollect(Text target, Text key) {
  cmmt.load()->commIncreaseDataCollect(target, key);
}

void QBHPHelper::setDataCollectPID(Text productID) {
  if (productID && !productID->empty()) cmmt.load()->setCollectDataPID(productID);
}

void QBHPHelper::setTipsEnable(bool enable) { cmmt.load()->setTipsEnable(enable); }

String QBHPHelper::netErrorPagePath() { return cmmt.load()->netErrorPagePath(); }

QBHPSuiteInfo QBHPHelper::unRegSuiteInfo() { return cmmt.load()->unRegSuiteInfo(); }

QBHPSuiteInfo QBHPHelper::regSuiteInfo() { return cmmt.load()->regSuiteInfo(); }

OSErr QBHPHelper::uploadProductFile(Text email, Text filePath, Text title, Text description) {
  return cmmt.load()->uploadProductFile(email, filePath, title, description);
}

void QBHPHelper::autoautoStartIntervaTimerMethod(const RunLoopTimer* timer) {
  if (isAutoStartTimer(timer)) startHelper();
}

}  // namespace qbdkr
