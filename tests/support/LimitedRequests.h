#pragma once

#include <functional>
#include <map>
#include <string>
#include <vector>

namespace qbdkr::test {

// The commands of the host probe that make requests within limits, by name. EVENT is a target, a
// class, a method and its arguments; TIME is in milliseconds, or "-" for no deadline; NAME is that
// of a Cancellation.
//   wait-within TIME EVENT        waits; returns status, text, and the time in microseconds
//   wait-named NAME EVENT         waits until it is cancelled; returns the same
//   cancel NAME                   cancels; returns the time that the call took, in microseconds
//   start-on PLACE TIME EVENT     starts a request; returns status, text, the thread on which the
//                                 completion came, whether it came inside the call, and the time
//                                 that the call took. PLACE is main, thread, inline or throwing
//   start-many COUNT EVENT        starts that many, cancels them when all are sent, and returns how
//                                 many were completed before, how often one was completed twice,
//                                 the outcomes, the time that it took to end all, in microseconds,
//                                 and the threads of the process while all waited
//   start-in-turn COUNT EVENT     posts, starts and waits in turn, with a growing number as
//                                 argument
//   cancel-many COUNT EVENT       starts requests in rounds, each cancelled while the answers come;
//                                 returns the outcomes, and the growth of memory in kilobytes
//   end-mixed COUNT EVENT         starts that many, and a few that wait, which end by a handle, a
//                                 stop token, a deadline, or before they are sent; returns how many
//                                 ended with another status than they must, and the outcomes
//   resources                     returns how many completions of end-mixed were called since the
//                                 process started, and the bytes on the heap
//   fork-with-pending COUNT EVENT  forks while that many wait; returns the child's words, then the
//                                 outcomes in the parent
//   await TIME EVENT              makes the request in a coroutine, twice
const std::map<std::string, std::function<std::string(const std::vector<std::string>&)>>&
limitedCommands();

}  // namespace qbdkr::test
