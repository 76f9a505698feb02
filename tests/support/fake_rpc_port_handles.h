// What the handles of the fake rpc-port service point to. Only for the fake's own sources.
#pragma once

#include <deque>
#include <string>
#include <utility>
#include <vector>

#include "fake_rpc_port.h"

namespace kavrel_test::fake_rpc {

struct Handle {
  virtual ~Handle() = default;
  std::string name;
  bool alive = true;
};

/// One of the two ports of a connection.
struct Port : Handle {
  std::deque<ParcelContent> incoming;
  bool ended = false;
  Port* other = nullptr;  ///< main's callback port, callback's main port
};

template <class Callback>
struct Registration {
  Callback callback;
  void* user_data;
};

struct Proxy : Handle {
  std::string app_id;
  std::string port_name;
  Port* main = nullptr;  ///< of the latest connection
  std::vector<Registration<rpc_port_proxy_connected_event_cb>> connected;
  std::vector<Registration<rpc_port_proxy_disconnected_event_cb>> disconnected;
  std::vector<Registration<rpc_port_proxy_rejected_event_cb>> rejected;
  std::vector<Registration<rpc_port_proxy_received_event_cb>> received;
};

struct Stub : Handle {
  std::vector<std::pair<std::string, Port*>> connections;  ///< instance and main port
  std::vector<Registration<rpc_port_stub_connected_event_cb>> connected;
  std::vector<Registration<rpc_port_stub_disconnected_event_cb>> disconnected;
  std::vector<Registration<rpc_port_stub_received_event_cb>> received;
};

struct Header : Handle {
  Parcel* parcel = nullptr;
};

struct Parcel : Handle {
  ParcelContent content;
  std::size_t position = 0;
  Header* header = nullptr;
};

}  // namespace kavrel_test::fake_rpc

namespace kavrel_test {

template <class T>
T* FakeRpcPort::Add(std::string prefix) {
  auto owned = std::make_unique<T>();
  T* const added = owned.get();
  added->name = prefix + std::to_string(++made_[prefix]);
  by_address_[added] = added;
  handles_.push_back(std::move(owned));
  return added;
}

template <class T>
T* FakeRpcPort::Find(const std::string& function, const void* handle) {
  if (handle == nullptr) return nullptr;
  const auto entry = by_address_.find(handle);
  T* const found = entry != by_address_.end() ? dynamic_cast<T*>(entry->second) : nullptr;
  if (found != nullptr && found->alive) return found;
  misuses_.push_back(function + '(' + NameOfLocked(handle) + ')');
  return nullptr;
}

}  // namespace kavrel_test
