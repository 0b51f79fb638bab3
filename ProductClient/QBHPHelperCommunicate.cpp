#include <algorithm>
#include <atomic>
#include <chrono>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <utility>

#include <ClientComm/ClassRegistry.h>
#include <ClientComm/Exceptions.h>
#include <ClientComm/LogHandler.h>
#include <ClientComm/QBHPCustomerServiceByHelepr.h>
#include <ClientComm/QBHPGetDataByHelper.h>
#include <ClientComm/UserDefaults.h>
#include <QBDKRProductClient/QBHPHelperCommunicate.h>

#include "ClientComm/HostConfiguration.h"
#include "ClientComm/OutOfMemory.h"
#include "ClientComm/WaitingRequests.h"
#include "Platform/Base/DropExceptions.h"
#include "Platform/Base/ForkSafeMutex.h"
#include "Platform/Base/NeverDestroyed.h"
#include "Platform/Events/RPCTransport.h"
#include "Platform/Files/Files.h"
#include "Platform/Record/Record.h"
#include "ProductClient/AutoStart.h"
#include "ProductClient/BundleSwitches.h"
#include "ProductClient/CauseFinder.h"
#include "ProductClient/ClientIdentifier.h"
#include "ProductClient/HelperExit.h"
#include "ProductClient/HelperInstaller.h"
#include "ProductClient/HelperLauncher.h"
#include "ProductClient/HelperStates.h"
#include "ProductClient/HostExamination.h"
#include "ProductClient/LivenessChecks.h"
#include "ProductClient/MainLoopProbe.h"
#include "ProductClient/ProductRequests.h"
#include "ProductClient/RunningHelpers.h"
#include "ProductClient/StartRecords.h"
#include "ProductClient/StateReports.h"
#include "ProductClient/SuiteAnswer.h"
#include "ProductClient/Supervisor.h"
#include "ProductClient/SystemCalls.h"

namespace qbdkr {
namespace {

constexpr std::string_view serverClosedKey = "QBHPServerClosed";
constexpr OSErr launchFailed = 1;

Text textOf(bool flag) { return flag ? "1" : "0"; }

// Receives RPC events that name the communicator's class. Otherwise another process could make this
// one create a second communicator, which would take the helper control's reports and start up once
// more.
class StandIn final : public QBHPAppEventBase {
 public:
  static constexpr std::string_view kClassName = QBHPHelperCommunicate::kClassName;
  [[nodiscard]] std::string_view className() const override { return kClassName; }
};

// Registers the class when this library is loaded: it is known from the start, as the service
// classes are.
[[maybe_unused]] const bool isKnown = [] {
  registerClass<StandIn>();
  return true;
}();

// The control first: without descriptors it throws, for want of a run loop. A main bundle that was
// read then would keep an empty information dictionary.
HostConfiguration thisHost() {
  QBHPHelperControl::share();
  return HostConfiguration();
}

}  // namespace

// The parts of a communicator, and its state of the helper agent.
struct QBHPHelperCommunicate::Parts {
  Parts(QBHPHelperCommunicate& owner, HostConfiguration configuration, UserDefaults& settings,
        const SystemCalls& system)
      : communicator(owner),
        host(std::move(configuration)),
        startThread(system.startThread),
        records(host, settings, system.now),
        requests(records),
        switches(host.host()),
        reports(host, system, *states,
                {[this] { return !communicator.getDefaultHelperServerOpen(); },
                 [this] { return pausedUntil(); }}),
        exit(host, system, [this] { requests.post(&QBHPHelperControl::exitHelper); }),
        installer(host, system, *states, [this] { exit.end(); }),
        launcher(host, system,
                 {[this] { installer.install(); }, [this] { states->tell(HelperLaunching()); },
                  [this] { return supervisor != nullptr && installer.repair(); }}),
        checks([this] { check(); }, system.startThread),
        autoStart([this] { start(); }),
        reachedProcess(system.reachedProcess),
        watchPeer(system.watchPeer) {}

  void start() {
    records.recordInstallTime();
    communicator.autoRestartHelper();
  }

