#include "KavrelVconfInternal.h"

#include <algorithm>
#include <cstring>
#include <functional>
#include <list>
#include <map>
#include <memory>
#include <string_view>
#include <utility>

#include "../common/log.h"

namespace kavrel::state {
namespace {

constexpr int kFailed = -1;

// A callback's address in the form that "%p" takes.
const void* AddressOf(kavrel_value_changed_cb callback) {
  return reinterpret_cast<const void*>(callback);
}

}  // namespace

// --- Typed access

char* GetVconfStrKey(const char* key) {
  KAVREL_LOG(kLogInfo, kLogTag, Here(), "start\n");
  if (key == nullptr) {
    KAVREL_LOG(kLogError, kLogTag, Here(), "vconfKey is NULL\n");
    KAVREL_LOG(kLogError, kLogTag, Here(), "Assertion failed\n");
    return nullptr;
  }
  const StoredText stored(vconf_get_str(key));
  char* const copy = stored != nullptr ? strdup(stored.get()) : nullptr;
  if (copy == nullptr) {
    KAVREL_LOG(kLogError, kLogTag, Here(), "fail to get %s\n", key);
    return nullptr;
  }
  KAVREL_LOG(kLogInfo, kLogTag, Here(), "key: %s, value: %s\n", key, copy);
  return copy;
}

namespace {

int GetNumber(SourceLine where, int (*read)(const char*, int*), const char* key, int* value) {
  KAVREL_LOG(kLogInfo, kLogTag, where, "start\n");
  if (key == nullptr) {
    KAVREL_LOG(kLogError, kLogTag, where, "Assertion failed\n");
    return kFailed;
  }
  if (read(key, value) != 0) {
    KAVREL_LOG(kLogError, kLogTag, where, "fail to get vconf key [%s]\n", key);
    return kFailed;
  }
  KAVREL_LOG(kLogInfo, kLogTag, where, "key: %s, value: %d\n", key, *value);
  return 0;
}

int SetNumber(SourceLine where, int (*write)(const char*, int), const char* key, int value) {
  KAVREL_LOG(kLogInfo, kLogTag, where, "start\n");
  if (key == nullptr) {
    KAVREL_LOG(kLogError, kLogTag, where, "Assertion failed\n");
    return kFailed;
  }
  KAVREL_LOG(kLogInfo, kLogTag, where, "key: %s, value: %d\n", key, value);
  if (write(key, value) != 0) {
    KAVREL_LOG(kLogError, kLogTag, where, "fail to set vconf key\n");
    return kFailed;
  }
  return 0;
}

}  // namespace

int GetVconfBoolKey(const char* key, int* value) {
  return GetNumber(Here(), &vconf_get_bool, key, value);
}

int GetVconfIntKey(const char* key, int* value) {
  return GetNumber(Here(), &vconf_get_int, key, value);
}

int SetVconfStrKey(const char* key, const char* value) {
  KAVREL_LOG(kLogInfo, kLogTag, Here(), "start\n");
  if (key == nullptr || value == nullptr) {
    KAVREL_LOG(kLogError, kLogTag, Here(), "Assertion failed\n");
    return kFailed;
  }
  KAVREL_LOG(kLogInfo, kLogTag, Here(), "key: %s, value: %s\n", key, value);
  if (vconf_set_str(key, value) != 0) {
    KAVREL_LOG(kLogError, kLogTag, Here(), "vconf_set_str fail\n");
    return kFailed;
  }
  return 0;
}

int SetVconfBoolKey(const char* key, int value) {
  return SetNumber(Here(), &vconf_set_bool, key, value);
}

int SetVconfIntKey(const char* key, int value) {
  return SetNumber(Here(), &vconf_set_int, key, value);
}

// --- The registry

namespace {

struct KavrelValueCbNode_s {
  kavrel_value_changed_cb valueCb;  // what registrations are told apart by
  AssignCb assignCb;
  void* userData;  // kept, but see KavrelVconfCb: deliveries carry the notification's
  bool removed = false;
};

// The callbacks of one watched key. While a delivery walks the list, removed entries stay in it,
// marked, so that whatever a callback registers or removes leaves the walk intact; the last
// delivery to end sweeps them out.
class CallbackList {
 public:
  void Append(KavrelValueCbNode_s node) { nodes_.push_back(node); }

