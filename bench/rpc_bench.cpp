// The command path beside what it is made of, raw sockets that carry as many bytes, and beside
// other ways of calling a process.
//
//   rpc_bench [two-way|one-way|at-once|clients|growth|create]   all without an argument
//
// It runs itself as the processes at the other ends:
//
//   rpc_bench serve NAME ADDRESS PROCESSOR
//   rpc_bench call NAME ADDRESS PROCESSOR    reads how many calls to make, a line each time
#include <sys/resource.h>

#include <array>
#include <cstring>
#include <iostream>
#include <stdexcept>
#include <string_view>

#include "child_process.h"
#include "measure.h"
#include "peers/peer.h"
#include "private_bus.h"
#include "table.h"
#include "temporary_directory.h"

using kavrel_bench::Caller;
using kavrel_bench::Clock;
using kavrel_bench::KeptAwake;
using kavrel_bench::Kind;
using kavrel_bench::MicrosecondsSince;
using kavrel_bench::Peer;
using kavrel_bench::Peers;
using kavrel_bench::PinTo;
using kavrel_bench::ProcessorMicroseconds;
using kavrel_bench::Row;
using kavrel_bench::Samples;
using kavrel_test::ChildProcess;

namespace {

constexpr int kRounds = 7;
constexpr int kAnyProcessor = -1;

// --- Processes at the other ends

std::unique_ptr<ChildProcess> RunSelf(const char* role, const Peer& peer,
                                      const std::string& address, int cpu) {
  auto process = std::make_unique<ChildProcess>(kavrel_test::ChildOptions{
      .arguments = {"/proc/self/exe", role, peer.name, address, std::to_string(cpu)}});
  if (!process->WaitForLine("ready")) {
    throw std::runtime_error(std::string(peer.name) + ": " + process->errors());
  }
  return process;
}

void SayReady() {
  std::cout << "ready" << std::endl;
}

void PinUnlessAny(int cpu) {
  if (cpu != kAnyProcessor) PinTo(cpu);
}

int ServeAs(const Peer& peer, const std::string& address, int cpu) {
  PinUnlessAny(cpu);
  peer.serve(address, SayReady);
  return 0;
}

/// One of many clients: makes as many one-way calls as it is told to, and says what they took.
int CallAs(const Peer& peer, const std::string& address, int cpu) {
  PinUnlessAny(cpu);
  const std::unique_ptr<Caller> caller = peer.connect(address);
  SayReady();
  for (int count = 0; std::cin >> count;) {
    const double before = ProcessorMicroseconds();
    for (int i = 0; i < count; ++i) caller->OneWay(i);
    caller->Settle();
    std::cout << "done " << ProcessorMicroseconds() - before << std::endl;
  }
  return 0;
}

/// A way of calling with its service running. What fails is said in the table.
class Service {
 public:
  Service(const Peer& peer, const std::string& address, int cpu, pid_t daemon)
      : peer_(peer), address_(address) {
    if (peer.missing != nullptr) {
      missing_ = peer.missing;
      return;
    }
    try {
      process_ = RunSelf("serve", peer, address, cpu);
      others_.push_back(process_->pid());
      if (peer.on_bus) others_.push_back(daemon);
    } catch (const std::exception& error) {
      missing_ = error.what();
    }
  }

  const Peer& peer() const { return peer_; }
  const std::string& address() const { return address_; }
  /// Processes beside the caller's that work for a call.
  const std::vector<pid_t>& others() const { return others_; }

  void Connect(std::size_t clients) {
    while (missing_.empty() && callers_.size() < clients) {
      try {
        callers_.push_back(peer_.connect(address_));
      } catch (const std::exception& error) {
        missing_ = error.what();
      }
    }
  }
  void Disconnect() { callers_.clear(); }
  Caller& caller() { return *callers_[callers_.size() / 2]; }

