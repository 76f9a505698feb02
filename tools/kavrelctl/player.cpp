#include "player.h"

#include <glib.h>

#include <algorithm>
#include <cstdio>
#include <utility>

#include "call.h"
#include "condition_check.h"
#include "failure_texts.h"
#include "properties.h"
#include "scenario_conditions.h"
#include "scenario_fields.h"
#include "screenshot_file.h"
#include "wait_loop.h"

namespace kavrelctl {
namespace {

using kavrel::app_api::MethodInfo;
using kavrel::state::PropertyInfo;
using kavrel_programs::ControlCommand;
using kavrel_programs::ControlRequest;
using nlohmann::ordered_json;

constexpr std::size_t kMostCallsKept = 1000;

StepOutcome Failed(const std::string& failure) {
  StepOutcome outcome;
  outcome.holds = false;
  outcome.failure = failure;
  return outcome;
}

StepOutcome Lost(const std::string& failure) {
  StepOutcome outcome = Failed(failure);
  outcome.lost = true;
  return outcome;
}

bool NeedsControl(const Action& action) {
  if (const auto* wait = std::get_if<WaitAction>(&action)) return NeedsControl(wait->condition);
  if (const auto* expect = std::get_if<ExpectAction>(&action)) {
    return NeedsControl(expect->condition);
  }
  return std::holds_alternative<KeyAction>(action) ||
         std::holds_alternative<ScreenshotAction>(action);
}

const CallableMethod& CallableOf(const MethodInfo& method) {
  const auto& all = CallableMethods();
  return *std::find_if(all.begin(), all.end(), [&](const CallableMethod& callable) {
    return callable.info->id == method.id;
  });
}

ordered_json ArgumentsJson(const MethodInfo& method, const std::vector<Argument>& arguments) {
  ordered_json json = ordered_json::object();
  for (std::size_t i = 0; i < arguments.size(); ++i) {
    json[std::string(method.argument_names[i])] =
        std::visit([](const auto& value) { return ordered_json(value); }, arguments[i]);
  }
  return json;
}

StepOutcome Compare(const ordered_json& expected, const ordered_json& answer, bool refused) {
  StepOutcome outcome;
  if (!answer.is_null()) outcome.answer = answer.dump();
  if (expected.is_null()) {
    outcome.holds = !refused;
    if (refused)
      outcome.expected =
          "an answer other than false (the viewer refuses these values, "
          "or cannot do this now)";
  } else {
    outcome.expected = "answer " + expected.dump();
    for (const auto& [name, value] : expected.items()) {
      outcome.holds = outcome.holds && answer.value(name, ordered_json()) == value;
    }
  }
  outcome.seen = "answer " + answer.dump();
  return outcome;
}

/// Being told of a property's changes, for as long as it lives. What is told does not matter: the
/// main context has gone round.
class PropertyWatch {
 public:
  explicit PropertyWatch(const Condition& condition) {
    const auto* const property = std::get_if<PropertyCondition>(&condition);
    if (property == nullptr || !property->property->IsWatchable()) return;
    if (property->property->watch(&PropertyWatch::Changed, nullptr) == 0) {
      property_ = property->property;
    }
  }
  PropertyWatch(const PropertyWatch&) = delete;
  PropertyWatch& operator=(const PropertyWatch&) = delete;
  ~PropertyWatch() {
    if (property_ != nullptr) property_->unwatch(&PropertyWatch::Changed);
  }

 private:
  static void Changed(valuenode_s* /*node*/, void* /*nothing*/) {}

