#include "objc/ObjectiveCScene.h"

#include <filesystem>
#include <vector>

#include "support/Programs.h"

namespace qbdkr::test {
namespace {

std::vector<std::filesystem::path> libraries() {
  auto files = hostLibraries();
  files.emplace_back(QBDKR_OBJECTIVE_C_LIBRARY);
  return files;
}

}  // namespace

ObjectiveCScene::ObjectiveCScene() { environment()["ASAN_OPTIONS"] += ":detect_leaks=0"; }

TestBundle ObjectiveCScene::makeHostInObjectiveC() {
  TestBundle host(directory() / "Applications", "Objects",
                  {{"CFBundleIdentifier", hostID()},
                   {"CFBundleName", "Objects"},
                   {"CFBundleVersion", "3.1"},
                   {"PID", "1001"},
                   {"CFBundleDevelopmentRegion", "en"},
                   {"EnableAD", "1"},
                   {"Helper Bundle indentifiter", helperID()},
                   {"Helepr App name", "ProbeHelper"},
                   {"Helper loaction path", installDirectory().string()}},
                  QBDKR_OBJECTIVE_C_HOST);
  host.addLibraries(libraries());
  makeHelper("2.0", host.resources());
  return host;
}

TestBundle ObjectiveCScene::makeHostOfHelperInObjectiveC() {
  TestBundle host = makeHostWithoutHelper("Photo");
  const TestBundle helper(host.resources(), "ProbeHelper",
                          {{"CFBundleIdentifier", helperID()},
                           {"CFBundleName", "ProbeHelper"},
                           {"CFBundleVersion", "2.0"}},
                          QBDKR_OBJECTIVE_C_HELPER);
  helper.addLibraries(libraries());
  return host;
}

}  // namespace qbdkr::test
