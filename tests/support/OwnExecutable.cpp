#include "support/OwnExecutable.h"

#include "support/Environment.h"

namespace qbdkr::test {

namespace fs = std::filesystem;

fs::path ownExecutable() { return fs::read_symlink("/proc/self/exe"); }

void putOwnExecutable(const fs::path& path) { linkOrCopy(ownExecutable(), path); }

}  // namespace qbdkr::test
