// The command path beside what it is made of and what else a program might use: a raw socket that
// carries the same number of bytes, and a peer-to-peer call of sd-bus.
//
//   rpc_bench [two-way|one-way|create|clients|start]   all without an argument
#include <glib.h>
#include <kavrel/app_api.h>
#include <poll.h>
#include <spawn.h>
#include <sys/socket.h>

#include <array>
#include <cstring>
#include <filesystem>
#include <memory>
#include <optional>
#include <string_view>
#include <systemd/sd-bus.h>

#include "measure.h"
#include "null_service.h"
#include "temporary_directory.h"

using kavrel_bench::Child;
using kavrel_bench::Clock;
using kavrel_bench::MicrosecondsSince;
using kavrel_bench::PinTo;
using kavrel_bench::Row;

namespace {

constexpr int kRounds = 7;
constexpr int kCallsARound = 10000;
constexpr int kMessagesARound = 200000;
// What GetWindowSize's request and result, and the one-way command below, take on the wire.
constexpr std::size_t kRequestBytes = 21;
constexpr std::size_t kResultBytes = 28;
constexpr std::size_t kOneWayBytes = 70;

const char* const kViewer = "org.zarnet.kavrel.bench";

// --- Processes at the other end

class Service final : public kavrel_test::NullService {
 public:
  using NullService::NullService;
  bool GetWindowSize(int& out1) override {
    out1 = 2;
    return true;
  }
};

class Factory final : public Service::Factory {
 public:
  std::unique_ptr<Service::ServiceBase> MakeService(std::string sender,
                                                    std::string instance) override {
    return std::make_unique<Service>(std::move(sender), std::move(instance));
  }
};

/// A viewer in a process of its own, listening when the object is there.
class Viewer {
 public:
  explicit Viewer(int cpu) : ready_(MakePipe()), child_([this, cpu] { Serve(cpu); }) {
    char byte = 0;
    if (read(ready_[0], &byte, 1) != 1) std::exit(1);
  }
  ~Viewer() {
    close(ready_[0]);
    close(ready_[1]);
  }
  pid_t pid() const { return child_.pid(); }

 private:
  static std::array<int, 2> MakePipe() {
    std::array<int, 2> fds{};
    if (pipe(fds.data()) != 0) std::exit(1);
    return fds;
  }

  void Serve(int cpu) const {
    PinTo(cpu);
    setenv("KAVREL_APP_ID", kViewer, 1);
    rpc_port::KavrelAppApiStub::stub::KavrelAppApi stub;
    stub.Listen(std::make_shared<Factory>());
    if (write(ready_[1], "", 1) != 1) return;
    g_main_loop_run(g_main_loop_new(nullptr, FALSE));
  }

  std::array<int, 2> ready_;
  Child child_;
};

/// A connected pair of stream sockets with a process at the far end.
class SocketPeer {
 public:
  SocketPeer(int cpu, const std::function<void(int)>& serve)
      : fds_(MakePair()), child_([&] {
          PinTo(cpu);
          serve(fds_[1]);
        }) {
    close(fds_[1]);
  }
  ~SocketPeer() { close(fds_[0]); }
  int fd() const { return fds_[0]; }

 private:
  static std::array<int, 2> MakePair() {
    std::array<int, 2> fds{};
    if (socketpair(AF_UNIX, SOCK_STREAM, 0, fds.data()) != 0) std::exit(1);
    return fds;
  }

  std::array<int, 2> fds_;
  Child child_;
};

void Echo(int fd) {
  std::array<char, 4096> buffer{};
  while (read(fd, buffer.data(), buffer.size()) > 0) {
    if (write(fd, buffer.data(), kResultBytes) < 0) return;
  }
}

void PollAndRead(int fd) {
  std::array<char, 65536> buffer{};
  pollfd waited{fd, POLLIN, 0};
  while (poll(&waited, 1, -1) > 0 && read(fd, buffer.data(), buffer.size()) > 0) {
  }
}

int OnGetWindowSize(sd_bus_message* message, void* /*data*/, sd_bus_error* /*error*/) {
  return sd_bus_reply_method_return(message, "ib", 2, 1);
}

int OnShow(sd_bus_message* /*message*/, void* /*data*/, sd_bus_error* /*error*/) {
  return 1;
}

const sd_bus_vtable kBusVtable[] = {
    SD_BUS_VTABLE_START(0),
    SD_BUS_METHOD("GetWindowSize", "", "ib", &OnGetWindowSize, SD_BUS_VTABLE_UNPRIVILEGED),
    SD_BUS_METHOD("Show", "iss", "", &OnShow, SD_BUS_VTABLE_UNPRIVILEGED), SD_BUS_VTABLE_END};

void ServeBus(int fd) {
  sd_bus* bus = nullptr;
  sd_id128_t id{};
  sd_id128_randomize(&id);
  sd_bus_new(&bus);
  sd_bus_set_fd(bus, fd, fd);
  sd_bus_set_server(bus, 1, id);
  sd_bus_start(bus);
  sd_bus_add_object_vtable(bus, nullptr, "/viewer", "org.zarnet.Bench", kBusVtable, nullptr);
  while (true) {
    const int result = sd_bus_process(bus, nullptr);
    if (result < 0) return;
    if (result == 0) sd_bus_wait(bus, UINT64_MAX);
  }
}

class BusClient {
 public:
  explicit BusClient(int fd) {
    sd_bus_new(&bus_);
    sd_bus_set_fd(bus_, dup(fd), dup(fd));
    sd_bus_start(bus_);
  }
  ~BusClient() { sd_bus_unref(bus_); }

