#include "support/Home.h"

#include <cstdlib>
#include <utility>

namespace qbdkr::test {

namespace fs = std::filesystem;

Home::Home(fs::path directory) : path_(std::move(directory)), runtime_(path_ / "runtime") {
  fs::create_directories(runtime_);
  fs::permissions(runtime_, fs::perms::owner_all);
}

fs::path Home::preferencesFile(const std::string& domain) const {
  return path_ / "config/preferences" / (domain + ".plist");
}

Environment Home::environment() const {
  Environment settings{{"HOME", path_.string()},
                       {"XDG_CONFIG_HOME", (path_ / "config").string()},
                       {"XDG_RUNTIME_DIR", runtime_.string()},
                       {"PATH", "/usr/bin:/bin"},
                       {"TZ", "UTC"}};
  for (const char* name : {"ASAN_OPTIONS", "TSAN_OPTIONS", "UBSAN_OPTIONS", "LSAN_OPTIONS"}) {
    if (const char* value = std::getenv(name)) settings[name] = value;
  }
  return settings;
}

}  // namespace qbdkr::test
