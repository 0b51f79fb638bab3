#include "support/ResourceUse.h"

#include <gtest/gtest.h>
#include <poll.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <string>

#include "support/Sanitizers.h"

namespace qbdkr::test {
namespace {

std::size_t fieldOf(const std::string& path, const std::string& name) {
  std::ifstream file(path);
  for (std::string line; std::getline(file, line);) {
    if (line.starts_with(name + ':')) return std::stoul(line.substr(name.size() + 1));
  }
  return 0;  // the process has ended
}

std::size_t statusField(pid_t process, const std::string& name) {
  return fieldOf("/proc/" + std::to_string(process) + "/status", name);
}

std::size_t descriptorsOf(pid_t process) {
  std::error_code gone;
  std::size_t count = 0;
  for (auto entry =
           std::filesystem::directory_iterator("/proc/" + std::to_string(process) + "/fd", gone);
       !gone && entry != std::filesystem::directory_iterator(); entry.increment(gone)) {
    ++count;
  }
  return count;
}

void raise(std::atomic<std::size_t>& peak, std::size_t value) {
  peak = std::max(peak.load(), value);
}

}  // namespace

ResourceFigures resourceFigures(pid_t process) {
  return {fieldOf("/proc/" + std::to_string(process) + "/smaps_rollup", "Pss"),
          statusField(process, "RssAnon"), statusField(process, "Threads"), descriptorsOf(process)};
}

ResourceUse::ResourceUse(pid_t process)
    : process_(process), stop_(eventfd(0, EFD_CLOEXEC)), sampler_([this] { sample(); }) {}

ResourceUse::~ResourceUse() {
  const std::uint64_t one = 1;
  [[maybe_unused]] const auto written = ::write(stop_.get(), &one, sizeof one);
  sampler_.join();
}

void ResourceUse::sample() {
  constexpr int interval = 5;  // milliseconds
  pollfd stop{stop_.get(), POLLIN, 0};
  do {
    raise(mostThreads_, statusField(process_, "Threads"));
    raise(mostDescriptors_, descriptorsOf(process_));
  } while (::poll(&stop, 1, interval) == 0);
}

std::size_t ResourceUse::peakMegabytes() const { return statusField(process_, "VmHWM") / 1024; }

std::size_t ResourceUse::megabytes() const { return statusField(process_, "VmRSS") / 1024; }

std::size_t ResourceUse::threads() const { return statusField(process_, "Threads"); }

std::size_t ResourceUse::descriptors() const { return descriptorsOf(process_); }

void ResourceUse::expectModest() const {
  constexpr std::size_t modestMemory = 24;
  constexpr std::size_t modestThreads = 16;
  constexpr std::size_t modestDescriptors = 64;
  EXPECT_GT(mostThreads(), 0U);
  EXPECT_LE(mostThreads(), modestThreads);
  EXPECT_GT(mostDescriptors(), 0U);
  EXPECT_LE(mostDescriptors(), modestDescriptors);
  if (hasSanitizer) return;
  EXPECT_GT(peakMegabytes(), 0U);
  EXPECT_LT(peakMegabytes(), modestMemory);
}

}  // namespace qbdkr::test
