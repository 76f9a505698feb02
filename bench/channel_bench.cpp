// The channel between host and plug-in beside bare GDBus on the same bus: what a message costs, how
// many can be sent, how long two ends take to find each other, what a record allocates.
//
// Finding each other has two references: what a handshake cannot do without, called one after the
// other in one process; and all its steps in bare GDBus between two processes, with their match
// rules and wake-ups.
//
// sd-bus, a leaner client of the same bus, is measured for information: the difference to bare
// GDBus is what GDBus spends on handing each message between its thread and the caller's.
#include <gio/gio.h>
#include <unistd.h>

#include <array>
#include <cstdlib>
#include <memory>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include "allocations.h"
#include "bare_bus.h"
#include "bare_handshake.h"
#include "legacy/HostDbus.h"
#include "legacy/MessageCodec.h"
#include "legacy/PluginDbus.h"
#include "measure.h"
#include "private_bus.h"
#include "sd_bus_handshake.h"
#include "shared.h"
#include "table.h"

namespace {

namespace glib = kavrel::glib;
using kavrel_bench::AllocatedBytes;
using kavrel_bench::Allocations;
using kavrel_bench::AskBus;
using kavrel_bench::BareEnd;
using kavrel_bench::Child;
using kavrel_bench::Clock;
using kavrel_bench::GDBusCaller;
using kavrel_bench::Kind;
using kavrel_bench::MakeBody;
using kavrel_bench::MicrosecondsSince;
using kavrel_bench::Pairs;
using kavrel_bench::ProcessorMicroseconds;
using kavrel_bench::Row;
using kavrel_bench::Samples;
using kavrel_bench::SdBusCaller;
using kavrel_bench::SdBusEnd;
using kavrel_bench::Signal;
using kavreldbus::CBaseDbus;
using kavreldbus::CHostDbus;
using kavreldbus::CPluginDbus;
using kavreldbus::MessageCodec;

constexpr const char* kHost = "kavrel";
constexpr const char* kPlugin = "bench";
constexpr const char* kInterface = "org.zarnet.kavrel.DbusCommunication";
constexpr const char* kGDBusName = "org.zarnet.bare";
constexpr const char* kSdBusName = "org.zarnet.sdbus";
constexpr int kRounds = 11;
constexpr int kCalls = 200;
constexpr int kBurst = 2000;
constexpr int kHandshakes = 10;

const Pairs kPairs = {
    {"key", "KEY_VOLUMEUP"}, {"type", "pressed"}, {"device", "IR"}, {"time", "1234567890123"}};

CMessage FourPairs() {
  CMessage message;
  for (const auto& [key, value] : kPairs) message.AddValue(key, value);
  return message;
}

void RunLoop() {
  g_main_loop_run(g_main_loop_new(nullptr, FALSE));
}

template <class Done>
void IterateUntil(const Done& done) {
  while (!done()) g_main_context_iteration(nullptr, TRUE);
}

// ---- Who answers

void ServeChannel(const Signal& ready) {
  CPluginDbus end(kHost, kPlugin);
  end.SetPluginDubsMsgCB([](CMessage&) { return true; });
  ready.Tell();
  RunLoop();
}

// ---- Who calls

class ChannelCaller {
 public:
  ChannelCaller() {
    IterateUntil([this] { return end_.IsConnectionReady(); });
  }

  void Call(const Pairs& /*pairs*/) {
    CMessage message = FourPairs();
    if (!end_.SendMessage(message, 0)) throw std::runtime_error("the channel's call failed");
  }
  void Send(const Pairs& /*pairs*/) {
    CMessage message = FourPairs();
    end_.SendMessage(message, 1);
  }