  void check() {
    const OSErr status = restart(isLost.exchange(false));
    if (communicator.isHelperSeverNotOpen(status)) return;
    tellSupervisor(status == noErr);
    if (supervisor != nullptr) endReplaced();
  }

  // Does the work of isAliveHelper(), as a part of a check that began at that moment.
  OSErr checkAlive(HelperStates::Moment begin) {
    const OSErr status = requests.post(&QBHPHelperControl::isAlive);
    reports.answered(status, begin);
    const bool started = isHelperAlive;
    log(LogCategory::liveness, "result %d isHelperAlive %d",
        {publicArgument(std::to_string(status)), publicArgument(started ? "1" : "0")});
    if (status == noErr && !started) communicator.startHelper();
    return status;
  }

  void tellSupervisor(bool isThere) const {
    Supervisor* const present = supervisor;
    if (present == nullptr) return;
    if (isThere) {
      present->succeeded();
    } else {
      present->failed();
    }
  }

  // Returns the time before which nothing starts the helper agent by itself.
  [[nodiscard]] std::optional<Supervisor::Clock::time_point> pausedUntil() const {
    const Supervisor* const present = supervisor;
    return std::max(present == nullptr ? std::nullopt : present->pausedUntil(),
                    communicator.launchPausedUntil());
  }

  // Does the work of restartHelperInThread(). Does not ask a helper agent first that is known to be
  // lost.
  OSErr restart(bool isKnownToBeLost) {
    const auto begin = states->moment();
    if (!communicator.getDefaultHelperServerOpen()) {
      states->tell(HelperClosed());
      return serverNotOpen;
    }
    if (!isKnownToBeLost && checkAlive(begin) == noErr) return noErr;
    return communicator.launchHelepr() ? noErr : launchFailed;
  }

  // The next helper agent has had no start request, even if another host starts it. An upgrade at
  // the start-up launches it by itself, and makes up for this afterwards with a check.
  void requestRecovery() {
    if (isStartingUp) {
      isLostAtStartUp = true;
      // The start-up may have ended in between, without seeing that.
      if (isStartingUp || !isLostAtStartUp.exchange(false)) return;
    }
    isHelperAlive = false;
    isLost = true;
    checks.request();
  }

  void startUp() {
    isStartingUp = true;
    dropExceptions([this] {
      installer.install();
      awaitName();
      tellSupervisor(communicator.launchHelepr());
    });
    endStartUp();
    if (isLostAtStartUp.exchange(false)) checks.request();
  }

  // A helper agent that runs already answers the start request at once, which may be before the
  // main loop runs for the first time.
  static void awaitName() {
    constexpr std::chrono::seconds patience(1);
    RPCTransport::shared().awaitName(std::chrono::steady_clock::now() + patience);
  }

  void endStartUp() {
    isStartingUp = false;
    reports.endStartUp();
  }

  // Ends one that was replaced; its loss starts the next. Looks for one at most every 10 s: checks
  // may be frequent, and each look reads the process table.
  void endReplaced() {
    constexpr std::chrono::seconds interval(10);
    const auto now = std::chrono::steady_clock::now();
    auto last = lookedForReplaced.load();
    if (now - last < interval || !lookedForReplaced.compare_exchange_strong(last, now)) return;
    const auto tell = [this] { states->tell(HelperReplaced()); };
    // Another one may be reached already.
    if (exit.endByForce(WhichProcesses::replaced, tell)) reports.found();
  }

  bool supervise(const Supervision& supervision) {
    if (supervisor == nullptr && !startSupervisor()) return false;
    supervisor.load()->set(supervision);
    return true;
  }

  bool startSupervisor() {
    const std::lock_guard lock(mutex);
    if (ownSupervisor) return true;
    auto watch = watchPeer(host.helperIdentifier().value_or(""));
    if (!watch) return false;
    auto made = std::make_unique<Supervisor>(
        std::move(watch),
        Supervisor::Actions{[this] { requestRecovery(); }, [this] { checks.request(); },
                            [this] { exit.endByForce(WhichProcesses::all); },
                            [this] { return communicator.launchPausedUntil(); },
                            [this] { found(); }, [this] { lost(); },
                            [this](auto until) { states->tell(HelperPaused{until}); }});
    if (!startThread([made = made.get()] { made->run(); })) return false;
    ownSupervisor = std::move(made);
    exit.allowForce();
    supervisor = ownSupervisor.get();
    return true;
  }

