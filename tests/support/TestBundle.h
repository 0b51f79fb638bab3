#pragma once

#include <filesystem>
#include <map>
#include <string>
#include <vector>

namespace qbdkr::test {

using InfoKeys = std::map<std::string, std::string>;

// Returns an information property list of texts.
std::string informationPropertyList(const InfoKeys& keys);

// Makes bundles for one test.
class TestBundle {
 public:
  // Makes DIRECTORY/NAME.app with these keys. Links or copies an executable, if one is given, to
  // where CFBundleExecutable names it.
  TestBundle(const std::filesystem::path& directory, const std::string& name, InfoKeys keys,
             const std::filesystem::path& executable = {});

  [[nodiscard]] const std::filesystem::path& path() const { return path_; }
  [[nodiscard]] std::filesystem::path executable() const { return executable_; }
  [[nodiscard]] std::filesystem::path resources() const { return path_ / "Contents/Resources"; }
  [[nodiscard]] std::filesystem::path infoFile() const { return path_ / "Contents/Info.plist"; }

  // Returns an empty text without the key.
  [[nodiscard]] std::string identifier() const;

  // Puts shared libraries into Contents/Frameworks.
  void addLibraries(const std::vector<std::filesystem::path>& libraries) const;
  // Copies a bundle or a file into the resources.
  void addResource(const std::filesystem::path& item) const;

  // Changes some keys; an empty value removes the key.
  void setKeys(const InfoKeys& keys);

 private:
  std::filesystem::path path_;
  std::filesystem::path executable_;
  InfoKeys keys_;
};

// Describes a tree: a line for each entry, with its kind, its mode, and a digest of its contents or
// its link target, sorted. Empty if ROOT does not exist.
std::string treeDigest(const std::filesystem::path& root);

}  // namespace qbdkr::test