 private:
  CHostDbus end_{kHost, kPlugin};
};

template <class Caller>
Row LatencyRow(const char* name, Kind kind, Caller& caller, const std::vector<pid_t>& processes) {
  return {
      name,
      [&caller, processes](Row& row) {
        std::vector<double> samples;
        const double processor = ProcessorMicroseconds(processes);
        for (int i = 0; i < Samples(kCalls); ++i) {
          const auto start = Clock::now();
          caller.Call(kPairs);
          samples.push_back(MicrosecondsSince(start));
        }
        row.processor.push_back((ProcessorMicroseconds(processes) - processor) / Samples(kCalls));
        kavrel_bench::AddSamples(row, samples);
      },
      kind};
}

// Until the last one has been handled: a call behind them is answered.
template <class Caller>
Row RateRow(const char* name, Kind kind, Caller& caller, const std::vector<pid_t>& processes) {
  return {name,
          [&caller, processes](Row& row) {
            const double processor = ProcessorMicroseconds(processes);
            const auto start = Clock::now();
            for (int i = 0; i < kBurst; ++i) caller.Send(kPairs);
            caller.Call(kPairs);
            row.p50.push_back(kBurst / MicrosecondsSince(start) * 1e6);
            row.processor.push_back((ProcessorMicroseconds(processes) - processor) / kBurst);
          },
          kind};
}

// ---- Handshake

std::string PairName(int number) {
  return std::string("p").append(std::to_string(number));
}

void AwaitReady(const BareEnd& end) {
  IterateUntil([&end] { return end.ready(); });
}
void AwaitReady(const CBaseDbus& end) {
  IterateUntil([&end] { return end.IsConnectionReady(); });
}
void AwaitReady(const SdBusEnd& end) {
  while (!end.ready()) end.Process();
}

/// The bus as ends by sd-bus share it in a process.
sd_bus* SharedSdBus() {
  static sd_bus* const bus = [] {
    sd_bus* opened = nullptr;
    if (sd_bus_open_system(&opened) < 0) throw std::runtime_error("no bus for sd-bus");
    return opened;
  }();
  return bus;
}

std::unique_ptr<BareEnd> MakeBareEnd(const std::string& pair) {
  return std::make_unique<BareEnd>(pair);
}
std::unique_ptr<SdBusEnd> MakeSdBusEnd(const std::string& pair) {
  return std::make_unique<SdBusEnd>(SharedSdBus(), pair);
}
std::unique_ptr<CPluginDbus> MakePluginEnd(const std::string& pair) {
  return std::make_unique<CPluginDbus>(kHost, pair);
}
std::unique_ptr<CHostDbus> MakeHostEnd(const std::string& pair) {
  return std::make_unique<CHostDbus>(kHost, pair);
}

template <class End>
using MakeEnd = std::unique_ptr<End> (*)(const std::string& pair);

/// The first ends of pairs, made and forgotten one by one in a process that tells when each is
/// ready. Nothing of an earlier pair is left when the next one is made.
template <class End>
struct FirstEnds {
  explicit FirstEnds(MakeEnd<End> function) : make(function) {}

  MakeEnd<End> make;
  Signal wanted;
  Signal made;
  Signal ready;
  Child process{[this] { Serve(); }};

  void Serve() const {
    for (int pair = 0;; ++pair) {
      wanted.Wait();
      const std::unique_ptr<End> end = make(PairName(pair));
      made.Tell();
      AwaitReady(*end);
      ready.Tell();
      wanted.Wait();
    }
  }
};

/// `make` makes the second end of a pair.
template <class First, class Second>
Row HandshakeRow(const char* name, Kind kind, const FirstEnds<First>& first, MakeEnd<Second> make) {
  return {name,
          [&first, make, pair = 0](Row& row) mutable {
            std::vector<double> samples;
            for (int i = 0; i < kHandshakes; ++i) {
              first.wanted.Tell();
              first.made.Wait();
              const auto start = Clock::now();
              const std::unique_ptr<Second> end = make(PairName(pair++));
              AwaitReady(*end);
              first.ready.Wait();
              samples.push_back(MicrosecondsSince(start));
              first.wanted.Tell();
            }
            kavrel_bench::AddSamples(row, samples);
          },
          kind};
}

void DoBareSteps(GDBusConnection* connection) {
  for (const char* name : {"org.zarnet.x._SYN", "org.zarnet.x._SYN_ACK", "org.zarnet.x._ACK"}) {
    AskBus(connection, "RequestName", g_variant_new("(su)", name, 4U));
    AskBus(connection, "ReleaseName", g_variant_new("(s)", name));
  }
  for (int i = 0; i < 2; ++i) {
    glib::Error error;
    glib::MakeProxy(connection, ":1.0", "/bare", kInterface, error);
  }
}

// What a handshake cannot do without, one after the other in one process.
Row BareHandshakeRow(const GDBusCaller& caller) {
  return {"3 x RequestName, ReleaseName and 2 proxies",
          [&caller](Row& row) {
            std::vector<double> samples;
            for (int i = 0; i < kHandshakes; ++i) {
              const auto start = Clock::now();
              DoBareSteps(caller.connection());
              samples.push_back(MicrosecondsSince(start));
            }
            kavrel_bench::AddSamples(row, samples);
          },
          Kind::kLimit};
}

// ---- Records

template <class Work>
void PrintRecordRow(const char* name, int times, const Work& work) {
  work();  // what is made once is made now
  const long count_before = Allocations();
  const long bytes_before = AllocatedBytes();
  const auto start = Clock::now();
  for (int i = 0; i < times; ++i) work();
  const double us = MicrosecondsSince(start);
  std::printf("%-44s %10.2f %12.1f %14.0f\n", name, us / times,
              static_cast<double>(Allocations() - count_before) / times,
              static_cast<double>(AllocatedBytes() - bytes_before) / times);
}

void PrintRecords() {
  std::printf("\nRecords\n%-44s %10s %12s %14s\n", "", "us", "allocations", "bytes");
  std::string problem;
  const CMessage small = FourPairs();
  const glib::Variant small_body = MessageCodec::Encode(small, problem);
  PrintRecordRow("encode, 4 pairs, bare GVariant", 20000, [] { glib::Sink(MakeBody(kPairs)); });
  PrintRecordRow("encode, 4 pairs", 20000, [&] { MessageCodec::Encode(small, problem); });
  PrintRecordRow("decode, 4 pairs", 20000, [&] {
    CMessage message;
    MessageCodec::Decode(small_body.get(), message, problem);
  });
  CMessage large;
  large.AddValue("value", std::string(std::size_t{1024} * 1024, 'x').c_str());
  const glib::Variant large_body = MessageCodec::Encode(large, problem);
  PrintRecordRow("encode, one value of 1 MiB", 50, [&] { MessageCodec::Encode(large, problem); });
  PrintRecordRow("decode, one value of 1 MiB", 50, [&] {
    CMessage message;
    MessageCodec::Decode(large_body.get(), message, problem);
  });
}

/// The processes at the other ends, made before this one has a second thread.
struct Processes {
  Signal bare_ready;
  Signal channel_ready;
  Signal sd_bus_ready;
  FirstEnds<BareEnd> bare_ends{&MakeBareEnd};
  FirstEnds<CPluginDbus> plugin_ends{&MakePluginEnd};
  FirstEnds<SdBusEnd> sd_bus_ends{&MakeSdBusEnd};
  Child bare{[this] {
    kavrel_bench::ServeWithGDBus(
        kGDBusName, [this] { bare_ready.Tell(); }, [] {});
  }};
  Child channel{[this] { ServeChannel(channel_ready); }};
  Child sd_bus{[this] {
    kavrel_bench::ServeWithSdBus(
        kSdBusName, [this] { sd_bus_ready.Tell(); }, [] {});
  }};

