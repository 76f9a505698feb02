// The extensions beyond the platform's own interface.
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <new>
#include <string_view>
#include <vconf-ext.h>

#include "c_edge.h"
#include "keynode.h"
#include "service.h"

namespace kavrel_vconf {
namespace {

// Borrows the text; only vconf_ext_get gives it away as a copy.
vconf_ext_value Borrow(const Value& value) {
  vconf_ext_value result{};
  result.type = value.type;
  result.integer = value.integer;
  result.number = value.number;
  result.revision = value.revision;
  if (value.type == VCONF_TYPE_STRING) {
    result.text = const_cast<char*>(value.text.c_str());
    result.text_size = value.text.size();
  }
  return result;
}

int Look(const char* text, Store::Look* look) {
  const std::optional<Key> key = ParseKey(text);
  if (!key) return -EINVAL;
  *look = LookAt(*key);
  return look->error;
}

int Get(const char* key, vconf_ext_value* value) {
  Store::Look look;
  if (value == nullptr) return -EINVAL;
  if (int error = Look(key, &look); error != 0) return error;
  vconf_ext_value result = Borrow(look.value);
  if (result.text != nullptr && (result.text = ::strdup(result.text)) == nullptr) return -ENOMEM;
  *value = result;
  return 0;
}

int GetDouble(const char* key, double* value) {
  Store::Look look;
  if (value == nullptr) return -EINVAL;
  if (int error = Look(key, &look); error != 0) return error;
  if (look.value.type != VCONF_TYPE_DOUBLE) return -ENOMSG;
  *value = look.value.number;
  return 0;
}

int List(const char* prefix, vconf_ext_visit_fn visit, void* user_data) {
  if (prefix == nullptr || visit == nullptr) return -EINVAL;
  const auto tell = [&](const std::string& name, const Value& value) {
    const vconf_ext_value borrowed = Borrow(value);
    return visit(name.c_str(), &borrowed, user_data);
  };
  for (const Family family : {Family::kDurable, Family::kMemory}) {
    const int result = Service::Instance().StoreOf(family).List(prefix, tell);
    if (result != 0) return result;
  }
  return 0;
}

}  // namespace
}  // namespace kavrel_vconf

using namespace kavrel_vconf;

extern "C" {

int vconf_ext_get(const char* key, vconf_ext_value* value) {
  return ToErrno([&] { return Get(key, value); });
}

void vconf_ext_value_clear(vconf_ext_value* value) {
  if (value == nullptr) return;
  ::free(value->text);
  *value = vconf_ext_value{};
}

int vconf_ext_get_revision(const char* key, uint64_t* revision) {
  return ToErrno([&] {
    Store::Look look;
    if (revision == nullptr) return -EINVAL;
    if (int error = Look(key, &look); error != 0) return error;
    *revision = look.value.revision;
    return 0;
  });
}

int vconf_ext_get_dbl(const char* key, double* value) {
  return ToErrno([&] { return GetDouble(key, value); });
}

int vconf_ext_set_dbl(const char* key, double value) {
  return ToErrno([&] {
    const std::optional<Key> parsed = ParseKey(key);
    return parsed ? Change(*parsed, DoubleValue(value)) : -EINVAL;
  });
}

int vconf_ext_unset(const char* key) {
  return ToErrno([&] {
    const std::optional<Key> parsed = ParseKey(key);
    return parsed ? Change(*parsed, Value()) : -EINVAL;
  });
}

int vconf_ext_list(const char* prefix, vconf_ext_visit_fn visit, void* user_data) {
  return ToErrno([&] { return List(prefix, visit, user_data); });
}

uint64_t vconf_ext_keynode_get_revision(keynode_t* node) {
  return node != nullptr ? node->value.revision : 0;
}

const char* vconf_ext_store_directory(const char* family) {
  const std::string_view name = family != nullptr ? family : "";
  try {
    for (const Family known : {Family::kMemory, Family::kDurable}) {
      if (name == FamilyName(known)) return Service::Instance().StoreOf(known).directory().c_str();
    }
  } catch (const std::bad_alloc&) {
    // the first call of a process makes the stores
  }
  return nullptr;
}

}  // extern "C"
