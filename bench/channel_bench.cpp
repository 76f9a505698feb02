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
#include <atomic>
#include <cstdlib>
#include <memory>
#include <stdexcept>
#include <string>
#include <systemd/sd-bus.h>
#include <utility>
#include <vector>

#include "bare_handshake.h"
#include "legacy/HostDbus.h"
#include "legacy/MessageCodec.h"
#include "legacy/PluginDbus.h"
#include "measure.h"
#include "private_bus.h"

// Every allocation of the process passes here, GLib's too.
extern "C" void* __libc_malloc(std::size_t size);
extern "C" void* __libc_calloc(std::size_t count, std::size_t size);
extern "C" void* __libc_realloc(void* memory, std::size_t size);

namespace {
std::atomic<long> allocations = 0;
std::atomic<long> allocated_bytes = 0;

void Count(std::size_t size) {
  allocations.fetch_add(1, std::memory_order_relaxed);
  allocated_bytes.fetch_add(static_cast<long>(size), std::memory_order_relaxed);
}
}  // namespace

extern "C" void* malloc(std::size_t size) {
  Count(size);
  return __libc_malloc(size);
}
extern "C" void* calloc(std::size_t count, std::size_t size) {
  Count(count * size);
  return __libc_calloc(count, size);
}
extern "C" void* realloc(void* memory, std::size_t size) {
  Count(size);
  return __libc_realloc(memory, size);
}

