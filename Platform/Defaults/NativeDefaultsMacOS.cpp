#include <utility>

#include "Platform/Defaults/NativeDefaults.h"
#include "Platform/PropertyLists/PropertyListConversionMacOS.h"
#include "Platform/Text/CoreFoundationTextMacOS.h"

namespace qbdkr {
namespace {

// Stores the changes of this process, and takes over those that others have stored.
bool synchronized(CFStringRef application) {
  return CFPreferencesSynchronize(application, kCFPreferencesCurrentUser, kCFPreferencesAnyHost) !=
         0;
}

}  // namespace

struct DefaultsStore::State {
  explicit State(const std::string& domain) : application(stringFromText(domain)) {}

  const CFRef<CFStringRef> application;  // null if the name is not UTF-8
};

DefaultsStore::DefaultsStore(const std::string& domain) : state_(std::make_unique<State>(domain)) {}

DefaultsStore::~DefaultsStore() = default;

std::optional<PropertyList::Dictionary> DefaultsStore::contentsOf(const std::string& domain) {
  const auto application = stringFromText(domain);
  if (!application) return std::nullopt;
  synchronized(application.get());
  const CFRef<CFDictionaryRef> stored(CFPreferencesCopyMultiple(
      nullptr, application.get(), kCFPreferencesCurrentUser, kCFPreferencesAnyHost));
  if (!stored || CFDictionaryGetCount(stored.get()) == 0) return std::nullopt;
  return dictionaryFrom(stored.get());
}

std::optional<PropertyList> DefaultsStore::object(const std::string& key) const {
  const auto name = stringFromText(key);
  const CFStringRef application = state_->application.get();
  if (application == nullptr || !name) return std::nullopt;
  synchronized(application);
  const CFRef<CFPropertyListRef> value(CFPreferencesCopyValue(
      name.get(), application, kCFPreferencesCurrentUser, kCFPreferencesAnyHost));
  return propertyListFrom(value.get());
}

void DefaultsStore::setObject(const std::string& key, std::optional<PropertyList> value) {
  const auto name = stringFromText(key);
  const CFStringRef application = state_->application.get();
  const CFRef<CFPropertyListRef> stored =
      value ? propertyListFor(*value) : CFRef<CFPropertyListRef>();
  if (application == nullptr || !name || (value && !stored)) return;
  CFPreferencesSetValue(name.get(), stored.get(), application, kCFPreferencesCurrentUser,
                        kCFPreferencesAnyHost);
}

bool DefaultsStore::synchronize() {
  return state_->application && synchronized(state_->application.get());
}

}  // namespace qbdkr
