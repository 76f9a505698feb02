#include "journal.h"

#include <kavrel/state_properties.h>
#include <vconf.h>

#include <cstdlib>
#include <memory>
#include <utility>

namespace viewer {
namespace {

using kavrel::state::kProperties;
using kavrel::state::PropertyInfo;
using kavrel::state::PropertyType;
using nlohmann::ordered_json;

struct FreeText {
  void operator()(char* text) const { std::free(text); }
};

// From the store itself: the state API logs an error for a property that nobody has set yet.
ordered_json Read(const PropertyInfo& property) {
  int number = 0;
  switch (property.type) {
    case PropertyType::Int:
      return vconf_get_int(property.key, &number) == 0 ? ordered_json(number) : nullptr;
    case PropertyType::Bool:
      return vconf_get_bool(property.key, &number) == 0 ? ordered_json(number != 0) : nullptr;
    default:
      break;
  }
  const std::unique_ptr<char, FreeText> text(vconf_get_str(property.key));
  return text != nullptr ? ordered_json(text.get()) : nullptr;
}

}  // namespace

Journal::Journal(OperationLog& log, Television& television) : log_(log) {
  television.AddListener([this](const Change& /*change*/) {
    if (follower_) Tell({{"event", "screen"}});
  });
}

void Journal::Begin(Follower follower) {
  follower_ = std::move(follower);
  values_ = ReadAll();
  published_.clear();
  log_.SetListener([this](const ordered_json& event) { TellOperation(event); });
}

void Journal::End() {
  log_.SetListener(nullptr);
  follower_ = nullptr;
}

unsigned Journal::Look() {
  if (!follower_) return sequence_;
  ordered_json state = TellChanges();
  if (!state.empty()) Tell({{"event", "state"}, {"state", std::move(state)}});
  return sequence_;
}

void Journal::TellOperation(const ordered_json& event) {
  ordered_json state = TellChanges();
  ordered_json all = event;
  if (event.contains("method")) all["event"] = "call";
  all["state"] = std::move(state);
  Tell(std::move(all));
}

ordered_json Journal::TellChanges() {
  ordered_json state = ordered_json::object();
  Values now = ReadAll();
  std::swap(values_, now);
  const Values& before = now;
  for (const PropertyInfo& property : kProperties) {
    const ordered_json& value = values_.at(property.name);
    if (value == before.at(property.name)) continue;
    if (published_.count(property.key) != 0) {
      state[property.name] = value;
    } else {
      Tell({{"event", "set"}, {"property", property.name}, {"value", value}});
    }
  }
  published_.clear();
  return state;
}

void Journal::Tell(ordered_json event) {
  event["sequence"] = ++sequence_;
  follower_(event);
}

Journal::Values Journal::ReadAll() {
  Values values;
  for (const PropertyInfo& property : kProperties) values[property.name] = Read(property);
  return values;
}

}  // namespace viewer
