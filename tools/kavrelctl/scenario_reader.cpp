#include "scenario_reader.h"

#include <control_protocol.h>
#include <printable.h>

#include <algorithm>
#include <charconv>

#include "arguments.h"
#include "edit_distance.h"
#include "method_names.h"
#include "scenario_conditions.h"
#include "scenario_fields.h"

namespace kavrelctl {
namespace {

using kavrel::app_api::ItemType;
using kavrel::app_api::kMethods;
using kavrel::app_api::MethodInfo;
using nlohmann::ordered_json;

constexpr double kLongestWithinSeconds = 3600;

// --- call

const MethodInfo& ReadMethodName(const YamlNode& node) {
  const std::string& name = TextOf(node, "call");
  std::vector<std::string> names;
  for (const MethodInfo& method : kMethods) {
    names.push_back(KebabName(method.name));
    if (names.back() == name) return method;
  }
  throw TextMistake(node.line, QuotedValue(name) +
                                   " is no method (\"kavrelctl methods\" lists them)" +
                                   DidYouMean(name, names));
}

std::string Takes(const MethodInfo& method) {
  return KebabName(method.name) + " takes " +
         (method.argument_count == 0 ? "nothing" : ArgumentSynopsis(method));
}

std::vector<std::string> ReadArgument(const YamlNode& node, ItemType type,
                                      const std::string& label) {
  if (type == ItemType::StringList) return TextsOf(node, label);
  const std::string& text = TextOf(node, label);
  const std::string mistake = ValueMistake(type, text);
  if (mistake.empty()) return {text};
  throw TextMistake(node.line, label + ": " + mistake);
}

// The node of one argument: by its place in a list, or by its name in a map.
const YamlNode& ArgumentNode(const MethodInfo& method, const YamlNode& with, std::size_t i) {
  if (with.kind == YamlNode::Kind::kList) return with.items.at(i);
  const YamlNode* const node = with.Find(std::string(method.argument_names[i]));
  if (node != nullptr) return *node;
  throw TextMistake(with.line, "with: \"" + std::string(method.argument_names[i]) +
                                   "\" is missing; " + Takes(method));
}

std::string WhatIsGiven(const YamlNode& with) {
  if (with.kind != YamlNode::Kind::kList) return with.KindName();
  return std::to_string(with.items.size()) + " arguments";
}

void CheckArgumentNames(const MethodInfo& method, const YamlNode& with) {
  if (with.kind == YamlNode::Kind::kMap) {
    std::vector<std::string> names;
    for (std::size_t i = 0; i < method.argument_count; ++i) {
      names.emplace_back(method.argument_names[i]);
    }
    CheckFields(with, "with", names);
    return;
  }
  if (with.kind == YamlNode::Kind::kList && with.items.size() == method.argument_count) return;
  throw TextMistake(with.line, "with: " + WhatIsGiven(with) + "; " + Takes(method));
}

std::vector<std::vector<std::string>> ReadArguments(const MethodInfo& method,
                                                    const YamlNode& step) {
  const YamlNode* const given = step.Find("with");
  YamlNode none;
  none.kind = YamlNode::Kind::kList;
  none.line = step.line;
  const YamlNode& with = given != nullptr ? *given : none;
  CheckArgumentNames(method, with);
  std::vector<std::vector<std::string>> arguments;
  for (std::size_t i = 0; i < method.argument_count; ++i) {
    const std::string label = "with: " + std::string(method.argument_names[i]);
    arguments.push_back(ReadArgument(ArgumentNode(method, with, i), method.arguments[i], label));
  }
  return arguments;
}

ordered_json ReadAnswer(const MethodInfo& method, const YamlNode& step) {
  const YamlNode* const answer = step.Find("answer");
  if (answer == nullptr) return nullptr;
  if (!method.HasReply()) {
    throw TextMistake(answer->line, "answer: " + KebabName(method.name) + " is not answered");
  }
  std::vector<std::string> names;
  for (std::size_t i = 0; i < method.out_value_count; ++i) {
    names.emplace_back(method.out_value_names[i]);
  }
  names.emplace_back("result");
  CheckFields(*answer, "answer", names);
  ordered_json values = ordered_json::object();
  for (const YamlField& field : answer->fields) {
    const ItemType type = field.name == "result" ? method.result : ItemType::Int32;
    const std::string text = ReadArgument(field.value, type, "answer: " + field.name).front();
    values[field.name] = type == ItemType::Bool ? ordered_json(ParseBool(text).value())
                                                : ordered_json(ParseInt(text).value());
  }
  return values;
}

CallAction ReadCall(const YamlNode& step) {
  CallAction call;
  call.method = &ReadMethodName(Required(step, "call"));
  call.arguments = ReadArguments(*call.method, step);
  call.answer = ReadAnswer(*call.method, step);
  return call;
}

// --- set, key, wait, expect, screenshot

SetAction ReadSet(const YamlNode& step) {
  const YamlNode& name = Required(step, "set");
  SetAction set;
  set.property = &ReadPropertyName(name, "set");
  if (!set.property->IsWritable()) {
    throw TextMistake(name.line, "set: " + QuotedValue(name.text) + " is set by the viewer alone");
  }
  set.value = ReadPropertyValue(*set.property, Required(step, "to"), "to");
  return set;
}

std::vector<std::string> DeviceNames() {
  return {kavrel_programs::kKeyDevices.begin(), kavrel_programs::kKeyDevices.end()};
}

KeyAction ReadKey(const YamlNode& step) {
  const YamlNode& name = Required(step, "key");
  KeyAction key;
  key.key = TextOf(name, "key");
  const std::string mistake = kavrel_programs::KeyMistake(key.key);
  if (!mistake.empty()) throw TextMistake(name.line, "key: " + mistake);
  if (const YamlNode* const action = step.Find("action")) {
    CheckWord(*action, "action", {"tap", "press", "release"});
    key.kind = action->text == "tap"     ? KeyAction::Kind::kTap
               : action->text == "press" ? KeyAction::Kind::kPress
                                         : KeyAction::Kind::kRelease;
  }
  if (const YamlNode* const device = step.Find("device")) {
    CheckWord(*device, "device", DeviceNames());
    key.device = kavrel_programs::FindKeyDevice(device->text).value();
  }
  if (const YamlNode* const taker = step.Find("taken-by"))
    key.taken_by = TextOf(*taker, "taken-by");
  return key;
}

double ReadWithin(const YamlNode& step) {
  const YamlNode* const within = step.Find("within");
  if (within == nullptr) return kDefaultWithinSeconds;
  const std::string& text = TextOf(*within, "within");
  double seconds = -1;
  const char* const end = text.data() + text.size();
  const auto parsed = std::from_chars(text.data(), end, seconds);
  if (parsed.ec == std::errc() && parsed.ptr == end && seconds >= 0 &&
      seconds <= kLongestWithinSeconds) {
    return seconds;
  }
  throw TextMistake(within->line,
                    "within: " + QuotedValue(text) + " is not a number of seconds from 0 to 3600");
}

WaitAction ReadWait(const YamlNode& step) {
  return {ReadCondition(Required(step, "wait"), "wait"), ReadWithin(step)};
}

ExpectAction ReadExpect(const YamlNode& step) {
  return {ReadCondition(Required(step, "expect"), "expect")};
}

ScreenshotAction ReadScreenshot(const YamlNode& step) {
  const YamlNode& file = Required(step, "screenshot");
  if (TextOf(file, "screenshot").empty()) {
    throw TextMistake(file.line, "screenshot: \"\" is no file's name");
  }
  return {file.text};
}

// --- Steps

struct StepKind {
  const char* name;
  std::initializer_list<const char*> fields;
  Action (*read)(const YamlNode& step);
};

constexpr StepKind kStepKinds[] = {
    {"call", {"call", "with", "answer"}, [](const YamlNode& s) -> Action { return ReadCall(s); }},
    {"set", {"set", "to"}, [](const YamlNode& s) -> Action { return ReadSet(s); }},
    {"key",
     {"key", "action", "device", "taken-by"},
     [](const YamlNode& s) -> Action { return ReadKey(s); }},
    {"wait", {"wait", "within"}, [](const YamlNode& s) -> Action { return ReadWait(s); }},
    {"expect", {"expect"}, [](const YamlNode& s) -> Action { return ReadExpect(s); }},
    {"screenshot", {"screenshot"}, [](const YamlNode& s) -> Action { return ReadScreenshot(s); }},
};

std::vector<std::string> StepNames() {
  std::vector<std::string> names;
  for (const StepKind& kind : kStepKinds) names.emplace_back(kind.name);
  return names;
}

Action ReadAction(const YamlNode& step) {
  if (step.kind != YamlNode::Kind::kMap || step.fields.empty()) {
    throw TextMistake(step.line, std::string("a map with one of ") + Listed(StepNames()) +
                                     " is wanted, not " + step.KindName());
  }
  for (const StepKind& kind : kStepKinds) {
    if (step.Find(kind.name) == nullptr) continue;
    CheckFields(step, kind.name, kind.fields);
    return kind.read(step);
  }
  const std::string& first = step.fields.front().name;
  throw TextMistake(step.line, QuotedValue(first) + " is no step; a step is one of " +
                                   Listed(StepNames()) + DidYouMean(first, StepNames()));
}

/// The lines of the file, for what is shown about a step.
class Lines {
 public:
  explicit Lines(const std::string& text) : text_(text) {}

