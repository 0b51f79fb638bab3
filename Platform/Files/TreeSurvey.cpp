#include "Platform/Files/TreeSurvey.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <system_error>
#include <utility>
#include <vector>

#include "Platform/Files/Files.h"
#include "Platform/Files/TreeRemoval.h"

namespace qbdkr {
namespace {

const char* refusedKind(mode_t mode) {
  if (S_ISFIFO(mode)) return "a FIFO cannot be copied";
  if (S_ISSOCK(mode)) return "a socket cannot be copied";
  return "a device cannot be copied";
}

// Keeps its own stack: the depth of a tree decides nothing here.
class Surveyor {
 public:
  explicit Surveyor(const SurveyBounds& bounds)
      : bounds_(bounds), deadline_(std::chrono::steady_clock::now() + bounds.time) {}

  TreeSurvey survey(std::string path) {
    visit(std::move(path), 0);
    while (!directories_.empty() && result_.isComplete) {
      const auto [directory, depth] = std::move(directories_.back());
      directories_.pop_back();
      list(directory, depth);
    }
    return std::move(result_);
  }

 private:
  void refuse(FileError error) {
    if (!result_.obstacle) result_.obstacle = std::move(error);
  }

  void list(const std::string& directory, std::size_t depth) {
    if (depth >= deepestTree) return refuse({directory, "it has too many directories above it"});
    const auto names = contentsOfDirectory(directory);
    if (!names) return refuse(lastFileError(directory));
    for (const std::string& name : *names) {
      if (result_.entries >= bounds_.entries || std::chrono::steady_clock::now() >= deadline_) {
        result_.isComplete = false;
        return;
      }
      visit(appendPathComponent(directory, name), depth + 1);
    }
  }

  void visit(std::string path, std::size_t depth) {
    struct stat status {};
    if (::lstat(path.c_str(), &status) != 0) return refuse(lastFileError(path));
    ++result_.entries;
    if (S_ISDIR(status.st_mode)) {
      directories_.emplace_back(std::move(path), depth);
    } else if (S_ISREG(status.st_mode)) {
      result_.bytes += static_cast<std::uint64_t>(status.st_size);
      if (::faccessat(AT_FDCWD, path.c_str(), R_OK, AT_EACCESS) != 0) refuse(lastFileError(path));
    } else if (!S_ISLNK(status.st_mode)) {
      refuse({path, refusedKind(status.st_mode)});
    }
  }

  const SurveyBounds bounds_;
  const std::chrono::steady_clock::time_point deadline_;
  std::vector<std::pair<std::string, std::size_t>> directories_;  // with the levels above each
  TreeSurvey result_;
};

}  // namespace

TreeSurvey surveyOfTree(const std::string& path, const SurveyBounds& bounds) {
  std::error_code error;
  const std::filesystem::path item = std::filesystem::canonical(path, error);
  if (error) {
    TreeSurvey survey;
    survey.obstacle = fileError(path, error.value());
    return survey;
  }
  return Surveyor(bounds).survey(item);
}

}  // namespace qbdkr
