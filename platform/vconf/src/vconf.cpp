// The C interface: checks, calls, and turns whatever goes wrong into errno values.
#include <vconf.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>

#include "c_edge.h"
#include "keynode.h"
#include "read_cache.h"
#include "service.h"

namespace kavrel_vconf {
namespace {

// A key that this thread has read and nobody has changed since: no check, no lock, no allocation.
const Value* FindKept(const HashedName& name) {
  const ReadCache* cache = ReadCache::OfThisThread();
  const Store::Look* look = cache != nullptr ? cache->Find(name) : nullptr;
  return look != nullptr && look->error == 0 ? &look->value : nullptr;
}

// Calls take(value) with what the key holds. 0, or negative: no such key or value, or another type.
template <typename Take>
int Get(const char* text, int type, const Take& take) {
  const std::optional<HashedName> name = HashName(text);
  if (!name) return -EINVAL;
  if (const Value* kept = FindKept(*name); kept != nullptr) {
    return kept->type == type ? take(*kept) : -ENOMSG;
  }
  const std::optional<Key> key = ParseKey(*name);
  if (!key) return -EINVAL;
  const Store::Look look = LookAt(*key);
  if (look.error != 0) return look.error;
  return look.value.type == type ? take(look.value) : -ENOMSG;
}

int GetInteger(const char* text, int type, int* integer) {
  if (integer == nullptr) return -EINVAL;
  return Get(text, type, [integer](const Value& value) {
    *integer = value.integer;
    return 0;
  });
}

int GetString(const char* text, char** copy) {
  return Get(text, VCONF_TYPE_STRING, [copy](const Value& value) {
    *copy = ::strdup(value.text.c_str());
    return *copy != nullptr ? 0 : -ENOMEM;
  });
}

int Set(const char* text, const Value& value) {
  const std::optional<Key> key = ParseKey(text);
  return key ? Change(*key, value) : -EINVAL;
}

int SetString(const char* key, const char* text) {
  if (text == nullptr) return -EINVAL;
  const std::size_t size = ::strnlen(text, kMaximumTextSize + 1);
  if (size > kMaximumTextSize) return -E2BIG;
  return Set(key, StringValue({text, size}));
}

bool Holds(const keynode_t* node, int type) {
  return node != nullptr && node->value.type == type;
}

}  // namespace
}  // namespace kavrel_vconf

using namespace kavrel_vconf;

extern "C" {

char* vconf_get_str(const char* key) {
  char* copy = nullptr;
  const int error = ToErrno([&] { return GetString(key, &copy); });
  if (error != 0) errno = -error;
  return copy;
}

int vconf_get_bool(const char* key, int* value) {
  return ToErrno([&] { return GetInteger(key, VCONF_TYPE_BOOL, value); });
}

int vconf_get_int(const char* key, int* value) {
  return ToErrno([&] { return GetInteger(key, VCONF_TYPE_INT, value); });
}

int vconf_set_str(const char* key, const char* value) {
  return ToErrno([&] { return SetString(key, value); });
}

int vconf_set_bool(const char* key, int value) {
  return ToErrno([&] { return Set(key, BoolValue(value)); });
}

int vconf_set_int(const char* key, int value) {
  return ToErrno([&] { return Set(key, IntValue(value)); });
}

int vconf_notify_key_changed(const char* key, vconf_callback_fn cb, void* user_data) {
  return ToErrno([&] {
    const std::optional<Key> parsed = ParseKey(key);
    if (!parsed || cb == nullptr) return -EINVAL;
    return Service::Instance().registry().Add(*parsed, cb, user_data);
  });
}

int vconf_ignore_key_changed(const char* key, vconf_callback_fn cb) {
  return ToErrno([&] {
    const std::optional<Key> parsed = ParseKey(key);
    if (!parsed || cb == nullptr) return -EINVAL;
    return Service::Instance().registry().Remove(*parsed, cb);
  });
}

char* vconf_keynode_get_name(keynode_t* node) {
  return node != nullptr ? node->name.data() : nullptr;
}

char* vconf_keynode_get_str(keynode_t* node) {
  return Holds(node, VCONF_TYPE_STRING) ? node->value.text.data() : nullptr;
}

int vconf_keynode_get_type(keynode_t* node) {
  return node != nullptr ? node->value.type : -EINVAL;
}

int vconf_keynode_get_int(keynode_t* node) {
  return Holds(node, VCONF_TYPE_INT) ? node->value.integer : 0;
}

double vconf_keynode_get_dbl(keynode_t* node) {
  return Holds(node, VCONF_TYPE_DOUBLE) ? node->value.number : 0;
}

int vconf_keynode_get_bool(keynode_t* node) {
  return Holds(node, VCONF_TYPE_BOOL) ? node->value.integer : 0;
}

}  // extern "C"
