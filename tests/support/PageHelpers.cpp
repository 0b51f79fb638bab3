#include "support/PageHelpers.h"

#include <stdexcept>

#include "support/Environment.h"

namespace qbdkr::test {

namespace fs = std::filesystem;

namespace {

// Returns the first block of the page in a language that begins with a text.
std::string blockOfPage(const std::string& language, const std::string& beginsWith) {
  const std::string page = readFile(QBDKR_HELPER_AGENTS_PAGE);
  const std::string fence = "```" + language + "\n" + beginsWith;
  const auto start = page.find(fence);
  if (start == std::string::npos) throw std::runtime_error("no " + language + " on the page");
  const auto text = start + language.size() + 4;
  return page.substr(text, page.find("```", text) - text);
}

}  // namespace

TestBundle makePythonHelper(const fs::path& directory, const std::string& identifier,
                            const std::function<void(std::string& text)>& changed) {
  TestBundle helper(directory, "PyHelper",
                    {{"CFBundleIdentifier", identifier},
                     {"CFBundleVersion", "1.0"},
                     {"CFBundleExecutable", "PyHelper"}});
  std::string program = blockOfPage("sh", "#!/bin/sh\n");
  std::string script = blockOfPage("python", "import");
  if (changed) changed(program);
  if (changed) changed(script);
  const fs::path programs = helper.path() / "Contents/Linux";
  fs::create_directories(programs);
  fs::create_directories(helper.resources());
  writeFile(programs / "PyHelper", program);
  fs::permissions(programs / "PyHelper", fs::perms(0755));
  fs::copy_file("/usr/bin/python3", programs / "python3");
  writeFile(helper.resources() / "helper.py", script);
  return helper;
}

TestBundle makeCHelper(const fs::path& directory, const std::string& identifier) {
  return {directory,
          "CHelper",
          {{"CFBundleIdentifier", identifier},
           {"CFBundleVersion", "1.0"},
           {"CFBundleExecutable", "CHelper"}},
          QBDKR_C_HELPER};
}

}  // namespace qbdkr::test
