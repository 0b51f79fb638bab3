#include "Platform/Record/Record.h"

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdlib>
#include <cstring>
#include <mutex>
#include <span>

#include "Platform/Base/DropExceptions.h"
#include "Platform/Base/ForkSafeMutex.h"
#include "Platform/Base/NeverDestroyed.h"
#include "Platform/Log/NativeLog.h"
#include "Platform/Text/Text.h"

namespace qbdkr {
namespace {

using Clock = std::chrono::system_clock;

constexpr std::size_t mostSteps = 256;
constexpr std::string_view cut = "...";

// Copies a text; one that is too long loses its middle.
std::size_t copyText(std::string_view text, std::span<char> place) {
  if (text.size() <= place.size()) {
    std::ranges::copy(text, place.begin());
    return text.size();
  }
  const std::size_t begin = (place.size() - cut.size()) / 2;
  const std::size_t end = place.size() - cut.size() - begin;
  std::ranges::copy(text.substr(0, begin), place.begin());
  std::ranges::copy(cut, place.subspan(begin).begin());
  std::ranges::copy(text.substr(text.size() - end), place.last(end).begin());
  return place.size();
}

// A step in the form that takes no allocation.
class Entry {
 public:
  Entry() = default;
  Entry(StepKind kind, std::int64_t number, std::string_view subject, std::string_view detail)
      : time_(Clock::now()), number_(number), kind_(kind) {
    constexpr std::size_t half = room / 2;
    const std::size_t forSubject = std::max(half, room - std::min(room, detail.size()));
    const std::span place(text_);
    const std::size_t size = copyText(subject, place.first(forSubject));
    subjectSize_ = static_cast<std::uint8_t>(size);
    detailSize_ = static_cast<std::uint8_t>(copyText(detail, place.subspan(size)));
  }

  [[nodiscard]] Clock::time_point time() const { return time_; }

  [[nodiscard]] bool isSameStep(const Entry& other) const {
    return kind_ == other.kind_ && number_ == other.number_ && subject() == other.subject() &&
           detail() == other.detail();
  }

  // Takes the place of an earlier one.
  void repeat(const Entry& earlier) { repeats_ = earlier.repeats_ + 1; }

  [[nodiscard]] RecordedStep step() const {
    return {kind_, time_, repeats_ + 1, number_, escaped(subject()), escaped(detail())};
  }

 private:
  static constexpr std::size_t room = 233;  // bytes; an entry has 256

  [[nodiscard]] std::string_view subject() const { return {text_.data(), subjectSize_}; }
  [[nodiscard]] std::string_view detail() const {
    return {text_.data() + subjectSize_, detailSize_};
  }

  Clock::time_point time_;
  std::int64_t number_ = 0;
  std::uint32_t repeats_ = 0;
  StepKind kind_{};
  std::uint8_t subjectSize_ = 0;
  std::uint8_t detailSize_ = 0;
  std::array<char, room> text_{};
};

class Record {
 public:
  void add(Entry entry) {
    const std::lock_guard lock(mutex_);
    const std::span used = std::span(entries_).first(size_);
    const auto same =
        std::ranges::find_if(used, [&](const Entry& other) { return other.isSameStep(entry); });
    if (same != used.end()) {
      entry.repeat(*same);
      *same = entry;
    } else if (size_ < mostSteps) {
      entries_[size_++] = entry;
    } else {
      *std::ranges::min_element(used, {}, &Entry::time) = entry;
    }
  }

  [[nodiscard]] std::vector<RecordedStep> steps() const {
    std::vector<Entry> entries(mostSteps);  // not with the lock held
    {
      const std::lock_guard lock(mutex_);
      std::ranges::copy(std::span(entries_).first(size_), entries.begin());
      entries.resize(size_);
    }
    std::ranges::stable_sort(entries, {}, &Entry::time);
    std::vector<RecordedStep> steps;
    steps.reserve(entries.size());
    for (const Entry& entry : entries) steps.push_back(entry.step());
    return steps;
  }

 private:
  // All zero at first: no page of it takes memory until a step is written there.
  static inline constinit std::array<Entry, mostSteps> entries_;
  static_assert(sizeof entries_ == 65'536);

  mutable ForkSafeMutex mutex_;
  std::size_t size_ = 0;
};

Record& recordOfProcess() {
  static NeverDestroyed instance([] { return Record(); });
  return *instance;
}

}  // namespace

bool isDebugging() {
  static const bool isSet = [] {
    const char* value = std::getenv("QBDKR_DEBUG");
    return value != nullptr && std::strcmp(value, "1") == 0;
  }();
  return isSet;
}

void record(StepKind kind, std::int64_t number, std::string_view subject,
            std::string_view detail) noexcept {
  dropExceptions([&] {
    const Entry entry(kind, number, subject, detail);
    recordOfProcess().add(entry);
    if (isDebugging()) writeLogLine("QBDKR_DEBUG: " + entry.step().text());
  });
}

std::vector<RecordedStep> recordedSteps() { return recordOfProcess().steps(); }

}  // namespace qbdkr
