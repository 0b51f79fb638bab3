#pragma once

#include <memory>
#include <string>

#include "Platform/PropertyList.h"

namespace qbdkr {

// The dictionary that a file holds, parsed anew only when the file has changed; empty when it holds
// none, null when there is no regular file. A few dozen files are remembered. Any thread.
std::shared_ptr<const PropertyList::Dictionary> cachedDictionary(const std::string& path);

}  // namespace qbdkr
