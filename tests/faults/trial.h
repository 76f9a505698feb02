// One attempt to make a function fail: a process of its own in which the n-th request of one kind
// fails while the function runs.
#pragma once

#include <gtest/gtest.h>

#include <functional>
#include <new>
#include <optional>
#include <ostream>
#include <string>
#include <system_error>
#include <type_traits>
#include <utility>
#include <vector>

#include "faults.h"

namespace faults_test {

using kavrel_test::Fault;

/// The status of a process that std::terminate ended where that is what the documents say; it
/// counts as a trial that went as it should.
inline constexpr int kTerminatedAsDocumented = 66;

/// How a call ended.
enum class End { kReturned, kBadAlloc, kSystemError, kOther };

/// Belongs to the one thread of its process.
class Trial {
 public:
  Trial(Fault fault, int nth) : fault_(fault), nth_(nth) {}

  Fault fault() const { return fault_; }
  /// Whether the fault has occurred, now that Call() was made.
  bool occurred() const { return occurred_; }

  /// Calls `function` with the fault set. Nothing when it threw; end() tells what.
  template <class Function>
  auto Call(Function function) {
    using Result = std::invoke_result_t<Function>;
    if constexpr (std::is_void_v<Result>) {
      return CallValue([&] {
        function();
        return true;
      });
    } else {
      return CallValue(function);
    }
  }

  End end() const { return end_; }

  /// The error that a function which returns negative errno values may return now.
  void ExpectErrno(const std::optional<int>& result, const std::vector<int>& allowed = {0}) const;

 private:
  template <class Function>
  auto CallValue(Function function) -> std::optional<std::invoke_result_t<Function>> {
    std::optional<std::invoke_result_t<Function>> result;
    const kavrel_test::ScopedFault fault(fault_, nth_);
    try {
      result.emplace(function());
    } catch (const std::bad_alloc&) {
      end_ = End::kBadAlloc;
    } catch (const std::system_error&) {
      end_ = End::kSystemError;
    } catch (...) {
      end_ = End::kOther;
    }
    occurred_ = fault.has_occurred();
    return result;
  }

  Fault fault_;
  int nth_;
  bool occurred_ = false;
  End end_ = End::kReturned;
};

/// What is tried, and which exported functions that covers. `body` calls Trial::Call() once, and
/// before and after it what makes the call possible and tells whether all is as it should be:
/// nothing half done, and the same call works now.
struct Row {
  std::string name;
  std::vector<std::string> functions;
  std::function<void(Trial&)> body;
};

using Rows = std::vector<Row>;

/// A fault, and how a test's name calls it.
struct Kind {
  Fault fault;
  const char* name;
};
extern const std::vector<Kind> kKinds;

inline void PrintTo(const Kind& kind, std::ostream* out) {
  *out << kind.name;
}

/// One of several parts that tests share: the `number`-th of `all`, counted from 1.
struct Part {
  int number;
  int all;
};

/// Tries the row with the fault at every place of that part where it can occur: at each `all`-th
/// request from the `number`-th on. Returns how often it did.
int TryEverywhere(const Row& row, const Kind& kind, const Part& part);

// ---- shapes that many functions have

/// Documented to return, and to return 0 or a negative errno value.
template <class Function>
std::function<void(Trial&)> ReturnsErrno(Function function) {
  return [function](Trial& trial) {
    trial.ExpectErrno(trial.Call(function));
    EXPECT_EQ(function(), 0) << "once there is no fault any more";
  };
}

Rows operator+(Rows rows, const Rows& more);

/// The rooms' rows, one list a room.
Rows DlogRows();
Rows LwipcRows();
Rows VconfRows();
Rows RpcPortRows();
Rows CompositorRows();
Rows StateRows();
Rows CommandRows();
Rows ServiceRows();
Rows ValueRows();
Rows FrameworkRows();

}  // namespace faults_test
