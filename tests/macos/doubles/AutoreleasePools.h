#pragma once

namespace doubles {

// Returns how many autorelease pools the calling thread has now, and how many it has had.
int openPools();
int poolsSoFar();

}  // namespace doubles
