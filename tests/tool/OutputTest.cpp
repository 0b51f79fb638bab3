// Tests what all commands of the tool have in common: help, exit codes, escapes, colours, pipes.

#include <gtest/gtest.h>

#include <regex>
#include <set>
#include <string>
#include <vector>

#include "tool/ToolRun.h"

namespace qbdkr::test {
namespace {

class ToolOutput : public testing::Test, protected ToolAtHome {
 protected:
  static const std::vector<std::string>& commands() {
    static const auto& all = *new std::vector<std::string>{
        "ask",         "check-helper",    "defaults read", "defaults write", "doctor",
        "new-product", "plist convert",   "plist read",    "plist write",    "ps",
        "send",        "strings convert", "strings read",  "strings write",  "versions",
        "watch"};
    return all;
  }
  // Returns the long options that the help of a command names.
  std::set<std::string> optionsOf(const std::string& command) const {
    const std::string help = tool.runShell("qbhp " + command + " --help").output;
    std::set<std::string> options;
    const std::regex option("--[a-z-]+");
    for (std::sregex_iterator it(help.begin(), help.end(), option), end; it != end; ++it) {
      options.insert(it->str());
    }
    return options;
  }
};

TEST_F(ToolOutput, HelpAndVersionSucceedAndFitTheTerminal) {
  EXPECT_TRUE(std::regex_match(tool.run({"--version"}).output, std::regex("qbhp \\d+\\.\\d+.*\n")));
  const auto whole = tool.run({"--help"});
  EXPECT_EQ(whole.code, 0);
  for (const std::string group : {"", "plist", "strings", "defaults"}) {
    const auto help = tool.runShell("qbhp " + group + " --help");
    EXPECT_FALSE(std::regex_search(help.output, std::regex("[^\n]{81}"))) << help.output;
  }
  for (const auto& command : commands()) {
    EXPECT_NE(whole.output.find("  " + command.substr(0, command.find(' ')) + ' '),
              std::string::npos)
        << command;
    const auto help = tool.runShell("qbhp " + command + " --help");
    EXPECT_EQ(help.code, 0);
    EXPECT_NE(help.output.find("Usage: qbhp " + command), std::string::npos) << help.output;
    EXPECT_NE(help.output.find("Exit codes: 0"), std::string::npos) << help.output;
    EXPECT_FALSE(std::regex_search(help.output, std::regex("[^\n]{81}"))) << help.output;
  }
}

TEST_F(ToolOutput, ManualAndCompletionHaveEveryCommandAndOption) {
  // ".Fl \-json" makes "--json".
  const std::string manual =
      std::regex_replace(readFile(QBDKR_TOOL_MANUAL), std::regex(R"(Fl \\-)"), "--");
  const std::string completion = readFile(QBDKR_TOOL_COMPLETION);
  for (const auto& command : commands()) {
    EXPECT_NE(manual.find(".Nm qbhp " + command), std::string::npos) << command;
    const ToolResult completed = tool.runShell(
        "bash -c '. " QBDKR_TOOL_COMPLETION "; COMP_WORDS=(qbhp " + command +
        " --); COMP_CWORD=$((${#COMP_WORDS[@]} - 1)); _qbhp; echo \"${COMPREPLY[@]}\"'");
    for (const auto& option : optionsOf(command)) {
      const std::string inManual = std::regex_replace(option, std::regex("([a-z])-"), "$1\\-");
      EXPECT_NE(manual.find(inManual), std::string::npos) << command << ' ' << option;
      EXPECT_NE((' ' + completed.output.substr(0, completed.output.size() - 1) + ' ')
                    .find(' ' + option + ' '),
                std::string::npos)
          << command << ' ' << option << ": " << completed.output << completed.errors;
    }
  }
  const ToolResult first = tool.runShell("bash -c '. " QBDKR_TOOL_COMPLETION
                                         "; COMP_WORDS=(qbhp p); COMP_CWORD=1; _qbhp; "
                                         "echo \"${COMPREPLY[@]}\"'");
  EXPECT_EQ(first.output, "ps plist\n");
}

TEST_F(ToolOutput, WrongUsageIsOneSentenceWithTheCommandBeforeIt) {
  for (const std::string wrong :
       {"", "none", "plist", "plist none", "versions", "versions 1", "versions 1 2 3", "ps --none",
        "ask a b", "ask a b c --timeout x", "ask a b c --timeout nan", "watch --for -1"}) {
    const auto result = tool.runShell("qbhp " + wrong);
    EXPECT_EQ(result.code, 2) << wrong;
    EXPECT_EQ(result.output, "");
    EXPECT_TRUE(
        std::regex_match(result.errors, std::regex("qbhp[a-z ]*: [^\n]+\\(see --help\\)\n")))
        << result.errors;
  }
  EXPECT_TRUE(tool.runShell("qbhp plist read").errors.starts_with("qbhp plist read: "));
  EXPECT_EQ(tool.runShell("qbhp dcotor x").errors,
            "qbhp: there is no command \"dcotor\" (see --help)\n");
  EXPECT_EQ(tool.runShell("qbhp --none").errors,
            "qbhp: there is no option \"--none\" (see --help)\n");
  EXPECT_EQ(tool.runShell("qbhp plist '[x'").errors,
            "qbhp plist: there is no command \"[x\" (see --help)\n");
}

TEST_F(ToolOutput, ArgumentsArriveByteForByte) {
  for (const std::string text : {"[a,b]", "--json", "-h", "\x01", "--", "[]", ""}) {
    const auto result = tool.run({"versions", "--json", "--", "1", text});
    ASSERT_EQ(result.code, 0) << text;
    const JSON json = result.json();
    std::string second;
    for (const auto& part : json["second"]) second += part.get<std::string>();
    EXPECT_EQ(second, text);
  }
}

TEST_F(ToolOutput, TextFromOutsideIsEscapedOnATerminalAlone) {
  writeFile(path("a.strings"), "\"K\" = \"a\\U001B[31m\\U009b\\U202Eb\\U061C\\UFFFF\\nc\";\n");
  const std::string command = "strings read " + path("a.strings") + " K";
  EXPECT_EQ(tool.runShell("qbhp " + command).output,
            "a\x1b[31m\xc2\x9b\xe2\x80\xae"
            "b\xd8\x9c\xef\xbf\xbf\nc\n");
  EXPECT_EQ(tool.runOnTerminal(command).output, "a\\x1b[31m\\u009b\\u202eb\\u061c\\uffff\nc\n");
  const auto json = tool.runOnTerminal(command + " --json").output;
  EXPECT_EQ(json, "\"a\\u001b[31m\\u009b\\u202eb\\u061c\\uffff\\nc\"\n");
  const auto whole = tool.runShell("qbhp strings read " + path("a.strings"));
  EXPECT_EQ(whole.output, "K: \"a\\x1b[31m\\u009b\\u202eb\\u061c\\uffff\\nc\"\n");
  const auto error = tool.run({"plist", "read", path("\x1b[2J")});
  EXPECT_EQ(error.errors.find('\x1b'), std::string::npos) << error.errors;
}

TEST_F(ToolOutput, ColoursAreForTerminalsThatWantThem) {
  EXPECT_EQ(tool.runOnTerminal("versions 1 1").output, "\x1b[1msame\x1b[0m: 1 = 1\n");
  EXPECT_EQ(tool.runOnTerminal("versions 1 1", {{"NO_COLOR", "1"}}).output, "same: 1 = 1\n");
  EXPECT_EQ(tool.runOnTerminal("versions 1 1", {{"TERM", "dumb"}}).output, "same: 1 = 1\n");
  EXPECT_EQ(tool.run({"versions", "1", "1"}).output, "same: 1 = 1\n");
}

TEST_F(ToolOutput, ClosedPipeEndsQuietlyAndAFullDeviceDoesNot) {
  std::string keys;
  for (int i = 0; i < 20000; ++i) keys += "\"key" + std::to_string(i) + "\" = \"value\";\n";
  writeFile(path("a.strings"), keys);
  const std::string command = "qbhp strings read " + path("a.strings");
  const auto closed =
      tool.runShell("{ " + command + "; echo $? >" + path("code") + "; } | head -n 1");
  EXPECT_EQ(closed.output, "key0: \"value\"\n");
  EXPECT_EQ(closed.errors, "");
  EXPECT_EQ(readFile(path("code")), "0\n");
  const auto full = tool.runShell(command + " >/dev/full");
  EXPECT_EQ(full.code, 1);
  EXPECT_EQ(full.errors, "qbhp strings read: cannot write the output: No space left on device\n");
}

}  // namespace
}  // namespace qbdkr::test
