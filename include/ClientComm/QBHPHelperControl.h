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

// Receives the helper agent's reports, on the main thread, under the dispatcher's lock. A delegate
// implements the interfaces below for the reports it wants. Remove and destroy a delegate on the
// main thread, or while no report can come. It may do so itself in a call, and it may run the main
// run loop there, as for a modal dialog: further reports then call it inside that call. One that is
// destroyed while it is set takes itself off, which the record tells.
class QBDKR_EXPORT QBHPHelperControlCallBackDelegate {
 public:
  virtual ~QBHPHelperControlCallBackDelegate();

  // Tells whether it takes a report that it has the interface for; true by default. One that stands
  // for an object of another language asks that object. Called right before each report.
  [[nodiscard]] virtual bool respondsTo(Selector report) const;
};

// Hears of the end of the helper agent.
class QBDKR_EXPORT QBHPWillHelperExitDelegate : public virtual QBHPHelperControlCallBackDelegate {
 public:
  // Called when the helper agent announces its exit.
  virtual void willHelperExit() = 0;
  static constexpr auto kWillHelperExit =
      selector<&QBHPWillHelperExitDelegate::willHelperExit>("willHelperExit");
};

// Hears of the state of the helper agent's server.
class QBDKR_EXPORT QBHPDidCheckServerOpenDelegate
    : public virtual QBHPHelperControlCallBackDelegate {
 public:
  // Called when the helper agent reports whether its server side is open. The error is null if the
  // report has no error code, and lives as long as the call.
  virtual void didCheckServerOpen(bool open, const Error* error) = 0;
  static constexpr auto kDidCheckServerOpen =
      selector<&QBHPDidCheckServerOpenDelegate::didCheckServerOpen>("didCheckServerOpen::");
};

// Tells the helper agent to start, stop, show, hide or exit, asks whether it is alive, and passes
// its reports on to a delegate.
//
// Requests take a product identifier and a product version. They post and return at once, with a
// status of QBHPAppleEventSender. Any thread.
class QBDKR_EXPORT QBHPHelperControl : public QBHPAppEventBase {
 public:
  // The class name in RPC events.
  static constexpr std::string_view kClassName = "QBHPHelperControl";

  // Returns the control of this process, made on first use, never destroyed. The first use installs
  // the dispatcher, and throws as QBHPAppleEventProcesser::share() does. Any thread.
  static QBHPHelperControl& share();

  // Registers the new object for reports, in the place of an earlier one. Destroy it on the main
  // thread, or while no report can come.
  QBHPHelperControl();
  ~QBHPHelperControl() override;

  // Sets and returns the delegate, which is not owned; null removes it. Any thread. The
  // communicator makes itself the delegate when it is made: set another one after that, and let it
  // pass the reports on to the communicator, which otherwise does not act on them.
  void setHelperCtrlDelegate(QBHPHelperControlCallBackDelegate* delegate);
  [[nodiscard]] QBHPHelperControlCallBackDelegate* helperCtrlDelegate() const;

  // Tells the helper agent that this product has started.
  OSErr start(Text productID, Text prodeuctVersion);
  static constexpr auto kStart = selector<&QBHPHelperControl::start>("start:prodeuctVersion:");

  // Tells it that this product ends.
  OSErr stop(Text productID, Text prodeuctVersion);
  static constexpr auto kStop = selector<&QBHPHelperControl::stop>("stop:prodeuctVersion:");

  // Asks it to show what it shows to the user.
  OSErr show(Text productID, Text prodeuctVersion);
  static constexpr auto kShow = selector<&QBHPHelperControl::show>("show:prodeuctVersion:");

  // Asks it to hide that.
  OSErr hide(Text productID, Text prodeuctVersion);
  static constexpr auto kHide = selector<&QBHPHelperControl::hide>("hide:prodeuctVersion:");

  // Asks for a sign of life: status 0 means that the helper agent can be reached.
  OSErr isAlive(Text productID, Text prodeuctVersion);
  static constexpr auto kIsAlive =
      selector<&QBHPHelperControl::isAlive>("isAlive:prodeuctVersion:");

  // Asks it to end.
  OSErr exitHelper(Text productID, Text productVersion);
  static constexpr auto kExitHelper =
      selector<&QBHPHelperControl::exitHelper>("exitHelper:productVersion:");

  // Receive the reports, which call these by name. The first argument is only logged. boolValue()
  // reads the flag. A code whose intValue() is not 0 makes an error with the message; throws
  // InvalidArgumentException if the message is then absent and a delegate wants the report.
  OSErr helperExitNotify(Text text);
  static constexpr auto kHelperExitNotify =
      selector<&QBHPHelperControl::helperExitNotify>("helperExitNotify:");
  OSErr checkServerOpenCallBack(Text text, Text open, Text errorCode, Text errorMessage);
  static constexpr auto kCheckServerOpenCallBack =
      selector<&QBHPHelperControl::checkServerOpenCallBack>("checkServerOpenCallBack::::");

  // Writes the main bundle's "EnableAD" to the first property list of its "Contents", even if that
  // has the value already. Without the key or a property list it does nothing and returns true.
  // False if the file cannot be read or written, or another writer holds it for 0.1 s. Blocks for
  // the file operations. Any thread.
  bool saveEnableADToPlistFile();

  [[nodiscard]] std::string_view className() const override { return kClassName; }

 protected:
  [[nodiscard]] std::span<const Method> methods() const override;

 private:
  friend class QBHPHelperControlCallBackDelegate;
  // Takes a delegate that is destroyed off, and records it.
  void forget(const QBHPHelperControlCallBackDelegate& delegate) noexcept;

  std::atomic<QBHPHelperControlCallBackDelegate*> delegate_{nullptr};
};

}  // namespace qbdkr
