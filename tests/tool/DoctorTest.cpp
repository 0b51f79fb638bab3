// Tests the command that finds out why a host has no helper agent. HostExaminationTest.cpp has the
// mistakes that it finds.

#include <gtest/gtest.h>

#include <sstream>
#include <string>

#include "support/Scene.h"
#include "tool/ToolRun.h"

namespace qbdkr::test {
namespace {

struct Doctor : Scene {
  TestBundle host = makeHost("Host", "1.0");
  Tool tool{directory(), environment()};

  [[nodiscard]] ToolResult run(const std::string& option = "") const {
    return tool.runShell("qbhp doctor " + option + ' ' + host.path().string());
  }
};

TEST(ToolDoctor, CorrectHostHasNoCause) {
  const Doctor doctor;
  const auto result = doctor.run();
  EXPECT_EQ(result.code, 0);
  EXPECT_TRUE(result.output.starts_with("No error was found.\n\nFindings:\n")) << result.output;
  const JSON json = doctor.run("--json").json();
  EXPECT_TRUE(json["cause"].is_null());
  EXPECT_EQ(json["findings"][0]["severity"], "ok");
  EXPECT_EQ(json["findings"][0]["subject"], "host-bundle");
}

TEST(ToolDoctor, CauseComesFirst) {
  Doctor doctor;
  doctor.host.setKeys({{"Helepr App name", "Other"}});
  const auto result = doctor.run();
  EXPECT_EQ(result.code, 1);
  EXPECT_TRUE(result.output.starts_with("Cause:   The helper agent")) << result.output;
  EXPECT_NE(result.output.find("\nRemedy:  Put the helper agent"), std::string::npos)
      << result.output;
  EXPECT_LT(result.output.find("Remedy:"), result.output.find("Findings:"));
  const auto json = doctor.run("--json");
  EXPECT_EQ(json.code, 1);
  EXPECT_EQ(json.json()["cause"]["subject"], "helper-bundle");
  EXPECT_NE(json.json()["cause"]["remedy"], "");
}

TEST(ToolDoctor, LinesHaveRoomOnATerminal) {
  Doctor doctor;
  doctor.host.setKeys({{"Helper Bundle indentifiter", ""}, {"Helper Bundle identifier", "a\tb"}});
  std::istringstream output(doctor.run().output);
  for (std::string line; std::getline(output, line);) {
    // A path alone may be longer.
    const auto word = line.find_first_not_of(' ', 9);
    EXPECT_TRUE(line.size() <= 80 || line.find(' ', word) == std::string::npos) << line;
  }
}

TEST(ToolDoctor, PathThatIsNoHostIsAnError) {
  const ToolAtHome tool;
  const auto result = tool.tool.run({"doctor", "/nowhere/\x1b[2J.app"});
  EXPECT_EQ(result.code, 1);
  EXPECT_EQ(result.output.find('\x1b'), std::string::npos);
  EXPECT_NE(result.output.find("does not exist"), std::string::npos);
  EXPECT_EQ(tool.tool.run({"doctor"}).code, 2);
}

}  // namespace
}  // namespace qbdkr::test
