#include "support/TestBundle.h"

#include <algorithm>
#include <functional>
#include <utility>

#include "support/Environment.h"

namespace qbdkr::test {

namespace fs = std::filesystem;

namespace {

std::string escaped(const std::string& text) {
  std::string result;
  for (const char character : text) {
    if (character == '&') {
      result += "&amp;";
    } else if (character == '<') {
      result += "&lt;";
    } else {
      result += character;
    }
  }
  return result;
}

std::string describe(const fs::path& path) {
  const auto status = fs::symlink_status(path);
  const auto mode = std::to_string(static_cast<unsigned>(status.permissions()));
  if (fs::is_symlink(status)) return "link to " + fs::read_symlink(path).string();
  if (fs::is_directory(status)) return "directory " + mode;
  if (!fs::is_regular_file(status)) return "other " + mode;
  const std::string contents = readFile(path);
  return "file " + mode + ' ' + std::to_string(contents.size()) + ' ' +
         std::to_string(std::hash<std::string>()(contents));
}

}  // namespace

std::string informationPropertyList(const InfoKeys& keys) {
  std::string text =
      "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<plist version=\"1.0\">\n<dict>\n";
  for (const auto& [key, value] : keys) {
    text += "<key>" + escaped(key) + "</key><string>" + escaped(value) + "</string>\n";
  }
  return text + "</dict>\n</plist>\n";
}

TestBundle::TestBundle(const fs::path& directory, const std::string& name, InfoKeys keys,
                       const fs::path& executable)
    : path_(directory / (name + ".app")), keys_(std::move(keys)) {
  fs::create_directories(path_ / "Contents/Resources");
  if (!executable.empty()) {
    const std::string file = executable.filename();
    keys_.emplace("CFBundleExecutable", file);
    executable_ = path_ / "Contents/Linux" / file;
    linkOrCopy(executable, executable_);
  }
  setKeys({});
}

void TestBundle::addLibraries(const std::vector<fs::path>& libraries) const {
  for (const auto& library : libraries) {
    linkOrCopy(library, path_ / "Contents/Frameworks" / library.filename());
  }
}

void TestBundle::addResource(const fs::path& item) const {
  fs::copy(item, resources() / item.filename(),
           fs::copy_options::recursive | fs::copy_options::copy_symlinks);
}

std::string TestBundle::identifier() const {
  const auto found = keys_.find("CFBundleIdentifier");
  return found == keys_.end() ? std::string() : found->second;
}

void TestBundle::setKeys(const InfoKeys& keys) {
  for (const auto& [key, value] : keys) {
    if (value.empty()) {
      keys_.erase(key);
    } else {
      keys_.insert_or_assign(key, value);
    }
  }
  writeFile(infoFile(), informationPropertyList(keys_));
}

std::string treeDigest(const fs::path& root) {
  if (!fs::exists(fs::symlink_status(root))) return "";
  std::vector<std::string> lines{". " + describe(root)};
  if (fs::is_directory(fs::symlink_status(root))) {
    for (const auto& entry : fs::recursive_directory_iterator(root)) {
      lines.push_back(entry.path().lexically_relative(root).string() + ' ' +
                      describe(entry.path()));
    }
  }
  std::ranges::sort(lines);
  std::string text;
  for (const auto& line : lines) text += line + '\n';
  return text;
}

}  // namespace qbdkr::test
