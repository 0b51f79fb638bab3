#include "support/Sample.h"

#include "support/Environment.h"
#include "support/Programs.h"

namespace qbdkr::test {

namespace fs = std::filesystem;

Sample::Sample(Scene& scene, const Versions& versions)
    : scene_(scene), path_(scene.directory() / "Applications/PhotoTool.app") {
  fs::remove_all(path_);
  fs::create_directories(path_.parent_path());
  fs::copy(sampleHost(), path_, fs::copy_options::recursive | fs::copy_options::copy_symlinks);
  const auto information = path_ / "Contents/Info.plist";
  replaceIdentifiers(information);
  replaceInFile(information, ">1.0<", '>' + versions.host + '<');
  const auto helperInformation = path_ / "Contents/Resources/AcmeHelper.app/Contents/Info.plist";
  replaceIdentifiers(helperInformation);
  replaceInFile(helperInformation, ">1.0<", '>' + versions.helper + '<');
}

fs::path Sample::database() const {
  return scene_.home().path() / ".local/share" / scene_.helperID() / "state.sqlite";
}

fs::path Sample::installedHelper() const { return scene_.installDirectory() / "AcmeHelper.app"; }

std::unique_ptr<ChildProcess> Sample::start() const {
  return std::make_unique<ChildProcess>(std::vector<std::string>{executable()}, scene_.options());
}

std::string Sample::call(const std::string& name, const std::vector<std::string>& arguments) const {
  std::vector<std::string> command{executable(), "--call", name};
  command.insert(command.end(), arguments.begin(), arguments.end());
  std::string output = outputOf(command, scene_.environment());
  if (output.ends_with('\n')) output.pop_back();
  const std::string start = name + ": ";
  return output.starts_with(start) ? output.substr(start.size()) : output;
}

std::string Sample::query(const std::string& sql) const {
  const std::string program =
      "import json, sqlite3, sys\n"
      "database = sqlite3.connect('file:' + sys.argv[1] + '?mode=ro', uri=True, timeout=20)\n"
      "print(json.dumps(database.execute(sys.argv[2]).fetchall()))\n";
  std::string rows = outputOf({"/usr/bin/python3", "-c", program, database().string(), sql},
                              {{"PATH", "/usr/bin:/bin"}});
  if (rows.ends_with('\n')) rows.pop_back();
  return rows;
}

std::string Sample::executable() const { return path_ / "Contents/Linux/PhotoTool"; }

void Sample::replaceIdentifiers(const fs::path& file) const {
  replaceInFile(file, "com.Acme.Helper", scene_.helperID());
  replaceInFile(file, "com.Acme.PhotoTool", scene_.hostID());
}

}  // namespace qbdkr::test
