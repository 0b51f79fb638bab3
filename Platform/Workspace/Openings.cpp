#include "Platform/Workspace/Openings.h"

#include <mutex>

namespace qbdkr {

// Ends a turn, even if its work throws.
class Openings::TurnEnd {
 public:
  TurnEnd(Openings& openings, const std::string& bundlePath, Turn& turn)
      : openings_(openings), bundlePath_(bundlePath), turn_(turn) {}
  TurnEnd(const TurnEnd&) = delete;
  TurnEnd& operator=(const TurnEnd&) = delete;
  ~TurnEnd() {
    {
      const std::lock_guard lock(openings_.mutex_);
      turn_.hasEnded = true;
      openings_.turns_.erase(bundlePath_);
    }
    turn_.ended.notify_all();
  }

 private:
  Openings& openings_;
  const std::string& bundlePath_;
  Turn& turn_;
};

bool Openings::join(const std::string& bundlePath, Clock::time_point deadline,
                    const std::function<bool()>& work) {
  const auto own = std::make_shared<Turn>();
  {
    std::unique_lock lock(mutex_);
    auto& turn = turns_[bundlePath];
    if (turn && turn->process == own->process) {
      const auto other = turn;
      other->ended.wait_until(lock, deadline, [&] { return other->hasEnded; });
      return other->hasEnded && other->outcome;
    }
    turn = own;
  }
  const TurnEnd end(*this, bundlePath, *own);
  own->outcome = work();
  return own->outcome;
}

}  // namespace qbdkr
