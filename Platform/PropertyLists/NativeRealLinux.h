#pragma once

#include <optional>
#include <string_view>

namespace qbdkr::propertylist {

// The inverse of textFromReal(). Ignores the locale.
[[nodiscard]] std::optional<double> realFromText(std::string_view text);

}  // namespace qbdkr::propertylist
