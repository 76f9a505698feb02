// What the tests of the state API stand on: a fake store, and one timeline in which its calls and
// the library's log lines stand in the order in which they happened.
#pragma once

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <kavrel/state_api.h>

#include <ostream>
#include <sstream>
#include <string>
#include <vector>

#include "dlog_capture.h"
#include "fake_vconf.h"

namespace kavrel_test {

// Log lines as the timeline shows them: everything of the line but its number.
std::string Info(const std::string& file, const std::string& function, const std::string& text);
std::string Error(const std::string& file, const std::string& function, const std::string& text);

inline constexpr const char* kInternalFile = "KavrelVconfInternal.cpp";

/// Belongs to the test's thread. Every text of the store must have been freed at the end.
class StateTest : public ::testing::Test {
 protected:
  StateTest();
  ~StateTest() override;

  /// What happened since the last time.
  std::vector<std::string> TakeTimeline();

  FakeVconf store_;

 private:
  std::vector<std::string> timeline_;
  DlogCapture log_;
};

/// A call of one of the callbacks below.
struct Delivery {
  int slot;
  int type;
  std::string text;  ///< a string's text
  double number;     ///< the value of any other type
  void* user_data;
  bool operator==(const Delivery&) const = default;
};
void PrintTo(const Delivery& delivery, std::ostream* out);

inline constexpr int kSlots = 6;
/// Functions of their own, because a registration is told by its function. Each records its calls.
kavrel_value_changed_cb Slot(int slot);
/// The calls since the last time.
std::vector<Delivery> TakeDeliveries();

/// The address as the library's log lines and the fake store show it.
template <class Function>
std::string Address(Function* function) {
  std::ostringstream text;
  text << reinterpret_cast<const void*>(function);
  return text.str();
}

}  // namespace kavrel_test
