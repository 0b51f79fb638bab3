#include "support/Peer.h"

#include <filesystem>
#include <utility>

#include "support/Environment.h"
#include "support/Programs.h"
#include "support/TestBundle.h"

namespace qbdkr::test {

Peer::Peer(Scene& scene, std::string executable)
    : scene_(&scene), executable_(std::move(executable)) {}

Peer Peer::inBundle(Scene& scene, const std::string& name) {
  const TestBundle bundle(scene.directory() / "Peers", name,
                          {{"CFBundleIdentifier", scene.identifier(name)}}, libdbusClient());
  return {scene, bundle.executable()};
}

Peer Peer::outsideBundles(Scene& scene) {
  const auto executable = scene.directory() / "Plain/libdbus_client";
  if (!std::filesystem::exists(executable)) linkOrCopy(libdbusClient(), executable);
  return {scene, executable};
}

std::string Peer::run(std::vector<std::string> words) const {
  words.insert(words.begin(), executable_);
  std::string text = outputOf(words, scene_->environment());
  if (text.ends_with('\n')) text.pop_back();
  return text;
}

std::unique_ptr<ChildProcess> Peer::begin(std::vector<std::string> words) const {
  words.insert(words.begin(), executable_);
  return std::make_unique<ChildProcess>(words, scene_->options());
}

}  // namespace qbdkr::test
