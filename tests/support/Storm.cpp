#include "support/Storm.h"

#include <atomic>
#include <chrono>
#include <map>
#include <mutex>
#include <thread>

#include <ClientComm/QBHPGetDataByHelper.h>
#include <QBDKRProductClient/QBHPHelper.h>
#include <QBDKRProductClient/QBHPHelperCommunicate.h>

namespace qbdkr::test {
namespace {

using Clock = std::chrono::steady_clock;
using Counts = std::map<std::string, unsigned>;

QBHPHelperCommunicate& communicator() { return QBHPHelperCommunicate::share(); }

// One thread of the storm.
class Caller {
 public:
  explicit Caller(unsigned number)
      : thread_("thread-" + std::to_string(number)), changesFiles_(number == 0) {}

  void run(Clock::time_point end) {
    for (unsigned round = 0; Clock::now() < end; ++round) {
      requests();
      queries();
      local();
      constexpr unsigned nowAndThen = 50;
      if (round % nowAndThen == 0 && changesFiles_) files(round);
    }
  }

  [[nodiscard]] const Counts& counts() const { return counts_; }
  [[nodiscard]] unsigned failed() const { return failed_; }

 private:
  void sent(const char* method, OSErr status) {
    if (status == noErr) {
      ++counts_[method];
    } else {
      ++failed_;
    }
  }

  // The next count, as text.
  std::string next() { return std::to_string(++count_); }

  void requests() {
    auto& c = communicator();
    const char* collect = "collectData:version:collectionType:target:keyID:value:";
    sent("stop:prodeuctVersion:", c.stopHelper());
    sent("show:prodeuctVersion:", c.showHelper());
    sent("hide:prodeuctVersion:", c.hideHelper());
    sent("productReadyToUpgrade:versionID:ready:", c.productReadyToUpgrade(true));
    sent("productUpgrade:versionID:", c.productUpgrade());
    sent("uploadProductFile:versionID:email:filePath:title:description:",
         c.uploadProductFile("e", "p", thread_, next()));
    sent("uploadUserFile:versionID:email:filePath:title:description:",
         c.uploadUserFile("e", "p", thread_, next()));
    sent("uploadLog:versionID:email:filePath:title:description:",
         c.uploadLogByEmail("e", "p", thread_, next()));
    sent("directUploadData:version:", c.directUploadData());
    sent(collect, c.customStringDataCollect(thread_, next()));
    sent(collect, c.autoCreatedIncreaseDataCollect(thread_, next()));
    sent(collect, c.commIncreaseDataCollect(thread_, next()));
    sent("setProductCollectStatus:version:status:", c.setProductCollectStatus(false));
    sent("checkForHeleprMessage:versionID:", c.checkForHeleprMessage());
    sent("customerService:versionID:email:attachment:", c.customerserviceByEmail(thread_, next()));
    c.isAliveHelper();
    c.autoRestartHelper();
  }

  void queries() {
    auto& c = communicator();
    c.productCollectStatus();
    c.netErrorPagePath();
    c.unRegSuiteInfo();
    c.regSuiteInfo();
    c.clientIDFormHelper();
    QBHPGetDataByHelper::share().isNotFirstStart();
    for (const char* method :
         {"productCollectStatus:version:", "netErrorPagePath:version:", "unRegSuiteInfo:version:",
          "regSuiteInfo:version:", "isNotFirstStart"}) {
      sent(method, noErr);  // their status is unknown: the test misses one that was not sent
    }
  }

  static void local() {
    auto& c = communicator();
    (void)c.clientID();
    c.collectDataPID();
    c.firstStartPID();
    (void)c.getDefaultHelperServerOpen();
    (void)c.bundleIDSet();
    c.didCheckServerOpen(true, nullptr);
    QBHPHelper::share().startHelper();
    try {
      c.getProductUpgradeDelegate();
    } catch (const std::exception&) {
    }
  }

  static void files(unsigned round) {
    auto& c = communicator();
    c.setTipsEnable(round % 4 == 0);
    c.setEnableAD(round % 4 != 0);
    c.setCollectDataPID("DATA");
    c.synthesizeUserDefault();
    c.extractHelper();
    c.launchHelepr();
  }

  std::string thread_;
  bool changesFiles_;
  Counts counts_;
  unsigned failed_ = 0;
  unsigned count_ = 0;
};

}  // namespace

std::string storm(const std::vector<std::string>& words) {
  const auto end = Clock::now() + std::chrono::seconds(std::stoul(words.at(0)));
  const auto threadCount = std::stoul(words.at(1));
  std::vector<Caller> callers;
  for (unsigned i = 0; i < threadCount; ++i) callers.emplace_back(i);
  std::vector<std::thread> threads;
  for (Caller& caller : callers) threads.emplace_back([&] { caller.run(end); });
  for (std::thread& thread : threads) thread.join();
  Counts counts;
  unsigned failed = 0;
  for (const Caller& caller : callers) {
    for (const auto& [method, count] : caller.counts()) counts[method] += count;
    failed += caller.failed();
  }
  std::string text = "failed " + std::to_string(failed);
  for (const auto& [method, count] : counts) text += ' ' + method + '=' + std::to_string(count);
  return text;
}

std::string count(const std::vector<std::string>& words) {
  unsigned posted = 0;
  unsigned failed = 0;
  const auto first = std::stoul(words.at(1));
  const auto wanted = std::stoul(words.at(2));
  for (unsigned long i = first; i < first + wanted; ++i) {
    if (communicator().commIncreaseDataCollect(words.at(0), std::to_string(i)) == noErr) {
      ++posted;
    } else {
      ++failed;
      communicator().launchHelepr();
    }
  }
  return "posted " + std::to_string(posted) + " failed " + std::to_string(failed);
}

}  // namespace qbdkr::test