  /// Line `number`, at or behind the one asked for last; without blanks and the dash of a list.
  std::string At(int number) {
    for (; line_ < number; ++line_) {
      const std::size_t end = text_.find('\n', begin_);
      if (end == std::string::npos) break;
      begin_ = end + 1;
    }
    std::string line = text_.substr(begin_, text_.find('\n', begin_) - begin_);
    line.erase(0, std::min(line.find_first_not_of(" \t-"), line.size()));
    while (!line.empty() && (line.back() == ' ' || line.back() == '\r')) line.pop_back();
    return kavrel_programs::Printable(line, 100);
  }

 private:
  const std::string& text_;
  std::size_t begin_ = 0;
  int line_ = 1;
};

std::vector<Step> ReadSteps(const YamlNode& list, const std::string& text) {
  if (list.kind != YamlNode::Kind::kList || list.items.empty()) {
    throw TextMistake(list.line, "steps: a list with at least one step is wanted");
  }
  if (list.items.size() > kMostSteps) {
    throw TextMistake(list.line, std::to_string(list.items.size()) + " steps; at most " +
                                     std::to_string(kMostSteps) + " are allowed");
  }
  Lines lines(text);
  std::vector<Step> steps;
  for (const YamlNode& item : list.items) {
    try {
      steps.push_back({item.line, lines.At(item.line), ReadAction(item)});
    } catch (const TextMistake& mistake) {
      throw TextMistake(mistake.line,
                        "step " + std::to_string(steps.size() + 1) + ": " + mistake.what());
    }
  }
  return steps;
}

}  // namespace

Scenario ReadScenario(const std::string& text) {
  if (text.size() > kLargestScenario) {
    throw TextMistake(0, std::to_string(text.size()) + " bytes; at most " +
                             std::to_string(kLargestScenario) + " are allowed");
  }
  const YamlNode root = ReadYaml(text);
  if (root.kind == YamlNode::Kind::kNothing) {
    throw TextMistake(0, "nothing in it; a scenario is a map with steps");
  }
  CheckFields(root, "a scenario", {"scenario", "steps"});
  Scenario scenario;
  if (const YamlNode* const title = root.Find("scenario")) {
    scenario.title = TextOf(*title, "scenario");
  }
  scenario.steps = ReadSteps(Required(root, "steps"), text);
  return scenario;
}

}  // namespace kavrelctl
