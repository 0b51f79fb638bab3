#pragma once

#include <memory>
#include <string_view>

#include <ClientComm/Export.h>
#include <ClientComm/QBHPAppEventBase.h>
#include <ClientComm/QBHPHelperControl.h>
#include <ClientComm/QBHPSuiteInfo.h>
#include <ClientComm/QBHPUpgradeByHelper.h>
#include <ClientComm/QBHPUploadByHelper.h>
#include <ClientComm/Status.h>
#include <ClientComm/TextValue.h>

namespace qbdkr {

class AutoStart;
class HostConfiguration;
class UserDefaults;
struct HostSystem;

// The centre of the framework: it knows for which product the host speaks, installs and launches
// the helper agent, keeps it alive, and turns the host's calls into requests to it.
//
// Unless a call says otherwise it may be made on any thread, returns at once, throws nothing, and a
// status is that of the send: 0, or what QBHPAppleEventSender lists. What "settings" is said of
// reads and writes the user defaults: it blocks for the file, and 0.2 s more at most while another
// process holds them.
class QBDKR_EXPORT QBHPHelperCommunicate : public QBHPAppEventBase,
                                           public QBHPWillHelperExitDelegate,
                                           public QBHPDidCheckServerOpenDelegate {
 public:
  static constexpr std::string_view kClassName = "QBHPHelperCommunicate";

  // The status of a liveness check when the helper agent's server is switched off.
  static constexpr OSErr serverNotOpen = 10;

  // The communicator of this process; made on first use, never destroyed. Throws
  // std::runtime_error when there can be no run loop, for want of descriptors; a later call tries
  // again.
  static QBHPHelperCommunicate& share();

  // Becomes the delegate of the helper control, records the product identity (settings) and starts
  // a thread that installs and launches the helper agent. Does not wait for it. The object must
  // live as long as the process: that thread and the helper control use it.
  QBHPHelperCommunicate();
  ~QBHPHelperCommunicate() override;

  // --- Life cycle -------------------------------------------------------------------------------

  // What the start-up thread does: extractHelper(), then launchHelepr(). Blocks as they do.
  void processHelper();

  // Has a liveness check follow, on a thread of its own. At most 8 of them run at a time; calls
  // that come meanwhile are covered together by one more, which starts after the last of them.
  // Returns at once, always 0: without a thread there is no check until the next call.
  OSErr autoRestartHelper();

  // The liveness check: serverNotOpen when the server is switched off; 0 when the helper agent can
  // be reached or was launched; 1 when launching failed. Blocks as launchHelepr() does.
  OSErr restartHelperInThread();

  // False only when the helper agent's user defaults hold "QBHPServerClosed" as true.
  [[nodiscard]] bool getDefaultHelperServerOpen();

  // The last known state of that switch: as read by the last launch, or as reported by the helper
  // agent since. False before either. Nothing here acts on it.
  [[nodiscard]] bool isServerOpen() const;

  // Whether a status says that the helper agent's server is switched off.
  [[nodiscard]] bool isHelperSeverNotOpen(OSErr status) const;

  // Sends the start request, and whatever its status records the first start, fetches the client
  // identifier and brings the switches in the bundle in line. Blocks until the helper agent has
  // answered, and for the files.
  OSErr startHelper();

  // Sends the stop request. The helper agent counts as not started afterwards, whatever the status.
  OSErr stopHelper();

  // Sends the liveness request. When it can be delivered and this process has not started the
  // helper agent yet, startHelper() follows, and blocks as said there.
  OSErr isAliveHelper();

  // The client identifier as last fetched; absent before, and while it is fetched.
  [[nodiscard]] String clientID() const;

  // Fetches the client identifier and keeps it. Absent when the helper agent does not answer with
  // one. Blocks until it has answered.
  String clientIDFormHelper();

  // The helper control's reports, of which this object is the delegate until a host sets its own;
  // that one should pass them on. An announced exit is answered by stopHelper().
  void willHelperExit() override;
  void didCheckServerOpen(bool open, const Error* error) override;

  // --- Deployment and launch --------------------------------------------------------------------

  // Installs the helper agent from the host's resources, or replaces an installed one that is
  // older. A failure is logged with its path and error, and not reported. Blocks for the file
  // operations, and 30 s at most while another thread or process deploys into the same directory;
  // if it takes longer, nothing is deployed.
  void extractHelper();

  // Makes sure that the helper agent runs, then sends the start request. False when the
  // configuration is missing or it could not be opened. Blocks as extractHelper() does if it is not
  // installed; 15 s at most while another process opens it; 10 s at most until it can be reached;
  // and as startHelper() does. If several threads launch at once, one opens it, and the others wait
  // for that one, 30 s at most, and take its outcome.
  bool launchHelepr();

  // The CFBundleVersion of a bundle; absent when there is nothing at the path, or no version in it.
  // Blocks for the file.
  [[nodiscard]] String getVersionByBundlePath(Text bundlePath);

  // The first entry of a directory whose extension is "app", in the order of the file system;
  // absent when there is none. Blocks for the directory.
  [[nodiscard]] String appPath(Text directory);

  // --- Bookkeeping in the host's user defaults: settings, all of them ---------------------------

  // Takes the product identity from the host's information dictionary, and records it.
  void synthesizeUserDefault();

  // The product identifier of the first start ever; this call records it when it is the first.
  String firstStartPID();

  // The product identifier under which usage data is collected: the one that was set, or else that
  // of the first start.
  String collectDataPID();
  void setCollectDataPID(Text productID);

  // Makes the folders Log/Data in a directory unless they are there, and before that records their
  // path in the settings. The record is stored when this returns, unless others held the settings.
  void initDataCollectionPath(Text base);
  static constexpr auto kInitDataCollectionPath =
      selector<&QBHPHelperCommunicate::initDataCollectionPath>("initDataCollectionPath:");

  // --- Switches in the host's bundle ------------------------------------------------------------
  // Both are kept in the bundle's property list as flags and in the strings file of the current
  // language as "1" or "0". A file that says the value already is not touched; one that is missing,
  // unreadable or cannot be written is left as it is, and nobody is told. All of them block for the
  // file operations.

  // The strings file for the switches: the one of the current language that carries the tips
  // switch, else its InfoPlist.strings, there or not. Absent without a folder for the language.
  String searchCurrentStringsFilePath(Text bundlePath);
  // The first property list of the bundle; absent when there is none.
  String searchPlistFilePath(Text bundlePath);

  void saveEnableADToStringsFile(bool enable);
  void saveTipsEnableTostringsFile(bool enable);
  void saveEnableADToPlistFile(bool enable);
  void saveTipsEnableToPlistFile(bool enable);

  // What a start does: brings the property list in line with what the information dictionary says.
  // A missing switch is added: tips on, advertising off.
  void saveEnableAD();
  void saveTipsEnable();

  // Set a switch in both files. They wait 0.1 s at most for another writer of each; a file that is
  // not free by then is left as it is.
  void setEnableAD(bool enable);
  void setTipsEnable(bool enable);

  // --- Requests ---------------------------------------------------------------------------------
  // All add the product's identity. Those marked "checks" start a liveness check beside themselves.

  OSErr showHelper();  // checks
  OSErr hideHelper();  // checks

  // Answers the helper agent's question whether the product is ready to be upgraded.
  OSErr productReadyToUpgrade(bool ready);
  // Starts an upgrade of the product.
  OSErr productUpgrade();  // checks
  // Who is asked that question; not owned, null for none.
  void setProductUpgradeDelegate(QBHPProductUpgradeCallBackDelegate* delegate);
  // Always throws UnrecognizedSelectorException: the upgrade service has no such method.
  QBHPProductUpgradeCallBackDelegate* getProductUpgradeDelegate();

  // Hand over a file with the user's e-mail address, a title and a description. The path is passed
  // on as it is: an absolute one, or the helper agent, whose working directory is another, will not
  // find the file.
  OSErr uploadProductFile(Text email, Text filePath, Text title, Text description);
  OSErr uploadUserFile(Text email, Text filePath, Text title, Text description);    // checks
  OSErr uploadLogByEmail(Text email, Text filePath, Text title, Text description);  // checks

  // Usage data, collected under collectDataPID() (settings). Upload it now; a text; a counter that
  // is made when it is missing; a common counter. Target and key are names of the host's choice,
  // such as a window and a button.
  OSErr directUploadData();
  OSErr customStringDataCollect(Text target, Text value);
  OSErr autoCreatedIncreaseDataCollect(Text target, Text key);
  OSErr commIncreaseDataCollect(Text target, Text key);

  // Whether usage data is collected: true only when the helper agent answers exactly "1". Blocks
  // until it answers.
  bool productCollectStatus();
  OSErr setProductCollectStatus(bool status);

  // The path of a page to show when there is no network; absent without answer. Blocks until the
  // helper agent answers.
  String netErrorPagePath();

  // The page for a suite that is not registered, or is. Without answer its URL is absent and its
  // size 0. Throws RangeException for an answer of one field or two. Blocks until the helper
  // agent answers.
  QBHPSuiteInfo unRegSuiteInfo();
  QBHPSuiteInfo regSuiteInfo();

  // Looks for messages meant for the product; opens a customer-service request, with a file.
  OSErr checkForHeleprMessage();                              // checks
  OSErr customerserviceByEmail(Text email, Text attachment);  // checks

  [[nodiscard]] std::string_view className() const override { return kClassName; }

 protected:
  // Of another host, and with other calls to the system, for a test.
  QBHPHelperCommunicate(HostConfiguration host, UserDefaults& settings, const HostSystem& system);

 private:
  friend class QBHPHelper;
  AutoStart& autoStart();

  struct Parts;
  std::unique_ptr<Parts> parts_;
};

}  // namespace qbdkr
