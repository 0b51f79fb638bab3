#pragma once

#include <atomic>
#include <span>
#include <string_view>

#include <ClientComm/Export.h>
#include <ClientComm/QBHPAppEventBase.h>
#include <ClientComm/QBHPHelperError.h>
#include <ClientComm/Selector.h>
#include <ClientComm/Status.h>
#include <ClientComm/TextValue.h>

namespace qbdkr {

// Receives the helper agent's reports. A delegate is taken away and destroyed on the main thread,
// or while no report can come. Each report is an interface of its own below: a delegate implements
// those it wants to be told of. Called on the main thread, under the dispatcher's lock.
class QBDKR_EXPORT QBHPHelperControlCallBackDelegate {
 public:
  virtual ~QBHPHelperControlCallBackDelegate();
};

class QBDKR_EXPORT QBHPWillHelperExitDelegate : public virtual QBHPHelperControlCallBackDelegate {
 public:
  // The helper agent announced that it is exiting.
  virtual void willHelperExit() = 0;
};

class QBDKR_EXPORT QBHPDidCheckServerOpenDelegate
    : public virtual QBHPHelperControlCallBackDelegate {
 public:
  // The helper agent told whether its server side is open. The error is null when there is none,
  // and lives as long as the call.
  virtual void didCheckServerOpen(bool open, const Error* error) = 0;
};

// Tells the helper agent to start, stop, show, hide or exit, asks whether it is there, and passes
// its reports on to a delegate.
//
// Requests take a product identifier and a product version, return the status of the send at once
// and may be made on any thread.
class QBDKR_EXPORT QBHPHelperControl : public QBHPAppEventBase {
 public:
  static constexpr std::string_view kClassName = "QBHPHelperControl";

  // The control of this process; made on first use, which makes the process reachable for reports,
  // and never destroyed.
  static QBHPHelperControl& share();

  // Registers the new object for reports, in the place of an earlier one. An object is destroyed on
  // the main thread, or while no report can come.
  QBHPHelperControl();
  ~QBHPHelperControl() override;

  // The delegate is not owned; null for none. Any thread. The communicator makes itself the
  // delegate when it is made: set another one after that, and let it pass the reports on to the
  // communicator, which otherwise does not act on them.
  void setHelperCtrlDelegate(QBHPHelperControlCallBackDelegate* delegate);
  [[nodiscard]] QBHPHelperControlCallBackDelegate* helperCtrlDelegate() const;

  OSErr start(Text productID, Text prodeuctVersion);
  static constexpr auto kStart = selector<&QBHPHelperControl::start>("start:prodeuctVersion:");

  OSErr stop(Text productID, Text prodeuctVersion);
  static constexpr auto kStop = selector<&QBHPHelperControl::stop>("stop:prodeuctVersion:");

  OSErr show(Text productID, Text prodeuctVersion);
  static constexpr auto kShow = selector<&QBHPHelperControl::show>("show:prodeuctVersion:");

  OSErr hide(Text productID, Text prodeuctVersion);
  static constexpr auto kHide = selector<&QBHPHelperControl::hide>("hide:prodeuctVersion:");

  // 0 says that the helper agent can be reached.
  OSErr isAlive(Text productID, Text prodeuctVersion);
  static constexpr auto kIsAlive =
      selector<&QBHPHelperControl::isAlive>("isAlive:prodeuctVersion:");

  OSErr exitHelper(Text productID, Text productVersion);
  static constexpr auto kExitHelper =
      selector<&QBHPHelperControl::exitHelper>("exitHelper:productVersion:");

  // Reports, called by name. What the first argument stands for is the helper agent's affair; the
  // flag is read by boolValue(), and a code whose intValue() is not 0 makes an error of both.
  OSErr helperExitNotify(Text text);
  static constexpr auto kHelperExitNotify =
      selector<&QBHPHelperControl::helperExitNotify>("helperExitNotify:");

  OSErr checkServerOpenCallBack(Text text, Text open, Text errorCode, Text errorMessage);
  static constexpr auto kCheckServerOpenCallBack =
      selector<&QBHPHelperControl::checkServerOpenCallBack>("checkServerOpenCallBack::::");

  // Copies the main bundle's "EnableAD", where it has one, into the first property list of its
  // "Contents", also when nothing changes. False only when the file could not be read or written.
  // Blocks for the file operations.
  bool saveEnableADToPlistFile();

  [[nodiscard]] std::string_view className() const override { return kClassName; }

 protected:
  [[nodiscard]] std::span<const Method> methods() const override;

 private:
  std::atomic<QBHPHelperControlCallBackDelegate*> delegate_{nullptr};
};

}  // namespace qbdkr
