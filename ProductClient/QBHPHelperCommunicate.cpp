#include "ProductClient/QBHPHelperCommunicate.h"

#include <memory>
#include <string>
#include <utility>

#include "ClientComm/ClassRegistry.h"
#include "ClientComm/InfoKeys.h"
#include "ClientComm/QBHPGetDataByHelper.h"
#include "Platform/Base/NeverDestroyed.h"
#include "Platform/Bundles/Bundle.h"
#include "Platform/Defaults/UserDefaults.h"
#include "Platform/Log/Log.h"
#include "ProductClient/DetachedThread.h"
#include "ProductClient/LivenessChecks.h"
#include "ProductClient/ProductRequest.h"

namespace qbdkr {
namespace {

constexpr std::string_view serverClosedKey = "QBHPServerClosed";
constexpr OSErr launchFailed = 1;

// What an RPC event gets that names the communicator's class. A second communicator, made at the
// will of another process, would take the helper control's reports and start up once more.
class StandIn final : public QBHPAppEventBase {
 public:
  static constexpr std::string_view kClassName = QBHPHelperCommunicate::kClassName;
  [[nodiscard]] std::string_view className() const override { return kClassName; }

 protected:
  [[nodiscard]] std::span<const Method> methods() const override { return {}; }
};

// The class is known from when this library is loaded, as the service classes are.
[[maybe_unused]] const bool isKnown = [] {
  registerClass<StandIn>();
  return true;
}();

}  // namespace

QBHPHelperCommunicate& QBHPHelperCommunicate::share() {
  static NeverDestroyed communicator([] { return QBHPHelperCommunicate(); });
  return *communicator;
}

QBHPHelperCommunicate::QBHPHelperCommunicate()
    : checks_(std::make_unique<LivenessChecks>([this] { restartHelperInThread(); })) {
  QBHPHelperControl::share().setHelperCtrlDelegate(this);
  synthesizeUserDefault();
  detachNewThread([this] { processHelper(); });
}

QBHPHelperCommunicate::~QBHPHelperCommunicate() = default;

void QBHPHelperCommunicate::processHelper() {
  extractHelper();
  launchHelepr();
}

OSErr QBHPHelperCommunicate::autoRestartHelper() {
  checks_->request();
  return noErr;
}

OSErr QBHPHelperCommunicate::restartHelperInThread() {
  if (!getDefaultHelperServerOpen()) return serverNotOpen;
  if (isAliveHelper() == noErr) return noErr;
  return launchHelepr() ? noErr : launchFailed;
}

bool QBHPHelperCommunicate::getDefaultHelperServerOpen() {
  const auto identifier = Bundle::main().infoString(infokey::helperBundleIdentifier);
  const auto domain = UserDefaults::persistentDomain(identifier.value_or(""));
  const PropertyList* closed = domain ? domain->find(serverClosedKey) : nullptr;
  return closed == nullptr || !boolValue(*closed);
}

bool QBHPHelperCommunicate::isHelperSeverNotOpen(OSErr status) const {
  return status == serverNotOpen;
}

OSErr QBHPHelperCommunicate::startHelper() {
  const OSErr status = post(&QBHPHelperControl::start);
  if (status == noErr) isHelperAlive_ = true;
  firstStartPID();
  clientIDFormHelper();
  saveTipsEnable();
  saveEnableAD();
  return status;
}

OSErr QBHPHelperCommunicate::stopHelper() {
  const OSErr status = post(&QBHPHelperControl::stop);
  isHelperAlive_ = false;
  return status;
}

OSErr QBHPHelperCommunicate::isAliveHelper() {
  const OSErr status = post(&QBHPHelperControl::isAlive);
  const bool started = isHelperAlive_;
  log("result %d isHelperAlive %d", {std::to_string(status), started ? "1" : "0"});
  if (status == noErr && !started) startHelper();
  return status;
}

String QBHPHelperCommunicate::clientID() const {
  const std::lock_guard lock(mutex_);
  return clientID_;
}

String QBHPHelperCommunicate::clientIDFormHelper() {
  QBHPGetDataByHelper service;
  {
    const std::lock_guard lock(mutex_);
    clientID_.reset();
  }
  auto fetched = service.clientIDFormHelper();
  const std::lock_guard lock(mutex_);
  clientID_ = std::move(fetched);
  return clientID_;
}

void QBHPHelperCommunicate::willHelperExit() { stopHelper(); }

void QBHPHelperCommunicate::didCheckServerOpen(bool open, const Error* /*error*/) {
  isServerOpen_ = open;
}

QBHPHelperCommunicate::Product QBHPHelperCommunicate::product() {
  const std::lock_guard lock(mutex_);
  return {productID_, productVersion_};
}

}  // namespace qbdkr