  void GetWindowSize() {
    sd_bus_message* reply = nullptr;
    if (sd_bus_call_method(bus_, nullptr, "/viewer", "org.zarnet.Bench", "GetWindowSize", nullptr,
                           &reply, "") < 0) {
      std::exit(1);
    }
    int size = 0;
    int result = 0;
    sd_bus_message_read(reply, "ib", &size, &result);
    sd_bus_message_unref(reply);
  }

 private:
  sd_bus* bus_ = nullptr;
};

class Handle {
 public:
  Handle() : handle_(kavrel_api_create(kViewer)) {
    if (handle_ == nullptr) {
      std::fprintf(stderr, "rpc_bench: the viewer does not answer\n");
      std::exit(1);
    }
  }
  Handle(const Handle&) = delete;
  Handle& operator=(const Handle&) = delete;
  ~Handle() { kavrel_api_destroy(handle_); }

  int WindowSize() const {
    int size = -1;
    if (!kavrel_api_get_window_size(handle_, size)) std::exit(1);
    return size;
  }
  kavrel_api_h get() const { return handle_; }

 private:
  kavrel_api_h handle_;
};

// --- Measurements

template <class F>
void MeasureCalls(Row& row, const F& call) {
  std::vector<double> samples;
  samples.reserve(kCallsARound);
  for (int i = 0; i < 200; ++i) call();
  for (int i = 0; i < kCallsARound; ++i) {
    const auto start = Clock::now();
    call();
    samples.push_back(MicrosecondsSince(start));
  }
  kavrel_bench::AddSamples(row, samples);
}

void RawCall(int fd) {
  std::array<char, kResultBytes> buffer{};
  if (write(fd, buffer.data(), kRequestBytes) < 0) std::exit(1);
  std::size_t got = 0;
  while (got < kResultBytes) {
    const ssize_t n = read(fd, buffer.data(), buffer.size() - got);
    if (n <= 0) std::exit(1);
    got += static_cast<std::size_t>(n);
  }
}

void TwoWay(int peer_cpu, const char* title) {
  PinTo(0);
  const Viewer viewer(peer_cpu);
  const Handle handle;
  const SocketPeer raw(peer_cpu, &Echo);
  const SocketPeer bus_peer(peer_cpu, &ServeBus);
  BusClient bus(bus_peer.fd());
  kavrel_bench::RunLatencyTable(
      title,
      {{"raw stream socket, same bytes",
        [&](Row& row) { MeasureCalls(row, [&] { RawCall(raw.fd()); }); },
        {},
        {}},
       {"kavrel_api_get_window_size",
        [&](Row& row) { MeasureCalls(row, [&] { handle.WindowSize(); }); },
        {},
        {}},
       {"sd-bus, peer to peer",
        [&](Row& row) { MeasureCalls(row, [&] { bus.GetWindowSize(); }); },
        {},
        {}}},
      kRounds);
}

template <class F>
void MeasureRate(Row& row, int messages, const F& send_all) {
  const auto start = Clock::now();
  send_all(messages);
  row.p50.push_back(messages / MicrosecondsSince(start) * 1e6);
}

void OneWay(int peer_cpu, const char* title) {
  PinTo(0);
  const Viewer viewer(peer_cpu);
  const Handle handle;
  const SocketPeer raw(peer_cpu, &PollAndRead);
  const std::string text = "0123456789abcdef";
  std::array<char, kOneWayBytes> frame{};
  kavrel_bench::RunRateTable(
      title,
      {{"raw writes, polling reader, same bytes",
        [&](Row& row) {
          MeasureRate(row, kMessagesARound, [&](int count) {
            for (int i = 0; i < count; ++i) {
              if (write(raw.fd(), frame.data(), frame.size()) < 0) std::exit(1);
            }
          });
        },
        {},
        {}},
       {"kavrel_api_show_rating_banner",
        [&](Row& row) {
          MeasureRate(row, kMessagesARound, [&](int count) {
            for (int i = 0; i < count; ++i) {
              kavrel_api_show_rating_banner(handle.get(), i, text, text);
            }
            handle.WindowSize();  // the rate counts what the viewer has served
          });
        },
        {},
        {}}},
      kRounds);
}

// A field of /proc/<pid>/status, such as VmRSS in kB.
long StatusField(pid_t pid, const char* field) {
  std::FILE* file = std::fopen(("/proc/" + std::to_string(pid) + "/status").c_str(), "re");
  if (file == nullptr) return -1;
  std::array<char, 256> line{};
  long value = -1;
  while (std::fgets(line.data(), line.size(), file) != nullptr) {
    if (std::strncmp(line.data(), field, std::strlen(field)) == 0) {
      value = std::atol(line.data() + std::strlen(field) + 1);
    }
  }
  std::fclose(file);
  return value;
}

double ProcessorSeconds(pid_t pid) {
  clockid_t clock = 0;
  timespec time{};
  if (clock_getcpuclockid(pid, &clock) != 0 || clock_gettime(clock, &time) != 0) return -1;
  return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_nsec) / 1e9;
}

