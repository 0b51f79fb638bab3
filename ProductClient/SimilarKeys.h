#pragma once

#include <optional>
#include <string>
#include <string_view>

#include <ClientComm/PropertyList.h>

namespace qbdkr {

// Returns how many letters and digits have to be inserted, removed or replaced to turn one key into
// another, without regard to case and to all other characters; "most" if that many or more.
[[nodiscard]] std::size_t keyDistance(std::string_view one, std::string_view other,
                                      std::size_t most);

// Returns the key of a dictionary that is most likely meant as another one, which the dictionary
// lacks: nearly that, and not a key that has a meaning of its own. Absent if no key is.
[[nodiscard]] std::optional<std::string> keyMeantAs(std::string_view wanted,
                                                    const PropertyList::Dictionary& dictionary);

}  // namespace qbdkr