namespace {

namespace glib = kavrel::glib;
using kavrel_bench::AskBus;
using kavrel_bench::BareEnd;
using kavrel_bench::Child;
using kavrel_bench::Clock;
using kavrel_bench::MicrosecondsSince;
using kavrel_bench::Row;
using kavreldbus::CBaseDbus;
using kavreldbus::CHostDbus;
using kavreldbus::CPluginDbus;
using kavreldbus::MessageCodec;

constexpr const char* kHost = "kavrel";
constexpr const char* kPlugin = "bench";
constexpr const char* kInterface = "org.zarnet.kavrel.DbusCommunication";
constexpr const char* kBarePath = "/bare";
constexpr int kRounds = 11;
constexpr int kCalls = 200;
constexpr int kBurst = 2000;
constexpr int kHandshakes = 10;

using Pairs = std::array<std::pair<const char*, const char*>, 4>;
constexpr Pairs kPairs = {
    {{"key", "KEY_VOLUMEUP"}, {"type", "pressed"}, {"device", "IR"}, {"time", "1234567890123"}}};

CMessage FourPairs() {
  CMessage message;
  for (const auto& [key, value] : kPairs) message.AddValue(key, value);
  return message;
}

GVariant* BareBody() {
  GVariantBuilder builder;
  g_variant_builder_init(&builder, G_VARIANT_TYPE("a(ss)"));
  for (const auto& [key, value] : kPairs) g_variant_builder_add(&builder, "(ss)", key, value);
  return g_variant_new("(a(ss))", &builder);
}

struct ReadyPipe {
  ReadyPipe() {
    if (pipe(ends.data()) != 0) throw std::runtime_error("no pipe");
  }
  void Tell() const {
    if (write(ends[1], "x", 1) != 1) std::abort();
  }
  void Wait() const {
    char byte = 0;
    if (read(ends[0], &byte, 1) != 1) std::abort();
  }
  std::array<int, 2> ends{};
};

void RunLoop() {
  g_main_loop_run(g_main_loop_new(nullptr, FALSE));
}

template <class Done>
void IterateUntil(const Done& done) {
  while (!done()) g_main_context_iteration(nullptr, TRUE);
}

// ---- Who answers: a bare GDBus object, the channel's other end, an sd-bus object.

void AnswerBarely(GDBusConnection* /*connection*/, const char* /*sender*/, const char* /*path*/,
                  const char* /*interface*/, const char* /*method*/, GVariant* /*parameters*/,
                  GDBusMethodInvocation* invocation, void* /*data*/) {
  g_dbus_method_invocation_return_value(invocation, g_variant_new("(b)", TRUE));
}

void ServeBarely(const ReadyPipe& ready) {
  const glib::Connection connection(g_bus_get_sync(G_BUS_TYPE_SYSTEM, nullptr, nullptr));
  const glib::NodeInfo node(g_dbus_node_info_new_for_xml(
      "<node><interface name='org.zarnet.kavrel.DbusCommunication'><method name='Send'>"
      "<arg type='a(ss)' direction='in'/><arg type='b' direction='out'/></method>"
      "</interface></node>",
      nullptr));
  const GDBusInterfaceVTable table = {&AnswerBarely, nullptr, nullptr, {}};
  glib::Error error;
  const auto registration =
      glib::RegisterObject(connection.get(), kBarePath, node.get(), &table, nullptr, error);
  const auto name = glib::OwnNameOnSystemBus(
      "org.zarnet.bare",
      [](GDBusConnection*, const char*, void* data) {
        // Calls arrive in order: the name is owned before anybody is told of it.
        static_cast<const ReadyPipe*>(data)->Tell();
      },
      const_cast<ReadyPipe*>(&ready));
  RunLoop();
}

void ServeChannel(const ReadyPipe& ready) {
  CPluginDbus end(kHost, kPlugin);
  end.SetPluginDubsMsgCB([](CMessage&) { return true; });
  ready.Tell();
  RunLoop();
}

int AnswerWithSdBus(sd_bus_message* message, void* /*data*/, sd_bus_error* /*error*/) {
  return sd_bus_reply_method_return(message, "b", 1);
}

void ServeWithSdBus(const ReadyPipe& ready) {
  static const sd_bus_vtable table[] = {
      SD_BUS_VTABLE_START(0),
      SD_BUS_METHOD("Send", "a(ss)", "b", AnswerWithSdBus, SD_BUS_VTABLE_UNPRIVILEGED),
      SD_BUS_VTABLE_END};
  sd_bus* bus = nullptr;
  if (sd_bus_open_system(&bus) < 0) std::abort();
  sd_bus_add_object_vtable(bus, nullptr, kBarePath, kInterface, table, nullptr);
  if (sd_bus_request_name(bus, "org.zarnet.sdbus", 0) < 0) std::abort();
  ready.Tell();
  while (true) {
    if (sd_bus_process(bus, nullptr) == 0) sd_bus_wait(bus, UINT64_MAX);
  }
}

// ---- Who calls

/// A proxy as the channel makes it, on a connection of its own without the channel's filter.
class BareCaller {
 public:
  BareCaller() {
    char* address = g_dbus_address_get_for_bus_sync(G_BUS_TYPE_SYSTEM, nullptr, nullptr);
    connection_.reset(g_dbus_connection_new_for_address_sync(
        address,
        static_cast<GDBusConnectionFlags>(G_DBUS_CONNECTION_FLAGS_AUTHENTICATION_CLIENT |
                                          G_DBUS_CONNECTION_FLAGS_MESSAGE_BUS_CONNECTION),
        nullptr, nullptr, nullptr));
    g_free(address);
    glib::Error error;
    proxy_ = glib::MakeProxy(connection_.get(), "org.zarnet.bare", kBarePath, kInterface, error);
  }

  void Call() const {
    const glib::Variant reply(g_dbus_proxy_call_sync(proxy_.get(), "Send", BareBody(),
                                                     G_DBUS_CALL_FLAGS_NONE, -1, nullptr, nullptr));
    if (reply == nullptr) throw std::runtime_error("the bare call failed");
  }
  void Send() const {
    g_dbus_proxy_call(proxy_.get(), "Send", BareBody(), G_DBUS_CALL_FLAGS_NONE, -1, nullptr,
                      nullptr, nullptr);
  }
  GDBusConnection* connection() const { return connection_.get(); }

 private:
  glib::Connection connection_;
  glib::Proxy proxy_;
};

class ChannelCaller {
 public:
  ChannelCaller() {
    IterateUntil([this] { return end_.IsConnectionReady(); });
  }

  void Call() {
    CMessage message = FourPairs();
    if (!end_.SendMessage(message, 0)) throw std::runtime_error("the channel's call failed");
  }
  void Send() {
    CMessage message = FourPairs();
    end_.SendMessage(message, 1);
  }

 private:
  CHostDbus end_{kHost, kPlugin};
};

class SdBusCaller {
 public:
  SdBusCaller() {
    if (sd_bus_open_system(&bus_) < 0) throw std::runtime_error("no bus for sd-bus");
  }
  SdBusCaller(const SdBusCaller&) = delete;
  SdBusCaller& operator=(const SdBusCaller&) = delete;
  ~SdBusCaller() { sd_bus_flush_close_unref(bus_); }

