#include <gtest/gtest.h>

#include <cstdlib>

#include "platform/TaskProcess.h"
#include "support/Environment.h"

int main(int argc, char** argv) {
  if (qbdkr::test::isTask(argc, argv)) return qbdkr::test::runTask(argc, argv);
  const qbdkr::test::TemporaryDirectory home;
  setenv("HOME", home.path().c_str(), 1);
  setenv("XDG_CONFIG_HOME", (home.path() / ".config").c_str(), 1);
  setenv("DBUS_SESSION_BUS_ADDRESS", "unix:path=/nonexistent", 1);
  for (const char* variable : {"JOURNAL_STREAM", "LANGUAGE", "LC_ALL", "LC_MESSAGES", "LANG"}) {
    unsetenv(variable);
  }
  testing::InitGoogleTest(&argc, argv);
  return RUN_ALL_TESTS();
}
