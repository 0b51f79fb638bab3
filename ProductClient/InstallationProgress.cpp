#include "ProductClient/InstallationProgress.h"

#include <algorithm>
#include <utility>

#include "Platform/Base/DropExceptions.h"
#include "Platform/Files/FileTree.h"

namespace qbdkr {

InstallationProgress::InstallationProgress(HelperStates& states, std::string resource,
                                           std::function<Clock::time_point()> now)
    : states_(states), resource_(std::move(resource)), now_(std::move(now)) {
  states_.beginInstallation();
  tell();
}

InstallationProgress::~InstallationProgress() { states_.endInstallation(); }

void InstallationProgress::add(std::uint64_t bytes) noexcept {
  done_ += bytes;
  if (states_.areWanted() && now_() - told_ >= interval) tell();
}

CopyProgress InstallationProgress::counter() {
  return [this](std::uint64_t bytes) { add(bytes); };
}

void InstallationProgress::complete() noexcept {
  total_ = done_;
  tell();
}

void InstallationProgress::tell() noexcept {
  dropExceptions([this] {
    // A handler may be set at any time: the size is found out when it is first wanted.
    if (total_ == 0 && states_.areWanted()) total_ = sizeOfItem(resource_);
    states_.tell(HelperInstalling{std::min(done_, total_), total_});
    told_ = now_();
  });
}

}  // namespace qbdkr
