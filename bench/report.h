#pragma once

#include <benchmark/benchmark.h>

#include <map>
#include <string>
#include <utility>
#include <vector>

#include "bench/first_load.h"
#include "bench/peak_memory.h"

namespace roster::bench {

/// Collects the time of every repetition of every benchmark, and answers medians.
class MedianReporter : public benchmark::BenchmarkReporter {
 public:
  bool ReportContext(const Context&) override { return true; }
  void ReportRuns(const std::vector<Run>& runs) override;

  /// The median over the repetitions, in seconds; 0 when the benchmark was filtered out or failed.
  double median(const std::string& name, std::size_t accounts) const;

 private:
  std::map<std::string, std::vector<double>> seconds_;
};

/// Prints the table: each measured figure, its baseline from the same run, their ratio and the limit. Returns
/// whether all figures that were measured keep to their limits.
bool printTable(const MedianReporter& medians, const std::vector<FirstLoad>& firstLoads,
                const std::vector<PeakMemory>& peaks, int syncs);

}  // namespace roster::bench
