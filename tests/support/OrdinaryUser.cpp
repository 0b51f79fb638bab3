#include "support/OrdinaryUser.h"

#include <sys/types.h>
#include <unistd.h>

#include <stdexcept>

#include "support/ForkedBody.h"

namespace qbdkr::test {
namespace {

namespace fs = std::filesystem;

constexpr uid_t ordinaryUser = 65534;

bool becomeOrdinaryUser() {
  return geteuid() != 0 || (setgid(ordinaryUser) == 0 && setuid(ordinaryUser) == 0);
}

}  // namespace

bool asOrdinaryUser(const std::function<bool()>& body) {
  return runForked([&] { return becomeOrdinaryUser() && body(); }) == 0;
}

void giveToOrdinaryUser(const fs::path& root) {
  if (geteuid() != 0) return;
  const auto give = [](const fs::path& path) {
    if (lchown(path.c_str(), ordinaryUser, ordinaryUser) != 0) {
      throw std::runtime_error("the owner cannot be changed");
    }
  };
  give(root);
  for (const auto& entry : fs::recursive_directory_iterator(root)) give(entry.path());
}

}  // namespace qbdkr::test
