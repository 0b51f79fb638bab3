#pragma once

#include <filesystem>
#include <functional>
#include <string>

#include "support/TestBundle.h"

namespace qbdkr::test {

// Makes DIRECTORY/PyHelper.app: the helper agent in Python from docs/helper-agents.md, with an
// interpreter of its own. CHANGED may alter its two texts, the script and the program.
TestBundle makePythonHelper(const std::filesystem::path& directory, const std::string& identifier,
                            const std::function<void(std::string& text)>& changed = {});

}  // namespace qbdkr::test
