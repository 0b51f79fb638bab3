#include <mutex>
#include <utility>

#include <ClientComm/Bundle.h>
#include <ClientComm/RunLoop.h>
#include <ClientComm/UserDefaults.h>

#include "Platform/Base/ForkSafeMutex.h"
#include "Platform/Base/NeverDestroyed.h"
#include "Platform/Defaults/NativeDefaults.h"
#include "Platform/PropertyLists/PropertyListWriter.h"
#include "Platform/Text/Text.h"

namespace qbdkr {

namespace {

// Settings live in files named after their domains.
bool isDomainName(std::string_view domain) {
  constexpr std::size_t longest = 200;
  return !domain.empty() && domain.size() <= longest && !domain.starts_with('.') &&
         isValidUTF8(domain) &&
         domain.find_first_of(std::string_view("/\0", 2)) == std::string_view::npos;
}

}  // namespace

struct UserDefaults::State {
  explicit State(const std::string& domain) {
    if (isDomainName(domain)) store.emplace(domain);
  }

  bool synchronize() {
    if (store) return store->synchronize();
    const std::lock_guard lock(mutex);
    return unstored.empty();
  }

  std::optional<DefaultsStore> store;  // empty if the domain name is invalid
  ForkSafeMutex mutex;
  PropertyList::Dictionary unstored;  // settings of this process, without a store
  bool writeScheduled = false;        // on the main run loop
};

void UserDefaults::scheduleWrite(const std::shared_ptr<State>& state) {
  const auto done = [state] {
    const std::lock_guard lock(state->mutex);
    state->writeScheduled = false;
  };
  try {
    RunLoop::main().perform([state, done] {
      done();
      state->synchronize();
    });
  } catch (...) {  // the loop may exist the next time
    done();
    throw;
  }
}

UserDefaults& UserDefaults::standard() {
  static NeverDestroyed defaults(
      [] { return UserDefaults(Bundle::main().infoString(kCFBundleIdentifierKey).value_or("")); });
  return *defaults;
}

std::optional<PropertyList::Dictionary> UserDefaults::persistentDomain(std::string_view domain) {
  if (!isDomainName(domain)) return std::nullopt;
  return DefaultsStore::contentsOf(std::string(domain));
}

UserDefaults::UserDefaults(const std::string& domain) : state_(std::make_shared<State>(domain)) {}

UserDefaults::~UserDefaults() = default;

std::optional<PropertyList> UserDefaults::object(std::string_view key) const {
  if (state_->store) return state_->store->object(std::string(key));
  const std::lock_guard lock(state_->mutex);
  const PropertyList* value = state_->unstored.find(key);
  return value == nullptr ? std::nullopt : std::optional(*value);
}

bool UserDefaults::setObject(std::string_view key, std::optional<PropertyList> value) {
  const bool representable =
      xmlPropertyList(PropertyList::Dictionary{{std::string(key), value.value_or(PropertyList())}})
          .has_value();
  if (!representable) return false;
  if (!state_->store) {
    const std::lock_guard lock(state_->mutex);
    if (value) {
      state_->unstored.set(key, *std::move(value));
    } else {
      state_->unstored.erase(key);
    }
    return true;
  }
  state_->store->setObject(std::string(key), std::move(value));
  bool alreadyScheduled = false;
  {
    const std::lock_guard lock(state_->mutex);
    alreadyScheduled = std::exchange(state_->writeScheduled, true);
  }
  if (!alreadyScheduled) scheduleWrite(state_);
  return true;
}

bool UserDefaults::synchronize() { return state_->synchronize(); }

}  // namespace qbdkr
