#pragma once

#include <filesystem>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "support/Scene.h"

namespace qbdkr::test {

// The program that speaks to the bus through libdbus, from a bundle of its own or from none.
class Peer {
 public:
  static Peer inBundle(Scene& scene, const std::string& name = "Peer") {
    const TestBundle bundle(scene.directory() / "Peers", name,
                            {{"CFBundleIdentifier", scene.identifier(name)}}, QBDKR_LIBDBUS_CLIENT);
    return {scene, bundle.executable()};
  }

  static Peer outsideBundles(Scene& scene) {
    const auto executable = scene.directory() / "Plain/libdbus_client";
    if (!std::filesystem::exists(executable)) linkOrCopy(QBDKR_LIBDBUS_CLIENT, executable);
    return {scene, executable};
  }

  [[nodiscard]] const std::string& executable() const { return executable_; }

  // Runs one command to its end and gives what it printed.
  [[nodiscard]] std::string run(std::vector<std::string> words) const {
    words.insert(words.begin(), executable_);
    std::string text = outputOf(words, scene_->environment());
    if (text.ends_with('\n')) text.pop_back();
    return text;
  }

  [[nodiscard]] std::unique_ptr<ChildProcess> begin(std::vector<std::string> words) const {
    words.insert(words.begin(), executable_);
    return std::make_unique<ChildProcess>(words, scene_->options());
  }

  void awaitOwner(const std::string& name) const { (void)run({"await", name}); }

 private:
  Peer(Scene& scene, std::string executable) : scene_(&scene), executable_(std::move(executable)) {}

  Scene* scene_;
  std::string executable_;
};

}  // namespace qbdkr::test
