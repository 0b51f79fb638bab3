#pragma once

#include <sys/types.h>

#include <string>
#include <string_view>

namespace qbdkr {

// Returns the name of a scope for a process of an application, as desktops give them:
// "app-IDENTIFIER-RANDOM.scope". The last part distinguishes the processes of one application.
[[nodiscard]] std::string scopeNameFor(std::string_view identifier, std::string_view random);

// Moves a process of this user out of the unit that it runs in, into a scope of its own, by asking
// the user's service manager. Without one, or if that refuses, the process stays where it is. The
// record tells the outcome. Blocks for the manager, 5 s at most. Any thread.
void moveIntoOwnScope(pid_t process, const std::string& identifier);

}  // namespace qbdkr
