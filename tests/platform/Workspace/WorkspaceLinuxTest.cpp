#include <gtest/gtest.h>
#include <sys/syscall.h>

#include <algorithm>
#include <cerrno>
#include <filesystem>
#include <string>
#include <system_error>

#include "Platform/PropertyLists/PropertyListWriter.h"
#include "Platform/Record/Record.h"
#include "Platform/Workspace/Workspace.h"
#include "support/Environment.h"
#include "support/ForkedBody.h"
#include "support/RefusedCall.h"

namespace qbdkr {
namespace {

namespace fs = std::filesystem;

TEST(Opened, RecordTellsWhyItIsNotPlacedInAScopeOfItsOwn) {
  const test::TemporaryDirectory directory;
  const std::string identifier = "com.acme.unplaced";
  const fs::path bundle = directory.path() / "Unplaced.app";
  const fs::path program = bundle / "Contents/Linux/Unplaced";
  test::writeFile(bundle / "Contents/Info.plist",
                  xmlPropertyList(PropertyList::Dictionary{{"CFBundleIdentifier", identifier},
                                                           {"CFBundleExecutable", "Unplaced"}})
                      .value());
  test::writeFile(program, "#!/bin/sh\n");
  fs::permissions(program, fs::perms(0755));
  const int status = test::runForked([&] {
    test::failCall(SYS_socketpair, EMFILE);
    static_cast<void>(openFile(bundle, {}, Placement::ownScope));
    const auto steps = recordedSteps();
    return std::ranges::count_if(steps, [&](const RecordedStep& step) {
             return step.kind == StepKind::helperNotInOwnScope && step.number > 0 &&
                    step.subject == identifier &&
                    step.detail == std::generic_category().message(EMFILE);
           }) == 1;
  });
  EXPECT_EQ(status, 0);
}

}  // namespace
}  // namespace qbdkr