  /// A row of it that `measure` measures.
  Row MakeRow(std::function<void(Row&)> measure) const {
    Row row{peer_.name, std::move(measure), peer_.kind};
    row.missing = missing_;
    return row;
  }

 private:
  const Peer& peer_;
  std::string address_;
  std::string missing_;
  std::unique_ptr<ChildProcess> process_;
  std::vector<pid_t> others_;
  std::vector<std::unique_ptr<Caller>> callers_;
};

/// All ways of calling, or some, with their services on one processor. In a directory of its own.
class Services {
 public:
  Services(kavrel_test::PrivateBus& bus, int cpu, const std::function<bool(const Peer&)>& wanted)
      : cpu_(cpu) {
    if (cpu != kAnyProcessor) PinTo(cpu, bus.pid());
    for (const Peer& peer : Peers()) {
      if (!wanted(peer)) continue;
      const std::string address =
          directory_.Path(std::string("s").append(std::to_string(all_.size())));
      all_.push_back(std::make_unique<Service>(peer, address, cpu, bus.pid()));
    }
  }

  std::vector<std::unique_ptr<Service>>& all() { return all_; }
  int cpu() const { return cpu_; }
  void Connect(std::size_t clients) {
    for (const auto& service : all_) service->Connect(clients);
  }

 private:
  kavrel_test::TemporaryDirectory directory_;
  int cpu_;
  std::vector<std::unique_ptr<Service>> all_;
};

// Packets cannot be read many at a time: streams are the limit of what is not answered.
bool IsNoPacket(const Peer& peer) {
  return std::string_view(peer.name) != Peers().front().name;
}
bool IsNoStream(const Peer& peer) {
  return std::string_view(peer.name) != kavrel_bench::RawStreamPeer().name;
}
bool TakesThousandClients(const Peer& peer) {
  return peer.kind != Kind::kPeer || peer.messages >= 10'000;
}

// --- Measurements

void MeasureCalls(Row& row, Service& service) {
  Caller& caller = service.caller();
  const int calls = Samples(service.peer().messages / 4);
  std::vector<double> samples;
  samples.reserve(static_cast<std::size_t>(calls));
  for (int i = 0; i < calls / 20; ++i) caller.TwoWay();
  const double processor = ProcessorMicroseconds(service.others());
  for (int i = 0; i < calls; ++i) {
    const auto start = Clock::now();
    caller.TwoWay();
    samples.push_back(MicrosecondsSince(start));
  }
  row.processor.push_back((ProcessorMicroseconds(service.others()) - processor) / calls);
  kavrel_bench::AddSamples(row, samples);
}

void MeasureOneWay(Row& row, Service& service) {
  Caller& caller = service.caller();
  const int messages = Samples(service.peer().messages);
  const double processor = ProcessorMicroseconds(service.others());
  const auto start = Clock::now();
  for (int i = 0; i < messages; ++i) caller.OneWay(i);
  caller.Settle();  // the rate counts what has been served
  row.p50.push_back(messages / MicrosecondsSince(start) * 1e6);
  row.processor.push_back((ProcessorMicroseconds(service.others()) - processor) / messages);
}

std::vector<Row> RowsOf(Services& services, void (*measure)(Row&, Service&)) {
  std::vector<Row> rows;
  for (const auto& service : services.all()) {
    rows.push_back(
        service->MakeRow([measure, &service = *service](Row& row) { measure(row, service); }));
  }
  return rows;
}

using RunTable = void (*)(const std::string& title, std::vector<Row> rows, int rounds);

/// The same with both processes on one core, and with two that are kept awake.
void OnOneCoreAndOnTwo(kavrel_test::PrivateBus& bus, bool (*wanted)(const Peer&), RunTable run,
                       void (*measure)(Row&, Service&), const std::array<const char*, 2>& titles) {
  PinTo(0);
  {
    Services services(bus, 0, wanted);
    services.Connect(1);
    run(titles[0], RowsOf(services, measure), kRounds);
  }
  const KeptAwake awake(2);
  Services services(bus, 1, wanted);
  services.Connect(1);
  run(titles[1], RowsOf(services, measure), kRounds);
}

void TwoWay(kavrel_test::PrivateBus& bus) {
  OnOneCoreAndOnTwo(
      bus, IsNoStream, kavrel_bench::RunLatencyTable, MeasureCalls,
      {"Two-way call, both processes on one core", "Two-way call, two cores kept awake"});
}

void OneWay(kavrel_test::PrivateBus& bus) {
  OnOneCoreAndOnTwo(bus, IsNoPacket, kavrel_bench::RunRateTable, MeasureOneWay,
                    {"One-way calls (int and two 16-byte strings), one core",
                     "One-way calls, two cores kept awake"});
}

/// Clients of one service, a process each.
class Crowd {
 public:
  static constexpr int kClients = 8;

