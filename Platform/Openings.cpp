#include "Platform/Openings.h"

namespace qbdkr {

// Ends a turn, also one whose work has thrown.
class Openings::TurnEnd {
 public:
  TurnEnd(Openings& openings, const std::string& bundlePath)
      : openings_(openings), bundlePath_(bundlePath) {}
  TurnEnd(const TurnEnd&) = delete;
  TurnEnd& operator=(const TurnEnd&) = delete;
  ~TurnEnd() {
    {
      const std::lock_guard lock(openings_.mutex_);
      const auto place = openings_.turns_.find(bundlePath_);
      place->second->hasEnded = true;
      openings_.turns_.erase(place);
    }
    openings_.ended_.notify_all();
  }

 private:
  Openings& openings_;
  const std::string& bundlePath_;
};

std::optional<Openings::Outcome> Openings::join(const std::string& bundlePath,
                                                Clock::time_point deadline,
                                                const std::function<Outcome()>& work) {
  const auto own = std::make_shared<Turn>();
  {
    std::unique_lock lock(mutex_);
    const auto [place, isOwn] = turns_.try_emplace(bundlePath, own);
    if (!isOwn) {
      const auto other = place->second;
      if (!ended_.wait_until(lock, deadline, [&] { return other->hasEnded; })) return std::nullopt;
      return other->outcome;
    }
  }
  const TurnEnd end(*this, bundlePath);
  own->outcome = work();
  return own->outcome;
}

}  // namespace qbdkr
