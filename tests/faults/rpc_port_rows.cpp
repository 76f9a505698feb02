// The remote call service.
#include <glib.h>
#include <kavrel/tidl/KavrelAppApiMethods.h>
#include <rpc-port.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <string>

#include "null_service.h"
#include "process_setting.h"
#include "trial.h"
#include "viewer_process.h"

namespace faults_test {
namespace {

constexpr const char* kAppId = "org.zarnet.faults";
constexpr const char* kPort = "faults_port";
const std::string kText(3000, 't');

/// A parcel that is destroyed at the end.
class Parcel {
 public:
  Parcel() { EXPECT_EQ(rpc_port_parcel_create(&handle_), 0); }
  explicit Parcel(rpc_port_parcel_h handle) : handle_(handle) {}
  Parcel(const Parcel&) = delete;
  Parcel& operator=(const Parcel&) = delete;
  ~Parcel() { rpc_port_parcel_destroy(handle_); }

  rpc_port_parcel_h get() const { return handle_; }
  rpc_port_parcel_header_h header() const {
    rpc_port_parcel_header_h header = nullptr;
    EXPECT_EQ(rpc_port_parcel_get_header(handle_, &header), 0);
    return header;
  }

 private:
  rpc_port_parcel_h handle_ = nullptr;
};

void MakeParcel(Trial& trial) {
  const ProcessSetting setting;
  rpc_port_parcel_h parcel = nullptr;
  const auto result = trial.Call([&] { return rpc_port_parcel_create(&parcel); });
  trial.ExpectErrno(result);
  EXPECT_EQ(parcel != nullptr, result == 0);
  if (parcel != nullptr) {
    EXPECT_EQ(rpc_port_parcel_destroy(parcel), 0);
  }
  const Parcel next;
}

void DestroyParcel(Trial& trial) {
  const ProcessSetting setting;
  rpc_port_parcel_h parcel = nullptr;
  EXPECT_EQ(rpc_port_parcel_create(&parcel), 0);
  EXPECT_EQ(trial.Call([&] { return rpc_port_parcel_destroy(parcel); }), 0);
}

// What is written wholly or not at all, and then again.
void WriteItems(Trial& trial) {
  const ProcessSetting setting;
  const Parcel parcel;
  const auto write = [&] { return rpc_port_parcel_write_string(parcel.get(), kText.c_str()); };
  const auto result = trial.Call(write);
  trial.ExpectErrno(result);
  EXPECT_EQ(write(), 0);
  int texts = 0;
  char* text = nullptr;
  while (rpc_port_parcel_read_string(parcel.get(), &text) == 0) {
    EXPECT_EQ(text, kText);
    std::free(text);
    ++texts;
  }
  EXPECT_EQ(texts, result == 0 ? 2 : 1);
}

template <class Write>
std::function<void(Trial&)> WritesUntilMoreRoomIsNeeded(Write write) {
  return [write](Trial& trial) {
    const ProcessSetting setting;
    const Parcel parcel;
    trial.ExpectErrno(trial.Call([&] {
      int result = 0;
      for (int i = 0; i < 500 && result == 0; ++i) result = write(parcel.get());
      return result;
    }));
    EXPECT_EQ(write(parcel.get()), 0);
  };
}

template <class Write, class Read>
std::function<void(Trial&)> Reads(Write write, Read read) {
  return [write, read](Trial& trial) {
    const ProcessSetting setting;
    const Parcel parcel;
    EXPECT_EQ(write(parcel.get()), 0);
    const auto result = trial.Call([&] { return read(parcel.get()); });
    trial.ExpectErrno(result);
    if (result != 0) {
      EXPECT_EQ(read(parcel.get()), 0) << "the position has not changed";
    }
  };
}

int WriteInt(rpc_port_parcel_h parcel) {
  return rpc_port_parcel_write_int32(parcel, 7);
}
int WriteBool(rpc_port_parcel_h parcel) {
  return rpc_port_parcel_write_bool(parcel, true);
}
int WriteCount(rpc_port_parcel_h parcel) {
  return rpc_port_parcel_write_array_count(parcel, 7);
}
int WriteText(rpc_port_parcel_h parcel) {
  return rpc_port_parcel_write_string(parcel, kText.c_str());
}
int ReadInt(rpc_port_parcel_h parcel) {
  int value = 0;
  return rpc_port_parcel_read_int32(parcel, &value);
}
int ReadBool(rpc_port_parcel_h parcel) {
  bool value = false;
  return rpc_port_parcel_read_bool(parcel, &value);
}
int ReadCount(rpc_port_parcel_h parcel) {
  int value = 0;
  return rpc_port_parcel_read_array_count(parcel, &value);
}
int ReadText(rpc_port_parcel_h parcel) {
  char* text = nullptr;
  const int result = rpc_port_parcel_read_string(parcel, &text);
  EXPECT_EQ(text != nullptr, result == 0);
  std::free(text);
  return result;
}

void UseHeader(Trial& trial) {
  const ProcessSetting setting;
  const Parcel parcel;
  const std::string tag(200, 'g');
  const auto use = [&] {
    rpc_port_parcel_header_h header = nullptr;
    int number = 0;
    char* text = nullptr;
    int result = rpc_port_parcel_get_header(parcel.get(), &header);
    if (result == 0) result = rpc_port_parcel_header_set_seq_num(header, 5);
    if (result == 0) result = rpc_port_parcel_header_get_seq_num(header, &number);
    if (result == 0) result = rpc_port_parcel_header_set_tag(header, tag.c_str());
    if (result == 0) result = rpc_port_parcel_header_get_tag(header, &text);
    if (result == 0) {
      EXPECT_STREQ(text, tag.c_str());
      EXPECT_EQ(number, 5);
    }
    std::free(text);
    return result;
  };
  trial.ExpectErrno(trial.Call(use));
  EXPECT_EQ(use(), 0);
}

// ---- the client's end

/// A viewer, and a proxy that is connected to it unless the test does that.
class Client {
 public:
  explicit Client(bool connects) {
    EXPECT_EQ(rpc_port_proxy_create(&proxy_), 0);
    if (connects) {
      EXPECT_EQ(Connect(), 0);
    }
  }
  Client(const Client&) = delete;
  Client& operator=(const Client&) = delete;
  ~Client() { EXPECT_EQ(rpc_port_proxy_destroy(proxy_), 0); }

