// What a key costs on its way from the viewer to a plug-in, beside a bare GDBus message of the same
// pairs on the same bus; and what the number of plug-ins costs the viewer.
#include <gio/gio.h>
#include <sys/mman.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <cstdlib>
#include <memory>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include "common/glib.h"
#include "legacy/KeyRepository.h"
#include "legacy/ViewerHost.h"
#include "legacy/ViewerPlugin.h"
#include "measure.h"
#include "private_bus.h"
#include "temporary_directory.h"

namespace {

namespace glib = kavrel::glib;
using kavrel_bench::Child;
using kavrel_bench::Clock;
using kavrel_bench::MicrosecondsSince;
using kavrel_bench::Row;

// Hosts of other names than the viewer's have no windows, and nothing else is different for a key.
constexpr const char* kOne = "one";
constexpr const char* kMany = "many";
constexpr const char* kBareName = "org.zarnet.bare";
constexpr const char* kBarePath = "/bare";
constexpr const char* kBareInterface = "org.zarnet.bare";
constexpr int kPlugins = 64;
constexpr int kKeys = 10;
constexpr int kRounds = 15;
constexpr int kEvents = 200;
constexpr int kBurst = 50;

std::string KeyName(int plugin, int key) {
  return "KEY_" + std::to_string(plugin) + '_' + std::to_string(key);
}

// Where a receiver notes when the last event reached it. Shared by all processes.
class Arrival {
 public:
  Arrival() {
    void* const memory = ::mmap(nullptr, sizeof(std::atomic<Clock::rep>), PROT_READ | PROT_WRITE,
                                MAP_SHARED | MAP_ANONYMOUS, -1, 0);
    if (memory == MAP_FAILED || ::pipe(ends_.data()) != 0) throw std::runtime_error("no memory");
    time_ = new (memory) std::atomic<Clock::rep>(0);
  }

  void Note() const {
    time_->store(Clock::now().time_since_epoch().count());
    if (::write(ends_[1], "x", 1) != 1) std::abort();
  }
  void Wait(int events = 1) const {
    char byte = 0;
    for (int i = 0; i < events; ++i) {
      if (::read(ends_[0], &byte, 1) != 1) std::abort();
    }
  }
  double MicrosecondsAfter(Clock::time_point start) const {
    const Clock::time_point arrived{Clock::duration(time_->load())};
    return std::chrono::duration<double, std::micro>(arrived - start).count();
  }

 private:
  std::atomic<Clock::rep>* time_;
  std::array<int, 2> ends_{};
};

// ---- Receivers, a process each

void ServeBarely(const Arrival& arrival) {
  const glib::Connection connection(g_bus_get_sync(G_BUS_TYPE_SYSTEM, nullptr, nullptr));
  const glib::NodeInfo node(
      g_dbus_node_info_new_for_xml("<node><interface name='org.zarnet.bare'><method name='Send'>"
                                   "<arg type='a(ss)' direction='in'/></method></interface></node>",
                                   nullptr));
  const GDBusInterfaceVTable table = {
      [](GDBusConnection*, const char*, const char*, const char*, const char*, GVariant*,
         GDBusMethodInvocation* invocation, void* data) {
        static_cast<const Arrival*>(data)->Note();
        g_dbus_method_invocation_return_value(invocation, nullptr);
      },
      nullptr,
      nullptr,
      {}};
  glib::Error error;
  const auto registration = glib::RegisterObject(connection.get(), kBarePath, node.get(), &table,
                                                 const_cast<Arrival*>(&arrival), error);
  const auto name = glib::OwnNameOnSystemBus(
      kBareName,
      [](GDBusConnection*, const char*, void* data) { static_cast<const Arrival*>(data)->Note(); },
      const_cast<Arrival*>(&arrival));
  g_main_loop_run(g_main_loop_new(nullptr, FALSE));
}

struct Listener : IKeyInputListener {
  explicit Listener(const Arrival& one) : arrival(one) {}
  bool OnKeyPressed(const std::string&, int) override {
    arrival.Note();
    return true;
  }
  bool OnKeyReleased(const std::string&, int) override { return true; }
  const Arrival& arrival;
};

struct Plugin {
  Plugin(int number, const char* host, Listener& listener)
      : plugin(VIEWER_PLUGIN_LEAVES, "plugin" + std::to_string(number), host) {
    for (int key = 0; key < kKeys; ++key) keys.AddKey(KeyName(number, key));
    plugin.RegisterKeyInputListener(&listener);
    plugin.SetConnectionChangedCallback(
        [](void* data) {
          auto& self = *static_cast<Plugin*>(data);
          self.plugin.RegsiterKeyRepository(self.keys);
          self.connected = true;
        },
        nullptr, this);
  }

