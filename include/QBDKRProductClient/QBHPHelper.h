#pragma once

#include <ClientComm/Export.h>
#include <ClientComm/QBHPSuiteInfo.h>
#include <ClientComm/RunLoop.h>
#include <ClientComm/Status.h>
#include <ClientComm/TextValue.h>
#include <QBDKRProductClient/QBHPHelperCommunicate.h>

namespace qbdkr {

// The face of the framework. A host calls share() once, on the thread whose run loop is to tick,
// and from then on the helper agent is installed, launched and kept alive.
//
// The first share() must not race with another one. All other calls may be made on any thread.
class QBDKR_EXPORT QBHPHelper {
 public:
  // The facade of this process; made on first use, never destroyed. Installation and launch go on
  // in the background; the first call writes a few settings, and waits for another process that
  // holds them 0.2 s at most. Throws std::runtime_error when there can be no run loop, for want of
  // descriptors; a later call tries again.
  static QBHPHelper& share();

  // Fetches the communicator and starts a timer on the calling thread's run loop that checks every
  // 60 s whether the helper agent is alive. A second object takes over: the first one's timer then
  // ticks without effect.
  QBHPHelper();
  QBHPHelper(const QBHPHelper&) = delete;
  QBHPHelper& operator=(const QBHPHelper&) = delete;
  // Ends the timer that is in use.
  ~QBHPHelper();

  // Records the time of the first start, once (blocks for that as share() does), and starts a
  // liveness check in the background.
  void startHelper();

  // Sends the stop request. The timer goes on: the next tick starts a helper agent that still runs.
  void stopHelper();

  // Forwarded to the communicator, which says more of each. Statuses are dropped where nothing is
  // returned. These post their request and return.
  void directUploadData();
  void setProductCollectStatus(bool status);
  void customStringDataCollect(Text target, Text value);
  void autoCreatedIncreaseDataCollect(Text target, Text key);
  void commIncreaseDataCollect(Text target, Text key);
  OSErr uploadProductFile(Text email, Text filePath, Text title, Text description);

  // Forwarded as well. These block until the helper agent answers, without limit, and end when it
  // goes away.
  bool productCollectStatus();
  String netErrorPagePath();
  // Both throw RangeException for an answer of one field or two: what the helper agent says
  // decides, so a host catches it.
  QBHPSuiteInfo unRegSuiteInfo();
  QBHPSuiteInfo regSuiteInfo();

  // Forwarded, and answered here. They block for the file operations, and 0.2 s more at most while
  // others write the same files: an identifier is then stored the next time, a switch is left as it
  // is in a file that was not free. An absent or empty identifier is ignored.
  void setDataCollectPID(Text productID);
  void setTipsEnable(bool enable);

  // What the timer calls. Any other timer than the one in use has no effect.
  void autoautoStartIntervaTimerMethod(const RunLoopTimer* timer);

 protected:
  // Over another communicator, with its timer on another loop, for a test.
  QBHPHelper(QBHPHelperCommunicate& communicator, RunLoop& loop);
};

}  // namespace qbdkr
