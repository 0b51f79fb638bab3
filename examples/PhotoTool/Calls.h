#pragma once

#include <optional>
#include <string>
#include <vector>

namespace photo {

// Makes one call of the framework by its name, with texts as arguments ("-" is absent; "1" and "0"
// are flags), and returns its result. Absent for an unknown name or a wrong number of arguments.
std::optional<std::string> call(const std::string& name, const std::vector<std::string>& arguments);

// Lists all names, each with its arguments.
std::string calls();

}  // namespace photo
