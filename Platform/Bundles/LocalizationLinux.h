#pragma once

#include <string>
#include <vector>

#include <ClientComm/PropertyList.h>

namespace qbdkr {

// Returns the names of the ".lproj" folders in a resource directory, without the extension, in the
// order of the file system. Leaves out "Base", which is not a language.
std::vector<std::string> localizationsIn(const std::string& resources);

// Returns those of the folders that serve this user, best first; if none does, the folder of the
// development region in the information dictionary. The user's languages are found as gettext(3)
// does: the first of LC_ALL, LC_MESSAGES and LANG that is set and not empty is the locale. "C",
// "POSIX" and an unset locale mean no language at all. Any other locale comes after the languages
// of LANGUAGE.
std::vector<std::string> preferredLanguages(const std::vector<std::string>& folders,
                                            const PropertyList::Dictionary& info);

}  // namespace qbdkr
