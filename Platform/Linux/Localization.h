#pragma once

#include <string>
#include <vector>

#include "Platform/PropertyList.h"

namespace qbdkr {

// The names of the ".lproj" folders in a resource directory, without the extension, in the order of
// the file system. "Base" is no language.
std::vector<std::string> localizationsIn(const std::string& resources);

// Those of the folders that serve this user, best first; the development region of the information
// dictionary when none does.
std::vector<std::string> preferredLanguages(const std::vector<std::string>& folders,
                                            const PropertyList::Dictionary& info);

}  // namespace qbdkr
