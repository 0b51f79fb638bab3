#pragma once

#include <memory>
#include <string>
#include <vector>

#include "support/ChildProcess.h"
#include "support/Scene.h"

namespace qbdkr::test {

// Runs the program that speaks to the bus through libdbus, from a bundle of its own or outside any.
class Peer {
 public:
  static Peer inBundle(Scene& scene, const std::string& name = "Peer");
  static Peer outsideBundles(Scene& scene);

  [[nodiscard]] const std::string& executable() const { return executable_; }

  // Runs one command and returns its output.
  [[nodiscard]] std::string run(std::vector<std::string> words) const;
  [[nodiscard]] std::unique_ptr<ChildProcess> begin(std::vector<std::string> words) const;

  void awaitOwner(const std::string& name) const { (void)run({"await", name}); }

 private:
  Peer(Scene& scene, std::string executable);

  Scene* scene_;
  std::string executable_;
};

}  // namespace qbdkr::test
