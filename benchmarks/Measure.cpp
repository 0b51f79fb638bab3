#include "Measure.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>

namespace qbdkr::bench {

[[noreturn]] void fail(const char* what) {
  std::fprintf(stderr, "bench: %s\n", what);
  std::exit(1);
}

double microseconds(Clock::duration duration) {
  return std::chrono::duration<double, std::micro>(duration).count();
}

double median(std::vector<double> values) {
  std::ranges::sort(values);
  return values[values.size() / 2];
}

void print(const Row& row) {
  const double ratio = row.ours / row.theirs;
  std::printf("%-34s %9.2f us  %-26s %9.2f us  ratio %5.2f (at most %.2f)  %s\n", row.name,
              row.ours, row.reference, row.theirs, ratio, row.limit,
              row.holds() ? "holds" : "MISSED");
}

Row measure(Row row, int samples, int rounds, const std::function<void()>& ours,
            const std::function<void()>& theirs, const std::function<void()>& between) {
  std::vector<double> oursTimes;
  std::vector<double> theirTimes;
  const auto sample = [&](const std::function<void()>& body, std::vector<double>& times) {
    const auto start = Clock::now();
    for (int i = 0; i < rounds; ++i) body();
    times.push_back(microseconds(Clock::now() - start) / rounds);
    between();
  };
  for (int i = 0; i < samples; ++i) {
    const bool oursFirst = i % 2 == 0;
    if (oursFirst) sample(ours, oursTimes);
    sample(theirs, theirTimes);
    if (!oursFirst) sample(ours, oursTimes);
  }
  row.ours = median(oursTimes);
  row.theirs = median(theirTimes);
  return row;
}

}  // namespace qbdkr::bench
