#pragma once

#include <chrono>
#include <memory>
#include <optional>
#include <string_view>

#include <ClientComm/Export.h>
#include <ClientComm/QBHPAppEventBase.h>
#include <ClientComm/QBHPHelperControl.h>
#include <ClientComm/QBHPSuiteInfo.h>
#include <ClientComm/QBHPUpgradeByHelper.h>
#include <ClientComm/QBHPUploadByHelper.h>
#include <ClientComm/Request.h>
#include <ClientComm/Status.h>
#include <ClientComm/TextValue.h>
#include <QBDKRProductClient/Diagnosis.h>
#include <QBDKRProductClient/HelperState.h>
#include <QBDKRProductClient/Supervision.h>

namespace qbdkr {

class AutoStart;
class HostConfiguration;
class UserDefaults;
struct SystemCalls;

// The centre of the framework: holds the product's identity, installs and launches the helper
// agent, keeps it alive, and turns the host's calls into requests to it.
//
// Unless a member says otherwise: call it on any thread, it returns at once, throws nothing but
// std::bad_alloc, and returns a status of QBHPAppleEventSender. Members marked "settings" read or
// write user defaults: they block for the file, and 0.2 s more at most while others hold it.
class QBDKR_EXPORT QBHPHelperCommunicate : public QBHPAppEventBase,
                                           public QBHPWillHelperExitDelegate,
                                           public QBHPDidCheckServerOpenDelegate {
 public:
  // The class name, as for a service class.
  static constexpr std::string_view kClassName = "QBHPHelperCommunicate";

  // The status of a liveness check if the helper agent's server is switched off.
  static constexpr OSErr serverNotOpen = 10;

  // Returns the communicator of this process, made on first use, never destroyed. Throws
  // std::runtime_error if no descriptors are left for a run loop; a later call tries again.
  static QBHPHelperCommunicate& share();

  // Becomes the delegate of the helper control, records the product identity (settings), and starts
  // a thread that installs and launches the helper agent; does not wait for it. Throws as share()
  // does. The object must live as long as the process: that thread and the helper control use it.
  QBHPHelperCommunicate();
  ~QBHPHelperCommunicate() override;

  // --- Life cycle -------------------------------------------------------------------------------

  // Does the work of the start-up thread: extractHelper(), then launchHelepr(). Blocks as they do,
  // and in between 1 s at most, until the process has its name on the bus.
  void processHelper();

  // Starts a liveness check on a thread of its own. At most 8 run at a time; one more check covers
  // all further calls together, and starts after the last of them. It also covers a call for which
  // no thread can be made; if no check is running, such a call has no effect. Always returns 0.
  OSErr autoRestartHelper();

  // Runs a liveness check. Returns serverNotOpen if the server is switched off; 0 if the helper
  // agent can be reached or was launched; 1 if the launch failed. Blocks as launchHelepr() does.
  OSErr restartHelperInThread();

  // Keeps the helper agent alive more closely, from this call on, for as long as the process lives;
  // a later call changes how closely. One thread is made for it. The key "Helper is supervised" in
  // the host's Info.plist does it from the start.
  //
  // A helper agent that is lost is started again at once; one that is lost five times within 10 s
  // after 1 s, then after 2 s, up to 60 s. One that runs from replaced files, or does not answer
  // pings, is asked to exit, and gets SIGTERM after 2 s and SIGKILL after 1.5 s more; so does one
  // that is replaced by an upgrade. An installed copy that cannot be opened is replaced by the one
  // among the resources unless that is older, once per version, and opened again. On Linux one
  // check runs when the machine goes on after it was suspended. A server that is switched off is
  // left alone. False if it cannot be supervised: the host names no helper agent,
  // or the system lacks descriptors or threads. Any thread.
  bool supervise(const Supervision& supervision);

  // Tells a handler the states of the helper agent; an empty one turns that off, as at first. It is
  // called on the main run loop, in the order of the states: first with the latest one, or as soon
  // as that is found out, then with each that differs from the one before. Of the states that wait
  // for a busy main run loop, the latest 16 are kept. The handler may call anything, set another
  // one, or run the loop. It is not called any more after a call on the main thread; during one on
  // another thread it may be running. Set it right after the first share() to be told of a first
  // installation. With a handler, checks, launches and installations also block for the bus, 5 s at
  // most, to find out the process. Any thread.
  void setHelperStateHandler(HelperStateHandler handler);

  // Finds out why this host has no helper agent, or what failed last: examines its bundle, the
  // installed copy, the processes and the bus, and reads the record. Starts nothing but the
  // system's loader, as a detached process that lists libraries, and writes nothing. Blocks for all
  // of that, a second or two at most: do not call it where a user waits. On the main thread it
  // cannot tell whether the main run loop runs. Any thread. Throws only std::bad_alloc.
  [[nodiscard]] Diagnosis diagnose() const;

  // Returns false only if the helper agent's user defaults have a true "QBHPServerClosed"
  // (settings).
  [[nodiscard]] bool getDefaultHelperServerOpen();

  // Returns the last known state of the server: read by the last launch, or reported by the helper
  // agent since. False before either. The framework does not act on it.
  [[nodiscard]] bool isServerOpen() const;

  // Tells whether a status is serverNotOpen.
  [[nodiscard]] bool isHelperSeverNotOpen(OSErr status) const;

  // Posts the start request. Then, whatever its status, records the first start (settings), fetches
  // the client identifier, and updates the switches in the bundle. Blocks until the helper agent
  // answers or goes away, and for the files.
  OSErr startHelper();

  // Posts the stop request. The helper agent then counts as not started, whatever the status.
  OSErr stopHelper();

  // Posts the liveness request. If that succeeds and the helper agent does not count as started,
  // calls startHelper(), and blocks as it does. Returns the status of the liveness request.
  OSErr isAliveHelper();

  // Returns the client identifier that was fetched last; absent before, and during a fetch.
  [[nodiscard]] String clientID() const;

  // Fetches and caches the client identifier; absent if the answer is empty or missing. Blocks
  // until the helper agent answers or goes away.
  String clientIDFormHelper();
  // Makes the same request, and sends nothing yet: see Request. The answer of the helper agent
  // replaces the cached identifier; if the request ends otherwise, that stays.
  [[nodiscard]] Request<String> askClientIDFormHelper() const;

  // Receive the helper control's reports. This object is the delegate until a host sets its own,
  // which should call these. An announced exit is answered with stopHelper().
  void willHelperExit() override;
  void didCheckServerOpen(bool open, const Error* error) override;

  // --- Deployment and launch --------------------------------------------------------------------

  // Installs the helper agent from the host's resources, or replaces an older installed one. A
  // failure is not reported, only logged with its path and error. An older one is in use until the
  // copy of the new one is made: it is asked to exit only then, and exchanged when it has ended. A
  // copy that cannot be made leaves it as it is; one that cannot be removed is asked to exit all
  // the same. Blocks for the file operations; 30 s at most while
  // another thread or process deploys into the same directory, and if that takes longer, nothing is
  // deployed; 15 s at most while another process opens the older one; and 5 s at most for its exit.
  void extractHelper();

  // Opens the helper agent unless it runs, then calls startHelper(). False if its name or directory
  // is missing, or it cannot be opened, or is not opened until launchPausedUntil(). Blocks as
  // extractHelper() does if it is not installed; 15 s at most while another process opens it; 10 s
  // at most until it can be reached; 5 s at most for a scope of its own, with the key "Helper in
  // own scope" in the host's Info.plist; 5 s at most if it runs, but is just starting or ending by
  // itself; and as startHelper() does. If several threads launch it at once, one opens it, and the
  // others wait for that thread, 30 s at most, and take its outcome.
  bool launchHelepr();

  // Returns the time before which this process does not open the helper agent again, because it
  // ended before it could be reached, five times within 10 s. The pause takes 1 s at first, twice
  // as long after each further such end, and 60 s at most. Absent if it may be opened. Does not
  // wait.
  [[nodiscard]] std::optional<std::chrono::steady_clock::time_point> launchPausedUntil() const;

  // Returns the CFBundleVersion of a bundle; absent if the path is not a directory, or the version
  // is missing. Blocks for the file.
  [[nodiscard]] String getVersionByBundlePath(Text bundlePath);

  // Returns the path of the first entry of a directory with the extension "app", in the order of
  // the file system; absent if not found. Blocks for the directory.
  [[nodiscard]] String appPath(Text directory);

  // --- Bookkeeping in the host's user defaults (settings) ---------------------------------------

  // Takes the product identity from the host's information dictionary, and records it.
  void synthesizeUserDefault();

  // Returns the product identifier of the first start ever. The first call records the current one.
  String firstStartPID();

  // Return and set the product identifier under which usage data is collected; that of the first
  // start unless another one is set. An absent identifier removes the record.
  String collectDataPID();
  void setCollectDataPID(Text productID);

  // Makes the folders Log/Data in a directory. Records the path before it makes Data; does neither
  // if Data exists. The record is stored on return unless others held the settings. Blocks for the
  // folders. An absent or empty directory is ignored.
  void initDataCollectionPath(Text base);
  static constexpr auto kInitDataCollectionPath =
      selector<&QBHPHelperCommunicate::initDataCollectionPath>("initDataCollectionPath:");

  // --- Switches in the host's bundle ------------------------------------------------------------
  // Flags in the bundle's property list, and "1" or "0" in the strings file of the current
  // language. A file that has the value already is not touched. One that is missing, unreadable,
  // read-only or locked by another writer for 0.1 s stays as it is; no error is reported. All of
  // these calls block for the file operations.

  // Returns the path of the strings file for the switches: the file of the current language that
  // has the tips switch, else its InfoPlist.strings, even if missing. Absent without a folder for
  // the language.
  String searchCurrentStringsFilePath(Text bundlePath);
  // Returns the path of the first property list in the bundle's Contents; absent if not found.
  String searchPlistFilePath(Text bundlePath);

  // Write one switch to one of the files.
  void saveEnableADToStringsFile(bool enable);
  void saveTipsEnableTostringsFile(bool enable);
  void saveEnableADToPlistFile(bool enable);
  void saveTipsEnableToPlistFile(bool enable);

  // Update a switch in the property list from the information dictionary, at each start. A missing
  // switch is added: tips on, advertising off.
  void saveEnableAD();
  void saveTipsEnable();

  // Set a switch in both files.
  void setEnableAD(bool enable);
  void setTipsEnable(bool enable);

  // --- Requests ---------------------------------------------------------------------------------
  // All add the product's identity. Those marked "checks" start a liveness check as well.

  OSErr showHelper();  // checks
  OSErr hideHelper();  // checks

  // Tells the helper agent whether the product is ready to be upgraded, in answer to its question.
  OSErr productReadyToUpgrade(bool ready);
  // Starts an upgrade of the product.
  OSErr productUpgrade();  // checks
  // Sets the delegate for that question, which is not owned; null removes it, and must before the
  // delegate is destroyed.
  void setProductUpgradeDelegate(QBHPProductUpgradeCallBackDelegate* delegate);
  // Always throws UnrecognizedSelectorException: the upgrade service has no such method.
  QBHPProductUpgradeCallBackDelegate* getProductUpgradeDelegate();

  // Hand over a file with the user's e-mail address, a title and a description. The path must be
  // absolute: it is passed on unchanged, and the helper agent has another working directory.
  OSErr uploadProductFile(Text email, Text filePath, Text title, Text description);
  OSErr uploadUserFile(Text email, Text filePath, Text title, Text description);    // checks
  OSErr uploadLogByEmail(Text email, Text filePath, Text title, Text description);  // checks

  // Usage data, collected under collectDataPID() (settings). Upload it now; collect a text; count,
  // making a missing counter; count. The host chooses the names of target and key, such as a window
  // and a button.
  OSErr directUploadData();
  OSErr customStringDataCollect(Text target, Text value);
  OSErr autoCreatedIncreaseDataCollect(Text target, Text key);
  OSErr commIncreaseDataCollect(Text target, Text key);

  // Tells whether usage data is collected: true only if the helper agent answers exactly "1".
  // Blocks until it answers or goes away.
  bool productCollectStatus();
  // Makes the same request, and sends nothing yet: see Request.
  [[nodiscard]] Request<bool> askProductCollectStatus() const;
  // Turns the collection on or off.
  OSErr setProductCollectStatus(bool status);

  // Returns the path of a page to show without a network; absent if the answer is empty or missing.
  // Blocks until the helper agent answers or goes away.
  String netErrorPagePath();
  // Makes the same request, and sends nothing yet: see Request.
  [[nodiscard]] Request<String> askNetErrorPagePath() const;

  // Return the page for a suite, not registered or registered. Without an answer the URL is absent
  // and the size 0. Throw RangeException for an answer of one field or two. Block until the helper
  // agent answers or goes away.
  QBHPSuiteInfo unRegSuiteInfo();
  QBHPSuiteInfo regSuiteInfo();
  // Make the same requests, and send nothing yet: see Request. An answer of one field or two has
  // the status errAEEventNotHandled.
  [[nodiscard]] Request<QBHPSuiteInfo> askUnRegSuiteInfo() const;
  [[nodiscard]] Request<QBHPSuiteInfo> askRegSuiteInfo() const;

  // Look for messages for the product, and open a customer-service request with a file.
  OSErr checkForHeleprMessage();                              // checks
  OSErr customerserviceByEmail(Text email, Text attachment);  // checks

  [[nodiscard]] std::string_view className() const override { return kClassName; }

 protected:
  // Serves another host, with other calls to the system, in a test.
  QBHPHelperCommunicate(HostConfiguration host, UserDefaults& settings, const SystemCalls& system);

 private:
  friend class QBHPHelper;
  AutoStart& autoStart();

  struct Parts;
  std::unique_ptr<Parts> parts_;
};

}  // namespace qbdkr