  Diagnosis diagnose() {
    constexpr std::chrono::milliseconds turnOfMainLoop(250);
    Diagnosis diagnosis;
    diagnosis.findings = examineHost(host.host().bundlePath());
    diagnosis.helpers = runningHelpers(host, reachedProcess);
    for (const auto& request : WaitingRequest::all()) {
      diagnosis.waiting.push_back({request.method + " to \"" + request.bundleID + '"', request.time,
                                   request.isOnMainThread});
    }
    diagnosis.steps = recordedSteps();
    diagnosis.cause = findCause(diagnosis, mainLoop.state(turnOfMainLoop));
    return diagnosis;
  }

  // Supervision sees these two.
  void found() {
    record(StepKind::helperReached, host.helperIdentifier().value_or(""));
    reports.found();
  }
  void lost() const {
    record(StepKind::helperLost, host.helperIdentifier().value_or(""));
    states->tellLoss();
  }

  template <class Method, class... Arguments>
  OSErr checkAndPost(Method method, const Arguments&... arguments) {
    if (const OSErr status = communicator.autoRestartHelper(); status != noErr) return status;
    return requests.post(method, arguments...);
  }

  template <class Method>
  QBHPSuiteInfo askForSuite(Method method) const {
    return withoutMemory(QBHPSuiteInfo::initWithDate(std::nullopt, 0, 0), [&] {
      const auto answer = requests.ask(method);
      log(LogCategory::request, "regSuiteStr = %@", {privateArgument(view(answer))});
      return suiteInfoFrom(view(answer));
    });
  }

  QBHPHelperCommunicate& communicator;
  const HostConfiguration host;
  const std::function<bool(std::function<void()>)> startThread;
  StartRecords records;
  ProductRequests requests;
  const BundleSwitches switches;
  const std::shared_ptr<HelperStates> states = std::make_shared<HelperStates>();
  StateReports reports;
  HelperExit exit;
  HelperInstaller installer;
  HelperLauncher launcher;
  LivenessChecks checks;
  AutoStart autoStart;

  std::atomic<bool> isServerOpen{false};
  std::atomic<bool> isHelperAlive{false};
  std::atomic<bool> isStartingUp{false};
  std::atomic<bool> isLostAtStartUp{false};
  std::atomic<bool> isLost{false};  // the next check starts it without asking
  // A request that outlives the communicator stores its answer there.
  const std::shared_ptr<ClientIdentifier> clientID = std::make_shared<ClientIdentifier>();

  MainLoopProbe mainLoop;
  const std::function<std::optional<pid_t>(const std::string&)> reachedProcess;

