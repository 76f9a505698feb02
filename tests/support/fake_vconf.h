// A vconf service without processes: it stands in for libvconf in a test program, keeps values,
// records every call in order, fails when told to, and delivers changes when the test says so.
#pragma once

#include <vconf.h>

#include <cstddef>
#include <functional>
#include <map>
#include <memory>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

/// What a notification carries. Its text is freed and overwritten with it, so that one kept beyond
/// its callback shows.
struct _keynode_t {
  std::string key;
  int type;
  std::variant<int, double, std::string> value;
};

namespace kavrel_test {

/// One of the four types of a key, or a type that nobody knows (kUnknownType).
struct VconfValue {
  int type;
  std::variant<int, double, std::string> value;

  static VconfValue Int(int value) { return {VCONF_TYPE_INT, value}; }
  static VconfValue Bool(int value) { return {VCONF_TYPE_BOOL, value != 0 ? 1 : 0}; }
  static VconfValue Double(double value) { return {VCONF_TYPE_DOUBLE, value}; }
  static VconfValue String(std::string value) { return {VCONF_TYPE_STRING, std::move(value)}; }
  static VconfValue Unknown() { return {kUnknownType, 0}; }

  static constexpr int kUnknownType = 99;
  bool operator==(const VconfValue&) const = default;
};

/// The service of the test that holds it; one at a time. Belongs to one thread.
class FakeVconf {
 public:
  struct Registration {
    std::string key;
    vconf_callback_fn callback;
    void* user_data;
    int serial;  ///< tells a registration from an earlier one of the same callback
    bool operator==(const Registration&) const = default;
  };

  FakeVconf();
  FakeVconf(const FakeVconf&) = delete;
  FakeVconf& operator=(const FakeVconf&) = delete;
  ~FakeVconf();

  /// What the keys hold; the test may change it behind the program's back.
  std::map<std::string, VconfValue>& values() { return values_; }

  /// The calls since the last time, as texts: "vconf_set_int(memory/kavrel/pip_focus, 1)".
  std::vector<std::string> TakeCalls();

  /// Is told of each call as it begins, for a test that wants calls and log lines in one order.
  void Observe(std::function<void(const std::string& call)> observer);

  /// Makes the `nth` call from now of `function` ("vconf_get_int") fail. Keynode functions cannot.
  void Fail(const std::string& function, int nth = 1);

  /// In the order in which they were installed.
  const std::vector<Registration>& registrations() const { return registrations_; }

  /// Tells the key's registrations that it has changed: to the value that it holds (which must
  /// exist), or to the one given. Who ignores the key meanwhile is not called; who joins is not
  /// called either. Returns how many were called.
  std::size_t Deliver(const std::string& key);
  std::size_t Deliver(const std::string& key, const VconfValue& value);

  /// Calls a callback whether or not it is registered, as a service does that is late to forget it.
  static void DeliverLate(vconf_callback_fn callback, void* user_data, const std::string& key,
                          const VconfValue& value);

 private:
  friend struct FakeVconfFunctions;

  void Record(std::string call);
  bool ShouldFail(const std::string& function);

  std::map<std::string, VconfValue> values_;
  std::vector<std::string> calls_;
  std::function<void(const std::string&)> observer_;
  std::map<std::string, int> countdowns_;  // calls until the failing one, by function
  std::vector<Registration> registrations_;
  int next_serial_ = 0;
};

}  // namespace kavrel_test
