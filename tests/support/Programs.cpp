#include "support/Programs.h"

namespace qbdkr::test {

namespace fs = std::filesystem;

fs::path hostProbe() { return QBDKR_HOST_PROBE; }
fs::path helperProbe() { return QBDKR_HELPER_PROBE; }
std::vector<fs::path> hostLibraries() { return {QBDKR_PRODUCT_LIBRARY, QBDKR_COMM_LIBRARY}; }
fs::path libdbusClient() { return QBDKR_LIBDBUS_CLIENT; }
fs::path sampleHost() { return QBDKR_SAMPLE_HOST; }

}  // namespace qbdkr::test
