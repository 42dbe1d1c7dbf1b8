#pragma once

#include <benchmark/benchmark.h>

#include <chrono>

namespace roster::bench {

/// Makes the time for which it lives that of the current iteration: what prepares it and what cleans up after
/// it stay outside.
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
