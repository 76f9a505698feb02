#include "table.h"

#include <cstdio>
#include <cstdlib>
#include <exception>
#include <fstream>
#include <nlohmann/json.hpp>

#include "measure.h"

namespace kavrel_bench {
namespace {

void MeasureInTurns(std::vector<Row>& rows, int rounds) {
  for (Row& row : rows) {
    if (!row.missing.empty()) row.measure = nullptr;
  }
  for (int round = 0; round < Rounds(rounds); ++round) {
    for (Row& row : rows) {
      if (row.measure == nullptr) continue;
      try {
        row.measure(row);
      } catch (const std::exception& error) {
        (void)std::fprintf(stderr, "%s: %s\n", row.name.c_str(), error.what());
        if (row.p50.empty()) row.missing = error.what();
        row.measure = nullptr;
      }
    }
  }
}

const char* NameOf(Kind kind) {
  switch (kind) {
    case Kind::kLimit:
      return "limit";
    case Kind::kPeer:
      return "peer";
    case Kind::kOurs:
      break;
  }
  return "ours";
}

nlohmann::json JsonOf(const std::string& title, const std::string& unit, const Row& row) {
  nlohmann::json json = {{"program", program_invocation_short_name},
                         {"table", title},
                         {"row", row.name},
                         {"kind", NameOf(row.kind)},
                         {"unit", unit},
                         {"rounds", row.p50.size()}};
  if (const char* family = std::getenv("KAVREL_BENCH_FAMILY")) json["family"] = family;
  if (row.size) json["size"] = *row.size;
  if (!row.p50.empty()) json["p50"] = Median(row.p50);
  if (!row.p99.empty()) json["p99"] = Median(row.p99);
  if (!row.processor.empty()) json["processor"] = Median(row.processor);
  if (!row.missing.empty()) json["missing"] = row.missing;
  if (!row.reference.empty()) json["reference"] = row.reference;
  return json;
}

std::string Title(const Row& row) {
  if (!row.size) return row.name;
  return row.name + ", " + std::to_string(static_cast<long>(*row.size));
}

void PrintLatencies(const std::string& title, const std::vector<Row>& rows) {
  std::printf("\n%s\n%-48s %10s %8s %10s %8s %10s\n", title.c_str(), "", "p50 us", "ratio",
              "p99 us", "ratio", "CPU us");
  const double p50 = Median(rows.front().p50);
  const double p99 = Median(rows.front().p99);
  for (const Row& row : rows) {
    if (!row.missing.empty()) {
      std::printf("%-48s not measured: %s\n", Title(row).c_str(), row.missing.c_str());
      continue;
    }
    std::printf("%-48s %10.2f %8.2f %10.2f %8.2f", Title(row).c_str(), Median(row.p50),
                Median(row.p50) / p50, Median(row.p99), Median(row.p99) / p99);
    if (!row.processor.empty()) std::printf(" %10.2f", Median(row.processor));
    std::printf("\n");
  }
  (void)std::fflush(stdout);
}

void PrintRates(const std::string& title, const std::vector<Row>& rows) {
  std::printf("\n%s\n%-48s %12s %8s %10s\n", title.c_str(), "", "a second", "ratio", "CPU us");
  const double reference = Median(rows.front().p50);
  for (const Row& row : rows) {
    if (!row.missing.empty()) {
      std::printf("%-48s not measured: %s\n", Title(row).c_str(), row.missing.c_str());
      continue;
    }
    std::printf("%-48s %12.0f %8.2f", Title(row).c_str(), Median(row.p50),
                Median(row.p50) / reference);
    if (!row.processor.empty()) std::printf(" %10.2f", Median(row.processor));
    std::printf("\n");
  }
  (void)std::fflush(stdout);
}

}  // namespace

void AddSamples(Row& row, std::vector<double>& samples) {
  row.p50.push_back(Percentile(samples, 50));
  row.p99.push_back(Percentile(samples, 99));
}

void RecordRows(const std::string& title, const std::string& unit, const std::vector<Row>& rows) {
  const char* const path = std::getenv("KAVREL_BENCH_ROWS");
  if (path == nullptr) return;
  std::ofstream file(path, std::ios::app);
  for (const Row& row : rows) file << JsonOf(title, unit, row).dump() << '\n';
  if (!file.flush()) {
    (void)std::fprintf(stderr, "cannot write to %s (KAVREL_BENCH_ROWS)\n", path);
    std::exit(1);
  }
}

void RunLatencyTable(const std::string& title, std::vector<Row> rows, int rounds) {
  MeasureInTurns(rows, rounds);
  PrintLatencies(title, rows);
  RecordRows(title, "us", rows);
}

void RunRateTable(const std::string& title, std::vector<Row> rows, int rounds) {
  MeasureInTurns(rows, rounds);
  PrintRates(title, rows);
  RecordRows(title, "a second", rows);
}

}  // namespace kavrel_bench
