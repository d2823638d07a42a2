// Timing helpers shared by the benchmark drivers.
#pragma once

#include <algorithm>
#include <chrono>
#include <vector>

namespace tw::bench {

using Clock = std::chrono::steady_clock;

inline double secondsSince(Clock::time_point start) {
  return std::chrono::duration<double>(Clock::now() - start).count();
}

// The middle value of the rounds (the upper one of an even count).
inline double median(std::vector<double> values) {
  std::sort(values.begin(), values.end());
  return values[values.size() / 2];
}

}  // namespace tw::bench
