// Runs hosts of one user in two sessions: one home directory, and a bus for each.

#include <gtest/gtest.h>

#include "support/Patience.h"
#include "support/PrivateBus.h"
#include "support/Scene.h"

namespace qbdkr::test {
namespace {

TEST(TwoSessions, HelperAgentBelongsToTheFirstUntilItEnds) {
  Scene scene;
  const auto bundle = scene.makeHost("Host", "1.0");
  const auto first = scene.startAndShare(bundle);
  const pid_t helper = scene.helperProcess();
  const PrivateBus otherBus(scene.directory() / "other");
  scene.environment()["DBUS_SESSION_BUS_ADDRESS"] = otherBus.address();
  const auto second = scene.start(bundle);
  EXPECT_EQ(second->call("launch"), "yes");
  EXPECT_EQ(scene.helperProcess(), helper) << "a second one runs";
  EXPECT_EQ(second->call("ask " + scene.helperID() + " Probe echo: x", soon), "-600 ~");
  const std::string cause = second->call("diagnose");
  EXPECT_TRUE(cause.starts_with("processes: The helper agent is run by process ")) << cause;
  EXPECT_EQ(first->call("ask " + scene.helperID() + " Probe echo: x", soon), "0 x");
  scene.killHelper(*first);
  EXPECT_EQ(second->call("launch"), "yes");
  EXPECT_EQ(second->call("ask " + scene.helperID() + " Probe echo: x", soon), "0 x");
}

}  // namespace
}  // namespace qbdkr::test
