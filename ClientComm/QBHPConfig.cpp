#include "ClientComm/QBHPConfig.h"

#include <mutex>
#include <string>

#include "ClientComm/Exceptions.h"
#include "ClientComm/InfoKeys.h"
#include "Platform/Base/NeverDestroyed.h"
#include "Platform/Bundles/Bundle.h"
#include "Platform/Text/Text.h"

namespace qbdkr {
namespace {

// Filled by the first call that has a value, and kept for the life of the process.
struct Cache {
  std::mutex mutex;
  String brandName;
  String helperName;
};

Cache& cache() {
  static NeverDestroyed instance([] { return Cache(); });
  return *instance;
}

String bundleIdentifier() { return Bundle::main().infoString(kCFBundleIdentifierKey); }

// One of the parts between the dots, counted from 0.
std::string part(std::string_view identifier, std::size_t index) {
  for (; index > 0; --index) {
    const auto dot = identifier.find('.');
    if (dot == std::string_view::npos) {
      throw RangeException("the bundle identifier has too few parts");
    }
    identifier.remove_prefix(dot + 1);
  }
  return std::string(identifier.substr(0, identifier.find('.')));
}

}  // namespace

String QBHPConfig::brandName() {
  const std::lock_guard lock(cache().mutex);
  if (cache().brandName) return cache().brandName;
  const auto identifier = bundleIdentifier();
  if (!identifier) return std::nullopt;
  cache().brandName = lowercase(part(*identifier, 1));
  return cache().brandName;
}

String QBHPConfig::helperName() {
  const std::lock_guard lock(cache().mutex);
  if (cache().helperName) return cache().helperName;
  const auto identifier = bundleIdentifier();
  // Without an identifier both parts read as nothing does in a text.
  cache().helperName =
      identifier ? lowercase(part(*identifier, 1) + ' ' + part(*identifier, 2)) : "(null) (null)";
  return cache().helperName;
}

String QBHPConfig::helperPID() { return Bundle::main().infoString(infokey::productID); }

}  // namespace qbdkr
