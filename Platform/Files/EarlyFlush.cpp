#include "Platform/Files/EarlyFlush.h"

#include <chrono>
#include <memory>

#include "Platform/Base/DetachedThread.h"
#include "Platform/Base/DropExceptions.h"

namespace qbdkr {

EarlyFlush::~EarlyFlush() {
  if (underWay_.valid()) underWay_.wait();
}

void EarlyFlush::add(std::uint64_t bytes) {
  written_ += bytes;
  if (written_ < step || isUnderWay()) return;
  written_ = 0;
  dropExceptions([this] { begin(); });
}

bool EarlyFlush::isUnderWay() const {
  return underWay_.valid() &&
         underWay_.wait_for(std::chrono::seconds(0)) != std::future_status::ready;
}

// The thread's end, however that comes, ends the wait for it.
void EarlyFlush::begin() {
  const auto task = std::make_shared<std::packaged_task<void()>>(flush_);
  auto underWay = task->get_future();
  if (detachNewThread([task] { (*task)(); })) underWay_ = std::move(underWay);
}

}  // namespace qbdkr