  explicit Crowd(const Service& service) : service_(service) {
    for (int i = 0; i < kClients; ++i) {
      clients_.push_back(RunSelf("call", service.peer(), service.address(), kAnyProcessor));
    }
  }

  void Measure(Row& row) {
    const int each = Samples(service_.peer().messages) / 4;
    double processor = -OfOthers();
    const auto start = Clock::now();
    for (const auto& client : clients_) client->WriteInput(std::to_string(each) + '\n');
    for (const auto& client : clients_) {
      const auto line = client->WaitForLine("done ");
      if (!line) throw std::runtime_error("a client did not end: " + client->errors());
      processor += std::stod(line->substr(std::strlen("done ")));
    }
    row.p50.push_back(kClients * each / MicrosecondsSince(start) * 1e6);
    row.processor.push_back((processor + OfOthers()) / (kClients * each));
  }

 private:
  double OfOthers() const {
    double sum = 0;
    for (const pid_t pid : service_.others()) sum += ProcessorMicroseconds(pid);
    return sum;
  }

  const Service& service_;
  std::vector<std::unique_ptr<ChildProcess>> clients_;
};

void AtOnce(kavrel_test::PrivateBus& bus) {
  Services services(bus, kAnyProcessor, IsNoPacket);
  std::vector<std::unique_ptr<Crowd>> crowds;
  std::vector<Row> rows;
  for (const auto& service : services.all()) {
    rows.push_back(service->MakeRow({}));
    if (!rows.back().missing.empty()) continue;
    crowds.push_back(std::make_unique<Crowd>(*service));
    rows.back().measure = [&crowd = *crowds.back()](Row& row) { crowd.Measure(row); };
  }
  kavrel_bench::RunRateTable("One-way calls of 8 clients at once, all cores", rows, kRounds);
}

void Clients(kavrel_test::PrivateBus& bus) {
  PinTo(0);
  Services services(bus, 0, IsNoStream);
  services.Connect(200);
  kavrel_bench::RunLatencyTable("Two-way call beside 200 connected clients, one core",
                                RowsOf(services, MeasureCalls), kRounds);
}

void Growth(kavrel_test::PrivateBus& bus) {
  PinTo(0);
  Services services(
      bus, 0, [](const Peer& peer) { return IsNoStream(peer) && TakesThousandClients(peer); });
  for (const int clients : {1, 10, 100, 1000}) {
    services.Connect(static_cast<std::size_t>(clients));
    std::vector<Row> rows = RowsOf(services, MeasureCalls);
    for (Row& row : rows) row.size = clients;
    kavrel_bench::RunLatencyTable("Growth: a two-way call with so many connected clients", rows,
                                  kRounds);
  }
}

// A field of /proc/<pid>/status, such as VmRSS in kB.
long StatusField(pid_t pid, const std::string& field) {
  const std::string status = kavrel_test::ReadFile("/proc/" + std::to_string(pid) + "/status");
  const std::size_t at = status.find('\n' + field);
  return at == std::string::npos ? -1 : std::stol(status.c_str() + at + 1 + field.size());
}

bool IsOurs(const Peer& peer) {
  return peer.kind == Kind::kOurs;
}

void IdleClients(kavrel_test::PrivateBus& bus) {
  constexpr int kClients = 200;
  Services services(bus, 0, IsOurs);
  const pid_t viewer = services.all().front()->others().front();
  const long before = StatusField(viewer, "VmRSS:");
  services.Connect(kClients);
  services.all().front()->caller().TwoWay();
  const long memory = StatusField(viewer, "VmRSS:") - before;
  const long switches = StatusField(viewer, "voluntary_ctxt_switches:");
  const double busy = ProcessorMicroseconds(viewer);
  sleep(static_cast<unsigned>(Samples(4)));
  std::printf("\n%d connected clients, idle for %d s\n", kClients, Samples(4));
  std::printf("%-44s %10ld\n", "threads of the viewer", StatusField(viewer, "Threads:"));
  std::printf("%-44s %10.1f\n", "resident kB a client", static_cast<double>(memory) / kClients);
  std::printf("%-44s %10ld\n", "wake-ups of the main thread",
              StatusField(viewer, "voluntary_ctxt_switches:") - switches);
  std::printf("%-44s %10.3f\n", "processor ms", (ProcessorMicroseconds(viewer) - busy) / 1e3);
}

void Create(kavrel_test::PrivateBus& bus) {
  PinTo(0);
  Services services(bus, 0, IsNoStream);
  const auto connect = [](Row& row, Service& service) {
    std::vector<double> samples;
    for (int i = 0; i < Samples(service.peer().messages / 100); ++i) {
      const auto start = Clock::now();
      service.Connect(1);
      service.caller().TwoWay();
      samples.push_back(MicrosecondsSince(start));
      service.Disconnect();
    }
    kavrel_bench::AddSamples(row, samples);
  };
  kavrel_bench::RunLatencyTable("From connecting to the first answer, one core",
                                RowsOf(services, connect), kRounds);
}

// A thousand clients of several services in one process.
void AllowManyFiles() {
  rlimit limit{};
  getrlimit(RLIMIT_NOFILE, &limit);
  limit.rlim_cur = limit.rlim_max;
  setrlimit(RLIMIT_NOFILE, &limit);
}

void Run(std::string_view only) {
  const kavrel_test::TemporaryDirectory directory;
  setenv("KAVREL_RUNTIME_DIR", directory.path().c_str(), 1);
  kavrel_test::PrivateBus bus({.configuration =
                                   "  <limit name=\"max_connections_per_user\">4096</limit>\n"
                                   "  <limit name=\"max_completed_connections\">4096</limit>\n"});
  const std::pair<std::string_view, void (*)(kavrel_test::PrivateBus&)> parts[] = {
      {"at-once", AtOnce},      {"two-way", TwoWay},  {"one-way", OneWay}, {"create", Create},
      {"clients", IdleClients}, {"clients", Clients}, {"growth", Growth}};
  for (const auto& [name, run] : parts) {
    if (only.empty() || only == name) run(bus);
  }
}

}  // namespace

int main(int argc, char** argv) {
  const std::string_view role = argc > 1 ? argv[1] : "";
  setenv("KAVREL_LOG", "none", 1);
  try {
    AllowManyFiles();
    if (role == "serve" && argc == 5) {
      return ServeAs(kavrel_bench::PeerOf(argv[2]), argv[3], std::stoi(argv[4]));
    }
    if (role == "call" && argc == 5) {
      return CallAs(kavrel_bench::PeerOf(argv[2]), argv[3], std::stoi(argv[4]));
    }
    Run(role);
  } catch (const std::exception& error) {
    (void)std::fprintf(stderr, "rpc_bench: %s\n", error.what());
    return 1;
  }
  return 0;
}
