#include "Platform/UserDefaults.h"

#include <fcntl.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <map>
#include <memory>
#include <mutex>
#include <utility>

#include "Platform/Bundle.h"
#include "Platform/Files.h"
#include "Platform/Linux/CachedDictionary.h"
#include "Platform/Linux/Descriptor.h"
#include "Platform/RunLoop.h"

namespace qbdkr {
namespace {

using Dictionary = PropertyList::Dictionary;

// Hosts start with this on the thread that calls; what could not be stored is stored the next time.
constexpr std::chrono::milliseconds lockPatience(200);

std::string preferencesDirectory() {
  const char* configured = std::getenv("XDG_CONFIG_HOME");
  const bool usable = configured != nullptr && *configured == '/';
  return appendPathComponent(usable ? configured : expandTilde("~/.config"), "preferences");
}

// Absent for a domain that is no plain file name.
std::optional<std::string> fileOfDomain(std::string_view domain) {
  constexpr std::size_t longest = 200;
  if (domain.empty() || domain.size() > longest || domain.starts_with('.') ||
      domain.find_first_of(std::string_view("/\0", 2)) != std::string_view::npos) {
    return std::nullopt;
  }
  return appendPathComponent(preferencesDirectory(), std::string(domain) + ".plist");
}

std::shared_ptr<const Dictionary> readDomain(std::string_view domain) {
  const auto file = fileOfDomain(domain);
  return file ? cachedDictionary(*file) : nullptr;
}

using Changes = std::map<std::string, std::optional<PropertyList>, std::less<>>;

void merge(Dictionary& stored, const Changes& changes) {
  for (const auto& [key, value] : changes) {
    if (value) {
      stored.set(key, *value);
    } else {
      stored.erase(key);
    }
  }
}

// True as well when the file is refused to this user: that does not pass by itself.
bool canBeOpened(const std::string& path) {
  const Descriptor file(::open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK));
  return file || errno == EACCES;
}

// Under a name that is free, so that nothing that was put aside before is lost.
bool putAside(const std::string& path) {
  constexpr int most = 100;
  std::string aside = path + ".damaged";
  for (int number = 2; fileExists(aside) && number <= most; ++number) {
    aside = path + ".damaged-" + std::to_string(number);
  }
  return !fileExists(aside) && std::rename(path.c_str(), aside.c_str()) == 0;
}

bool store(std::string_view domain, const Changes& changes) {
  const auto file = fileOfDomain(domain);
  const std::string directory = preferencesDirectory();
  if (!file || !createDirectory(directory)) return false;
  const auto lock = FileLock::acquire(directory, lockPatience);
  if (!lock) return false;
  const auto before = readDictionaryFile(*file);
  // What cannot be read for want of a descriptor, say, may be good.
  if (!before && fileExists(*file) && !canBeOpened(*file)) return false;
  // What somebody else damaged is put aside, not overwritten.
  if (!before && fileExists(*file) && !putAside(*file)) return false;
  Dictionary after = before.value_or(Dictionary());
  merge(after, changes);
  if (before && *before == after) return true;
  const auto text = xmlPropertyList(after);
  return text && replaceFile(*file, *text);
}

}  // namespace

struct UserDefaults::State {
  explicit State(std::string name) : domain(std::move(name)) {}

  bool synchronize() {
    const std::lock_guard oneWriter(writing);
    Changes changes;
    {
      const std::lock_guard lock(mutex);
      changes = unsaved;
    }
    if (changes.empty()) return true;
    if (!store(domain, changes)) return false;
    // What was set again while the file was written is still unsaved.
    const std::lock_guard lock(mutex);
    for (const auto& [key, value] : changes) {
      const auto entry = unsaved.find(key);
      if (entry != unsaved.end() && entry->second == value) unsaved.erase(entry);
    }
    return true;
  }

  const std::string domain;
  std::mutex writing;
  std::mutex mutex;
  Changes unsaved;
  bool writeScheduled = false;  // on the main run loop
};

UserDefaults& UserDefaults::standard() {
  static auto& defaults =
      *new UserDefaults(Bundle::main().infoString(kCFBundleIdentifierKey).value_or(""));
  return defaults;
}

std::optional<Dictionary> UserDefaults::persistentDomain(std::string_view domain) {
  const auto stored = readDomain(domain);
  return stored ? std::optional(*stored) : std::nullopt;
}

UserDefaults::UserDefaults(std::string domain)
    : state_(std::make_shared<State>(std::move(domain))) {}

UserDefaults::~UserDefaults() = default;

std::optional<PropertyList> UserDefaults::object(std::string_view key) const {
  {
    const std::lock_guard lock(state_->mutex);
    const auto entry = state_->unsaved.find(key);
    if (entry != state_->unsaved.end()) return entry->second;
  }
  const auto stored = readDomain(state_->domain);
  const PropertyList* value = stored ? stored->find(key) : nullptr;
  return value == nullptr ? std::nullopt : std::optional(*value);
}

bool UserDefaults::setObject(std::string_view key, std::optional<PropertyList> value) {
  const bool representable =
      xmlPropertyList(Dictionary{{std::string(key), value.value_or(PropertyList())}}).has_value();
  if (!representable) return false;
  bool alreadyScheduled = false;
  {
    const std::lock_guard lock(state_->mutex);
    alreadyScheduled = std::exchange(state_->writeScheduled, true);
    state_->unsaved.insert_or_assign(std::string(key), std::move(value));
  }
  if (!alreadyScheduled) {
    RunLoop::main().perform([state = state_] {
      {
        const std::lock_guard lock(state->mutex);
        state->writeScheduled = false;
      }
      state->synchronize();
    });
  }
  return true;
}

bool UserDefaults::synchronize() { return state_->synchronize(); }

}  // namespace qbdkr
