// The functions of rpc-port.h, served by the fake of the test.
#include <rpc-port.h>

#include <cerrno>
#include <stdexcept>
#include <utility>

#include "failing_allocations.h"
#include "fake_rpc_port.h"
#include "fake_rpc_port_handles.h"
#include "live_texts.h"

namespace kavrel_test {

extern FakeRpcPort* the_fake_rpc_port;

using fake_rpc::Header;
using fake_rpc::Parcel;
using fake_rpc::Port;
using fake_rpc::Proxy;
using fake_rpc::Stub;

namespace {

std::string Shown(const char* text) {
  return text != nullptr ? text : "null";
}

std::string Quoted(const char* text) {
  return text != nullptr ? ToText(Item(text)) : "null";
}

std::string Shown(rpc_port_port_type_e type) {
  return type == RPC_PORT_PORT_MAIN ? "main" : "callback";
}

}  // namespace

/// Each takes the fake's lock for its duration, but not while an event or a test's handler runs.
struct FakeRpcPortFunctions {
  using Lock = std::unique_lock<std::mutex>;

  static FakeRpcPort& Fake() {
    if (the_fake_rpc_port == nullptr) {
      throw std::logic_error("an rpc-port function is called without a fake");
    }
    return *the_fake_rpc_port;
  }

  /// The common frame: record, fail if the test wants it, find the handle, run `action`.
  template <class T, class Action>
  static int On(const std::string& function, const void* handle,
                const std::vector<std::string>& further, const Action& action) {
    FakeRpcPort& fake = Fake();
    const Lock lock(fake.mutex_);
    std::vector<std::string> arguments = {fake.NameOfLocked(handle)};
    arguments.insert(arguments.end(), further.begin(), further.end());
    if (const int failure = fake.Begin(function, arguments); failure != 0) return failure;
    T* const found = fake.Find<T>(function, handle);
    return found != nullptr ? action(fake, *found) : -EINVAL;
  }

  template <class T>
  static int Destroy(const std::string& function, void* handle) {
    return On<T>(function, handle, {}, [](FakeRpcPort& fake, T& found) {
      found.alive = false;
      if constexpr (std::is_same_v<T, Parcel>) found.header->alive = false;
      if constexpr (std::is_same_v<T, Proxy>) fake.End(found.main);
      if constexpr (std::is_same_v<T, Stub>) {
        for (const auto& connection : found.connections) fake.End(connection.second);
      }
      return 0;
    });
  }

  /// Makes a handle that the call shows by its name, or by nothing when it fails.
  template <class T>
  static int Create(const std::string& function, const std::string& prefix, void** out,
                    T* FakeRpcPort::*latest, const std::vector<std::string>& further) {
    FakeRpcPort& fake = Fake();
    const Lock lock(fake.mutex_);
    std::vector<std::string> arguments = {prefix + std::to_string(fake.made_[prefix] + 1)};
    arguments.insert(arguments.end(), further.begin(), further.end());
    if (const int failure = fake.Begin(function, arguments); failure != 0) return failure;
    fake.*latest = fake.Add<T>(prefix);
    *out = fake.*latest;
    return 0;
  }

  static int CreateProxy(void** proxy) {
    return Create("proxy_create", "proxy", proxy, &FakeRpcPort::proxy_, {});
  }

  static int CreateStub(void** stub, const char* port_name) {
    return Create("stub_create", "stub", stub, &FakeRpcPort::stub_, {Shown(port_name)});
  }

  static int Connect(const std::string& function, void* proxy, const char* app_id,
                     const char* port_name) {
    return On<Proxy>(function, proxy, {Shown(app_id), Shown(port_name)},
                     [&](FakeRpcPort&, Proxy& found) {
                       found.app_id = Shown(app_id);
                       found.port_name = Shown(port_name);
                       return 0;
                     });
  }

  static int ConnectSync(void* proxy, const char* app_id, const char* port_name) {
    const int result = Connect("proxy_connect_sync", proxy, app_id, port_name);
    if (result == 0 && Fake().sync_connect_raises_) Fake().RaiseConnected();
    return result;
  }

  template <class T, class Callback>
  static int AddCallback(const std::string& function, void* handle,
                         std::vector<fake_rpc::Registration<Callback>> T::*list, Callback callback,
                         void* user_data) {
    return On<T>(function, handle, {}, [&](FakeRpcPort&, T& found) {
      if (callback == nullptr) return -EINVAL;
      (found.*list).push_back({callback, user_data});
      return 0;
    });
  }

