#include "support/AppendedFile.h"

#include <fstream>
#include <iterator>
#include <utility>

namespace qbdkr::test {
namespace {

// A writer that has opened the file writes to it long before another one has grown so far.
constexpr std::size_t longest = 1'000'000;

}  // namespace

AppendedFile::AppendedFile(std::filesystem::path path)
    : path_(std::move(path)), asidePath_(path_.string() + ".aside") {}

std::vector<std::string> AppendedFile::take() {
  std::vector<std::string> lines;
  readOn(asidePath_, aside_, lines);
  readOn(path_, current_, lines);
  if (current_.read > longest) {
    std::filesystem::rename(path_, asidePath_);
    aside_ = std::exchange(current_, {});
  }
  return lines;
}

void AppendedFile::readOn(const std::filesystem::path& path, Part& part,
                          std::vector<std::string>& lines) {
  std::ifstream file(path, std::ios::binary);
  if (!file) return;
  file.seekg(static_cast<std::streamoff>(part.read));
  const std::string text{std::istreambuf_iterator<char>(file), {}};
  part.read += text.size();
  part.partial += text;
  std::size_t start = 0;
  for (auto end = part.partial.find('\n'); end != std::string::npos;
       end = part.partial.find('\n', start)) {
    lines.push_back(part.partial.substr(start, end - start));
    start = end + 1;
  }
  part.partial.erase(0, start);
}

}  // namespace qbdkr::test
