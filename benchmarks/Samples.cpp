#include "Samples.h"

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

double timeOf(const std::function<void()>& body) {
  const auto start = Clock::now();
  body();
  return microseconds(Clock::now() - start);
}

void print(const char* side, double sample) {
  std::printf("%s %.3f\n", side, sample);
  std::fflush(stdout);
}

void alternate(int samples, int rounds, const std::function<void()>& ours,
               const std::function<void()>& theirs, const std::function<void()>& between) {
  const auto sample = [&](const char* side, const std::function<void()>& body) {
    print(side, timeOf([&] {
                  for (int i = 0; i < rounds; ++i) body();
                }) / rounds);
    between();
  };
  for (int i = 0; i < samples; ++i) {
    const bool oursFirst = i % 2 == 0;
    if (oursFirst) sample("ours", ours);
    sample("theirs", theirs);
    if (!oursFirst) sample("ours", ours);
  }
}

}  // namespace qbdkr::bench
