// What a log line below the threshold costs its caller, beside the call of an empty function of the
// same kind and beside the formatting that it saves.
#include <benchmark/benchmark.h>
#include <dlog.h>

#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

#include "table.h"

namespace {

constexpr char kFormat[] = "%s: %s(%d) > channel %d of %d\n";

__attribute__((noinline)) int EmptyFunction(int priority, const char*, const char*, ...) {
  asm volatile("");  // or the call itself is left out
  return priority;
}

template <typename Function>
void CallRepeatedly(benchmark::State& state, Function function) {
  int channel = 0;
  for (auto _ : state) {
    benchmark::DoNotOptimize(
        function(DLOG_INFO, "bench", kFormat, __FILE__, __func__, __LINE__, ++channel, 100));
  }
}

void FilteredRecord(benchmark::State& state) {
  CallRepeatedly(state, dlog_print);
}
void EmptyVariadicCall(benchmark::State& state) {
  CallRepeatedly(state, EmptyFunction);
}

void FormattingOnly(benchmark::State& state) {
  CallRepeatedly(state, [](int, const char*, const char*, auto... values) {
    char text[256];
    const int length = std::snprintf(text, sizeof text, kFormat, values...);
    benchmark::DoNotOptimize(text);
    return length;
  });
}

BENCHMARK(EmptyVariadicCall);
BENCHMARK(FilteredRecord);
BENCHMARK(FilteredRecord)->Threads(2);
BENCHMARK(FormattingOnly);

using kavrel_bench::Kind;
using kavrel_bench::Row;

/// Hands the figures on to the report, beside printing them.
class RowReporter final : public benchmark::ConsoleReporter {
 public:
  void ReportRuns(const std::vector<Run>& runs) override {
    ConsoleReporter::ReportRuns(runs);
    for (const Run& run : runs) {
      const std::string name = run.benchmark_name();
      Row row{name, {}, Kind::kOurs};
      if (name == "EmptyVariadicCall") row.kind = Kind::kLimit;
      if (name == "FormattingOnly") row.kind = Kind::kPeer;
      row.p50.push_back(run.GetAdjustedRealTime());
      rows.push_back(row);
    }
  }

  std::vector<Row> rows;
};

}  // namespace

int main(int count, char** words) {
  ::setenv("KAVREL_LOG", "stderr", 1);
  ::setenv("KAVREL_LOG_LEVEL", "error", 1);
  benchmark::Initialize(&count, words);
  if (dlog_print(DLOG_INFO, "bench", "%s", "shown") != 0) return 1;
  RowReporter reporter;
  benchmark::RunSpecifiedBenchmarks(&reporter);
  kavrel_bench::RecordRows("A log line that is filtered out", "ns", reporter.rows);
  return 0;
}
