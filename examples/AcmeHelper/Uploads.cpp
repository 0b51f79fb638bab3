#include "Uploads.h"

#include <exception>
#include <functional>
#include <utility>

#include <ClientComm/Log.h>
#include <ClientComm/RunLoop.h>

#include "Database.h"
#include "FileDigest.h"

namespace acme {
namespace {

// Runs a change of the state on the main thread. Logs a failure, as no host waits for the outcome.
void onMainThread(std::function<void()> change) {
  qbdkr::RunLoop::main().perform([change = std::move(change)] {
    try {
      change();
    } catch (const DatabaseError& error) {
      qbdkr::log("an upload cannot be recorded: %@", {error.what()});
    }
  });
}

}  // namespace

Uploads::Uploads(State& state, const Transcript& transcript)
    : state_(state), transcript_(transcript) {
  for (const Upload& upload : state_.unfinishedUploads()) enqueue(upload);
  reader_ = std::thread([this] { readFiles(); });
}

Uploads::~Uploads() {
  {
    const std::lock_guard lock(mutex_);
    stopped_ = true;
  }
  changed_.notify_all();
  reader_.join();
}

void Uploads::add(Upload upload) {
  upload.number = state_.addUpload(upload);
  enqueue(upload);
}

void Uploads::enqueue(const Upload& upload) {
  {
    const std::lock_guard lock(mutex_);
    queue_.push_back(upload);
  }
  changed_.notify_all();
}

void Uploads::readFiles() {
  std::unique_lock lock(mutex_);
  while (true) {
    changed_.wait(lock, [this] { return stopped_ || !queue_.empty(); });
    if (stopped_) return;
    const Upload upload = std::move(queue_.front());
    queue_.pop_front();
    lock.unlock();
    try {
      if (const auto digest = digestOf(upload.path, stopped_)) {
        onMainThread([this, upload, digest] {
          state_.finishUpload(upload.number, digest->size, digest->sha256);
          note(upload, std::to_string(digest->size) + " bytes, sha256 " + digest->sha256);
        });
      }
    } catch (const std::exception& error) {
      onMainThread([this, upload, reason = std::string(error.what())] {
        state_.failUpload(upload.number, reason);
        note(upload, reason);
      });
    }
    lock.lock();
  }
}

void Uploads::note(const Upload& upload, const std::string& outcome) const {
  transcript_.write(upload.kind + " recorded: " + shown(upload.path) + ", " + outcome);
}

}  // namespace acme
