#include "support/GoldenFile.h"

#include <gtest/gtest.h>

#include <cstdlib>

#include "support/ChildProcess.h"
#include "support/Environment.h"

namespace qbdkr::test {
namespace {

std::string differences(const std::filesystem::path& file, const std::string& text) {
  const TemporaryDirectory directory;
  const auto seen = directory.path() / "seen";
  writeFile(seen, text);
  ChildProcess diff({"/usr/bin/diff", "-u", "--label", file.string(), "--label", "seen now",
                     file.string(), seen.string()},
                    {.environment = ownEnvironment()});
  std::string result;
  for (const std::string& line : diff.outputToItsEnd()) result += line + '\n';
  return result;
}

}  // namespace

void expectGolden(const std::filesystem::path& file, const std::string& text) {
  if (std::getenv("QBDKR_REWRITE_GOLDEN") != nullptr) return writeFile(file, text);
  ASSERT_TRUE(std::filesystem::exists(file)) << file;
  if (readFile(file) == text) return;
  ADD_FAILURE() << differences(file, text)
                << "If this change is meant, run the test with QBDKR_REWRITE_GOLDEN=1.";
}

}  // namespace qbdkr::test
