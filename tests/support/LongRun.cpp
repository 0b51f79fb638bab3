#include "support/LongRun.h"

#include <signal.h>

#include <algorithm>
#include <atomic>
#include <cstddef>
#include <iomanip>
#include <iostream>
#include <stdexcept>
#include <thread>

namespace qbdkr::test {
namespace {

using Clock = std::chrono::steady_clock;

std::atomic<int> endSignal{0};

void noteSignal(int number) { endSignal = number; }

bool isNumber(const std::string& text) {
  return !text.empty() && text.find_first_not_of("0123456789") == std::string::npos;
}

}  // namespace

Options parsedOptions(const std::vector<std::string>& arguments, Options options) {
  for (std::size_t i = 0; i < arguments.size(); ++i) {
    const auto option = options.find(arguments[i]);
    if (option == options.end()) {
      std::string usage = "unknown option " + arguments[i] + "; there are";
      for (const auto& [name, value] : options) usage += ' ' + name + ' ' + std::to_string(value);
      throw std::runtime_error(usage);
    }
    if (i + 1 < arguments.size() && isNumber(arguments[i + 1])) {
      option->second = std::stoul(arguments[++i]);
    }
  }
  return options;
}

int runLong(const std::function<std::vector<std::string>()>& body) {
  struct sigaction action {};
  action.sa_handler = noteSignal;
  sigaction(SIGINT, &action, nullptr);
  sigaction(SIGTERM, &action, nullptr);
  try {
    const auto failures = body();
    for (const std::string& failure : failures) say("FAILED: " + failure);
    return failures.empty() ? 0 : 1;
  } catch (const std::exception& error) {
    // A signal from the terminal ends the hosts too.
    if (endSignal != 0) return 128 + endSignal;
    say(std::string("FAILED: ") + error.what());
    return 1;
  }
}

void rest(std::chrono::milliseconds time) {
  constexpr std::chrono::milliseconds most(50);
  for (const auto end = Clock::now() + time;;) {
    if (endSignal != 0) throw std::runtime_error("interrupted");
    const auto left = end - Clock::now();
    if (left <= Clock::duration::zero()) return;
    std::this_thread::sleep_for(std::min<Clock::duration>(left, most));
  }
}

void say(const std::string& line) { std::cout << line << std::endl; }

void sayFigure(const std::string& name, const std::string& value) {
  constexpr int width = 48;
  std::cout << "  " << std::left << std::setw(width) << name << value << std::endl;
}

long quantile(std::vector<long> values, double share) {
  if (values.empty()) return 0;
  std::ranges::sort(values);
  const auto place = static_cast<std::size_t>(share * static_cast<double>(values.size()));
  return values[std::min(place, values.size() - 1)];
}

}  // namespace qbdkr::test
