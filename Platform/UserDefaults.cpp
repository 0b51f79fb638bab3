#include "Platform/UserDefaults.h"

#include <mutex>
#include <utility>

#include "Platform/Bundle.h"
#include "Platform/DefaultsStore.h"
#include "Platform/RunLoop.h"

namespace qbdkr {

struct UserDefaults::State {
  explicit State(std::string domain) : store(std::move(domain)) {}

  DefaultsStore store;
  std::mutex mutex;
  bool writeScheduled = false;  // on the main run loop
};

bool isDomainName(std::string_view domain) {
  constexpr std::size_t longest = 200;
  return !domain.empty() && domain.size() <= longest && !domain.starts_with('.') &&
         domain.find_first_of(std::string_view("/\0", 2)) == std::string_view::npos;
}

UserDefaults& UserDefaults::standard() {
  static auto& defaults =
      *new UserDefaults(Bundle::main().infoString(kCFBundleIdentifierKey).value_or(""));
  return defaults;
}

std::optional<PropertyList::Dictionary> UserDefaults::persistentDomain(std::string_view domain) {
  return DefaultsStore::contentsOf(std::string(domain));
}

UserDefaults::UserDefaults(std::string domain)
    : state_(std::make_shared<State>(std::move(domain))) {}

UserDefaults::~UserDefaults() = default;

std::optional<PropertyList> UserDefaults::object(std::string_view key) const {
  return state_->store.object(std::string(key));
}

bool UserDefaults::setObject(std::string_view key, std::optional<PropertyList> value) {
  const bool representable =
      xmlPropertyList(PropertyList::Dictionary{{std::string(key), value.value_or(PropertyList())}})
          .has_value();
  if (!representable) return false;
  state_->store.setObject(std::string(key), std::move(value));
  bool alreadyScheduled = false;
  {
    const std::lock_guard lock(state_->mutex);
    alreadyScheduled = std::exchange(state_->writeScheduled, true);
  }
  if (!alreadyScheduled) {
    RunLoop::main().perform([state = state_] {
      {
        const std::lock_guard lock(state->mutex);
        state->writeScheduled = false;
      }
      state->store.synchronize();
    });
  }
  return true;
}

bool UserDefaults::synchronize() { return state_->store.synchronize(); }

}  // namespace qbdkr
