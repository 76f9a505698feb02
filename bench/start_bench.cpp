// What a program pays for being linked with the library before it calls anything: the time from
// exec to main, and memory.
#include <spawn.h>
#include <sys/resource.h>
#include <sys/wait.h>

#include <filesystem>
#include <stdexcept>
#include <system_error>

#include "measure.h"
#include "start_report.h"
#include "table.h"

using kavrel_bench::Clock;
using kavrel_bench::Kind;
using kavrel_bench::Row;
using kavrel_bench::Samples;
using kavrel_bench::StartReport;

namespace {

constexpr int kRounds = 11;
constexpr int kStarts = 40;

struct Program {
  const char* file;
  const char* title;
  Kind kind;
};
constexpr std::array kPrograms = {
    Program{"start_gio", "linked with GLib and GIO", Kind::kLimit},
    Program{"start_nothing", "linked with the C++ library alone", Kind::kLimit},
    Program{"start_client", "linked with libkavrel-api", Kind::kOurs},
    Program{"start_efl", "linked with EFL", Kind::kPeer}};

/// Starts the program once and returns what it said of itself.
StartReport Start(const std::string& program, double& processor) {
  std::array<int, 2> ends{};
  if (pipe(ends.data()) != 0) throw std::system_error(errno, std::generic_category(), "pipe");
  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  posix_spawn_file_actions_adddup2(&actions, ends[1], 1);
  std::array<char*, 2> arguments{const_cast<char*>(program.c_str()), nullptr};
  pid_t pid = 0;
  const int error =
      posix_spawn(&pid, program.c_str(), &actions, nullptr, arguments.data(), environ);
  posix_spawn_file_actions_destroy(&actions);
  close(ends[1]);
  if (error != 0) throw std::system_error(error, std::generic_category(), program);
  StartReport report{};
  const bool whole = read(ends[0], &report, sizeof report) == sizeof report;
  close(ends[0]);
  rusage usage{};
  int status = 0;
  wait4(pid, &status, 0, &usage);
  if (!whole || status != 0) throw std::runtime_error(program + " failed");
  const auto us = [](const timeval& time) {
    return static_cast<double>(time.tv_sec) * 1e6 + static_cast<double>(time.tv_usec);
  };
  processor += us(usage.ru_utime) + us(usage.ru_stime);
  return report;
}

void MeasureTime(Row& row, const std::string& program) {
  std::vector<double> samples;
  double processor = 0;
  for (int i = 0; i < Samples(kStarts); ++i) {
    const auto before = Clock::now().time_since_epoch();
    const StartReport report = Start(program, processor);
    samples.push_back(static_cast<double>(report.began_ns - before.count()) / 1e3);
  }
  kavrel_bench::AddSamples(row, samples);
  row.processor.push_back(processor / Samples(kStarts));
}

double ResidentKilobytes(const std::string& program) {
  double processor = 0;
  const auto page = static_cast<double>(sysconf(_SC_PAGESIZE));
  return static_cast<double>(Start(program, processor).resident_pages) * page / 1024;
}

void MeasureMemory(Row& row, const std::string& program) {
  row.p50.push_back(ResidentKilobytes(program));
}

void PrintMemory(const std::vector<Row>& rows) {
  std::printf("\nMemory in main()\n%-48s %10s\n", "", "kB");
  for (const Row& row : rows) {
    std::printf("%-48s %10.0f\n", row.name.c_str(), kavrel_bench::Median(row.p50));
  }
}

}  // namespace

int main(int /*argc*/, char** argv) {
  const std::string directory = std::filesystem::path(argv[0]).parent_path().string() + '/';
  std::vector<Row> times;
  std::vector<Row> memory;
  for (const Program& program : kPrograms) {
    const std::string path = directory + program.file;
    times.push_back({program.title, [path](Row& row) { MeasureTime(row, path); }, program.kind});
    memory.push_back({program.title, [path](Row& row) { MeasureMemory(row, path); }, program.kind});
  }
  kavrel_bench::RunLatencyTable("From exec to main", times, kRounds);
  for (int round = 0; round < kRounds; ++round) {
    for (Row& row : memory) row.measure(row);
  }
  PrintMemory(memory);
  kavrel_bench::RecordRows("Memory in main", "kB", memory);
  return 0;
}