  const PropertyInfo* property_ = nullptr;
};

double SecondsSince(gint64 begin) {
  return static_cast<double>(g_get_monotonic_time() - begin) / 1e6;
}

}  // namespace

std::optional<std::string> Player::Connect() {
  if (auto failure = viewer_.Connect()) return failure;
  auto failure = control_.Connect();
  if (!failure) {
    const auto followed = control_.Follow([this](ordered_json event) {
      if (event.value("event", "") != "call" || calls_.size() == kMostCallsKept) return;
      calls_.push_back(std::move(event));
    });
    if (const auto* refusal = std::get_if<ControlFailure>(&followed)) failure = *refusal;
  }
  has_control_ = !failure;
  const bool needs_it = std::any_of(scenario_.steps.begin(), scenario_.steps.end(),
                                    [](const Step& step) { return NeedsControl(step.action); });
  if (failure && needs_it) return failure->message;
  return std::nullopt;
}

int Player::Play(bool keeps_going) {
  if (const auto failure = Connect()) {
    report_.Fail(*failure);
    report_.Finish();
    return kFailed;
  }
  bool all_hold = true;
  for (std::size_t i = 0; i < scenario_.steps.size(); ++i) {
    report_.Begin(i);
    const gint64 begin = g_get_monotonic_time();
    const StepOutcome outcome = Do(scenario_.steps[i].action);
    if (!report_.End(i, outcome, SecondsSince(begin))) return kFailed;
    all_hold = all_hold && outcome.holds;
    if (outcome.lost || (!outcome.holds && !keeps_going)) break;
  }
  return report_.Finish() && all_hold ? kDone : kFailed;
}

StepOutcome Player::Do(const Action& action) {
  return std::visit([this](const auto& one) { return this->Do(one); }, action);
}

StepOutcome Player::Do(const CallAction& call) {
  const MethodInfo& method = *call.method;
  while (g_main_context_iteration(nullptr, FALSE) != FALSE) {
  }
  calls_.clear();
  std::string failure;
  const auto arguments = ToArguments(method, call.arguments);
  const auto answer = viewer_.Call(CallableOf(method), arguments, failure);
  if (!answer) return Lost(failure);
  if (!method.HasReply()) return WaitUntilCarriedOut(call);
  return Compare(call.answer, AnswerJson(method, *answer), IsRefusal(*answer));
}

// A call without an answer is only on its way. The next step is to find what it has done.
StepOutcome Player::WaitUntilCarriedOut(const CallAction& call) {
  if (!has_control_) return {};
  const ordered_json arguments =
      ArgumentsJson(*call.method, ToArguments(*call.method, call.arguments));
  const auto is_it = [&](const ordered_json& event) {
    return event.value("method", "") == call.method->name &&
           event.value("arguments", ordered_json()) == arguments;
  };
  const auto is_carried_out = [&] {
    return IsLost() || std::any_of(calls_.begin(), calls_.end(), is_it);
  };
  const bool in_time = WaitUntil({PatienceSeconds(settings_), false}, is_carried_out);
  if (IsLost()) return Lost(LostText(settings_));
  if (in_time) return {};
  return Lost(ViewerName(settings_) + " has not carried it out within " + LimitText(settings_) +
              kWaitLonger);
}

StepOutcome Player::Do(const SetAction& set) {
  const std::string failure = WriteProperty(*set.property, set.value);
  return failure.empty() ? StepOutcome{}
                         : Failed("cannot set " + std::string(set.property->name) + ": " + failure);
}

StepOutcome Player::SendKey(const KeyAction& key, bool released) {
  ControlRequest request;
  request.command = ControlCommand::kKey;
  request.key = key.key;
  request.released = released;
  request.device = key.device;
  const auto answer = control_.Ask(request);
  if (const auto* failure = std::get_if<ControlFailure>(&answer)) {
    return Lost(IsLost() ? LostText(settings_) : failure->message);
  }
  StepOutcome outcome;
  const auto taken = ordered_json::parse(std::get<std::string>(answer), nullptr, false);
  if (!taken.is_object() || !taken.contains("taken_by")) return Failed(kNotUnderstood);
  const bool by_plugin = taken.at("taken_by") == "plugin" && taken.contains("plugin");
  const ordered_json& taker = taken.at(by_plugin ? "plugin" : "taken_by");
  if (!key.taken_by) return outcome;
  outcome.expected = "taken by " + QuotedValue(*key.taken_by);
  outcome.seen = "taken by " + taker.dump();
  outcome.holds = taker == *key.taken_by;
  return outcome;
}

StepOutcome Player::Do(const KeyAction& key) {
  StepOutcome outcome = SendKey(key, key.kind == KeyAction::Kind::kRelease);
  if (key.kind != KeyAction::Kind::kTap || outcome.lost) return outcome;
  // Whoever has taken the press, or nobody, is told of the release.
  KeyAction release = key;
  release.taken_by.reset();
  const StepOutcome released = SendKey(release, true);
  return released.holds ? outcome : released;
}

StepOutcome Player::Do(const WaitAction& wait) {
  const PropertyWatch watch(wait.condition);
  ControlConnection* const control = has_control_ ? &control_ : nullptr;
  Verdict verdict;
  const auto is_over = [&] {
    if (IsLost()) return true;
    verdict = Check(wait.condition, control);
    return verdict.holds || !verdict.failure.empty();
  };
  WaitUntil({wait.within_seconds, HasNoEvents(wait.condition)}, is_over);
  if (IsLost()) return Lost(LostText(settings_));
  if (!verdict.failure.empty()) return Failed(verdict.failure);
  char limit[32];
  (void)std::snprintf(limit, sizeof limit, " within %g s", wait.within_seconds);
  StepOutcome outcome;
  outcome.holds = verdict.holds;
  outcome.expected = Describe(wait.condition) + limit;
  outcome.seen = verdict.seen;
  return outcome;
}

StepOutcome Player::Do(const ExpectAction& expect) {
  const Verdict verdict = Check(expect.condition, has_control_ ? &control_ : nullptr);
  if (!verdict.failure.empty())
    return IsLost() ? Lost(LostText(settings_)) : Failed(verdict.failure);
  StepOutcome outcome;
  outcome.holds = verdict.holds;
  outcome.expected = Describe(expect.condition);
  outcome.seen = verdict.seen;
  return outcome;
}

StepOutcome Player::Do(const ScreenshotAction& screenshot) {
  ControlRequest request;
  request.command = ControlCommand::kScreenshot;
  const SavedScreenshot saved = SaveScreenshot(control_.Ask(request), screenshot.file);
  return saved.failure.empty() ? StepOutcome{} : Failed(saved.failure);
}

}  // namespace kavrelctl
