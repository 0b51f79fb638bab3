#include <gtest/gtest.h>
#include <unistd.h>

#include <string_view>

#include <ClientComm/Export.h>

#include "Host.h"
#include "support/RecordingTransport.h"

// A test asks for more memory than there is, and looks at how that is taken.
extern "C" {
QBDKR_EXPORT const char* __asan_default_options();
QBDKR_EXPORT const char* __tsan_default_options();
const char* __asan_default_options() { return "allocator_may_return_null=1"; }
const char* __tsan_default_options() { return "allocator_may_return_null=1"; }
}

int main(int argc, char** argv) {
  if (argc > 1 && std::string_view(argv[1]) == qbdkr::test::RunningApplication::argument) {
    if (write(STDOUT_FILENO, "runs\n", 5) != 5) return 1;
    char ignored = 0;
    while (read(STDIN_FILENO, &ignored, 1) > 0) {
    }
    return 0;
  }
  qbdkr::test::enterPrivateHome();
  // Before anything else uses a transport.
  qbdkr::test::RecordingTransport::installed();
  testing::InitGoogleTest(&argc, argv);
  return RUN_ALL_TESTS();
}
