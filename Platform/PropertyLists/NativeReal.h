#pragma once

#include <string>

namespace qbdkr::propertylist {

// The system's part of textFromReal(), since not every library of C++ has it: "D.DDe+XX" for a
// finite number, as few digits as read as the same one.
[[nodiscard]] std::string scientificText(double real);

}  // namespace qbdkr::propertylist