  static int ProxyPort(void* proxy, rpc_port_port_type_e type, void** port) {
    return On<Proxy>("proxy_get_port", proxy, {Shown(type)}, [&](FakeRpcPort&, Proxy& found) {
      if (found.main == nullptr) return -ENOTCONN;
      *port = type == RPC_PORT_PORT_MAIN ? found.main : found.main->other;
      return 0;
    });
  }

  static int StubPort(void* stub, rpc_port_port_type_e type, const char* instance, void** port) {
    return On<Stub>("stub_get_port", stub, {Shown(type), Shown(instance)},
                    [&](FakeRpcPort&, Stub& found) {
                      for (const auto& [name, main] : found.connections) {
                        if (name != instance) continue;
                        *port = type == RPC_PORT_PORT_MAIN ? main : main->other;
                        return 0;
                      }
                      return -ENOENT;
                    });
  }

  static int Disconnect(void* port) {
    return On<Port>("disconnect", port, {}, [](FakeRpcPort& fake, Port& found) {
      if (found.ended) return -EPIPE;
      fake.End(&found);
      return 0;
    });
  }

  static int CreateParcel(void** parcel) {
    FakeRpcPort& fake = Fake();
    const Lock lock(fake.mutex_);
    const std::string name = "p" + std::to_string(fake.made_["p"] + 1);
    if (const int failure = fake.Begin("parcel_create", {name}); failure != 0) return failure;
    *parcel = fake.NewParcel({std::nullopt, fake.next_sequence_++, {}});
    return 0;
  }

  static int CreateParcelFromPort(void** parcel, void* port) {
    FakeRpcPort& fake = Fake();
    const Lock lock(fake.mutex_);
    const std::string function = "parcel_create_from_port";
    const std::string name = "p" + std::to_string(fake.made_["p"] + 1);
    const int failure = fake.Begin(function, {name, fake.NameOfLocked(port)});
    if (failure != 0) return failure;
    Port* const found = fake.Find<Port>(function, port);
    if (found == nullptr) return -EINVAL;
    if (found->incoming.empty()) return -EPIPE;
    *parcel = fake.NewParcel(std::move(found->incoming.front()));
    found->incoming.pop_front();
    return 0;
  }

  static int Send(void* parcel, void* port) {
    FakeRpcPort& fake = Fake();
    Lock lock(fake.mutex_);
    const std::vector<std::string> names = {fake.NameOfLocked(parcel), fake.NameOfLocked(port)};
    if (const int failure = fake.Begin("parcel_send", names); failure != 0) return failure;
    const Parcel* const sent = fake.Find<Parcel>("parcel_send", parcel);
    const Port* const found = fake.Find<Port>("parcel_send", port);
    if (sent == nullptr || found == nullptr) return -EINVAL;
    if (found->ended) return -EPIPE;
    const ParcelContent content = sent->content;
    fake.sent_.push_back({found->name, content});
    const auto handler = fake.on_send_;
    lock.unlock();
    if (handler) handler(port, content);
    return 0;
  }

  static int GetHeader(void* parcel, void** header) {
    return On<Parcel>("parcel_get_header", parcel, {}, [&](FakeRpcPort&, Parcel& found) {
      *header = found.header;
      return 0;
    });
  }

  static int SetTag(void* header, const char* tag) {
    return On<Header>("parcel_header_set_tag", header, {Quoted(tag)},
                      [&](FakeRpcPort&, Header& found) {
                        found.parcel->content.tag.reset();
                        if (tag != nullptr) found.parcel->content.tag = tag;
                        return 0;
                      });
  }

  static int GetTag(void* header, char** tag) {
    return On<Header>("parcel_header_get_tag", header, {}, [&](FakeRpcPort&, Header& found) {
      const auto& kept = found.parcel->content.tag;
      *tag = kept ? HandOutText(*kept) : nullptr;
      return 0;
    });
  }

  static int SetSequence(void* header, int sequence) {
    return On<Header>("parcel_header_set_seq_num", header, {std::to_string(sequence)},
                      [&](FakeRpcPort&, Header& found) {
                        found.parcel->content.sequence = sequence;
                        return 0;
                      });
  }

  static int GetSequence(void* header, int* sequence) {
    return On<Header>("parcel_header_get_seq_num", header, {}, [&](FakeRpcPort&, Header& found) {
      *sequence = found.parcel->content.sequence;
      return 0;
    });
  }