  CViewerPlugin plugin;
  CKeyRepository keys;
  bool connected = false;
};

// The last key of each plug-in arrives once before anything is measured: the host has them all.
void ServePlugins(const char* host, int count, const Arrival& start, const Arrival& arrival) {
  start.Wait();
  Listener listener(arrival);
  std::vector<std::unique_ptr<Plugin>> plugins;
  for (int number = 0; number < count; ++number) {
    plugins.push_back(std::make_unique<Plugin>(number, host, listener));
    while (!plugins.back()->connected) g_main_context_iteration(nullptr, TRUE);
  }
  g_main_loop_run(g_main_loop_new(nullptr, FALSE));
}

// ---- Senders

/// A proxy as the channel makes it, on a connection of its own without the channel's filter.
class BareSender {
 public:
  explicit BareSender(const Arrival& arrival) : arrival_(arrival) {
    char* address = g_dbus_address_get_for_bus_sync(G_BUS_TYPE_SYSTEM, nullptr, nullptr);
    connection_.reset(g_dbus_connection_new_for_address_sync(
        address,
        static_cast<GDBusConnectionFlags>(G_DBUS_CONNECTION_FLAGS_AUTHENTICATION_CLIENT |
                                          G_DBUS_CONNECTION_FLAGS_MESSAGE_BUS_CONNECTION),
        nullptr, nullptr, nullptr));
    g_free(address);
    glib::Error error;
    proxy_ = glib::MakeProxy(connection_.get(), kBareName, kBarePath, kBareInterface, error);
  }

  void Send() const {
    GVariantBuilder builder;
    g_variant_builder_init(&builder, G_VARIANT_TYPE("a(ss)"));
    g_variant_builder_add(&builder, "(ss)", "key", "KEY_0_0");
    g_variant_builder_add(&builder, "(ss)", "type", "pressed");
    g_variant_builder_add(&builder, "(ss)", "device", "IR");
    g_variant_builder_add(&builder, "(ss)", "time", "1234567890");
    g_dbus_proxy_call(proxy_.get(), "Send", g_variant_new("(a(ss))", &builder),
                      G_DBUS_CALL_FLAGS_NONE, -1, nullptr, nullptr, nullptr);
  }
  const Arrival& arrival() const { return arrival_; }

 private:
  const Arrival& arrival_;
  glib::Connection connection_;
  glib::Proxy proxy_;
};

class KeySender {
 public:
  KeySender(CViewerHost& host, std::string key, const Arrival& arrival)
      : host_(host), key_(std::move(key)), arrival_(arrival) {}

  void Send() const {
    std::string consumer;
    if (!host_.DispatchInput(key_, 0, 0, consumer)) throw std::runtime_error(key_ + " not taken");
  }
  const Arrival& arrival() const { return arrival_; }

