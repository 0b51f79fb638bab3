// qbhp, the companion tool for engineers of hosts and helper agents. Each command is a file beside
// this one; Command.h has their common part.

#include <signal.h>

#include <algorithm>
#include <exception>
#include <iostream>
#include <string>
#include <vector>

#include <ClientComm/Bundle.h>

#include "tools/qbhp/Command.h"
#include "tools/qbhp/Output.h"

namespace {

using qbdkr::tool::Exit;

constexpr int codeOf(Exit exit) { return static_cast<int>(exit); }

std::string version() {
  return "qbhp " + qbdkr::Bundle::main().infoString(qbdkr::kCFBundleVersionKey).value_or("");
}

// Makes the parser's message a sentence of ours: one line, without the name of the error.
std::string sentenceOf(const CLI::ParseError& error) {
  std::string text = error.what();
  while (!text.empty() && (text.back() == '\n' || text.back() == ' ')) text.pop_back();
  return text;
}

int run(CLI::App& tool, qbdkr::tool::Commands& commands, const std::vector<std::string>& words) {
  using qbdkr::tool::complain;
  try {
    commands.parse(words);
  } catch (const CLI::Success& asked) {  // for help or the version
    return tool.exit(asked);
  } catch (const CLI::ParseError& error) {
    const auto fault = commands.faultOfName();
    complain(commands.parsedName(), fault.value_or(sentenceOf(error)) + " (see --help)");
    return codeOf(Exit::usage);
  }
  try {
    qbdkr::tool::Output output;
    const Exit exit = commands.run(output);
    if (const auto failure = output.write()) {
      complain(commands.parsedName(), "cannot write the output: " + *failure);
      return codeOf(Exit::no);
    }
    return codeOf(exit);
  } catch (const qbdkr::tool::Failure& failure) {
    complain(commands.parsedName(), failure.what());
    return codeOf(Exit::no);
  } catch (const qbdkr::tool::UsageFailure& failure) {
    complain(commands.parsedName(), failure.what());
    return codeOf(Exit::usage);
  }
}

}  // namespace

int main(int argc, char** argv) {
  ::signal(SIGPIPE, SIG_IGN);  // a write reports a reader that has gone
  try {
    CLI::App tool("Looks into hosts and helper agents, their files and their processes.", "qbhp");
    tool.set_version_flag("--version", version, "Print the version");
    tool.require_subcommand(1);
    tool.footer(qbdkr::tool::exitCodes);
    qbdkr::tool::Commands commands(tool);
    qbdkr::tool::addDoctor(commands);
    qbdkr::tool::addCheckHelper(commands);
    qbdkr::tool::addProcesses(commands);
    qbdkr::tool::addEvents(commands);
    qbdkr::tool::addWatch(commands);
    qbdkr::tool::addPropertyLists(commands);
    qbdkr::tool::addDefaults(commands);
    qbdkr::tool::addVersions(commands);
    qbdkr::tool::addNewProduct(commands);
    return run(tool, commands, {argv + std::min(argc, 1), argv + argc});
  } catch (const std::exception& error) {
    std::cerr << "qbhp: " << error.what() << '\n';
    return codeOf(Exit::no);
  }
}
