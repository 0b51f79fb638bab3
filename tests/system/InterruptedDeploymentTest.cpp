// A host that is killed in the middle of a deployment leaves a whole helper agent or none, and the
// next start mends it.

#include <gtest/gtest.h>
#include <poll.h>
#include <sys/inotify.h>
#include <unistd.h>

#include <array>
#include <chrono>
#include <climits>
#include <cstdint>
#include <cstring>
#include <filesystem>
#include <functional>
#include <map>
#include <stdexcept>
#include <string>

#include "support/Scene.h"

namespace qbdkr::test {
namespace {

namespace fs = std::filesystem;

// Counts what happens in a directory and below. Directories are watched as soon as they are seen;
// what happens in one before that is not counted.
class TreeEvents {
 public:
  explicit TreeEvents(const fs::path& root) : queue_(inotify_init1(IN_CLOEXEC | IN_NONBLOCK)) {
    watch(root);
  }

  // Waits until that many events came, or until it is over without them.
  void waitFor(std::size_t wanted, const std::function<bool()>& isOver) {
    const auto deadline = std::chrono::steady_clock::now() + patience;
    constexpr int glance = 20;  // milliseconds between two looks at whether it is over
    while (count_ < wanted) {
      if (std::chrono::steady_clock::now() >= deadline) {
        throw std::runtime_error("the deployment neither went on nor ended");
      }
      const bool over = isOver();
      pollfd event{queue_.get(), POLLIN, 0};
      if (::poll(&event, 1, over ? 0 : glance) > 0) {
        take(wanted);
      } else if (over) {
        break;
      }
    }
  }

 private:
  void watch(const fs::path& directory) {
    constexpr std::uint32_t mask = IN_CREATE | IN_CLOSE_WRITE | IN_DELETE | IN_MOVED_FROM |
                                   IN_MOVED_TO | IN_ATTRIB | IN_MODIFY | IN_ONLYDIR;
    const int watched = inotify_add_watch(queue_.get(), directory.c_str(), mask);
    if (watched >= 0) directories_[watched] = directory;
    std::error_code gone;
    for (const auto& entry : fs::directory_iterator(directory, gone)) {
      if (entry.is_directory(gone) && !entry.is_symlink(gone)) watch(entry.path());
    }
  }

  void take(std::size_t wanted) {
    alignas(inotify_event) std::array<char, sizeof(inotify_event) + NAME_MAX + 1> buffer{};
    // One event at a time, so that the kill follows the one that it was meant for.
    while (count_ < wanted) {
      const auto size = ::read(queue_.get(), buffer.data(), buffer.size());
      if (size <= 0) return;
      for (std::size_t at = 0; at < static_cast<std::size_t>(size);) {
        inotify_event event{};
        std::memcpy(&event, buffer.data() + at, sizeof event);
        const char* name = buffer.data() + at + sizeof event;
        if ((event.mask & IN_ISDIR) != 0 && (event.mask & (IN_CREATE | IN_MOVED_TO)) != 0) {
          watch(directories_[event.wd] / name);
        }
        ++count_;
        at += sizeof event + event.len;
      }
    }
  }

  OwnedDescriptor queue_;
  std::map<int, fs::path> directories_;
  std::size_t count_ = 0;
};

// The helper agents of these hosts cannot be executed: all that happens is the deployment.
class Interrupted : public testing::TestWithParam<bool> {
 protected:
  Interrupted() : older_(host("OlderHost", "1.0")), newer_(host("NewerHost", "1.1")) {
    oldDigest_ = treeDigest(helperOf(older_));
    newDigest_ = treeDigest(helperOf(newer_));
  }

  [[nodiscard]] static bool isUpgrade() { return GetParam(); }

  static fs::path helperOf(const TestBundle& bundle) {
    return bundle.resources() / "ProbeHelper.app";
  }

  TestBundle host(const std::string& name, const std::string& version) {
    auto bundle = scene_.makeHostWithoutHelper(name);
    const TestBundle helper(
        bundle.resources(), "ProbeHelper",
        {{"CFBundleIdentifier", scene_.helperID()}, {"CFBundleVersion", version}});
    for (int i = 0; i < 40; ++i) {
      const auto folder = helper.resources() / ("folder" + std::to_string(i % 4));
      writeFile(folder / ("file" + std::to_string(i)), version + std::string(300'000, 'x'));
    }
    fs::create_symlink("file0", helper.resources() / "folder0/link");
    return bundle;
  }

  void prepare() {
    fs::remove_all(scene_.installDirectory());
    fs::create_directories(scene_.installDirectory());
    if (isUpgrade()) {
      fs::copy(helperOf(older_), scene_.installedHelper(),
               fs::copy_options::recursive | fs::copy_options::copy_symlinks);
    }
  }

  // A deployment that is killed after that many events, or when it is done.
  void deployAndKillAfter(std::size_t events) {
    TreeEvents watched(scene_.installDirectory());
    const auto host = scene_.start(newer_);
    host->begin("share");
    // It waits for the start-up thread's own deployment, so its end is the end of both.
    const std::string tag = host->begin("extract");
    watched.waitFor(events, [&] { return host->hasFinished(tag); });
    host->process().kill();
  }

  Scene scene_;
  TestBundle older_;
  TestBundle newer_;
  std::string oldDigest_;
  std::string newDigest_;
};

TEST_P(Interrupted, LeavesAWholeHelperOrNoneAndIsMendedByTheNextStart) {
  constexpr std::size_t moments = 40;
  constexpr std::size_t eventsBetween = 3;
  std::size_t notFinished = 0;
  std::size_t withLeftovers = 0;
  for (std::size_t moment = 0; moment < moments; ++moment) {
    const std::size_t events = 1 + eventsBetween * moment;
    prepare();
    deployAndKillAfter(events);
    const std::string digest = treeDigest(scene_.installedHelper());
    const bool whole = digest == newDigest_ || (isUpgrade() && digest == oldDigest_);
    ASSERT_TRUE(digest.empty() || whole) << "killed after " << events << " events:\n" << digest;
    if (digest != newDigest_) ++notFinished;
    if (!scene_.stagingLeftovers().empty()) ++withLeftovers;

    const auto next = scene_.start(newer_);
    next->call("share");
    next->call("extract");
    ASSERT_EQ(treeDigest(scene_.installedHelper()), newDigest_)
        << "killed after " << events << " events";
    ASSERT_EQ(scene_.stagingLeftovers(), std::vector<std::string>())
        << "killed after " << events << " events";
  }
  // Otherwise nothing was interrupted, and nothing shown. How many of them come in time depends on
  // what else the machine does.
  EXPECT_GE(notFinished, 3U);
  EXPECT_GE(withLeftovers, 3U);
}

INSTANTIATE_TEST_SUITE_P(Deployment, Interrupted, testing::Bool(), [](const auto& tested) {
  return std::string(tested.param ? "Upgrade" : "FirstInstallation");
});

}  // namespace
}  // namespace qbdkr::test
