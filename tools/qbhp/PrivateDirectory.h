#pragma once

#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <filesystem>
#include <string>
#include <system_error>

#include "tools/qbhp/Command.h"

namespace qbdkr::tool {

// Owns a directory that only this user may enter.
class PrivateDirectory {
 public:
  PrivateDirectory() {
    namespace fs = std::filesystem;
    std::error_code error;
    const fs::path place = fs::absolute(fs::temp_directory_path(error), error);
    path_ = (error ? fs::path("/tmp") : place) / "qbhp-XXXXXX";
    if (::mkdtemp(path_.data()) == nullptr) {
      throw Failure("cannot make " + path_ + ": " + std::generic_category().message(errno));
    }
  }
  PrivateDirectory(const PrivateDirectory&) = delete;
  PrivateDirectory& operator=(const PrivateDirectory&) = delete;
  ~PrivateDirectory() {
    namespace fs = std::filesystem;
    std::error_code error;
    fs::remove_all(path_, error);
    if (!error) return;
    // A program has made folders that its user may not change.
    for (fs::recursive_directory_iterator entry(path_, error), end; entry != end;
         entry.increment(error)) {
      if (entry->is_symlink(error) || !entry->is_directory(error)) continue;
      fs::permissions(entry->path(), fs::perms::owner_all, fs::perm_options::add, error);
    }
    fs::remove_all(path_, error);
  }

  [[nodiscard]] const std::string& path() const { return path_; }

 private:
  std::string path_;
};

}  // namespace qbdkr::tool
