#include "fake_vconf.h"

#include <algorithm>
#include <cerrno>
#include <sstream>
#include <stdexcept>
#include <utility>

#include "failing_allocations.h"
#include "live_texts.h"

namespace kavrel_test {
namespace {

FakeVconf* the_service = nullptr;

FakeVconf& Service() {
  if (the_service == nullptr) throw std::logic_error("a vconf function is called without a fake");
  return *the_service;
}

std::string CallText(std::string_view function, const char* key) {
  return std::string(function) + '(' + (key != nullptr ? key : "NULL");
}

}  // namespace

FakeVconf::FakeVconf() {
  if (the_service != nullptr) throw std::logic_error("there is a fake vconf service already");
  the_service = this;
}

FakeVconf::~FakeVconf() {
  the_service = nullptr;
}

std::vector<std::string> FakeVconf::TakeCalls() {
  return std::exchange(calls_, {});
}

void FakeVconf::Observe(std::function<void(const std::string& call)> observer) {
  observer_ = std::move(observer);
}

void FakeVconf::Record(std::string call) {
  if (observer_) observer_(call);
  calls_.push_back(std::move(call));
}

void FakeVconf::Fail(const std::string& function, int nth) {
  countdowns_[function] = nth;
}

bool FakeVconf::ShouldFail(const std::string& function) {
  const auto countdown = countdowns_.find(function);
  if (countdown == countdowns_.end() || --countdown->second > 0) return false;
  countdowns_.erase(countdown);
  return true;
}

std::size_t FakeVconf::Deliver(const std::string& key) {
  return Deliver(key, VconfValue(values_.at(key)));
}

std::size_t FakeVconf::Deliver(const std::string& key, const VconfValue& value) {
  std::size_t called = 0;
  for (const Registration& one : std::vector<Registration>(registrations_)) {
    if (one.key != key) continue;
    if (std::find(registrations_.begin(), registrations_.end(), one) == registrations_.end()) {
      continue;
    }
    DeliverLate(one.callback, one.user_data, key, value);
    ++called;
  }
  return called;
}

void FakeVconf::DeliverLate(vconf_callback_fn callback, void* user_data, const std::string& key,
                            const VconfValue& value) {
  const auto node = std::make_unique<keynode_t>(keynode_t{key, value.type, value.value});
  callback(node.get(), user_data);
  if (auto* text = std::get_if<std::string>(&node->value)) text->assign(text->size(), '!');
}

// What the C functions do with the service of the test.
struct FakeVconfFunctions {
  static char* GetText(const char* key) {
    const FakeAtWork at_work;
    const VconfValue* value = Find("vconf_get_str", key, VCONF_TYPE_STRING);
    if (value == nullptr) return nullptr;
    return HandOutText(std::get<std::string>(value->value));
  }

  static int GetNumber(const char* function, const char* key, int type, int* out) {
    const FakeAtWork at_work;
    const VconfValue* value = Find(function, key, type);
    if (key == nullptr || out == nullptr) return -EINVAL;
    if (value == nullptr) return -ENOENT;
    *out = std::get<int>(value->value);
    return 0;
  }

  static int Put(const char* function, const char* key, const std::string& shown,
                 const VconfValue* value) {
    const FakeAtWork at_work;
    FakeVconf& service = Service();
    service.Record(CallText(function, key) + ", " + shown + ')');
    if (service.ShouldFail(function)) return -EIO;
    if (key == nullptr || value == nullptr) return -EINVAL;
    service.values_.insert_or_assign(key, *value);
    return 0;
  }

  static int Notify(const char* key, vconf_callback_fn callback, void* user_data) {
    const FakeAtWork at_work;
    FakeVconf& service = Service();
    std::ostringstream text;
    text << CallText("vconf_notify_key_changed", key) << ", "
         << reinterpret_cast<const void*>(callback) << ", " << user_data << ')';
    service.Record(text.str());
    if (service.ShouldFail("vconf_notify_key_changed")) return -EIO;
    if (key == nullptr || callback == nullptr) return -EINVAL;
    if (FindRegistration(key, callback) != service.registrations_.end()) return -EEXIST;
    service.registrations_.push_back({key, callback, user_data, service.next_serial_++});
    return 0;
  }

