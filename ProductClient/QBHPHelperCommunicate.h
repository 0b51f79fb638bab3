#pragma once

#include <atomic>
#include <mutex>
#include <span>
#include <string>
#include <string_view>

#include "ClientComm/QBHPAppEventBase.h"
#include "ClientComm/QBHPHelperControl.h"
#include "ClientComm/Text.h"
#include "Platform/Export.h"
#include "Platform/Status.h"

namespace qbdkr {

// The centre of the framework: it knows for which product the host speaks, installs and launches
// the helper agent, keeps it alive, and turns the host's calls into requests to it.
//
// Unless a call says otherwise it may be made on any thread, returns at once, throws nothing, and a
// status is that of the send: 0, or what QBHPAppleEventSender lists.
class QBDKR_EXPORT QBHPHelperCommunicate : public QBHPAppEventBase,
                                           public QBHPWillHelperExitDelegate,
                                           public QBHPDidCheckServerOpenDelegate {
 public:
  // The status of a liveness check when the helper agent's server is switched off.
  static constexpr OSErr serverNotOpen = 10;

  // The communicator of this process; made on first use, never destroyed.
  static QBHPHelperCommunicate& share();

  // Becomes the delegate of the helper control, records the product identity in the user defaults
  // and starts a thread that installs and launches the helper agent. Does not wait for it. The
  // object must live as long as the process: that thread and the helper control use it.
  QBHPHelperCommunicate();
  ~QBHPHelperCommunicate() override;

  // --- Life cycle -------------------------------------------------------------------------------

  // What the start-up thread does: extractHelper(), then launchHelepr(). Blocks as they do.
  void processHelper();

  // Starts one liveness check on a thread of its own. Always 0.
  OSErr autoRestartHelper();

  // The liveness check: serverNotOpen when the server is switched off; 0 when the helper agent can
  // be reached or was launched; 1 when launching failed. Blocks for as long as a launch takes.
  OSErr restartHelperInThread();

  // False only when the helper agent's user defaults hold "QBHPServerClosed" as true.
  [[nodiscard]] bool getDefaultHelperServerOpen();

  // Whether a status says that the helper agent's server is switched off.
  [[nodiscard]] bool isHelperSeverNotOpen(OSErr status) const;

  // Sends the start request, and whatever its status records the first start and fetches the client
  // identifier. Blocks until the helper agent has answered that.
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

  // The helper control's reports. An announced exit is answered by stopHelper().
  void willHelperExit() override;
  void didCheckServerOpen(bool open, const Error* error) override;

  // --- Deployment and launch --------------------------------------------------------------------

  // Installs the helper agent from the host's resources, or replaces an installed one that is
  // older. Failures are not reported. Blocks for the file operations.
  void extractHelper();

  // Makes sure that the helper agent runs, then sends the start request. False when the
  // configuration is missing or it could not be opened. Blocks until it can be reached, and as
  // startHelper() does.
  bool launchHelepr();

  // The CFBundleVersion of a bundle; absent when there is nothing at the path, or no version in it.
  [[nodiscard]] String getVersionByBundlePath(Text bundlePath);

  // The first entry of a directory whose extension is "app", in the order of the file system.
  [[nodiscard]] String appPath(Text directory);

  // --- Bookkeeping in the host's user defaults --------------------------------------------------

  // Takes the product identity from the host's information dictionary, and records it.
  void synthesizeUserDefault();

  // The product identifier of the first start ever; this call records it when it is the first.
  String firstStartPID();

  // The product identifier under which usage data is collected: the one that was set, or else that
  // of the first start.
  String collectDataPID();
  void setCollectDataPID(Text productID);

  // Makes the folders Log/Data in a directory, and records their path, unless they are there.
  void initDataCollectionPath(Text base);
  static constexpr auto kInitDataCollectionPath =
      selector<&QBHPHelperCommunicate::initDataCollectionPath>("initDataCollectionPath:");

  [[nodiscard]] std::string_view className() const override { return "QBHPHelperCommunicate"; }

 protected:
  [[nodiscard]] std::span<const Method> methods() const override {
    return {};
  }  // it gets no events

 private:
  // Where the helper agent comes from and goes to, as the host's information dictionary says.
  struct HelperConfiguration {
    String bundleIdentifier;
    String appName;
    String installDirectory;
  };
  static HelperConfiguration helperConfiguration();

  [[nodiscard]] String productID() const;
  [[nodiscard]] String productVersion() const;
  void startLaunchedHelper();

  mutable std::mutex mutex_;  // guards the three texts
  String productID_;
  String productVersion_;
  String clientID_;
  std::atomic<bool> isServerOpen_{
      false};  // nothing here reads it; it is there for a debugger's eye
  std::atomic<bool> isHelperAlive_{false};
};

}  // namespace qbdkr
