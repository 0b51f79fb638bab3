#pragma once

#include <filesystem>
#include <map>
#include <string>
#include <vector>

namespace qbdkr::test {

using InfoKeys = std::map<std::string, std::string>;

// An information property list of texts.
std::string informationPropertyList(const InfoKeys& keys);

// Makes bundles for one test.
class TestBundle {
 public:
  // DIRECTORY/NAME.app with these keys. With an executable, a link to it or a copy becomes the one
  // that CFBundleExecutable names.
  TestBundle(const std::filesystem::path& directory, const std::string& name, InfoKeys keys,
             const std::filesystem::path& executable = {});

  [[nodiscard]] const std::filesystem::path& path() const { return path_; }
  [[nodiscard]] std::filesystem::path executable() const { return executable_; }
  [[nodiscard]] std::filesystem::path resources() const { return path_ / "Contents/Resources"; }
  [[nodiscard]] std::filesystem::path infoFile() const { return path_ / "Contents/Info.plist"; }

  // Empty without the key.
  [[nodiscard]] std::string identifier() const;

  // Shared libraries that go into Contents/Frameworks.
  void addLibraries(const std::vector<std::filesystem::path>& libraries) const;
  // Copies another bundle, or any file, among the resources.
  void addResource(const std::filesystem::path& item) const;

  // Changes some keys; an empty value takes the key away.
  void setKeys(const InfoKeys& keys);

 private:
  std::filesystem::path path_;
  std::filesystem::path executable_;
  InfoKeys keys_;
};

// What a tree consists of: a line for each entry, with its kind, mode, and contents or link target,
// in the order of the paths. Empty when there is nothing.
std::string treeDigest(const std::filesystem::path& root);

}  // namespace qbdkr::test