  KavrelValueCbNode_s* Find(kavrel_value_changed_cb value_cb) {
    const auto found = std::find_if(nodes_.begin(), nodes_.end(), [value_cb](const auto& node) {
      return !node.removed && node.valueCb == value_cb;
    });
    return found != nodes_.end() ? &*found : nullptr;
  }

  std::size_t CountLive() const {
    return static_cast<std::size_t>(std::count_if(nodes_.begin(), nodes_.end(),
                                                  [](const auto& node) { return !node.removed; }));
  }

  void Remove(KavrelValueCbNode_s& node) {
    node.removed = true;
    if (deliveries_ == 0) Sweep();
  }

  /// Calls `visit` on each entry that is there now and still is when its turn comes.
  template <class F>
  void Deliver(const F& visit) {
    if (nodes_.empty()) return;
    const DeliveryScope scope(*this);
    const auto last = std::prev(nodes_.end());
    for (auto node = nodes_.begin();; ++node) {
      if (!node->removed) visit(*node);
      if (node == last) return;
    }
  }

 private:
  class DeliveryScope {
   public:
    explicit DeliveryScope(CallbackList& list) : list_(list) { ++list_.deliveries_; }
    DeliveryScope(const DeliveryScope&) = delete;
    DeliveryScope& operator=(const DeliveryScope&) = delete;
    ~DeliveryScope() {
      if (--list_.deliveries_ == 0) list_.Sweep();
    }

   private:
    CallbackList& list_;
  };

  void Sweep() {
    nodes_.remove_if([](const auto& node) { return node.removed; });
  }

