#pragma once

#include <filesystem>
#include <string>
#include <vector>

#include "tools/qbhp/Command.h"

namespace qbdkr::tool {

// Runs this tool again with other arguments, from a private temporary bundle with the identifier,
// the version and the helper agent of a host: a helper agent may answer only hosts that it knows.
// Waits for its end, removes the bundle, and returns its exit code. Passes SIGINT, SIGTERM and
// SIGHUP on, and ends by them as well. Throws Failure.
[[nodiscard]] Exit actAs(const std::string& hostBundle, const std::vector<std::string>& arguments);

// Puts this program and a link to its libraries into a directory, laid out as a bundle but without
// Info.plist, and returns the program's path. Throws Failure, or the error of a file.
[[nodiscard]] std::filesystem::path placeOwnProgram(const std::filesystem::path& directory);

}  // namespace qbdkr::tool
