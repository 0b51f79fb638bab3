#include "support/Programs.h"

namespace qbdkr::test {

namespace fs = std::filesystem;

fs::path hostProbe() { return QBDKR_HOST_PROBE; }
std::vector<HostProbe> hostProbes() {
  return {
      {"Poll", QBDKR_HOST_PROBE},
#ifdef QBDKR_GLIB_HOST_PROBE
      {"GLib", QBDKR_GLIB_HOST_PROBE},
#endif
#ifdef QBDKR_QT_HOST_PROBE
      {"Qt", QBDKR_QT_HOST_PROBE, {{"QT_NO_GLIB", "1"}}},
      {"QtOverGLib", QBDKR_QT_HOST_PROBE},
#endif
  };
}
fs::path helperProbe() { return QBDKR_HELPER_PROBE; }
std::vector<fs::path> hostLibraries() { return {QBDKR_PRODUCT_LIBRARY, QBDKR_COMM_LIBRARY}; }
fs::path libdbusClient() { return QBDKR_LIBDBUS_CLIENT; }
fs::path sampleHost() { return QBDKR_SAMPLE_HOST; }

}  // namespace qbdkr::test
