// Uses symbols of both libraries. Runs outside any bundle, and so cannot reach a helper agent.

#include <cstdio>

#include <ClientComm/QBHPHelperControl.h>
#include <ClientComm/QBHPVersion.h>
#include <QBDKRProductClient/QBHPHelper.h>

int main() {
  qbdkr::QBHPHelper::share();
  const int order = qbdkr::compareVersion("1.10", "1.9");
  const qbdkr::OSErr status = qbdkr::QBHPHelperControl::share().show("1", "1.0");
  // Even without a bus address a bus may be at its usual place: both answers are right.
  std::printf("compares %d, status %d\n", order, status == -609 ? -600 : status);
  return 0;
}
