#pragma once

#include <filesystem>
#include <functional>
#include <string>

#include "support/TestBundle.h"

namespace qbdkr::test {

// Make the helper agents from docs/helper-agents.md, in DIRECTORY.

// Makes PyHelper.app, with an interpreter of its own. CHANGED may alter its two texts, the script
// and the program.
TestBundle makePythonHelper(const std::filesystem::path& directory, const std::string& identifier,
                            const std::function<void(std::string& text)>& changed = {});

// Makes CHelper.app.
TestBundle makeCHelper(const std::filesystem::path& directory, const std::string& identifier);

}  // namespace qbdkr::test
