#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>

#include <ClientComm/Export.h>

#include "Platform/Files/FileError.h"

namespace qbdkr {

// Bounds a survey.
struct SurveyBounds {
  std::size_t entries = 100'000;
  std::chrono::milliseconds time{300};
};

// A tree as copyItem() would find it.
struct TreeSurvey {
  std::uint64_t bytes = 0;  // the sizes of its files
  std::size_t entries = 0;
  bool isComplete = true;             // false if a bound was reached
  std::optional<FileError> obstacle;  // the first entry that copyItem() would refuse
};

// Surveys a file or a whole tree, and changes nothing. Follows a link at the path alone. Blocks for
// the file system, any thread.
[[nodiscard]] QBDKR_EXPORT TreeSurvey surveyOfTree(const std::string& path,
                                                   const SurveyBounds& bounds = {});

}  // namespace qbdkr
