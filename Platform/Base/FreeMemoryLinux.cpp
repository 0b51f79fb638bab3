#include "Platform/Base/FreeMemoryLinux.h"

#include <malloc.h>

namespace qbdkr {

void releaseFreeMemory() { malloc_trim(0); }

}  // namespace qbdkr
