// Tests that the transcripts on the tool's page are true: runs each command of them, one after the
// other, and compares its output.

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <regex>
#include <string>
#include <vector>

#include "support/Peer.h"
#include "support/Programs.h"
#include "support/Scene.h"
#include "tool/ToolRun.h"

namespace qbdkr::test {
namespace {

namespace fs = std::filesystem;

struct Step {
  std::string command;
  std::vector<std::string> lines;
};

std::vector<Step> stepsOf(const std::string& page) {
  std::vector<Step> steps;
  std::ifstream file(page);
  bool inside = false;
  for (std::string line; std::getline(file, line);) {
    if (line.starts_with("```")) {
      inside = line == "```console";
    } else if (inside && line.starts_with("$ ")) {
      steps.push_back({line.substr(2), {}});
    } else if (inside && !steps.empty()) {
      steps.back().lines.push_back(line);
    }
  }
  return steps;
}

// In a line, "…" stands for any text; a line of "…" stands for any lines.
std::regex patternOf(const std::vector<std::string>& lines) {
  static const std::regex special(R"([.^$|()\[\]{}*+?\\])");
  static const std::regex wildcard("…");
  std::string pattern;
  for (const auto& line : lines) {
    if (line == "…") {
      pattern += "(.*\n)*";
    } else {
      pattern += std::regex_replace(std::regex_replace(line, special, R"(\$&)"), wildcard, ".*");
      pattern += '\n';
    }
  }
  return std::regex(pattern);
}

TEST(ToolPage, TranscriptsAreTrue) {
  Scene scene;
  const TestBundle helper(
      scene.directory(), "NotesHelper",
      {{"CFBundleIdentifier", "com.Acme.NotesHelper"}, {"CFBundleVersion", "2.4"}}, helperProbe());
  const TestBundle host(scene.directory(), "Notes",
                        {{"CFBundleIdentifier", "com.Acme.Notes"},
                         {"CFBundleVersion", "3.1"},
                         {"Helper Bundle indentifiter", "com.Acme.NotesHelper"}});
  writeFile(scene.directory() / "Notes.strings", "\"CFBundleDisplayName\" = \"Notizen\";\n");
  const ChildProcess process({helper.executable().string()}, scene.options());
  Peer::inBundle(scene).awaitOwner("com.Acme.NotesHelper");
  const Tool tool(scene.directory(), scene.environment());
  const auto steps = stepsOf(QBDKR_TOOL_PAGE);
  EXPECT_GT(steps.size(), 15U);
  for (const auto& [command, lines] : steps) {
    const auto result =
        tool.runShell("cd " + scene.directory().string() + " && { " + command + "; } 2>&1");
    EXPECT_TRUE(std::regex_match(result.output, patternOf(lines))) << "$ " << command << '\n'
                                                                   << result.output;
  }
}

}  // namespace
}  // namespace qbdkr::test
