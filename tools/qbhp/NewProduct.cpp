// qbhp new-product: makes the tree of a new product, from the template among the tool's resources.

#include <algorithm>
#include <array>
#include <cstddef>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <memory>
#include <string>
#include <string_view>
#include <system_error>
#include <utility>
#include <vector>

#include <ClientComm/Bundle.h>

#include "Platform/Text/Text.h"
#include "tools/qbhp/Command.h"

namespace qbdkr::tool {
namespace {

namespace fs = std::filesystem;

constexpr std::string_view capitals = "ABCDEFGHIJKLMNOPQRSTUVWXYZ";
constexpr std::string_view letters = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz";
constexpr std::string_view inWords =
    "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789_-";
constexpr std::string_view inPaths =
    "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789_-./+";

struct ProductArguments {
  std::string name;
  std::string identifier = "com.example";
  std::string directory;
  bool isPython = false;
};

// Both become part of names on the bus and of CMake, which need no escapes then.
bool isWord(std::string_view text) {
  return !text.empty() && letters.find(text.front()) != std::string_view::npos &&
         text.find_first_not_of(inWords) == std::string_view::npos;
}

bool areWords(std::string_view text) {
  for (auto dot = text.find('.'); dot != std::string_view::npos; dot = text.find('.')) {
    if (!isWord(text.substr(0, dot))) return false;
    text.remove_prefix(dot + 1);
  }
  return isWord(text);
}

void refuseMistakes(const ProductArguments& arguments) {
  constexpr std::size_t longestName = 64;
  constexpr std::size_t longestIdentifier = 128;
  // A build has targets of its own in small letters: "test", "all", "help".
  if (!isWord(arguments.name) || capitals.find(arguments.name.front()) == std::string_view::npos ||
      arguments.name.size() > longestName) {
    throw UsageFailure("\"" + arguments.name +
                       "\" is no name of a product, as PhotoTool: a capital letter, then letters, "
                       "digits, \"_\" and \"-\", 64 in all at most");
  }
  if (!areWords(arguments.identifier) || arguments.identifier.size() > longestIdentifier) {
    throw UsageFailure("\"" + arguments.identifier +
                       "\" is no beginning of an identifier: words joined by dots, as com.Acme, "
                       "each with a letter first, then letters, digits, \"_\" and \"-\", 128 in "
                       "all at most");
  }
}

std::string filled(std::string text, const ProductArguments& arguments) {
  const std::array<std::pair<std::string_view, std::string>, 2> values{
      {{"{{NAME}}", arguments.name}, {"{{IDENTIFIER}}", arguments.identifier}}};
  for (const auto& [mark, value] : values) {
    for (auto at = text.find(mark); at != std::string::npos;
         at = text.find(mark, at + value.size())) {
      text.replace(at, mark.size(), value);
    }
  }
  return text;
}

void fill(const fs::path& from, const fs::path& to, const ProductArguments& arguments) {
  std::ifstream source(from, std::ios::binary);
  const std::string text{std::istreambuf_iterator<char>(source), std::istreambuf_iterator<char>()};
  if (!source) throw Failure("cannot read " + from.string());
  std::ofstream target(to, std::ios::binary);
  if (!(target << filled(text, arguments)).flush()) throw Failure("cannot write " + to.string());
}

// Adds one part of the template to the tree.
void addPart(const fs::path& part, const fs::path& tree, const ProductArguments& arguments) {
  for (const auto& entry : fs::recursive_directory_iterator(part)) {
    const fs::path target = tree / entry.path().lexically_relative(part);
    if (entry.is_directory()) {
      fs::create_directory(target);
    } else {
      fill(entry.path(), target, arguments);
    }
  }
}

// Makes the whole tree, or nothing. The directory is this call's own: it was not there before.
void makeTree(const fs::path& tree, const ProductArguments& arguments) {
  std::error_code error;
  if (!fs::create_directory(tree, error)) {
    if (!error || error == std::errc::file_exists) throw Failure(tree.string() + " exists already");
    throw Failure("cannot make " + tree.string() + ": " + error.message());
  }
  const fs::path parts = fs::path(Bundle::main().bundlePath()) / "Contents/Resources/template";
  std::string obstacle;
  try {
    addPart(parts / "common", tree, arguments);
    addPart(parts / (arguments.isPython ? "python" : "cpp"), tree, arguments);
    return;
  } catch (const fs::filesystem_error& failure) {
    obstacle = "cannot make " + tree.string() + ": " + failure.code().message() + " (" +
               failure.path1().string() + ")";
  } catch (const Failure& failure) {
    obstacle = failure.what();
  }
  fs::remove_all(tree, error);
  throw Failure(obstacle);
}

std::vector<std::string> filesIn(const fs::path& tree) {
  std::vector<std::string> files;
  for (const auto& entry : fs::recursive_directory_iterator(tree)) {
    if (!entry.is_directory()) files.push_back(entry.path().string());
  }
  std::ranges::sort(files);
  return files;
}

// Returns a word as a shell reads it back.
std::string quoted(const std::string& word) {
  if (word.find_first_not_of(inPaths) == std::string::npos) return word;
  std::string result = "'";
  for (const char character : word) {
    if (character == '\'') {
      result += R"('\'')";
    } else {
      result += character;
    }
  }
  return result + "'";
}

// Returns the option by which CMake finds the libraries beside this tool; empty if it needs none.
std::string prefixOption() {
  const fs::path prefix = fs::path(Bundle::main().bundlePath()).parent_path().parent_path();
  std::error_code error;
  const bool isInstalled = fs::exists(prefix / "include/QBDKRProductClient", error);
  if (!isInstalled || prefix == "/usr" || prefix == "/usr/local") return "";
  return " -DCMAKE_PREFIX_PATH=" + quoted(prefix.string());
}

Exit make(const ProductArguments& arguments, Output& output) {
  refuseMistakes(arguments);
  const fs::path tree = arguments.directory.empty() ? arguments.name : arguments.directory;
  makeTree(tree, arguments);
  for (const std::string& file : filesIn(tree)) output.line(output.shown(file));
  const std::string source = output.shown(quoted(tree.string()));
  const std::string build = output.shown(quoted((tree / "build").string()));
  const fs::path programs =
      fs::path(Bundle::main().executablePath().value_or("")).parent_path().filename();
  const fs::path host =
      tree / "build/bundles" / (arguments.name + ".app") / "Contents" / programs / arguments.name;
  output.line("");
  output.line(output.styled(Style::heading, "Next:"));
  output.line("cmake -S " + source + " -B " + build + output.shown(prefixOption()));
  output.line("cmake --build " + build);
  output.line("ctest --test-dir " + build + " --output-on-failure");
  output.line(output.shown(quoted(fs::absolute(host).string())));
  return Exit::yes;
}

}  // namespace

void addNewProduct(Commands& commands) {
  const auto arguments = std::make_shared<ProductArguments>();
  CLI::App& command =
      commands.add("new-product", "Make the tree of a new product",
                   [arguments](Output& output) { return make(*arguments, output); });
  command.add_option("NAME", arguments->name, "The name of the host, as PhotoTool")
      ->required()
      ->type_name("");
  command
      .add_option("--identifier", arguments->identifier,
                  "Begin both identifiers with it (com.example)")
      ->type_name("PREFIX");
  command.add_option("--directory", arguments->directory, "Make this directory (default: NAME)")
      ->type_name("DIR");
  command.add_flag("--python", arguments->isPython,
                   "Write the helper agent in Python instead of C++");
}

}  // namespace qbdkr::tool
