#pragma once

#include <atomic>
#include <condition_variable>
#include <deque>
#include <mutex>
#include <thread>

#include "State.h"
#include "Transcript.h"

namespace acme {

// The files that hosts handed over. Each is recorded at once. A thread reads them, one after the
// other: a large one does not keep hosts waiting. The next helper agent reads files that a killed
// one left unread. A helper agent with a server would send the bytes from here.
class Uploads {
 public:
  // Continues unfinished uploads. Main thread only, like the state.
  Uploads(State& state, const Transcript& transcript);
  Uploads(const Uploads&) = delete;
  Uploads& operator=(const Uploads&) = delete;
  // Stops in the middle of a file, which stays unfinished.
  ~Uploads();

  void add(Upload upload);

 private:
  void readFiles();
  void enqueue(const Upload& upload);
  void note(const Upload& upload, const std::string& outcome) const;

  State& state_;
  const Transcript& transcript_;
  std::mutex mutex_;
  std::condition_variable changed_;
  std::deque<Upload> queue_;
  std::atomic<bool> stopped_{false};
  std::thread reader_;
};

}  // namespace acme