void Clients() {
  constexpr int kClients = 200;
  const Viewer viewer(0);
  const long before = StatusField(viewer.pid(), "VmRSS:");
  std::vector<std::unique_ptr<Handle>> handles;
  for (int i = 0; i < kClients; ++i) handles.push_back(std::make_unique<Handle>());
  handles.back()->WindowSize();
  const long memory = StatusField(viewer.pid(), "VmRSS:") - before;
  const long switches = StatusField(viewer.pid(), "voluntary_ctxt_switches:");
  const double busy = ProcessorSeconds(viewer.pid());
  sleep(5);
  std::printf("\n%d connected clients, idle for 5 s\n", kClients);
  std::printf("%-44s %10ld\n", "threads of the viewer", StatusField(viewer.pid(), "Threads:"));
  std::printf("%-44s %10.1f\n", "resident kB a client", static_cast<double>(memory) / kClients);
  std::printf("%-44s %10ld\n", "wake-ups of the main thread",
              StatusField(viewer.pid(), "voluntary_ctxt_switches:") - switches);
  std::printf("%-44s %10.3f\n", "processor ms", (ProcessorSeconds(viewer.pid()) - busy) * 1e3);
  PinTo(0);
  kavrel_bench::RunLatencyTable(
      "Two-way call beside 200 connected clients, one core",
      {{"kavrel_api_get_window_size",
        [&](Row& row) { MeasureCalls(row, [&] { handles[100]->WindowSize(); }); },
        {},
        {}}},
      kRounds);
}

void Create() {
  PinTo(0);
  const Viewer viewer(1);
  kavrel_bench::RunLatencyTable("From kavrel_api_create to the first answer, two cores",
                                {{"create, first answer",
                                  [&](Row& row) {
                                    std::vector<double> samples;
                                    for (int i = 0; i < 300; ++i) {
                                      const auto start = Clock::now();
                                      const Handle handle;
                                      handle.WindowSize();
                                      samples.push_back(MicrosecondsSince(start));
                                    }
                                    kavrel_bench::AddSamples(row, samples);
                                  },
                                  {},
                                  {}}},
                                kRounds);
}

void MeasureStart(Row& row, const std::string& program) {
  std::vector<double> samples;
  for (int i = 0; i < 50; ++i) {
    const auto start = Clock::now();
    pid_t pid = 0;
    std::array<char*, 2> arguments{const_cast<char*>(program.c_str()), nullptr};
    if (posix_spawn(&pid, program.c_str(), nullptr, nullptr, arguments.data(), environ) != 0) {
      std::perror(program.c_str());
      std::exit(1);
    }
    waitpid(pid, nullptr, 0);
    samples.push_back(MicrosecondsSince(start));
  }
  kavrel_bench::AddSamples(row, samples);
}

void Start(const std::string& directory) {
  kavrel_bench::RunLatencyTable(
      "Start to end of a program that does nothing",
      {{"linked with the C++ library alone",
        [&](Row& row) { MeasureStart(row, directory + "/start_nothing"); },
        {},
        {}},
       {"linked with libkavrel-api",
        [&](Row& row) { MeasureStart(row, directory + "/start_client"); },
        {},
        {}}},
      kRounds);
}

}  // namespace

int main(int argc, char** argv) {
  const std::string_view only = argc > 1 ? argv[1] : "";
  const kavrel_test::TemporaryDirectory directory;
  setenv("KAVREL_RUNTIME_DIR", directory.path().c_str(), 1);
  setenv("KAVREL_LOG", "none", 1);
  if (only.empty() || only == "two-way") {
    TwoWay(0, "Two-way call, both processes on one core");
    TwoWay(1, "Two-way call, two cores");
  }
  if (only.empty() || only == "one-way") {
    OneWay(0, "One-way calls (int and two 16-byte strings), one core");
    OneWay(1, "One-way calls, two cores");
  }
  if (only.empty() || only == "create") Create();
  if (only.empty() || only == "clients") Clients();
  if (only.empty() || only == "start") Start(std::filesystem::path(argv[0]).parent_path());
}
