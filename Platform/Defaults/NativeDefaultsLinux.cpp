#include <fcntl.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <map>
#include <memory>
#include <mutex>
#include <utility>

#include "Platform/Base/Descriptor.h"
#include "Platform/Base/ForkSafeMutex.h"
#include "Platform/Bundles/DictionaryCacheLinux.h"
#include "Platform/Defaults/NativeDefaults.h"
#include "Platform/Files/FileLock.h"
#include "Platform/Files/Files.h"
#include "Platform/PropertyLists/PropertyListReader.h"
#include "Platform/PropertyLists/PropertyListWriter.h"

namespace qbdkr {
namespace {

using Dictionary = PropertyList::Dictionary;

// Waits for other processes and threads alike: the lock of a file is one between threads as well.
// Short, because hosts do this when they start, on the calling thread; changes that could not be
// stored are stored the next time.
constexpr std::chrono::milliseconds lockPatience(200);

std::string preferencesDirectory() {
  const char* configured = std::getenv("XDG_CONFIG_HOME");
  const bool usable = configured != nullptr && *configured == '/';
  return appendPathComponent(usable ? configured : expandTilde("~/.config"), "preferences");
}

std::string fileOfDomain(const std::string& domain) {
  return appendPathComponent(preferencesDirectory(), domain + ".plist");
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

// True as well if this user may not read the file: that does not pass by itself.
bool canBeOpened(const std::string& path) {
  const Descriptor file(::open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK));
  return file || errno == EACCES;
}

// Chooses a free name: no file that was put aside before is lost.
bool putAside(const std::string& path) {
  constexpr int most = 100;
  std::string aside = path + ".damaged";
  for (int number = 2; fileExists(aside) && number <= most; ++number) {
    aside = path + ".damaged-" + std::to_string(number);
  }
  return !fileExists(aside) && std::rename(path.c_str(), aside.c_str()) == 0;
}

// The caller holds the lock of the directory.
bool store(const std::string& domain, const Changes& changes) {
  const std::string file = fileOfDomain(domain);
  // A killed process may have left one, which stays if nothing needs to be stored.
  const std::string staged = stagedPath(file);
  if (fileExists(staged)) std::remove(staged.c_str());
  const auto before = readDictionaryFile(file);
  // A file that cannot be read for want of a descriptor, say, may be intact.
  if (!before && fileExists(file) && !canBeOpened(file)) return false;
  // A damaged file is put aside, not overwritten.
  if (!before && fileExists(file) && !putAside(file)) return false;
  Dictionary after = before.value_or(Dictionary());
  merge(after, changes);
  if (before && *before == after) return true;
  const auto text = xmlPropertyList(after);
  return text && replaceFile(file, *text);
}

}  // namespace

struct DefaultsStore::State {
  explicit State(std::string name) : domain(std::move(name)) {}

  const std::string domain;
  ForkSafeMutex mutex;
  Changes unsaved;

  Changes unsavedChanges() {
    const std::lock_guard lock(mutex);
    return unsaved;
  }
};

DefaultsStore::DefaultsStore(const std::string& domain) : state_(std::make_unique<State>(domain)) {}

DefaultsStore::~DefaultsStore() = default;

std::optional<Dictionary> DefaultsStore::contentsOf(const std::string& domain) {
  const auto stored = cachedDictionary(fileOfDomain(domain));
  return stored ? std::optional(*stored) : std::nullopt;
}

std::optional<PropertyList> DefaultsStore::object(const std::string& key) const {
  {
    const std::lock_guard lock(state_->mutex);
    const auto entry = state_->unsaved.find(key);
    if (entry != state_->unsaved.end()) return entry->second;
  }
  const auto stored = cachedDictionary(fileOfDomain(state_->domain));
  const PropertyList* value = stored ? stored->find(key) : nullptr;
  return value == nullptr ? std::nullopt : std::optional(*value);
}

void DefaultsStore::setObject(const std::string& key, std::optional<PropertyList> value) {
  const std::lock_guard lock(state_->mutex);
  state_->unsaved.insert_or_assign(key, std::move(value));
}

bool DefaultsStore::synchronize() {
  if (state_->unsavedChanges().empty()) return true;
  const std::string directory = preferencesDirectory();
  if (!createDirectory(directory)) return false;
  const auto fileLock = FileLock::acquire(directory, lockPatience);
  if (!fileLock.isHeld()) return false;
  // Read only now: while this one waited, another thread may have stored older values, or these.
  const Changes changes = state_->unsavedChanges();
  if (changes.empty()) return true;
  if (!store(state_->domain, changes)) return false;
  // A value that was set again while the file was written is still unsaved.
  const std::lock_guard lock(state_->mutex);
  for (const auto& [key, value] : changes) {
    const auto entry = state_->unsaved.find(key);
    if (entry != state_->unsaved.end() && entry->second == value) state_->unsaved.erase(entry);
  }
  return true;
}

}  // namespace qbdkr
