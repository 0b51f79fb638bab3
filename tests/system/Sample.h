#pragma once

#include <filesystem>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "support/Scene.h"

namespace qbdkr::test {

// The sample host and its helper agent as they are built, with the identifiers of one test, and
// with a version of the host that is not the helper agent's.
class Sample {
 public:
  static constexpr const char* hostVersion = "7.1";

  explicit Sample(Scene& scene)
      : scene_(scene), path_(scene.directory() / "Applications/PhotoTool.app") {
    namespace fs = std::filesystem;
    fs::create_directories(path_.parent_path());
    fs::copy(QBDKR_SAMPLE_HOST, path_,
             fs::copy_options::recursive | fs::copy_options::copy_symlinks);
    const auto information = path_ / "Contents/Info.plist";
    replaceIdentifiers(information);
    replace(information, ">1.0<", '>' + std::string(hostVersion) + '<');
    replaceIdentifiers(path_ / "Contents/Resources/AcmeHelper.app/Contents/Info.plist");
  }

  [[nodiscard]] const std::filesystem::path& path() const { return path_; }

  // The helper agent's state, and where it is installed.
  [[nodiscard]] std::filesystem::path database() const {
    return scene_.home().path() / ".local/share" / scene_.helperID() / "state.sqlite";
  }
  [[nodiscard]] std::filesystem::path installedHelper() const {
    return scene_.installDirectory() / "AcmeHelper.app";
  }

  // A host that makes the calls that are written to its standard input.
  [[nodiscard]] std::unique_ptr<ChildProcess> start() const {
    return std::make_unique<ChildProcess>(std::vector<std::string>{executable()}, scene_.options());
  }

  // A host that makes one call, and its result.
  [[nodiscard]] std::string call(const std::string& name,
                                 const std::vector<std::string>& arguments = {}) const {
    std::vector<std::string> command{executable(), "--call", name};
    command.insert(command.end(), arguments.begin(), arguments.end());
    std::string output = outputOf(command, scene_.environment());
    if (output.ends_with('\n')) output.pop_back();
    const std::string start = name + ": ";
    return output.starts_with(start) ? output.substr(start.size()) : output;
  }

  // What an SQL query of the helper agent's state gives, read by another program: the rows as JSON.
  [[nodiscard]] std::string query(const std::string& sql) const {
    const std::string program =
        "import json, sqlite3, sys\n"
        "database = sqlite3.connect('file:' + sys.argv[1] + '?mode=ro', uri=True, timeout=20)\n"
        "print(json.dumps(database.execute(sys.argv[2]).fetchall()))\n";
    std::string rows = outputOf({"/usr/bin/python3", "-c", program, database().string(), sql},
                                {{"PATH", "/usr/bin:/bin"}});
    if (rows.ends_with('\n')) rows.pop_back();
    return rows;
  }

 private:
  [[nodiscard]] std::string executable() const { return path_ / "Contents/Linux/PhotoTool"; }

  void replaceIdentifiers(const std::filesystem::path& file) const {
    replace(file, "com.Acme.Helper", scene_.helperID());
    replace(file, "com.Acme.PhotoTool", scene_.hostID());
  }

  static void replace(const std::filesystem::path& file, const std::string& from,
                      const std::string& to) {
    std::string text = readFile(file);
    for (auto at = text.find(from); at != std::string::npos; at = text.find(from, at + to.size()))
      text.replace(at, from.size(), to);
    writeFile(file, text);
  }

  Scene& scene_;
  std::filesystem::path path_;
};

}  // namespace qbdkr::test
