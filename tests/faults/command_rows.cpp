// The command API. Its commands throw nothing but std::bad_alloc; create throws also when the
// platform cannot make a proxy.
#include <kavrel/app_api.h>
#include <kavrel/tidl/KavrelAppApiMethods.h>

#include <memory>
#include <string>
#include <tuple>
#include <type_traits>
#include <vector>

#include "null_service.h"
#include "process_setting.h"
#include "trial.h"
#include "viewer_process.h"

namespace faults_test {
namespace {

constexpr const char* kAppId = "org.zarnet.faults";
constexpr int kUntouched = -77;

// What stands in for an argument of a command.
template <class Argument>
auto MakeArgument() {
  using Value = std::remove_cv_t<std::remove_reference_t<Argument>>;
  const std::string text(100, 't');
  if constexpr (std::is_same_v<Argument, int&>) {
    return kUntouched;
  } else if constexpr (std::is_same_v<Value, const char*>) {
    return "a text that is too long for a string to hold it without memory of its own";
  } else if constexpr (std::is_same_v<Value, std::string>) {
    return text;
  } else if constexpr (std::is_same_v<Value, std::vector<std::string>>) {
    return std::vector<std::string>{text, text};
  } else {
    return Value(1);
  }
}

/// One call of a command; the arguments are made before anything can fail.
template <class Result, class... Arguments>
struct Call {
  Result (*command)(kavrel_api_h, Arguments...);
  std::tuple<decltype(MakeArgument<Arguments>())...> arguments{MakeArgument<Arguments>()...};

  Result operator()(kavrel_api_h handle) {
    return std::apply([&](auto&... values) { return command(handle, values...); }, arguments);
  }
};

kavrel_test::ViewerProcess StartViewer() {
  return kavrel_test::ViewerProcess(kAppId, [](std::string sender, std::string instance) {
    return std::make_unique<kavrel_test::NullService>(std::move(sender), std::move(instance));
  });
}

bool IsAnswered(kavrel_api_h handle) {
  int size = kUntouched;
  return kavrel_api_get_window_size(handle, size) && size == 0;
}

// A failed command is as if it had not been made: the next answer belongs to the next question.
template <class Result, class... Arguments>
std::function<void(Trial&)> CommandFails(Result (*command)(kavrel_api_h, Arguments...)) {
  return [command](Trial& trial) {
    const ProcessSetting setting;
    const auto viewer = StartViewer();
    const kavrel_api_h handle = kavrel_api_create(kAppId);
    ASSERT_NE(handle, nullptr);
    Call<Result, Arguments...> call{command};
    trial.Call([&] { return call(handle); });
    EXPECT_TRUE(trial.end() == End::kReturned || trial.end() == End::kBadAlloc);
    EXPECT_TRUE(IsAnswered(handle));
    kavrel_api_destroy(handle);
  };
}

void Create(Trial& trial) {
  const ProcessSetting setting;
  const auto viewer = StartViewer();
  const auto handle = trial.Call([] { return kavrel_api_create(kAppId); });
  EXPECT_TRUE(trial.occurred() || handle.value_or(nullptr) != nullptr);
  if (!handle) {
    EXPECT_TRUE(trial.end() == End::kBadAlloc || trial.end() == End::kOther);
  }
  if (handle && *handle != nullptr) {
    // When memory runs out as it connects, it is a handle that was never connected.
    EXPECT_TRUE(IsAnswered(*handle) || (trial.occurred() && trial.fault() == Fault::kMemory));
    kavrel_api_destroy(*handle);
  }
  const kavrel_api_h next = kavrel_api_create(kAppId);
  ASSERT_NE(next, nullptr);
  EXPECT_TRUE(IsAnswered(next));
  kavrel_api_destroy(next);
}

void Destroy(Trial& trial) {
  const ProcessSetting setting;
  const auto viewer = StartViewer();
  const kavrel_api_h handle = kavrel_api_create(kAppId);
  ASSERT_NE(handle, nullptr);
  trial.Call([&] { kavrel_api_destroy(handle); });
  EXPECT_EQ(trial.end(), End::kReturned);
  const kavrel_api_h next = kavrel_api_create(kAppId);
  EXPECT_TRUE(IsAnswered(next));
  kavrel_api_destroy(next);
}

}  // namespace

Rows CommandRows() {
  Rows rows = {{"kavrel_api_create", {"kavrel_api_create"}, Create},
               {"kavrel_api_destroy", {"kavrel_api_destroy"}, Destroy}};
#define ADD_COMMAND(id, method, c_name, signature, summary) \
  rows.push_back(                                           \
      {"kavrel_api_" #c_name, {"kavrel_api_" #c_name}, CommandFails(kavrel_api_##c_name)});
  KAVREL_APP_API_METHODS(ADD_COMMAND)
#undef ADD_COMMAND
  return rows;
}

}  // namespace faults_test
