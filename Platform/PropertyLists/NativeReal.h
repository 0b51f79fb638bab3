#pragma once

#include <string>

namespace qbdkr::propertylist {

// Returns "D.DDe+XX" for a finite number, with the fewest digits that read as the same number. The
// system's part of textFromReal(), since not every C++ library has it.
[[nodiscard]] std::string scientificText(double real);

}  // namespace qbdkr::propertylist