 private:
  CViewerHost& host_;
  std::string key_;
  const Arrival& arrival_;
};

template <class Sender>
Row ArrivalRow(const char* name, const Sender& sender) {
  return {name,
          [&sender](Row& row) {
            std::vector<double> samples;
            for (int i = 0; i < kEvents; ++i) {
              const auto start = Clock::now();
              sender.Send();
              sender.arrival().Wait();
              samples.push_back(sender.arrival().MicrosecondsAfter(start));
            }
            kavrel_bench::AddSamples(row, samples);
          },
          {},
          {}};
}

/// How long the call itself takes. Arrivals are awaited in bursts, so that nothing piles up.
template <class Sender>
Row CallRow(const char* name, const Sender& sender) {
  return {name,
          [&sender](Row& row) {
            std::vector<double> samples;
            for (int burst = 0; burst < kEvents / kBurst; ++burst) {
              for (int i = 0; i < kBurst; ++i) {
                const auto start = Clock::now();
                sender.Send();
                samples.push_back(MicrosecondsSince(start));
              }
              sender.arrival().Wait(kBurst);
            }
            kavrel_bench::AddSamples(row, samples);
          },
          {},
          {}};
}

/// What it takes to ask this many key sets for a key that only the last one has.
struct LookUp {
  LookUp() {
    for (int number = 0; number < kPlugins; ++number) {
      CKeyRepository keys;
      for (int key = 0; key < kKeys; ++key) keys.AddKey(KeyName(number, key));
      sets.push_back(keys);
    }
  }
  void Measure(Row& row) const {
    std::vector<double> samples;
    for (int i = 0; i < kEvents; ++i) {
      const auto start = Clock::now();
      for (const CKeyRepository& keys : sets) {
        if (keys.IsRegistered(last)) break;
      }
      samples.push_back(MicrosecondsSince(start));
    }
    kavrel_bench::AddSamples(row, samples);
  }
  std::string last = KeyName(kPlugins - 1, kKeys - 1);
  std::vector<CKeyRepository> sets;
};

void AwaitPlugins(CViewerHost& host, int count, const Arrival& arrival) {
  for (int number = 0; number < count; ++number) {
    std::string consumer;
    while (!host.DispatchInput(KeyName(number, kKeys - 1), 0, 0, consumer)) {
      g_main_context_iteration(nullptr, TRUE);
    }
    arrival.Wait();
  }
}

void Run(const Arrival& bare, const Arrival& one, const Arrival& many) {
  CViewerHost host_of_one(nullptr, nullptr, nullptr, kOne);
  CViewerHost host_of_many(nullptr, nullptr, nullptr, kMany);
  AwaitPlugins(host_of_one, 1, one);
  AwaitPlugins(host_of_many, kPlugins, many);
  const BareSender bare_sender(bare);
  const KeySender to_one(host_of_one, KeyName(0, kKeys - 1), one);
  const KeySender to_first(host_of_many, KeyName(0, kKeys - 1), many);
  const KeySender to_last(host_of_many, KeyName(kPlugins - 1, kKeys - 1), many);
  kavrel_bench::RunLatencyTable("From the viewer to the plug-in's listener, in another process",
                                {ArrivalRow("bare GDBus one-way message", bare_sender),
                                 ArrivalRow("DispatchInput, one plug-in", to_one),
                                 ArrivalRow("DispatchInput, 64 plug-ins, to the last", to_last)},
                                kRounds);
  const LookUp look_up;
  kavrel_bench::RunLatencyTable("DispatchInput itself, until it returns; 10 keys a plug-in",
                                {CallRow("one plug-in", to_one),
                                 CallRow("64 plug-ins, a key of the first", to_first),
                                 CallRow("64 plug-ins, a key of the last", to_last),
                                 {"of that, asking 64 sets of 10 keys",
                                  [&look_up](Row& row) { look_up.Measure(row); },
                                  {},
                                  {}},
                                 CallRow("bare GDBus one-way message", bare_sender)},
                                kRounds);
}

}  // namespace

int main() {
  setenv("KAVREL_LOG_LEVEL", "none", 1);
  const kavrel_test::PrivateBus bus;
  const kavrel_test::TemporaryDirectory runtime;
  setenv("KAVREL_RUNTIME_DIR", runtime.path().c_str(), 1);
  const Arrival bare;
  const Arrival one;
  const Arrival many;
  const Arrival start_one;
  // All processes are made before this one has a second thread.
  const Child bare_receiver([&] { ServeBarely(bare); });
  const Child one_plugin([&] { ServePlugins(kOne, 1, start_one, one); });
  const Child many_plugins([&] { ServePlugins(kMany, kPlugins, start_one, many); });
  bare.Wait();
  try {
    start_one.Note();
    start_one.Note();
    Run(bare, one, many);
  } catch (const std::exception& error) {
    std::fprintf(stderr, "plugin_bench: %s\n", error.what());
    return 1;
  }
  return 0;
}
