#include <algorithm>
#include <functional>
#include <mutex>

#include <ClientComm/Exceptions.h>
#include <ClientComm/QBHPAppEventBase.h>

#include "ClientComm/RequestRecord.h"
#include "Platform/Base/NeverDestroyed.h"
#include "Platform/Record/Record.h"

namespace qbdkr {
namespace {

// More identifiers than any user has applications. The limit exists because any process can invent
// identifiers.
constexpr std::size_t mostBundleIDs = 4096;

// Shared by all services, kept for the life of the process. Only grows.
struct BundleIDs {
  std::mutex mutex;
  std::set<std::string, std::less<>> identifiers;  // found by a text without a copy of it
};

BundleIDs& bundleIDs() {
  static NeverDestroyed instance([] { return BundleIDs(); });
  return *instance;
}

}  // namespace

QBHPAppEventBase::QBHPAppEventBase() = default;
QBHPAppEventBase::~QBHPAppEventBase() = default;

std::set<std::string> QBHPAppEventBase::bundleIDSet() const {
  const std::lock_guard lock(bundleIDs().mutex);
  const auto& identifiers = bundleIDs().identifiers;
  return {identifiers.begin(), identifiers.end()};
}

void QBHPAppEventBase::setBundleID(Text bundleID) {
  if (!bundleID)
    throw InvalidArgumentException("the sender of an RPC event has no bundle identifier");
  const std::lock_guard lock(bundleIDs().mutex);
  auto& identifiers = bundleIDs().identifiers;
  if (identifiers.size() < mostBundleIDs && !identifiers.contains(*bundleID)) {
    identifiers.emplace(*bundleID);
  }
}

String QBHPAppEventBase::performSelector(std::string_view selector, std::span<const Text> objects) {
  const auto table = methods();
  const auto found =
      std::ranges::find(table, selector, [](const Method& entry) { return entry.selector.text(); });
  if (found == table.end()) {
    record(StepKind::methodUnknown, MethodText(className(), selector).text());
    return std::nullopt;
  }
  if (objects.size() > found->arity) {
    throw InvalidArgumentException("more arguments than the method takes");
  }
  return found->invoke(*this, objects);
}

}  // namespace qbdkr
