// Tests how the tool lists running applications.

#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <memory>
#include <string>

#include "support/Peer.h"
#include "support/Programs.h"
#include "support/Scene.h"
#include "tool/ToolRun.h"

namespace qbdkr::test {
namespace {

// Runs a helper agent on the bus.
struct ToolBesideAHelper : Scene {
  ToolBesideAHelper()
      : bundle(makeHelper("1.5", directory() / "A rather long path to the bundle" / "Helpers")),
        helper({bundle.executable().string()}, options()),
        tool(directory(), environment()) {
    Peer::inBundle(*this).awaitOwner(helperID());
  }

  // Returns the entry of a process; null if it is not listed.
  [[nodiscard]] JSON entryOf(pid_t process) const {
    const JSON list = tool.run({"ps", "--json"}).json();
    const auto found = std::ranges::find_if(
        list, [process](const JSON& entry) { return entry["process"] == process; });
    return found == list.end() ? JSON(nullptr) : *found;
  }

  // Returns the line of a process.
  [[nodiscard]] std::string lineOf(pid_t process, const std::string& table) const {
    const auto place = table.find(std::to_string(process) + "  ");
    return place == std::string::npos ? "" : table.substr(place, table.find('\n', place) - place);
  }

  TestBundle bundle;
  ChildProcess helper;
  Tool tool;
};

TEST(ToolProcesses, ApplicationIsListedWithItsBundleItsMemoryAndTheBus) {
  ToolBesideAHelper scene;
  const JSON entry = scene.entryOf(scene.helper.processID());
  ASSERT_TRUE(entry.is_object());
  EXPECT_EQ(entry["identifier"], scene.helperID());
  EXPECT_EQ(entry["version"], "1.5");
  EXPECT_EQ(entry["bundle"], scene.bundle.path().string());
  EXPECT_EQ(entry["onBus"], true);
  EXPECT_EQ(entry["busProcess"], scene.helper.processID());
  EXPECT_GT(entry["residentBytes"].get<long>(), 500'000);
}

TEST(ToolProcesses, SecondProcessOfAnApplicationIsNotTheOneThatIsReached) {
  ToolBesideAHelper scene;
  ChildProcess second({scene.bundle.executable().string()}, scene.options());
  scene.transcript().waitForCount("started version", 2);
  const JSON entry = scene.entryOf(second.processID());
  ASSERT_TRUE(entry.is_object());
  EXPECT_EQ(entry["onBus"], false);
  EXPECT_EQ(entry["busProcess"], scene.helper.processID());
}

TEST(ToolProcesses, TableFits80ColumnsUnlessItIsWide) {
  ToolBesideAHelper scene;
  const pid_t process = scene.helper.processID();
  const auto table = scene.tool.run({"ps"});
  EXPECT_TRUE(table.output.find("BUS") < table.output.find('\n'));
  const std::string line = scene.lineOf(process, table.output);
  EXPECT_NE(line.find("  yes  1.5 "), std::string::npos) << table.output;
  EXPECT_NE(line.find("  …"), std::string::npos) << line;
  EXPECT_TRUE(line.ends_with(".app")) << line;
  for (std::size_t start = 0, end = 0; start < table.output.size(); start = end + 1) {
    end = table.output.find('\n', start);
    const std::string row = table.output.substr(start, end - start);
    EXPECT_LE(std::ranges::count_if(row, [](char byte) { return (byte & 0xC0) != 0x80; }), 80)
        << row;
  }
  const std::string wide = scene.lineOf(process, scene.tool.run({"ps", "--wide"}).output);
  EXPECT_NE(wide.find(scene.helperID()), std::string::npos) << wide;
  EXPECT_TRUE(wide.ends_with("  " + scene.bundle.path().string())) << wide;
}

TEST(ToolProcesses, WideCharactersTakeTwoColumns) {
  ToolBesideAHelper scene;
  const std::string hanzi = "\xE6\xBC\xA2";
  std::string name;
  for (int i = 0; i < 30; ++i) name += hanzi;
  const TestBundle bundle = scene.makeHelper("1.5", scene.directory() / "Wide", name);
  const ChildProcess helper({bundle.executable().string()}, scene.options());
  scene.transcript().waitForCount("started version", 2);
  const std::string line = scene.lineOf(helper.processID(), scene.tool.run({"ps"}).output);
  const auto shown = line.substr(line.find("…"));
  const auto before = line.size() - shown.size();
  std::size_t wide = 0;
  for (auto at = shown.find(hanzi); at != std::string::npos; at = shown.find(hanzi, at + 1)) ++wide;
  EXPECT_GT(wide, 1U) << line;  // how many, depends on the other processes of the machine
  const std::size_t columns = before + 1 + 2 * wide + (shown.size() - 3 - 3 * wide);
  EXPECT_TRUE(columns == 80 || columns == 79) << columns << '\n' << line;
}

TEST(ToolProcesses, CompletionOffersIdentifiersThatAShellTakesAsTheyAre) {
  ToolBesideAHelper scene;
  const std::string mark = (scene.directory() / "executed").string();
  TestBundle bundle = scene.makeHelper("1.5", scene.directory() / "Other", "Odd");
  bundle.setKeys({{"CFBundleIdentifier", "com.Acme.$(touch " + mark + ")"}});
  const ChildProcess helper({bundle.executable().string()}, scene.options());
  scene.transcript().waitForCount("started version", 2);
  for (const std::string words : {"doctor --live", "watch", "send", "ask"}) {
    const auto completed =
        scene.tool.runShell("bash -c '. " QBDKR_TOOL_COMPLETION "; COMP_WORDS=(qbhp " + words +
                            " com.); COMP_CWORD=$((${#COMP_WORDS[@]} - 1)); _qbhp; "
                            "printf \"%s\\n\" \"${COMPREPLY[@]}\"'");
    EXPECT_NE(('\n' + completed.output).find('\n' + scene.helperID() + '\n'), std::string::npos)
        << completed.output << completed.errors;
    EXPECT_EQ(completed.output.find("com.Acme.$"), std::string::npos) << completed.output;
  }
  EXPECT_FALSE(std::filesystem::exists(mark));
}

TEST(ToolProcesses, WithoutABusNothingIsReached) {
  ToolBesideAHelper scene;
  scene.bus().kill();
  const JSON entry = scene.entryOf(scene.helper.processID());
  ASSERT_TRUE(entry.is_object());
  EXPECT_EQ(entry["onBus"], false);
  EXPECT_EQ(entry["busProcess"], nullptr);
}

}  // namespace
}  // namespace qbdkr::test
