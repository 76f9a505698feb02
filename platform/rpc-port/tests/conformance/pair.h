// A service and its clients in one process, through rpc-port.h alone.
#pragma once

#include <glib.h>
#include <rpc-port.h>

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <thread>
#include <utility>
#include <vector>

namespace rpc_test {

inline constexpr const char* kPort = "TestPort";

/// Longer than anything healthy takes on a loaded machine.
inline constexpr std::chrono::seconds kGenerous{30};

/// A value that one thread changes and another waits for.
template <typename Value>
class Watched {
 public:
  template <typename Change>
  void Update(Change change) {
    // Notified under the lock: who waits may be the owner, and gone right afterwards.
    const std::lock_guard lock(mutex_);
    change(value_);
    changed_.notify_all();
  }
  /// Whether the condition came true in a generous time.
  template <typename Condition>
  bool WaitUntil(Condition condition) {
    std::unique_lock lock(mutex_);
    return changed_.wait_for(lock, kGenerous, [&] { return condition(value_); });
  }
  Value Get() {
    const std::lock_guard lock(mutex_);
    return value_;
  }

 private:
  std::mutex mutex_;
  std::condition_variable changed_;
  Value value_{};
};

/// A thread with a main context of its own that runs until the end of the scope.
class LoopThread {
 public:
  LoopThread();
  LoopThread(const LoopThread&) = delete;
  LoopThread& operator=(const LoopThread&) = delete;
  ~LoopThread();

  /// Runs `work` on the thread and returns when it is done.
  void Do(const std::function<void()>& work);
  /// Runs `work` on the thread, some time.
  void Post(std::function<void()> work);
  bool IsThisThread() const { return std::this_thread::get_id() == thread_.get_id(); }

 private:
  GMainContext* context_;
  GMainLoop* loop_;
  std::thread thread_;
};

/// The application id under which services of this process are found: KAVREL_APP_ID.
std::string OwnAppId();

/// A parcel; the owner of what it wraps.
class ParcelOwner {
 public:
  ParcelOwner();
  explicit ParcelOwner(rpc_port_parcel_h parcel) : parcel_(parcel) {}
  ParcelOwner(ParcelOwner&& other) noexcept : parcel_(std::exchange(other.parcel_, nullptr)) {}
  ParcelOwner(const ParcelOwner&) = delete;
  ParcelOwner& operator=(const ParcelOwner&) = delete;
  ~ParcelOwner();

  rpc_port_parcel_h get() const { return parcel_; }
  int sequence() const;
  void SetSequence(int sequence) const;
  void SetTag(const char* tag) const;
  std::optional<std::string> tag() const;

  ParcelOwner& Int(int value);
  ParcelOwner& Text(const std::string& value);
  /// Null where the next item is of another type.
  std::optional<int> Int() const;
  std::optional<std::string> Text() const;

 private:
  rpc_port_parcel_h parcel_ = nullptr;
};

/// The next parcel of a port, with the code of the read where there is none.
struct Received {
  int result;
  ParcelOwner parcel;
};
Received Receive(rpc_port_h port);

/// One event, in words: "connected ID", "disconnected ID", "request ID".
using Events = std::vector<std::string>;

/// A stub on a thread of its own. Requests are answered by a handler that a test may replace before
/// it connects; the first item of a request, an int, comes back incremented.
class TestService {
 public:
  using Handler = std::function<int(const std::string& instance, rpc_port_h port)>;
  using Hook = std::function<void(const std::string& instance)>;

  explicit TestService(const char* port_name = kPort);
  TestService(const TestService&) = delete;
  TestService& operator=(const TestService&) = delete;
  ~TestService();

  /// Puts what a test has set back, and waits until it does not run any more: it may use what is
  /// local to the test.
  class Undo {
   public:
    Undo(TestService& service, std::function<void()> undo)
        : service_(service), undo_(std::move(undo)) {}
    Undo(const Undo&) = delete;
    Undo& operator=(const Undo&) = delete;
    ~Undo();

   private:
    TestService& service_;
    std::function<void()> undo_;
  };

  int Listen();
  [[nodiscard]] Undo SetHandler(Handler handler) { return Set(handler_, std::move(handler)); }
  [[nodiscard]] Undo OnConnected(Hook hook) { return Set(on_connected_, std::move(hook)); }
  [[nodiscard]] Undo OnDisconnected(Hook hook) { return Set(on_disconnected_, std::move(hook)); }

  /// On the thread of the events.
  void DestroyStub();
  /// The test has destroyed the stub itself.
  void Forget() { stub_ = nullptr; }
  rpc_port_h PortOf(const std::string& instance, rpc_port_port_type_e type = RPC_PORT_PORT_MAIN);

  rpc_port_stub_h stub() const { return stub_; }
  LoopThread& thread() { return thread_; }
  Watched<Events>& events() { return events_; }
  Watched<std::vector<std::string>>& instances() { return instances_; }
  /// Waits for the n-th connection.
  std::string Instance(std::size_t number = 0);
  bool WaitForEvent(const std::string& event);

  /// The answer to one request, to be called by handlers.
  static int Answer(rpc_port_h port);

 private:
  static void Connected(const char* sender, const char* instance, void* self);
  static void Disconnected(const char* sender, const char* instance, void* self);
  static int Request(const char* sender, const char* instance, rpc_port_h port, void* self);
  void Note(const std::string& event);
  template <typename Function>
  Undo Set(Function& place, Function function) {
    const Function before = place;
    thread_.Do([&] { place = std::move(function); });
    return Undo(*this, [&place, before] { place = before; });
  }

  LoopThread thread_;
  rpc_port_stub_h stub_ = nullptr;
  Handler handler_;
  Hook on_connected_;
  Hook on_disconnected_;
  int running_ = 0;  // callbacks, on the thread
  Watched<Events> events_;
  Watched<std::vector<std::string>> instances_;
};

/// A proxy whose events arrive on a given thread.
class TestClient {
 public:
  using Hook = std::function<void(TestClient&)>;

  explicit TestClient(LoopThread& thread);
  TestClient(const TestClient&) = delete;
  TestClient& operator=(const TestClient&) = delete;
  ~TestClient();

  int ConnectSync(const char* port_name = kPort);
  int Connect(const char* port_name = kPort);
  int Destroy();
  void OnEvent(const std::string& event, Hook hook);

  rpc_port_proxy_h proxy() const { return proxy_; }
  rpc_port_h port() const { return port_; }
  rpc_port_h CallbackPort() const { return callback_port_; }
  Watched<Events>& events() { return events_; }
  bool WaitForEvent(const std::string& event);

  /// Sends an int; the result of the send.
  int Send(int value) const;
  /// Sends an int and gives the int that comes back for it.
  std::optional<int> Call(int value) const;

 private:
  static void Connected(const char* endpoint, const char* port_name, rpc_port_h port, void* self);
  static void Disconnected(const char* endpoint, const char* port_name, void* self);
  static void Rejected(const char* endpoint, const char* port_name, void* self);
  static void ReceivedEvent(const char* endpoint, const char* port_name, void* self);
  void Note(const std::string& event);

  LoopThread& thread_;
  std::atomic<rpc_port_proxy_h> proxy_ = nullptr;  // taken away while an event may be on its way
  rpc_port_h port_ = nullptr;
  rpc_port_h callback_port_ = nullptr;
  std::vector<std::pair<std::string, Hook>> hooks_;
  Watched<Events> events_;
};

/// How often an event is among those noted.
std::size_t Count(const Events& events, const std::string& event);

}  // namespace rpc_test
