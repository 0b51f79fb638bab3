#include <ClientComm/Bundle.h>
#include <ClientComm/QBHPConfig.h>

#include "ClientComm/HostConfiguration.h"
#include "ClientComm/HostNames.h"
#include "Platform/Base/NeverDestroyed.h"

namespace qbdkr {
namespace {

HostNames& names() {
  static NeverDestroyed instance(
      [] { return HostNames([] { return Bundle::main().infoString(kCFBundleIdentifierKey); }); });
  return *instance;
}

}  // namespace

String QBHPConfig::brandName() { return names().brandName(); }

String QBHPConfig::helperName() { return names().helperName(); }

String QBHPConfig::helperPID() { return HostConfiguration().productID(); }

}  // namespace qbdkr