  void Call() const {
    sd_bus_message* call = MakeCall();
    sd_bus_message* reply = nullptr;
    if (sd_bus_call(bus_, call, 0, nullptr, &reply) < 0) {
      throw std::runtime_error("the call of sd-bus failed");
    }
    sd_bus_message_unref(reply);
    sd_bus_message_unref(call);
  }
  void Send() const {
    sd_bus_message* call = MakeCall();
    sd_bus_message_set_expect_reply(call, 0);
    sd_bus_send(bus_, call, nullptr);
    sd_bus_message_unref(call);
  }

 private:
  sd_bus_message* MakeCall() const {
    sd_bus_message* call = nullptr;
    sd_bus_message_new_method_call(bus_, &call, "org.zarnet.sdbus", kBarePath, kInterface, "Send");
    sd_bus_message_open_container(call, 'a', "(ss)");
    for (const auto& [key, value] : kPairs) sd_bus_message_append(call, "(ss)", key, value);
    sd_bus_message_close_container(call);
    return call;
  }

  sd_bus* bus_ = nullptr;
};

template <class Caller>
Row LatencyRow(const char* name, Caller& caller) {
  return {name,
          [&caller](Row& row) {
            std::vector<double> samples;
            for (int i = 0; i < kCalls; ++i) {
              const auto start = Clock::now();
              caller.Call();
              samples.push_back(MicrosecondsSince(start));
            }
            kavrel_bench::AddSamples(row, samples);
          },
          {},
          {}};
}

// Until the last one has been handled: a call behind them is answered.
template <class Caller>
Row RateRow(const char* name, Caller& caller) {
  return {name,
          [&caller](Row& row) {
            const auto start = Clock::now();
            for (int i = 0; i < kBurst; ++i) caller.Send();
            caller.Call();
            row.p50.push_back(kBurst / MicrosecondsSince(start) * 1e6);
          },
          {},
          {}};
}

// ---- Handshake

std::string PairName(int number) {
  return std::string("p").append(std::to_string(number));
}

bool IsReady(const CBaseDbus& end) {
  return end.IsConnectionReady();
}
bool IsReady(const BareEnd& end) {
  return end.ready();
}

/// The first ends of the pairs, made and forgotten one by one in a process that tells when each is
/// ready. Nothing of an earlier pair is left when the next one is made.
struct FirstEnds {
  ReadyPipe wanted;
  ReadyPipe made;
  ReadyPipe ready;
  Child process{[this] { Serve(); }};

  void Serve() const {
    for (int pair = 0; pair < kRounds * kHandshakes; pair += kHandshakes) {
      ServeSome<BareEnd>(pair,
                         [](const std::string& name) { return std::make_unique<BareEnd>(name); });
      ServeSome<CPluginDbus>(
          pair, [](const std::string& name) { return std::make_unique<CPluginDbus>(kHost, name); });
    }
    RunLoop();
  }

  template <class End, class Make>
  void ServeSome(int first_pair, const Make& make) const {
    for (int pair = first_pair; pair < first_pair + kHandshakes; ++pair) {
      wanted.Wait();
      const std::unique_ptr<End> end = make(PairName(pair));
      made.Tell();
      IterateUntil([&end] { return IsReady(*end); });
      ready.Tell();
      wanted.Wait();
    }
  }
};

/// `make` makes the second end of the pair of that name.
template <class Make>
Row HandshakeRow(const char* name, const FirstEnds& first, const Make& make) {
  return {name,
          [&first, make, pair = 0](Row& row) mutable {
            std::vector<double> samples;
            for (int i = 0; i < kHandshakes; ++i) {
              first.wanted.Tell();
              first.made.Wait();
              const auto start = Clock::now();
              const auto end = make(PairName(pair++));
              IterateUntil([&end] { return IsReady(*end); });
              first.ready.Wait();
              samples.push_back(MicrosecondsSince(start));
              first.wanted.Tell();
            }
            kavrel_bench::AddSamples(row, samples);
          },
          {},
          {}};
}

void DoBareSteps(GDBusConnection* connection) {
  for (const char* name : {"org.zarnet.x._SYN", "org.zarnet.x._SYN_ACK", "org.zarnet.x._ACK"}) {
    AskBus(connection, "RequestName", g_variant_new("(su)", name, 4U));
    AskBus(connection, "ReleaseName", g_variant_new("(s)", name));
  }
  for (int i = 0; i < 2; ++i) {
    glib::Error error;
    glib::MakeProxy(connection, ":1.0", kBarePath, kInterface, error);
  }
}

// What a handshake cannot do without, one after the other in one process.
Row BareHandshakeRow(const BareCaller& caller) {
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
          {},
          {}};
}