  void Await() const {
    bare_ready.Wait();
    channel_ready.Wait();
    sd_bus_ready.Wait();
  }
};

void PrintMessages(const Processes& others, pid_t daemon, const GDBusCaller& gdbus_caller) {
  ChannelCaller channel_caller;
  const SdBusCaller sd_bus_caller(kSdBusName);
  const auto rows = [&](auto make_row, const char* ours) -> std::vector<Row> {
    return {make_row("bare GDBus proxy call", Kind::kLimit, gdbus_caller,
                     std::vector{others.bare.pid(), daemon}),
            make_row(ours, Kind::kOurs, channel_caller, std::vector{others.channel.pid(), daemon}),
            make_row("sd-bus call", Kind::kPeer, sd_bus_caller,
                     std::vector{others.sd_bus.pid(), daemon})};
  };
  kavrel_bench::RunLatencyTable(
      "A message of 4 pairs that waits for its answer",
      rows([](auto&&... values) { return LatencyRow(values...); }, "SendMessage, waiting"),
      kRounds);
  kavrel_bench::RunRateTable(
      "Messages of 4 pairs that do not wait",
      rows([](auto&&... values) { return RateRow(values...); }, "SendMessage, not waiting"),
      kRounds);
}

void PrintHandshakes(const Processes& others, const GDBusCaller& gdbus_caller) {
  kavrel_bench::RunLatencyTable("Two ends find each other",
                                {HandshakeRow("all steps, bare GDBus, between two processes",
                                              Kind::kLimit, others.bare_ends, &MakeBareEnd),
                                 HandshakeRow("second end's constructor to both ready", Kind::kOurs,
                                              others.plugin_ends, &MakeHostEnd),
                                 HandshakeRow("all steps, sd-bus, between two processes",
                                              Kind::kPeer, others.sd_bus_ends, &MakeSdBusEnd),
                                 BareHandshakeRow(gdbus_caller)},
                                kRounds);
}

}  // namespace

int main() {
  setenv("KAVREL_LOG_LEVEL", "error", 1);
  // Everything on one core, the bus daemon too: what is measured is work, not where it is done.
  kavrel_bench::PinTo(0);
  const kavrel_test::PrivateBus bus;
  const Processes others;
  others.Await();
  {
    const GDBusCaller gdbus_caller(kGDBusName);
    PrintMessages(others, bus.pid(), gdbus_caller);
    PrintHandshakes(others, gdbus_caller);
  }
  PrintRecords();
}
