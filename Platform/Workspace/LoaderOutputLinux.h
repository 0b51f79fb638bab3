#pragma once

#include <string_view>

#include "Platform/Workspace/Program.h"

namespace qbdkr {

// Reads the list that a dynamic loader writes for a program, whole: standard output and standard
// error. Names each library and each version of one that is not found once.
[[nodiscard]] LibraryReport librariesInLoaderOutput(std::string_view output);

}  // namespace qbdkr
