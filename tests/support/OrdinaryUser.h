#pragma once

#include <filesystem>
#include <functional>

namespace qbdkr::test {

// Runs a body in a forked child, as a user without privileges if this process has them. Returns
// whether the body returned true.
bool asOrdinaryUser(const std::function<bool()>& body);

// Gives a tree to that user.
void giveToOrdinaryUser(const std::filesystem::path& root);

}  // namespace qbdkr::test