  std::list<KavrelValueCbNode_s> nodes_;
  int deliveries_ = 0;
};

// Shared with deliveries in progress: a callback may remove the key whose list is being walked.
using Registry = std::map<std::string, std::shared_ptr<CallbackList>, std::less<>>;

// Made when the library is loaded, so that it outlives the static objects of the programs that link
// it: their destructors may still unregister.
Registry the_registry;

int RegisterFirst(SourceLine where, std::string key, KavrelValueCbNode_s node) {
  KAVREL_LOG(kLogInfo, kLogTag, where, "vconf cb has not been registered\n");
  KAVREL_LOG(kLogInfo, kLogTag, where, "register vconf cb of kavrel\n");
  // Entered before the store is asked: nothing that can throw may follow a notification installed.
  auto list = std::make_shared<CallbackList>();
  list->Append(node);
  const auto entry = the_registry.emplace(std::move(key), std::move(list)).first;
  if (vconf_notify_key_changed(entry->first.c_str(), &KavrelVconfCb, node.userData) != 0) {
    KAVREL_LOG(kLogError, kLogTag, where, "failed to register callback\n");
    the_registry.erase(entry);
    return kFailed;
  }
  KAVREL_LOG(kLogInfo, kLogTag, where, "callback registered (%p)\n", AddressOf(node.valueCb));
  return 0;
}

int RegisterFurther(SourceLine where, CallbackList& list, KavrelValueCbNode_s node) {
  KAVREL_LOG(kLogInfo, kLogTag, where, "check if the value cb has been registered already\n");
  if (list.Find(node.valueCb) != nullptr) {
    KAVREL_LOG(kLogError, kLogTag, where, "already registered cb (%p)\n", AddressOf(node.valueCb));
    return kFailed;
  }
  list.Append(node);
  KAVREL_LOG(kLogInfo, kLogTag, where, "callback registered (%p)\n", AddressOf(node.valueCb));
  return 0;
}

// The key goes also when the store refuses to take the notification away.
void StopWatching(SourceLine where, Registry::iterator entry) {
  const char* key = entry->first.c_str();
  KAVREL_LOG(kLogInfo, kLogTag, where, "unregister vconf cb for (%s)\n", key);
  if (vconf_ignore_key_changed(key, &KavrelVconfCb) != 0) {
    KAVREL_LOG(kLogError, kLogTag, where, "failed to unregister cb\n");
  }
  the_registry.erase(entry);
}

void DeliverTo(SourceLine where, const KavrelValueCbNode_s& entry, keynode_t* node,
               valuenode_s& record, void* user_data) {
  if (entry.assignCb == nullptr) {
    KAVREL_LOG(kLogError, kLogTag, where, "Assertion failed\n");
    return;
  }
  entry.assignCb(node, record);
  if (entry.valueCb == nullptr) {
    KAVREL_LOG(kLogError, kLogTag, where, "Assertion failed\n");
    return;
  }
  KAVREL_LOG(kLogInfo, kLogTag, where, "process valueCb: %p\n", AddressOf(entry.valueCb));
  entry.valueCb(&record, user_data);
}

}  // namespace

int KavrelRegisterValueCb(std::string key, kavrel_value_changed_cb value_cb, AssignCb /*assign_cb*/,
                          void* user_data) {
  KAVREL_LOG(kLogInfo, kLogTag, Here(), "start\n");
  KAVREL_LOG(kLogInfo, kLogTag, Here(), "key: [%s]\n", key.c_str());
  if (value_cb == nullptr) {
    KAVREL_LOG(kLogError, kLogTag, Here(), "callback function is NULL\n");
    return kFailed;
  }
  const KavrelValueCbNode_s node{value_cb, &AssignNodeInfo, user_data};
  const auto found = the_registry.find(key);
  if (found == the_registry.end()) return RegisterFirst(Here(), std::move(key), node);
  return RegisterFurther(Here(), *found->second, node);
}

int KavrelUnregisterValueCb(std::string key, kavrel_value_changed_cb value_cb) {
  KAVREL_LOG(kLogInfo, kLogTag, Here(), "start\n");
  if (value_cb == nullptr) {
    KAVREL_LOG(kLogError, kLogTag, Here(), "callback function is NULL\n");
    return kFailed;
  }
  const auto found = the_registry.find(key);
  if (found == the_registry.end()) {
    KAVREL_LOG(kLogError, kLogTag, Here(), "callback list is not initialized yet\n");
    return 0;
  }
  KAVREL_LOG(kLogInfo, kLogTag, Here(), "value cb for (%s) has been registered\n", key.c_str());
  CallbackList& list = *found->second;
  KavrelValueCbNode_s* const node = list.Find(value_cb);
  if (node == nullptr) {
    KAVREL_LOG(kLogError, kLogTag, Here(), "cb (%p) is not registered \n", AddressOf(value_cb));
    return kFailed;
  }
  list.Remove(*node);
  KAVREL_LOG(kLogInfo, kLogTag, Here(), "cb for kavrel unregistered (%p)\n", AddressOf(value_cb));
  if (list.CountLive() == 0) StopWatching(Here(), found);
  return 0;
}

void KavrelVconfCb(keynode_t* node, void* user_data) noexcept {
  KAVREL_LOG(kLogInfo, kLogTag, Here(), "start\n");
  const char* const name = vconf_keynode_get_name(node);
  const std::string_view key = name != nullptr ? name : "";
  KAVREL_LOG(kLogInfo, kLogTag, Here(), "keyName: %s\n", key.data());
  const auto found = the_registry.find(key);
  if (found == the_registry.end()) {
    KAVREL_LOG(kLogError, kLogTag, Here(), "value cb has not been registered. nothing to call\n");
    return;
  }
  const std::shared_ptr<CallbackList> list = found->second;
  KAVREL_LOG(kLogInfo, kLogTag, Here(),
             "value cb has been registered. Number of callbacks: [%zu]\n", list->CountLive());
  constexpr SourceLine where = Here();
  valuenode_s record{};
  list->Deliver(
      [&](const KavrelValueCbNode_s& entry) { DeliverTo(where, entry, node, record, user_data); });
}

void AssignNodeInfo(keynode_t* node, valuenode_s& info) {
  KAVREL_LOG(kLogInfo, kLogTag, Here(), "start\n");
  switch (vconf_keynode_get_type(node)) {
    case VCONF_TYPE_STRING:
      info.type = KAVREL_VALUE_STRING;
      info.value.strValue = vconf_keynode_get_str(node);
      break;
    case VCONF_TYPE_INT:
      info.type = KAVREL_VALUE_INT;
      info.value.intValue = vconf_keynode_get_int(node);
      break;
    case VCONF_TYPE_DOUBLE:
      info.type = KAVREL_VALUE_DOUBLE;
      info.value.doubleValue = vconf_keynode_get_dbl(node);
      break;
    case VCONF_TYPE_BOOL:
      info.type = KAVREL_VALUE_BOOL;
      info.value.boolValue = vconf_keynode_get_bool(node);
      break;
    default:
      break;
  }
}

}  // namespace kavrel::state