  static int Write(const std::string& function, void* parcel, const Item& item) {
    const auto* const count = std::get_if<ArrayCount>(&item);
    const std::string shown = count != nullptr ? std::to_string(count->count) : ToText(item);
    return On<Parcel>(function, parcel, {shown}, [&](FakeRpcPort&, Parcel& found) {
      found.content.items.push_back(item);
      return 0;
    });
  }

  static int WriteText(void* parcel, const char* text) {
    if (text != nullptr) return Write("parcel_write_string", parcel, Item(text));
    return On<Parcel>("parcel_write_string", parcel, {"null"},
                      [](FakeRpcPort&, Parcel&) { return -EINVAL; });
  }

  /// Takes the next item if it is a T.
  template <class T, class Store>
  static int Read(const std::string& function, void* parcel, const Store& store) {
    return On<Parcel>(function, parcel, {}, [&](FakeRpcPort&, Parcel& found) {
      if (found.position >= found.content.items.size()) return -ENODATA;
      const T* const value = std::get_if<T>(&found.content.items[found.position]);
      if (value == nullptr) return -EBADMSG;
      ++found.position;
      store(*value);
      return 0;
    });
  }
};

}  // namespace kavrel_test

using F = kavrel_test::FakeRpcPortFunctions;
using kavrel_test::fake_rpc::Parcel;
using kavrel_test::fake_rpc::Proxy;
using kavrel_test::fake_rpc::Stub;

namespace {

// The fake's own allocations are not under test.
template <class Action>
int Served(const Action& action) {
  const kavrel_test::FakeAtWork at_work;
  return action();
}

}  // namespace

int rpc_port_proxy_create(rpc_port_proxy_h* proxy) {
  return Served([&] { return F::CreateProxy(proxy); });
}

int rpc_port_proxy_destroy(rpc_port_proxy_h proxy) {
  return Served([&] { return F::Destroy<Proxy>("proxy_destroy", proxy); });
}

int rpc_port_proxy_connect(rpc_port_proxy_h proxy, const char* app_id, const char* port_name) {
  return Served([&] { return F::Connect("proxy_connect", proxy, app_id, port_name); });
}

int rpc_port_proxy_connect_sync(rpc_port_proxy_h proxy, const char* app_id, const char* port_name) {
  return Served([&] { return F::ConnectSync(proxy, app_id, port_name); });
}

int rpc_port_proxy_add_connected_event_cb(rpc_port_proxy_h proxy,
                                          rpc_port_proxy_connected_event_cb cb, void* user_data) {
  return Served([&] {
    return F::AddCallback("proxy_add_connected_event_cb", proxy, &Proxy::connected, cb, user_data);
  });
}

int rpc_port_proxy_add_disconnected_event_cb(rpc_port_proxy_h proxy,
                                             rpc_port_proxy_disconnected_event_cb cb,
                                             void* user_data) {
  return Served([&] {
    return F::AddCallback("proxy_add_disconnected_event_cb", proxy, &Proxy::disconnected, cb,
                          user_data);
  });
}

int rpc_port_proxy_add_rejected_event_cb(rpc_port_proxy_h proxy,
                                         rpc_port_proxy_rejected_event_cb cb, void* user_data) {
  return Served([&] {
    return F::AddCallback("proxy_add_rejected_event_cb", proxy, &Proxy::rejected, cb, user_data);
  });
}

int rpc_port_proxy_add_received_event_cb(rpc_port_proxy_h proxy,
                                         rpc_port_proxy_received_event_cb cb, void* user_data) {
  return Served([&] {
    return F::AddCallback("proxy_add_received_event_cb", proxy, &Proxy::received, cb, user_data);
  });
}

int rpc_port_proxy_get_port(rpc_port_proxy_h proxy, rpc_port_port_type_e type, rpc_port_h* port) {
  return Served([&] { return F::ProxyPort(proxy, type, port); });
}

int rpc_port_stub_create(rpc_port_stub_h* stub, const char* port_name) {
  return Served([&] { return F::CreateStub(stub, port_name); });
}

int rpc_port_stub_destroy(rpc_port_stub_h stub) {
  return Served([&] { return F::Destroy<Stub>("stub_destroy", stub); });
}

int rpc_port_stub_listen(rpc_port_stub_h stub) {
  return Served(
      [&] { return F::On<Stub>("stub_listen", stub, {}, [](auto&, Stub&) { return 0; }); });
}

