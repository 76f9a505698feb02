// Tables whose rows can be compared because they were measured in turns in one run. Each is
// printed, and its rows are appended to the file that KAVREL_BENCH_ROWS names, one JSON object a
// line, from which report.py makes the report over all programs and runs.
#pragma once

#include <functional>
#include <optional>
#include <string>
#include <vector>

namespace kavrel_bench {

/// What a row is in its table.
enum class Kind {
  kOurs,   ///< this project
  kLimit,  ///< what it is made of: nothing built on that can be faster
  kPeer,   ///< what a user would take instead
};

/// One measured thing over all rounds of a run.
struct Row {
  std::string name;
  std::function<void(Row&)> measure;  ///< one round: appends to p50 and p99, maybe to processor
  Kind kind = Kind::kOurs;
  /// In tables of growth: how many of what grows. Rows of one name are one line of the plot.
  std::optional<double> size = {};
  std::vector<double> p50 = {};
  std::vector<double> p99 = {};
  std::vector<double> processor = {};  ///< microseconds of all processes that took part, each time
  std::string missing = {};            ///< why it was not measured
  std::string reference = {};          ///< the row it is compared with; empty: the first limit
};

/// One round's percentiles; sorts the samples.
void AddSamples(Row& row, std::vector<double>& samples);

/// Measures all rows in turns, so that whatever else the machine does hits all of them alike, and
/// prints medians over the rounds (microseconds) beside their ratio to the first row, the
/// reference. A row that throws is measured no more; one that never gave a figure is said to be
/// missing, and why. Three rounds when it has to be quick.
void RunLatencyTable(const std::string& title, std::vector<Row> rows, int rounds);

/// The same for rates: one value a round in `p50`, a second.
void RunRateTable(const std::string& title, std::vector<Row> rows, int rounds);

/// Hands rows on that were measured and printed elsewhere; `unit` is that of p50 and p99.
void RecordRows(const std::string& title, const std::string& unit, const std::vector<Row>& rows);

}  // namespace kavrel_bench
