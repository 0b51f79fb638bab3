#pragma once

#include <ClientComm/Export.h>
#include <ClientComm/QBHPSuiteInfo.h>
#include <ClientComm/Request.h>
#include <ClientComm/RunLoop.h>
#include <ClientComm/Status.h>
#include <ClientComm/TextValue.h>
#include <QBDKRProductClient/QBHPHelperCommunicate.h>

namespace qbdkr {

// The facade of the framework. A host calls share() once, on the thread whose run loop is to run
// the timer. From then on the helper agent is installed, launched and kept alive.
//
// The first share() must not race with another one. Call every other member on any thread.
class QBDKR_EXPORT QBHPHelper {
 public:
  // Returns the facade of this process, made on first use, never destroyed. Installs and launches
  // in the background. The first call writes a few settings, and waits 0.2 s at most while others
  // hold them. Throws std::runtime_error if no descriptors are left for a run loop; a later call
  // tries again.
  static QBHPHelper& share();

  // Gets the communicator, and starts a timer on the calling thread's run loop: every 60 s it
  // checks whether the helper agent is alive. The timer of an earlier object then ticks without
  // effect. Blocks and throws as share() does.
  QBHPHelper();
  QBHPHelper(const QBHPHelper&) = delete;
  QBHPHelper& operator=(const QBHPHelper&) = delete;
  // Ends the timer in use, that of the latest object.
  ~QBHPHelper();

  // Records the time of the first start once, waiting for the settings as share() does. Starts a
  // liveness check in the background.
  void startHelper();

  // Posts the stop request. The timer stays: its next tick starts a helper agent that still runs. A
  // process that ends next calls QBHPAppleEventSender::flush() first, or the request may be lost.
  void stopHelper();

  // --- Calls of the communicator, which documents them ------------------------------------------
  // Those without a result drop the status.

  // Post their request and return. The first one and the three collectors read the settings, as
  // QBHPHelperCommunicate::collectDataPID() does.
  void directUploadData();
  void setProductCollectStatus(bool status);
  void customStringDataCollect(Text target, Text value);
  void autoCreatedIncreaseDataCollect(Text target, Text key);
  void commIncreaseDataCollect(Text target, Text key);
  OSErr uploadProductFile(Text email, Text filePath, Text title, Text description);

  // Block until the helper agent answers or goes away, without limit.
  bool productCollectStatus();
  String netErrorPagePath();
  // Throw RangeException for an answer of one field or two. Catch it: the answer comes from another
  // process.
  QBHPSuiteInfo unRegSuiteInfo();
  QBHPSuiteInfo regSuiteInfo();

  // Make the same requests, and send nothing yet: they can be given a deadline and be cancelled,
  // and need not block (see Request). Throw std::bad_alloc.
  [[nodiscard]] Request<bool> askProductCollectStatus() const;
  [[nodiscard]] Request<String> askNetErrorPagePath() const;
  [[nodiscard]] Request<QBHPSuiteInfo> askUnRegSuiteInfo() const;
  [[nodiscard]] Request<QBHPSuiteInfo> askRegSuiteInfo() const;

  // Work without the helper agent. Block for files, and 0.2 s more at most while others write them:
  // an identifier is then stored the next time, and a switch keeps its value in a file that was not
  // free. An absent or empty identifier is ignored.
  void setDataCollectPID(Text productID);
  void setTipsEnable(bool enable);

  // --- The timer --------------------------------------------------------------------------------

  // Does what a tick of the given timer does: startHelper() if it is the timer in use, else
  // nothing.
  void autoautoStartIntervaTimerMethod(const RunLoopTimer* timer);

 protected:
  // Uses another communicator, with the timer on another loop, in a test.
  QBHPHelper(QBHPHelperCommunicate& communicator, RunLoop& loop);
};

}  // namespace qbdkr