  static int Ignore(const char* key, vconf_callback_fn callback) {
    const FakeAtWork at_work;
    FakeVconf& service = Service();
    std::ostringstream text;
    text << CallText("vconf_ignore_key_changed", key) << ", "
         << reinterpret_cast<const void*>(callback) << ')';
    service.Record(text.str());
    if (service.ShouldFail("vconf_ignore_key_changed")) return -EIO;
    if (key == nullptr || callback == nullptr) return -EINVAL;
    const auto found = FindRegistration(key, callback);
    if (found == service.registrations_.end()) return -ENOENT;
    service.registrations_.erase(found);
    return 0;
  }

  static void RecordNodeCall(const char* function, const keynode_t* node) {
    const FakeAtWork at_work;
    Service().Record(CallText(function, node != nullptr ? node->key.c_str() : nullptr) + ')');
  }

  template <class T>
  static T NodeNumber(const char* function, const keynode_t* node, int type) {
    RecordNodeCall(function, node);
    return node != nullptr && node->type == type ? std::get<T>(node->value) : T();
  }

 private:
  static const VconfValue* Find(const char* function, const char* key, int type) {
    FakeVconf& service = Service();
    service.Record(CallText(function, key) + ')');
    if (service.ShouldFail(function) || key == nullptr) return nullptr;
    const auto found = service.values_.find(key);
    if (found == service.values_.end() || found->second.type != type) return nullptr;
    return &found->second;
  }

  static std::vector<FakeVconf::Registration>::iterator FindRegistration(
      const char* key, vconf_callback_fn callback) {
    auto& all = Service().registrations_;
    return std::find_if(all.begin(), all.end(), [&](const auto& one) {
      return one.key == key && one.callback == callback;
    });
  }
};

}  // namespace kavrel_test

using kavrel_test::FakeVconfFunctions;
using kavrel_test::VconfValue;

extern "C" {

char* vconf_get_str(const char* key) {
  return FakeVconfFunctions::GetText(key);
}

int vconf_get_bool(const char* key, int* value) {
  return FakeVconfFunctions::GetNumber("vconf_get_bool", key, VCONF_TYPE_BOOL, value);
}

int vconf_get_int(const char* key, int* value) {
  return FakeVconfFunctions::GetNumber("vconf_get_int", key, VCONF_TYPE_INT, value);
}

int vconf_set_str(const char* key, const char* value) {
  if (value == nullptr) return FakeVconfFunctions::Put("vconf_set_str", key, "NULL", nullptr);
  const VconfValue stored = VconfValue::String(value);
  return FakeVconfFunctions::Put("vconf_set_str", key, value, &stored);
}

int vconf_set_bool(const char* key, int value) {
  const VconfValue stored = VconfValue::Bool(value);
  return FakeVconfFunctions::Put("vconf_set_bool", key, std::to_string(value), &stored);
}

int vconf_set_int(const char* key, int value) {
  const VconfValue stored = VconfValue::Int(value);
  return FakeVconfFunctions::Put("vconf_set_int", key, std::to_string(value), &stored);
}

int vconf_notify_key_changed(const char* key, vconf_callback_fn callback, void* user_data) {
  return FakeVconfFunctions::Notify(key, callback, user_data);
}

int vconf_ignore_key_changed(const char* key, vconf_callback_fn callback) {
  return FakeVconfFunctions::Ignore(key, callback);
}

char* vconf_keynode_get_name(keynode_t* node) {
  FakeVconfFunctions::RecordNodeCall("vconf_keynode_get_name", node);
  return node != nullptr ? node->key.data() : nullptr;
}

int vconf_keynode_get_type(keynode_t* node) {
  FakeVconfFunctions::RecordNodeCall("vconf_keynode_get_type", node);
  return node != nullptr ? node->type : -EINVAL;
}

char* vconf_keynode_get_str(keynode_t* node) {
  FakeVconfFunctions::RecordNodeCall("vconf_keynode_get_str", node);
  auto* text = node != nullptr ? std::get_if<std::string>(&node->value) : nullptr;
  return text != nullptr ? text->data() : nullptr;
}

int vconf_keynode_get_int(keynode_t* node) {
  return FakeVconfFunctions::NodeNumber<int>("vconf_keynode_get_int", node, VCONF_TYPE_INT);
}

double vconf_keynode_get_dbl(keynode_t* node) {
  return FakeVconfFunctions::NodeNumber<double>("vconf_keynode_get_dbl", node, VCONF_TYPE_DOUBLE);
}

int vconf_keynode_get_bool(keynode_t* node) {
  return FakeVconfFunctions::NodeNumber<int>("vconf_keynode_get_bool", node, VCONF_TYPE_BOOL);
}

}  // extern "C"
