#pragma once

#include <string>
#include <vector>

#include "Platform/PropertyLists/PropertyList.h"

namespace qbdkr {

// The names of the ".lproj" folders in a resource directory, without the extension, in the order of
// the file system. "Base" is no language.
std::vector<std::string> localizationsIn(const std::string& resources);

// Those of the folders that serve this user, best first; the development region of the information
// dictionary if none does. What the user wants is decided as gettext(3) does: the first of LC_ALL,
// LC_MESSAGES and LANG that is set and not empty is the locale. "C", "POSIX" and no locale mean no
// language at all. Any other comes after the languages of LANGUAGE.
std::vector<std::string> preferredLanguages(const std::vector<std::string>& folders,
                                            const PropertyList::Dictionary& info);

}  // namespace qbdkr