// ---- Records

template <class Work>
void PrintRecordRow(const char* name, int times, const Work& work) {
  work();  // what is made once is made now
  const long count_before = allocations;
  const long bytes_before = allocated_bytes;
  const auto start = Clock::now();
  for (int i = 0; i < times; ++i) work();
  const double us = MicrosecondsSince(start);
  std::printf("%-44s %10.2f %12.1f %14.0f\n", name, us / times,
              static_cast<double>(allocations - count_before) / times,
              static_cast<double>(allocated_bytes - bytes_before) / times);
}

void PrintRecords() {
  std::printf("\nRecords\n%-44s %10s %12s %14s\n", "", "us", "allocations", "bytes");
  std::string problem;
  const CMessage small = FourPairs();
  const glib::Variant small_body = MessageCodec::Encode(small, problem);
  PrintRecordRow("encode, 4 pairs, bare GVariant", 20000, [] { glib::Sink(BareBody()); });
  PrintRecordRow("encode, 4 pairs", 20000, [&] { MessageCodec::Encode(small, problem); });
  PrintRecordRow("decode, 4 pairs", 20000, [&] {
    CMessage message;
    MessageCodec::Decode(small_body.get(), message, problem);
  });
  CMessage large;
  large.AddValue("value", std::string(1024 * 1024, 'x').c_str());
  const glib::Variant large_body = MessageCodec::Encode(large, problem);
  PrintRecordRow("encode, one value of 1 MiB", 50, [&] { MessageCodec::Encode(large, problem); });
  PrintRecordRow("decode, one value of 1 MiB", 50, [&] {
    CMessage message;
    MessageCodec::Decode(large_body.get(), message, problem);
  });
}

}  // namespace

int main() {
  setenv("KAVREL_LOG_LEVEL", "error", 1);
  const kavrel_test::PrivateBus bus;
  const ReadyPipe bare_ready;
  const ReadyPipe channel_ready;
  const ReadyPipe sd_bus_ready;
  // All processes are made before this one has a second thread.
  FirstEnds first_ends;
  const Child bare([&] { ServeBarely(bare_ready); });
  const Child channel([&] { ServeChannel(channel_ready); });
  const Child leaner([&] { ServeWithSdBus(sd_bus_ready); });
  bare_ready.Wait();
  channel_ready.Wait();
  sd_bus_ready.Wait();
  {
    BareCaller bare_caller;
    ChannelCaller channel_caller;
    SdBusCaller sd_bus_caller;
    kavrel_bench::RunLatencyTable("A message of 4 pairs that waits for its answer",
                                  {LatencyRow("bare GDBus proxy call", bare_caller),
                                   LatencyRow("SendMessage, waiting", channel_caller),
                                   LatencyRow("sd-bus call, for information", sd_bus_caller)},
                                  kRounds);
    kavrel_bench::RunRateTable("Messages of 4 pairs that do not wait",
                               {RateRow("bare GDBus proxy call", bare_caller),
                                RateRow("SendMessage, not waiting", channel_caller),
                                RateRow("sd-bus call, for information", sd_bus_caller)},
                               kRounds);
    kavrel_bench::RunLatencyTable(
        "Two ends find each other",
        {BareHandshakeRow(bare_caller),
         HandshakeRow("all steps, bare GDBus, between two processes", first_ends,
                      [](const std::string& pair) { return std::make_unique<BareEnd>(pair); }),
         HandshakeRow(
             "second end's constructor to both ready", first_ends,
             [](const std::string& pair) { return std::make_unique<CHostDbus>(kHost, pair); })},
        kRounds);
  }
  PrintRecords();
}