int rpc_port_stub_add_connected_event_cb(rpc_port_stub_h stub, rpc_port_stub_connected_event_cb cb,
                                         void* user_data) {
  return Served([&] {
    return F::AddCallback("stub_add_connected_event_cb", stub, &Stub::connected, cb, user_data);
  });
}

int rpc_port_stub_add_disconnected_event_cb(rpc_port_stub_h stub,
                                            rpc_port_stub_disconnected_event_cb cb,
                                            void* user_data) {
  return Served([&] {
    return F::AddCallback("stub_add_disconnected_event_cb", stub, &Stub::disconnected, cb,
                          user_data);
  });
}

int rpc_port_stub_add_received_event_cb(rpc_port_stub_h stub, rpc_port_stub_received_event_cb cb,
                                        void* user_data) {
  return Served([&] {
    return F::AddCallback("stub_add_received_event_cb", stub, &Stub::received, cb, user_data);
  });
}

int rpc_port_stub_get_port(rpc_port_stub_h stub, rpc_port_port_type_e type, const char* instance,
                           rpc_port_h* port) {
  return Served([&] { return F::StubPort(stub, type, instance, port); });
}

int rpc_port_disconnect(rpc_port_h port) {
  return Served([&] { return F::Disconnect(port); });
}

int rpc_port_parcel_create(rpc_port_parcel_h* parcel) {
  return Served([&] { return F::CreateParcel(parcel); });
}

int rpc_port_parcel_create_from_port(rpc_port_parcel_h* parcel, rpc_port_h port) {
  return Served([&] { return F::CreateParcelFromPort(parcel, port); });
}

int rpc_port_parcel_send(rpc_port_parcel_h parcel, rpc_port_h port) {
  return Served([&] { return F::Send(parcel, port); });
}

int rpc_port_parcel_destroy(rpc_port_parcel_h parcel) {
  return Served([&] { return F::Destroy<Parcel>("parcel_destroy", parcel); });
}

int rpc_port_parcel_get_header(rpc_port_parcel_h parcel, rpc_port_parcel_header_h* header) {
  return Served([&] { return F::GetHeader(parcel, header); });
}

int rpc_port_parcel_header_set_tag(rpc_port_parcel_header_h header, const char* tag) {
  return Served([&] { return F::SetTag(header, tag); });
}

int rpc_port_parcel_header_get_tag(rpc_port_parcel_header_h header, char** tag) {
  return Served([&] { return F::GetTag(header, tag); });
}

int rpc_port_parcel_header_set_seq_num(rpc_port_parcel_header_h header, int seq_num) {
  return Served([&] { return F::SetSequence(header, seq_num); });
}

int rpc_port_parcel_header_get_seq_num(rpc_port_parcel_header_h header, int* seq_num) {
  return Served([&] { return F::GetSequence(header, seq_num); });
}

int rpc_port_parcel_write_int32(rpc_port_parcel_h parcel, int32_t value) {
  return Served([&] { return F::Write("parcel_write_int32", parcel, value); });
}

int rpc_port_parcel_write_bool(rpc_port_parcel_h parcel, bool value) {
  return Served([&] { return F::Write("parcel_write_bool", parcel, value); });
}

int rpc_port_parcel_write_string(rpc_port_parcel_h parcel, const char* value) {
  return Served([&] { return F::WriteText(parcel, value); });
}

int rpc_port_parcel_write_array_count(rpc_port_parcel_h parcel, int count) {
  return Served(
      [&] { return F::Write("parcel_write_array_count", parcel, kavrel_test::ArrayCount{count}); });
}

int rpc_port_parcel_read_int32(rpc_port_parcel_h parcel, int32_t* value) {
  return Served([&] {
    return F::Read<std::int32_t>("parcel_read_int32", parcel, [&](auto item) { *value = item; });
  });
}

int rpc_port_parcel_read_bool(rpc_port_parcel_h parcel, bool* value) {
  return Served(
      [&] { return F::Read<bool>("parcel_read_bool", parcel, [&](auto item) { *value = item; }); });
}

int rpc_port_parcel_read_string(rpc_port_parcel_h parcel, char** value) {
  return Served([&] {
    return F::Read<std::string>("parcel_read_string", parcel,
                                [&](const auto& item) { *value = kavrel_test::HandOutText(item); });
  });
}

int rpc_port_parcel_read_array_count(rpc_port_parcel_h parcel, int* count) {
  return Served([&] {
    return F::Read<kavrel_test::ArrayCount>("parcel_read_array_count", parcel,
                                            [&](auto item) { *count = item.count; });
  });
}
