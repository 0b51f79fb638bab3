#include <atomic>

#include <QBDKRProductClient/QBHPHelper.h>

#include "Platform/Base/NeverDestroyed.h"
#include "ProductClient/AutoStart.h"

namespace qbdkr {
namespace {

// Shared by all facade objects.
std::atomic<QBHPHelperCommunicate*> cmmt{nullptr};

QBHPHelperCommunicate& communicator() { return *cmmt.load(); }

}  // namespace

QBHPHelper& QBHPHelper::share() {
  static NeverDestroyed helper([] { return QBHPHelper(); });
  return *helper;
}

// Braces evaluate in order: the communicator first.
QBHPHelper::QBHPHelper() : QBHPHelper{QBHPHelperCommunicate::share(), RunLoop::current()} {}

QBHPHelper::QBHPHelper(QBHPHelperCommunicate& communicator, RunLoop& loop) {
  cmmt = &communicator;
  communicator.autoStart().scheduleOn(loop);
}

QBHPHelper::~QBHPHelper() { communicator().autoStart().cancel(); }

void QBHPHelper::startHelper() { communicator().autoStart().start(); }

void QBHPHelper::stopHelper() { communicator().stopHelper(); }

void QBHPHelper::directUploadData() { communicator().directUploadData(); }

bool QBHPHelper::productCollectStatus() { return communicator().productCollectStatus(); }

void QBHPHelper::setProductCollectStatus(bool status) {
  communicator().setProductCollectStatus(status);
}

void QBHPHelper::customStringDataCollect(Text target, Text value) {
  communicator().customStringDataCollect(target, value);
}

void QBHPHelper::autoCreatedIncreaseDataCollect(Text target, Text key) {
  communicator().autoCreatedIncreaseDataCollect(target, key);
}

void QBHPHelper::commIncreaseDataCollect(Text target, Text key) {
  communicator().commIncreaseDataCollect(target, key);
}

void QBHPHelper::setDataCollectPID(Text productID) {
  if (productID && !productID->empty()) communicator().setCollectDataPID(productID);
}

void QBHPHelper::setTipsEnable(bool enable) { communicator().setTipsEnable(enable); }

String QBHPHelper::netErrorPagePath() { return communicator().netErrorPagePath(); }

QBHPSuiteInfo QBHPHelper::unRegSuiteInfo() { return communicator().unRegSuiteInfo(); }

QBHPSuiteInfo QBHPHelper::regSuiteInfo() { return communicator().regSuiteInfo(); }

Request<bool> QBHPHelper::askProductCollectStatus() const {
  return communicator().askProductCollectStatus();
}

Request<String> QBHPHelper::askNetErrorPagePath() const {
  return communicator().askNetErrorPagePath();
}

Request<QBHPSuiteInfo> QBHPHelper::askUnRegSuiteInfo() const {
  return communicator().askUnRegSuiteInfo();
}

Request<QBHPSuiteInfo> QBHPHelper::askRegSuiteInfo() const {
  return communicator().askRegSuiteInfo();
}

OSErr QBHPHelper::uploadProductFile(Text email, Text filePath, Text title, Text description) {
  return communicator().uploadProductFile(email, filePath, title, description);
}

void QBHPHelper::autoautoStartIntervaTimerMethod(const RunLoopTimer* timer) {
  if (communicator().autoStart().isInUse(timer)) startHelper();
}

}  // namespace qbdkr
