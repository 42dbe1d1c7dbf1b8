#pragma once

#include <benchmark/benchmark.h>

#include <chrono>

namespace roster::bench {

/// Reports its own lifetime as the time of the current iteration, so that preparation and clean-up are not
/// measured.
class IterationTimer {
 public:
  explicit IterationTimer(benchmark::State& state) : state_(state), start_(Clock::now()) {}
  IterationTimer(const IterationTimer&) = delete;
  IterationTimer& operator=(const IterationTimer&) = delete;
  ~IterationTimer() { state_.SetIterationTime(std::chrono::duration<double>(Clock::now() - start_).count()); }

 private:
  using Clock = std::chrono::steady_clock;
  benchmark::State& state_;
  Clock::time_point start_;
};

}  // namespace roster::bench