  rpc_port_proxy_h get() const { return proxy_; }
  int Connect() const {
    return rpc_port_proxy_connect_sync(proxy_, kAppId, kavrel::app_api::kPortName);
  }
  rpc_port_h port() const {
    rpc_port_h port = nullptr;
    EXPECT_EQ(rpc_port_proxy_get_port(proxy_, RPC_PORT_PORT_MAIN, &port), 0);
    return port;
  }
  /// Asks for the window's size, and reads the answer.
  void ExpectAnswer() const {
    const Parcel request;
    EXPECT_EQ(rpc_port_parcel_write_int32(request.get(), 8), 0);
    EXPECT_EQ(rpc_port_parcel_send(request.get(), port()), 0);
    ExpectOneAnswer();
  }
  void ExpectOneAnswer() const {
    rpc_port_parcel_h answer = nullptr;
    EXPECT_EQ(rpc_port_parcel_create_from_port(&answer, port()), 0);
    const Parcel owner(answer);
  }

 private:
  kavrel_test::ViewerProcess viewer_{kAppId, [](std::string sender, std::string instance) {
                                       return std::make_unique<kavrel_test::NullService>(
                                           std::move(sender), std::move(instance));
                                     }};
  rpc_port_proxy_h proxy_ = nullptr;
};

// A socket for which there is no memory is a system error.
const std::vector<int> kConnectResults = {0, -EIO};

void CreateProxy(Trial& trial) {
  const ProcessSetting setting;
  rpc_port_proxy_h proxy = nullptr;
  const auto result = trial.Call([&] { return rpc_port_proxy_create(&proxy); });
  trial.ExpectErrno(result);
  EXPECT_EQ(proxy != nullptr, result == 0);
  if (proxy != nullptr) {
    EXPECT_EQ(rpc_port_proxy_destroy(proxy), 0);
  }
  const Client client(true);
  client.ExpectAnswer();
}

void DestroyProxy(Trial& trial) {
  const ProcessSetting setting;
  const Client other(true);
  rpc_port_proxy_h proxy = nullptr;
  EXPECT_EQ(rpc_port_proxy_create(&proxy), 0);
  EXPECT_EQ(rpc_port_proxy_connect_sync(proxy, kAppId, kavrel::app_api::kPortName), 0);
  EXPECT_EQ(trial.Call([&] { return rpc_port_proxy_destroy(proxy); }), 0);
  other.ExpectAnswer();
}

void Connect(Trial& trial) {
  const ProcessSetting setting;
  const Client client(false);
  const auto result = trial.Call([&] { return client.Connect(); });
  trial.ExpectErrno(result, kConnectResults);
  EXPECT_TRUE(result == 0 || trial.occurred());
  if (result != 0) {
    EXPECT_EQ(client.Connect(), 0);
  }
  client.ExpectAnswer();
}

// The event that a connect which does not wait ends with.
struct Events {
  int connected = 0;
  int rejected = 0;
  static void Connected(const char*, const char*, rpc_port_h, void* events) {
    ++static_cast<Events*>(events)->connected;
  }
  static void Rejected(const char*, const char*, void* events) {
    ++static_cast<Events*>(events)->rejected;
  }
  bool Any() const { return connected + rejected > 0; }
};

void ConnectLater(Trial& trial) {
  const ProcessSetting setting;
  const Client client(false);
  Events events;
  EXPECT_EQ(rpc_port_proxy_add_connected_event_cb(client.get(), &Events::Connected, &events), 0);
  EXPECT_EQ(rpc_port_proxy_add_rejected_event_cb(client.get(), &Events::Rejected, &events), 0);
  const auto connect = [&] {
    return rpc_port_proxy_connect(client.get(), kAppId, kavrel::app_api::kPortName);
  };
  const auto result = trial.Call([&] {
    const int begun = connect();
    for (int turn = 0; turn < 100 && begun == 0 && !events.Any(); ++turn) {
      g_main_context_iteration(nullptr, TRUE);
    }
    return begun;
  });
  trial.ExpectErrno(result, kConnectResults);
  if (events.connected == 0) {
    EXPECT_TRUE(trial.occurred());
    EXPECT_EQ(events.rejected, result == 0 ? 1 : 0) << "told, one way or the other";
    EXPECT_EQ(client.Connect(), 0);
  }
  client.ExpectAnswer();
}

void AddProxyCallbacks(Trial& trial) {
  const ProcessSetting setting;
  const Client client(true);
  const auto ended = [](const char*, const char*, void*) {};
  const auto add = [&] {
    int result = rpc_port_proxy_add_connected_event_cb(client.get(), &Events::Connected, nullptr);
    if (result == 0) {
      result = rpc_port_proxy_add_disconnected_event_cb(client.get(), ended, nullptr);
    }
    if (result == 0) result = rpc_port_proxy_add_rejected_event_cb(client.get(), ended, nullptr);
    if (result == 0) result = rpc_port_proxy_add_received_event_cb(client.get(), ended, nullptr);
    return result;
  };
  trial.ExpectErrno(trial.Call(add));
  EXPECT_EQ(add(), 0);
  client.ExpectAnswer();
}

void GetProxyPort(Trial& trial) {
  const ProcessSetting setting;
  const Client client(true);
  rpc_port_h port = nullptr;
  trial.ExpectErrno(
      trial.Call([&] { return rpc_port_proxy_get_port(client.get(), RPC_PORT_PORT_MAIN, &port); }));
  client.ExpectAnswer();
}

// A request that failed was not sent: there is an answer for each that did not.
void Send(Trial& trial) {
  const ProcessSetting setting;
  const Client client(true);
  const Parcel request;
  EXPECT_EQ(rpc_port_parcel_write_int32(request.get(), 8), 0);
  const auto result =
      trial.Call([&] { return rpc_port_parcel_send(request.get(), client.port()); });
  trial.ExpectErrno(result);
  if (result == 0) client.ExpectOneAnswer();
  client.ExpectAnswer();
}

// An answer that could not be taken is not lost.
void Receive(Trial& trial) {
  const ProcessSetting setting;
  const Client client(true);
  const Parcel request;
  EXPECT_EQ(rpc_port_parcel_write_int32(request.get(), 8), 0);
  const rpc_port_h port = client.port();
  EXPECT_EQ(rpc_port_parcel_send(request.get(), port), 0);
  rpc_port_parcel_h answer = nullptr;
  const auto result = trial.Call([&] { return rpc_port_parcel_create_from_port(&answer, port); });
  trial.ExpectErrno(result);
  if (result == 0) {
    const Parcel owner(answer);
  } else {
    client.ExpectOneAnswer();
  }
  client.ExpectAnswer();
}

void Disconnect(Trial& trial) {
  const ProcessSetting setting;
  const Client client(true);
  const rpc_port_h port = client.port();
  const auto result = trial.Call([&] { return rpc_port_disconnect(port); });
  trial.ExpectErrno(result);
  EXPECT_EQ(rpc_port_disconnect(port), result == 0 ? -EPIPE : 0);
  EXPECT_EQ(client.Connect(), 0);
  client.ExpectAnswer();
}

// ---- the service's end

void CreateStub(Trial& trial) {
  const ProcessSetting setting;
  rpc_port_stub_h stub = nullptr;
  const auto result = trial.Call([&] { return rpc_port_stub_create(&stub, kPort); });
  trial.ExpectErrno(result);
  if (result != 0) {
    EXPECT_EQ(rpc_port_stub_create(&stub, kPort), 0);
  }
  EXPECT_EQ(rpc_port_stub_listen(stub), 0);
  EXPECT_EQ(rpc_port_stub_destroy(stub), 0);
}

// The address is free after a failure.
void Listen(Trial& trial) {
  const ProcessSetting setting;
  rpc_port_stub_h stub = nullptr;
  EXPECT_EQ(rpc_port_stub_create(&stub, kPort), 0);
  trial.ExpectErrno(trial.Call([&] { return rpc_port_stub_listen(stub); }));
  EXPECT_EQ(rpc_port_stub_listen(stub), 0);
  EXPECT_EQ(rpc_port_stub_destroy(stub), 0);
  EXPECT_EQ(rpc_port_stub_create(&stub, kPort), 0);
  EXPECT_EQ(rpc_port_stub_listen(stub), 0);
  EXPECT_EQ(rpc_port_stub_destroy(stub), 0);
}

void DestroyStub(Trial& trial) {
  const ProcessSetting setting;
  rpc_port_stub_h stub = nullptr;
  EXPECT_EQ(rpc_port_stub_create(&stub, kPort), 0);
  EXPECT_EQ(rpc_port_stub_listen(stub), 0);
  EXPECT_EQ(trial.Call([&] { return rpc_port_stub_destroy(stub); }), 0);
  EXPECT_EQ(rpc_port_stub_create(&stub, kPort), 0);
  EXPECT_EQ(rpc_port_stub_listen(stub), 0);
  EXPECT_EQ(rpc_port_stub_destroy(stub), 0);
}

void UseStub(Trial& trial) {
  const ProcessSetting setting;
  rpc_port_stub_h stub = nullptr;
  EXPECT_EQ(rpc_port_stub_create(&stub, kPort), 0);
  const auto told = [](const char*, const char*, void*) {};
  const auto received = [](const char*, const char*, rpc_port_h, void*) { return 0; };
  const auto use = [&] {
    int result = rpc_port_stub_add_connected_event_cb(stub, told, nullptr);
    if (result == 0) result = rpc_port_stub_add_disconnected_event_cb(stub, told, nullptr);
    if (result == 0) result = rpc_port_stub_add_received_event_cb(stub, received, nullptr);
    rpc_port_h port = nullptr;
    if (result == 0) {
      result = rpc_port_stub_get_port(stub, RPC_PORT_PORT_MAIN, "a connection that is not", &port);
    }
    return result;
  };
  trial.ExpectErrno(trial.Call(use), {-ENOENT});
  EXPECT_EQ(use(), -ENOENT);
  EXPECT_EQ(rpc_port_stub_destroy(stub), 0);
}

}  // namespace

Rows RpcPortRows() {
  return {
      {"rpc_port_parcel_create", {"rpc_port_parcel_create"}, MakeParcel},
      {"rpc_port_parcel_destroy", {"rpc_port_parcel_destroy"}, DestroyParcel},
      {"rpc_port_parcel_write_string", {"rpc_port_parcel_write_string"}, WriteItems},
      {"rpc_port_parcel_write_int32",
       {"rpc_port_parcel_write_int32"},
       WritesUntilMoreRoomIsNeeded(WriteInt)},
      {"rpc_port_parcel_write_bool",
       {"rpc_port_parcel_write_bool"},
       WritesUntilMoreRoomIsNeeded(WriteBool)},
      {"rpc_port_parcel_write_array_count",
       {"rpc_port_parcel_write_array_count"},
       WritesUntilMoreRoomIsNeeded(WriteCount)},
      {"rpc_port_parcel_read_int32", {"rpc_port_parcel_read_int32"}, Reads(WriteInt, ReadInt)},
      {"rpc_port_parcel_read_bool", {"rpc_port_parcel_read_bool"}, Reads(WriteBool, ReadBool)},
      {"rpc_port_parcel_read_array_count",
       {"rpc_port_parcel_read_array_count"},
       Reads(WriteCount, ReadCount)},
      {"rpc_port_parcel_read_string", {"rpc_port_parcel_read_string"}, Reads(WriteText, ReadText)},
      {"header",
       {"rpc_port_parcel_get_header", "rpc_port_parcel_header_set_seq_num",
        "rpc_port_parcel_header_get_seq_num", "rpc_port_parcel_header_set_tag",
        "rpc_port_parcel_header_get_tag"},
       UseHeader},
      {"rpc_port_proxy_create", {"rpc_port_proxy_create"}, CreateProxy},
      {"rpc_port_proxy_destroy", {"rpc_port_proxy_destroy"}, DestroyProxy},
      {"rpc_port_proxy_connect_sync", {"rpc_port_proxy_connect_sync"}, Connect},
      {"rpc_port_proxy_connect", {"rpc_port_proxy_connect"}, ConnectLater},
      {"proxy_callbacks",
       {"rpc_port_proxy_add_connected_event_cb", "rpc_port_proxy_add_disconnected_event_cb",
        "rpc_port_proxy_add_rejected_event_cb", "rpc_port_proxy_add_received_event_cb"},
       AddProxyCallbacks},
      {"rpc_port_proxy_get_port", {"rpc_port_proxy_get_port"}, GetProxyPort},
      {"rpc_port_parcel_send", {"rpc_port_parcel_send"}, Send},
      {"rpc_port_parcel_create_from_port", {"rpc_port_parcel_create_from_port"}, Receive},
      {"rpc_port_disconnect", {"rpc_port_disconnect"}, Disconnect},
      {"rpc_port_stub_create", {"rpc_port_stub_create"}, CreateStub},
      {"rpc_port_stub_listen", {"rpc_port_stub_listen"}, Listen},
      {"rpc_port_stub_destroy", {"rpc_port_stub_destroy"}, DestroyStub},
      {"stub_callbacks",
       {"rpc_port_stub_add_connected_event_cb", "rpc_port_stub_add_disconnected_event_cb",
        "rpc_port_stub_add_received_event_cb", "rpc_port_stub_get_port"},
       UseStub},
  };
}

}  // namespace faults_test
