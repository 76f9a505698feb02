// An rpc-port service without sockets: it stands in for librpc-port in a test program, records
// every call in order, keeps parcels as lists of items, fails when told to, and raises events when
// the test says so.
//
// Things have names in the order in which they were made: proxies proxy1, proxy2...; stubs stub1;
// parcels p1, the header of p1 is h1; the two ports of a connection main1 and callback1.
//
//     FakeRpcPort rpc;
//     KavrelAppApi proxy(&listener, "viewer");
//     proxy.Connect(true);                             // raises the connected event
//     rpc.Queue(rpc.main_port(), {"1.9.1", 1, {0, 42, true}});
//     proxy.GetWindowSize(size);                       // its request has the number 1
//     rpc.TakeSent()                                   // { main1, "1.9.1", 1, {8} }
//     rpc.TakeCalls()                                  // "parcel_create(p1)", ...
#pragma once

#include <rpc-port.h>

#include <cstddef>
#include <cstdint>
#include <functional>
#include <iosfwd>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <unordered_map>
#include <variant>
#include <vector>

namespace kavrel_test {

struct ArrayCount {
  int count;
  bool operator==(const ArrayCount&) const = default;
};

/// One typed item of a parcel: {8, true, "text", ArrayCount{3}}.
using Item = std::variant<std::int32_t, bool, std::string, ArrayCount>;
using Items = std::vector<Item>;

/// As a call shows it: 8, true, "text", count 3.
std::string ToText(const Item& item);
/// The same, separated by commas.
std::string ToText(const Items& items);

/// What travels.
struct ParcelContent {
  std::optional<std::string> tag;
  int sequence = 0;
  Items items;

  bool operator==(const ParcelContent&) const = default;
};

struct SentParcel {
  std::string port;
  ParcelContent content;

  bool operator==(const SentParcel&) const = default;
};

void PrintTo(const ParcelContent& content, std::ostream* out);
void PrintTo(const SentParcel& sent, std::ostream* out);

namespace fake_rpc {
struct Handle;
struct Proxy;
struct Stub;
struct Port;
struct Parcel;
struct Header;
}  // namespace fake_rpc

/// The service of the test that holds it; one at a time. The C functions may be called from any
/// thread; events run on the thread that raises them.
class FakeRpcPort {
 public:
  FakeRpcPort();
  FakeRpcPort(const FakeRpcPort&) = delete;
  FakeRpcPort& operator=(const FakeRpcPort&) = delete;
  ~FakeRpcPort();

  // --- What happened

  /// The calls since the last time, without "rpc_port_": "parcel_write_int32(p1, 8)".
  std::vector<std::string> TakeCalls();
  /// Is told of each call as it begins, for a test that wants calls and log lines in one order.
  /// Must not call the fake.
  void Observe(std::function<void(const std::string& call)> observer);
  /// What was sent since the last time, in order.
  std::vector<SentParcel> TakeSent();
  /// Uses of handles that are gone or of another kind; a test expects none.
  std::vector<std::string> misuses() const;

  /// The names of what was made and not destroyed: {"p1", "proxy1"}.
  std::vector<std::string> LiveHandles() const;
  /// Texts that were handed out and not freed.
  static std::size_t LiveTexts();

  // --- What the functions do

  /// Makes the `nth` call from now of `function` ("parcel_send") return `result` and do nothing
  /// else.
  void Fail(const std::string& function, int result, int nth = 1);
  /// The same for all calls from now, until Recover.
  void FailAlways(const std::string& function, int result);
  void Recover(const std::string& function);

  /// The number that the next parcel_create stamps; it then counts on. At the start 1.
  void SetNextSequence(int sequence);

  /// Appends to what parcel_create_from_port gives at this port. With nothing there it fails with
  /// -32, as at the end of a connection, and never waits.
  void Queue(rpc_port_h port, ParcelContent content);

  /// Is called for each parcel that was sent, on the sender's thread and free to Queue the answer.
  void OnSend(std::function<void(rpc_port_h port, const ParcelContent&)> handler);

  /// Whether a successful proxy_connect_sync raises the connected event, as a real one does: true.
  void SetSyncConnectRaisesEvent(bool raises);

  // --- The client's side: the latest proxy, and its latest connection

  rpc_port_proxy_h proxy() const;
  rpc_port_h main_port() const;
  rpc_port_h callback_port() const;
  /// What its connected event was registered with.
  void* ProxyUserData() const;

  void RaiseConnected();
  /// The ports stay valid handles; their use fails with -32.
  void RaiseDisconnected();
  void RaiseRejected();
  void RaiseReceived();

  // --- The service's side: the latest stub

  rpc_port_stub_h stub() const;
  /// Makes the ports of the connection `instance` and raises its connected event.
  void RaiseClientConnected(const std::string& sender, const std::string& instance);
  void RaiseClientDisconnected(const std::string& sender, const std::string& instance);
  /// Queues the request at the main port of `instance` (a new one, when it is not connected),
  /// raises the received event and returns its result.
  int RaiseRequest(const std::string& sender, const std::string& instance, ParcelContent request);

  /// "main1", or "null", or "unknown".
  std::string NameOf(const void* handle) const;

 private:
  friend struct FakeRpcPortFunctions;

  struct Failure {
    int result = 0;
    int countdown = 1;
    bool always = false;
  };

  // All below expect the lock.
  int Begin(const std::string& function, const std::vector<std::string>& arguments);
  std::string NameOfLocked(const void* handle) const;
  template <class T>
  T* Find(const std::string& function, const void* handle);
  template <class T>
  T* Add(std::string name);
  fake_rpc::Parcel* NewParcel(ParcelContent content);
  fake_rpc::Port* NewConnection();
  static void End(fake_rpc::Port* main);

  mutable std::mutex mutex_;
  std::vector<std::string> calls_;
  std::vector<SentParcel> sent_;
  std::vector<std::string> misuses_;
  std::function<void(const std::string&)> observer_;
  std::function<void(rpc_port_h, const ParcelContent&)> on_send_;
  std::map<std::string, Failure> failures_;
  // Handles are kept to the end, so that the use of one that is gone is noticed.
  std::vector<std::unique_ptr<fake_rpc::Handle>> handles_;
  std::unordered_map<const void*, fake_rpc::Handle*> by_address_;
  std::map<std::string, int> made_;  // how many of each kind, by the prefix of its name
  fake_rpc::Proxy* proxy_ = nullptr;
  fake_rpc::Stub* stub_ = nullptr;
  int next_sequence_ = 1;
  bool sync_connect_raises_ = true;
};

}  // namespace kavrel_test
