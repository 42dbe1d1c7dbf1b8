#include "bench/report.h"

#include <algorithm>
#include <cmath>
#include <cstdio>

namespace roster::bench {

void MedianReporter::ReportRuns(const std::vector<Run>& runs) {
  for (const Run& run : runs) {
    if (run.run_type != Run::RT_Iteration || run.error_occurred) continue;
    const double multiplier = benchmark::GetTimeUnitMultiplier(run.time_unit);
    seconds_[run.run_name.function_name + "/" + run.run_name.args].push_back(run.GetAdjustedRealTime() /
                                                                             multiplier);
  }
}

double MedianReporter::median(const std::string& name, std::size_t accounts) const {
  const auto found = seconds_.find(name + "/" + std::to_string(accounts));
  if (found == seconds_.end()) return 0;
  std::vector<double> sorted = found->second;
  std::sort(sorted.begin(), sorted.end());
  return sorted[sorted.size() / 2];
}

namespace {

std::string timeText(double seconds) {
  char text[32];
  if (seconds < 1e-6) {
    std::snprintf(text, sizeof text, "%.1f ns", seconds * 1e9);
  } else if (seconds < 1e-3) {
    std::snprintf(text, sizeof text, "%.1f us", seconds * 1e6);
  } else {
    std::snprintf(text, sizeof text, "%.2f ms", seconds * 1e3);
  }
  return text;
}

class Table {
 public:
  Table() {
    std::printf("%-37s %8s %12s %12s %9s  %s\n", "what", "accounts", "measured", "baseline", "figure",
                "must reach");
  }

  /// A limit of 0 is no limit: the row is there for comparison.
  void row(const std::string& what, std::size_t accounts, const std::string& measured,
           const std::string& baseline, double figure, double limit, const char* unit = "") {
    char wanted[64] = "";
    if (limit > 0) {
      const bool isReached = figure <= limit;
      isAllReached_ = isAllReached_ && isReached;
      std::snprintf(wanted, sizeof wanted, "at most %g%s%s", limit, unit, isReached ? "" : "  MISSED");
    }
    std::printf("%-37s %8zu %12s %12s %9.2f  %s\n", what.c_str(), accounts, measured.c_str(),
                baseline.c_str(), figure, wanted);
  }

  bool isAllReached() const { return isAllReached_; }

 private:
  bool isAllReached_ = true;
};

/// The exponent with which the time grows between two sizes a hundred times apart.
double exponent(const MedianReporter& medians, const char* name) {
  return std::log(medians.median(name, 100'000) / medians.median(name, 1'000)) / std::log(100.0);
}

/// Whole processes of the tool, without what every program's start costs.
void addToolRows(Table& table, const MedianReporter& medians) {
  constexpr std::size_t n = 10'000;
  const double start = medians.median("rosterctl", 0);
  const double least = medians.median("true", 0);
  if (start != 0 && least != 0) {
    table.row("rosterctl --version beyond true, ms", 0, timeText(start), timeText(least),
              (start - least) * 1e3, 0.8);
  }
  const double change = medians.median("rosterctl set", n) - start;
  const double inLibrary = medians.median("library change", n) - medians.median("library change", 0);
  if (start != 0 && change > 0 && inLibrary > 0) {
    table.row("rosterctl set / load + sync", n, timeText(change), timeText(inLibrary), change / inLibrary,
              1.15);
  }
  // Both load the registry; `show` prints one account of it.
  const double load = medians.median("rosterctl show", n);
  const auto list = [&](const char* what, const char* name, double limit) {
    const double measured = medians.median(name, n);
    if (measured == 0 || load == 0) return;
    table.row(what, n, timeText(measured), timeText(load), (measured - load) * 1e6 / n, limit);
  };
  list("list beyond show, us/account", "rosterctl list", 3);
  list("list --json beyond show, us/account", "rosterctl list --json", 3);
  list("list into a pipe, us/account", "rosterctl list, read", 0);
}

}  // namespace

bool printTable(const MedianReporter& medians, const std::vector<FirstLoad>& firstLoads,
                const std::map<std::size_t, double>& peaks, int syncs) {
  Table table;
  const auto ratio = [&](const char* what, const char* name, const char* baseline, std::size_t accounts,
                         double limit) {
    const double measured = medians.median(name, accounts);
    const double least = medians.median(baseline, accounts);
    if (measured == 0 || least == 0) return;
    table.row(what, accounts, timeText(measured), timeText(least), measured / least, limit);
  };
  const auto sizes = {10UL, 100UL, 1'000UL, 10'000UL, 100'000UL};
  for (const std::size_t n : sizes) ratio("load / read fresh", "load", "read fresh", n, n >= 100 ? 5 : 0);
  for (const FirstLoad& load : firstLoads) {
    table.row("first load beyond a later one, us", load.accounts, timeText(load.cold), timeText(load.warm),
              load.beyond * 1e6, 80);
  }
  for (const std::size_t n : sizes)
    ratio("save / durable write", "save", "durable write", n, n == 100 ? 1.75 : 0);
  for (const std::size_t n : sizes) ratio("sync / durable write", "sync", "durable write", n, 0);
  for (const std::size_t n : sizes)
    ratio("refresh, one changed / load", "refresh", "load", n, n >= 1'000 ? 1.5 : 0);
  for (const std::size_t n : sizes) {
    const double measured = medians.median("save", n);
    const double least = medians.median("durable write", n);
    if (measured == 0 || least == 0 || n < 1'000) continue;
    table.row("save beyond durable write, us/account", n, timeText(measured), timeText(least),
              (measured - least) * 1e6 / static_cast<double>(n), n == 10'000 ? 4 : 0);
  }
  for (const std::size_t n : sizes)
    ratio("accountWithIdentifier / hash", "accountWithIdentifier", "hash look-up", n, 2);
  ratio("save with notifiers / without", "telling save", "save", 1'000, 1.15);
  const auto perAccount = [&](const char* what, const char* name, std::size_t accounts, double limit) {
    const double measured = medians.median(name, accounts);
    if (measured == 0) return;
    table.row(what, accounts, timeText(measured), "", measured * 1e9 / static_cast<double>(accounts), limit);
  };
  perAccount("first detectChanges, ns/account", "first detection", 10'000, 200);
  perAccount("detectChanges again, ns/account", "detection again", 10'000, 200);
  perAccount("retaking the snapshot, ns/account", "snapshot", 10'000, 0);
  for (const std::size_t n : {1'000UL, 10'000UL, 100'000UL}) {
    perAccount("accountsWithTypes, ns/parent", "accountsWithTypes", n, 0);
  }
  for (const char* name : {"load", "save", "accountsWithTypes"}) {
    if (medians.median(name, 1'000) == 0 || medians.median(name, 100'000) == 0) continue;
    table.row(std::string("growth of ") + name + ", exponent", 100'000,
              timeText(medians.median(name, 100'000)), timeText(medians.median(name, 1'000)),
              exponent(medians, name), 1.1);
  }
  for (const auto& [n, peak] : peaks) {
    if (peak > 0) table.row("peak memory of a load / file size", n, "", "", peak, 4);
  }
  addToolRows(table, medians);
  table.row("syncs of one save", 100, "", "", syncs, 2);
  return table.isAllReached();
}

}  // namespace roster::bench