  mutable ForkSafeMutex mutex;  // guards the making of the supervisor
  const std::function<std::unique_ptr<PeerWatch>(const std::string&)> watchPeer;
  std::unique_ptr<Supervisor> ownSupervisor;
  std::atomic<Supervisor*> supervisor{nullptr};
  std::atomic<std::chrono::steady_clock::time_point> lookedForReplaced{};
};

QBHPHelperCommunicate& QBHPHelperCommunicate::share() {
  static NeverDestroyed communicator([] { return QBHPHelperCommunicate(); });
  return *communicator;
}

// Braces evaluate in order.
QBHPHelperCommunicate::QBHPHelperCommunicate()
    : QBHPHelperCommunicate{thisHost(), UserDefaults::standard(), SystemCalls()} {
  dropExceptions(
      [this] { RPCTransport::shared().setDiagnoser([this] { return diagnose().text(); }); });
}

QBHPHelperCommunicate::QBHPHelperCommunicate(HostConfiguration host, UserDefaults& settings,
                                             const SystemCalls& system)
    : parts_(std::make_unique<Parts>(*this, std::move(host), settings, system)) {
  parts_->host.recordKeys();
  QBHPHelperControl::share().setHelperCtrlDelegate(this);
  synthesizeUserDefault();
  parts_->isStartingUp = true;
  if (parts_->host.supervisesHelper()) supervise(Supervision());
  if (!parts_->startThread([this] { processHelper(); })) parts_->endStartUp();
}

QBHPHelperCommunicate::~QBHPHelperCommunicate() = default;

AutoStart& QBHPHelperCommunicate::autoStart() { return parts_->autoStart; }

// --- Life cycle

void QBHPHelperCommunicate::processHelper() { parts_->startUp(); }

void QBHPHelperCommunicate::setHelperStateHandler(HelperStateHandler handler) {
  parts_->reports.setHandler(std::move(handler));
}

bool QBHPHelperCommunicate::supervise(const Supervision& supervision) {
  return parts_->supervise(supervision);
}

OSErr QBHPHelperCommunicate::autoRestartHelper() {
  parts_->checks.request();
  return noErr;
}

OSErr QBHPHelperCommunicate::restartHelperInThread() { return parts_->restart(false); }

bool QBHPHelperCommunicate::getDefaultHelperServerOpen() {
  const auto identifier = parts_->host.helperIdentifier();
  const auto domain = UserDefaults::persistentDomain(identifier.value_or(""));
  const PropertyList* closed = domain ? domain->find(serverClosedKey) : nullptr;
  return closed == nullptr || !boolValue(*closed);
}

bool QBHPHelperCommunicate::isServerOpen() const { return parts_->isServerOpen; }

bool QBHPHelperCommunicate::isHelperSeverNotOpen(OSErr status) const {
  return status == serverNotOpen;
}

OSErr QBHPHelperCommunicate::startHelper() {
  const OSErr status = parts_->requests.post(&QBHPHelperControl::start);
  if (status == noErr) parts_->isHelperAlive = true;
  firstStartPID();
  clientIDFormHelper();
  saveTipsEnable();
  saveEnableAD();
  return status;
}

OSErr QBHPHelperCommunicate::stopHelper() {
  const OSErr status = parts_->requests.post(&QBHPHelperControl::stop);
  parts_->isHelperAlive = false;
  return status;
}

OSErr QBHPHelperCommunicate::isAliveHelper() {
  return parts_->checkAlive(parts_->states->moment());
}

String QBHPHelperCommunicate::clientID() const { return parts_->clientID->get(); }

String QBHPHelperCommunicate::clientIDFormHelper() {
  QBHPGetDataByHelper service;
  parts_->clientID->set(std::nullopt);
  return parts_->clientID->set(service.clientIDFormHelper());
}

Request<String> QBHPHelperCommunicate::askClientIDFormHelper() const {
  return QBHPGetDataByHelper::share().askClientIDFormHelper().readBy<String>(
      [cache = parts_->clientID](Answer<String> answer) {
        if (answer.status == noErr) dropExceptions([&] { cache->set(answer.value); });
        return answer;
      });
}

void QBHPHelperCommunicate::willHelperExit() { stopHelper(); }

void QBHPHelperCommunicate::didCheckServerOpen(bool open, const Error* /*error*/) {
  parts_->isServerOpen = open;
}

// --- Deployment and launch

void QBHPHelperCommunicate::extractHelper() {
  parts_->installer.install();
  parts_->reports.installed();
}

bool QBHPHelperCommunicate::launchHelepr() {
  const bool isLaunched = parts_->launcher.launch();
  parts_->reports.endStartUp();
  if (!isLaunched) {
    parts_->reports.launchFailed();
    return false;
  }
  parts_->reports.launched();
  parts_->isServerOpen = getDefaultHelperServerOpen();
  if (!parts_->isServerOpen) parts_->states->tell(HelperClosed());
  startHelper();
  return true;
}

Diagnosis QBHPHelperCommunicate::diagnose() const { return parts_->diagnose(); }

std::optional<std::chrono::steady_clock::time_point> QBHPHelperCommunicate::launchPausedUntil()
    const {
  const auto installed = parts_->host.installedHelper();
  return installed ? openingPausedUntil(*installed) : std::nullopt;
}

String QBHPHelperCommunicate::getVersionByBundlePath(Text bundlePath) {
  return versionOfBundle(std::string(bundlePath.value_or("")));
}

String QBHPHelperCommunicate::appPath(Text directory) {
  return directory ? firstEntryWithExtension(std::string(*directory), "app") : std::nullopt;
}

// --- Bookkeeping

void QBHPHelperCommunicate::synthesizeUserDefault() {
  parts_->requests.setProduct({parts_->host.productID(), parts_->host.productVersion()});
  parts_->records.recordProduct();
}

String QBHPHelperCommunicate::firstStartPID() { return parts_->records.firstStartPID(); }

String QBHPHelperCommunicate::collectDataPID() { return parts_->records.collectDataPID(); }

void QBHPHelperCommunicate::setCollectDataPID(Text productID) {
  parts_->records.setCollectDataPID(productID);
}

void QBHPHelperCommunicate::initDataCollectionPath(Text base) {
  const auto folder = missingDataFolder(base);
  if (!folder) return;
  log(LogCategory::settings, "%@ DataCollectPath = %@",
      {publicArgument(kInitDataCollectionPath.text()), privateArgument(*folder)});
  // Records the path before it makes the folder: once the folder exists, no later call records it.
  parts_->records.recordDataFolder(*folder);
  createDirectory(*folder);
}

// --- Switches

String QBHPHelperCommunicate::searchCurrentStringsFilePath(Text bundlePath) {
  return parts_->switches.stringsFile(bundlePath);
}

String QBHPHelperCommunicate::searchPlistFilePath(Text bundlePath) {
  return parts_->switches.propertyListFile(bundlePath);
}

void QBHPHelperCommunicate::saveEnableADToStringsFile(bool enable) {
  parts_->switches.saveToStringsFile(advertisingSwitch, enable);
}

void QBHPHelperCommunicate::saveTipsEnableTostringsFile(bool enable) {
  parts_->switches.saveToStringsFile(tipsSwitch, enable);
}

void QBHPHelperCommunicate::saveEnableADToPlistFile(bool enable) {
  parts_->switches.saveToPropertyList(advertisingSwitch, enable);
}

void QBHPHelperCommunicate::saveTipsEnableToPlistFile(bool enable) {
  parts_->switches.saveToPropertyList(tipsSwitch, enable);
}

void QBHPHelperCommunicate::saveEnableAD() { parts_->switches.bringInLine(advertisingSwitch); }

void QBHPHelperCommunicate::saveTipsEnable() { parts_->switches.bringInLine(tipsSwitch); }

void QBHPHelperCommunicate::setEnableAD(bool enable) {
  parts_->switches.set(advertisingSwitch, enable);
}

void QBHPHelperCommunicate::setTipsEnable(bool enable) { parts_->switches.set(tipsSwitch, enable); }

// --- Requests

OSErr QBHPHelperCommunicate::showHelper() { return parts_->checkAndPost(&QBHPHelperControl::show); }

OSErr QBHPHelperCommunicate::hideHelper() { return parts_->checkAndPost(&QBHPHelperControl::hide); }

OSErr QBHPHelperCommunicate::productReadyToUpgrade(bool ready) {
  return parts_->requests.post(&QBHPUpgradeByHelper::productReadyToUpgrade, textOf(ready));
}

OSErr QBHPHelperCommunicate::productUpgrade() {
  return parts_->checkAndPost(&QBHPUpgradeByHelper::productUpgrade);
}

void QBHPHelperCommunicate::setProductUpgradeDelegate(
    QBHPProductUpgradeCallBackDelegate* delegate) {
  QBHPUpgradeByHelper::share().setProductUpgradeDelegate(delegate);
}

QBHPProductUpgradeCallBackDelegate* QBHPHelperCommunicate::getProductUpgradeDelegate() {
  throw UnrecognizedSelectorException(
      "-[QBHPUpgradeByHelper getProductUpgradeDelegate]: unrecognized selector");
}

OSErr QBHPHelperCommunicate::uploadProductFile(Text email, Text filePath, Text title,
                                               Text description) {
  return parts_->requests.post(&QBHPUploadByHelper::uploadProductFile, email, filePath, title,
                               description);
}

OSErr QBHPHelperCommunicate::uploadUserFile(Text email, Text filePath, Text title,
                                            Text description) {
  return parts_->checkAndPost(&QBHPUploadByHelper::uploadUserFile, email, filePath, title,
                              description);
}

OSErr QBHPHelperCommunicate::uploadLogByEmail(Text email, Text filePath, Text title,
                                              Text description) {
  return parts_->checkAndPost(&QBHPUploadByHelper::uploadLog, email, filePath, title, description);
}

OSErr QBHPHelperCommunicate::directUploadData() {
  return parts_->requests.postForData(&QBHPUploadByHelper::directUploadData);
}

OSErr QBHPHelperCommunicate::customStringDataCollect(Text target, Text value) {
  return parts_->requests.postForData(&QBHPUploadByHelper::collectData,
                                      CollectionType::customString, target, Text(), value);
}

OSErr QBHPHelperCommunicate::autoCreatedIncreaseDataCollect(Text target, Text key) {
  return parts_->requests.postForData(&QBHPUploadByHelper::collectData,
                                      CollectionType::createdCounter, target, key, Text());
}

OSErr QBHPHelperCommunicate::commIncreaseDataCollect(Text target, Text key) {
  return parts_->requests.postForData(&QBHPUploadByHelper::collectData,
                                      CollectionType::commonCounter, target, key, Text());
}

bool QBHPHelperCommunicate::productCollectStatus() {
  const auto reply = parts_->requests.ask(&QBHPUploadByHelper::productCollectStatus);
  log(LogCategory::request, "---- result: %@", {privateArgument(view(reply))});
  return reply == "1";
}

OSErr QBHPHelperCommunicate::setProductCollectStatus(bool status) {
  return parts_->requests.post(&QBHPUploadByHelper::setProductCollectStatus, textOf(status));
}

Request<bool> QBHPHelperCommunicate::askProductCollectStatus() const {
  return parts_->requests.make(&QBHPUploadByHelper::askProductCollectStatus)
      .readBy<bool>([](const Answer<String>& answer) {
        return Answer<bool>{answer.status, answer.value == "1"};
      });
}

String QBHPHelperCommunicate::netErrorPagePath() {
  return parts_->requests.ask(&QBHPUploadByHelper::netErrorPagePath);
}

Request<String> QBHPHelperCommunicate::askNetErrorPagePath() const {
  return parts_->requests.make(&QBHPUploadByHelper::askNetErrorPagePath);
}

QBHPSuiteInfo QBHPHelperCommunicate::unRegSuiteInfo() {
  return parts_->askForSuite(&QBHPUploadByHelper::unRegSuiteInfo);
}

QBHPSuiteInfo QBHPHelperCommunicate::regSuiteInfo() {
  return parts_->askForSuite(&QBHPUploadByHelper::regSuiteInfo);
}

Request<QBHPSuiteInfo> QBHPHelperCommunicate::askUnRegSuiteInfo() const {
  return parts_->requests.make(&QBHPUploadByHelper::askUnRegSuiteInfo)
      .readBy<QBHPSuiteInfo>(suiteAnswerOf);
}

Request<QBHPSuiteInfo> QBHPHelperCommunicate::askRegSuiteInfo() const {
  return parts_->requests.make(&QBHPUploadByHelper::askRegSuiteInfo)
      .readBy<QBHPSuiteInfo>(suiteAnswerOf);
}

OSErr QBHPHelperCommunicate::checkForHeleprMessage() {
  return parts_->checkAndPost(&QBHPCustomerServiceByHelepr::checkForHeleprMessage);
}

OSErr QBHPHelperCommunicate::customerserviceByEmail(Text email, Text attachment) {
  return parts_->checkAndPost(&QBHPCustomerServiceByHelepr::customerService, email, attachment);
}

}  // namespace qbdkr
