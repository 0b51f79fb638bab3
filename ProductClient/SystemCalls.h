#pragma once

#include <sys/types.h>

#include <chrono>
#include <ctime>
#include <functional>
#include <memory>
#include <optional>
#include <string>

#include <ClientComm/QBHPProcessList.h>
#include <ClientComm/TextValue.h>

#include "Platform/Base/DetachedThread.h"
#include "Platform/Events/PeerWatch.h"
#include "Platform/Files/FileLock.h"
#include "Platform/Processes/RunningApplications.h"
#include "Platform/Workspace/Workspace.h"

namespace qbdkr {

// The communicator's calls to the system. Tests pass others.
struct SystemCalls {
  std::function<bool(std::function<void()>)> startThread = detachNewThread;
  std::function<bool(Text bundleIdentifier, Text path)> isRunning = [](Text identifier, Text path) {
    return QBHPProcessList::share().applicationIsRunning(identifier, path);
  };
  // Leaves an application alone that runs.
  std::function<bool(const std::string& path, const std::function<void()>& onStart,
                     Placement placement)>
      open = openFile;
  std::function<bool(Text bundleIdentifier, const std::string& path,
                     std::chrono::milliseconds patience)>
      waitForEnd =
          [](Text identifier, const std::string& path, std::chrono::milliseconds patience) {
            return waitForApplicationsEnd(identifier.value_or(""), path, patience);
          };
  std::function<std::optional<pid_t>(const std::string& bundleIdentifier)> reachedProcess =
      qbdkr::reachedProcess;
  std::function<std::unique_ptr<PeerWatch>(const std::string& bundleIdentifier)> watchPeer =
      PeerWatch::make;
  std::function<FileLock(const std::string& path, std::chrono::milliseconds patience)> lock =
      FileLock::acquire;
  std::function<std::time_t()> now = [] {
    return std::chrono::system_clock::to_time_t(std::chrono::system_clock::now());
  };
};

}  // namespace qbdkr
