#pragma once

namespace acme {

// Makes this process an application of AppKit on a Mac: the system then knows it by its identifier,
// and its events come through AppKit. Does nothing elsewhere. Main thread, before the run loop's
// first turn.
void joinAppKit();

}  // namespace acme
