#include "properties.h"

#include <printable.h>
#include <vconf.h>

#include <algorithm>
#include <cstdlib>
#include <memory>

#include "arguments.h"
#include "log_tap.h"

namespace kavrelctl {
namespace {

using kavrel::state::PropertyInfo;
using kavrel::state::PropertyType;
using nlohmann::ordered_json;

constexpr const char* kLibraryTag = "kavrel-api";

const char* LockText(bool locked) {
  return locked ? "locked" : "unlocked";
}

ordered_json ReadNumber(const PropertyInfo& property) {
  int value = 0;
  if (property.get_number(&value) != 0) return nullptr;
  return property.type == PropertyType::Bool ? ordered_json(value != 0) : ordered_json(value);
}

// The state API's text getters only tell whether there is a value.
ordered_json ReadText(const PropertyInfo& property) {
  const std::unique_ptr<char, decltype(&std::free)> text(vconf_get_str(property.key), &std::free);
  return text != nullptr ? ordered_json(text.get()) : ordered_json(nullptr);
}

ordered_json ReadLocked(const PropertyInfo& property) {
  bool locked = false;
  return property.get_locked(&locked) == 0 ? ordered_json(LockText(locked)) : ordered_json(nullptr);
}

ordered_json Read(const PropertyInfo& property) {
  if (property.get_number != nullptr) return ReadNumber(property);
  return property.get_locked != nullptr ? ReadLocked(property) : ReadText(property);
}

// A key without a value makes the library log an error; a store that is out of order makes the
// store itself log one.
std::string StoreFailure(const std::vector<LogLine>& errors) {
  const auto line = std::find_if(errors.begin(), errors.end(),
                                 [](const LogLine& error) { return error.tag != kLibraryTag; });
  return line == errors.end() ? "" : "the state store is out of order (log: " + line->text + ')';
}

}  // namespace

std::string ValueText(const ordered_json& value) {
  if (value.is_null()) return "-";
  if (!value.is_string()) return value.dump();
  const std::string text = kavrel_programs::Printable(value.get_ref<const std::string&>());
  return text.empty() ? "\"\"" : text;
}

ordered_json NodeValue(const valuenode_s& node) {
  switch (node.type) {
    case KAVREL_VALUE_STRING:
      return node.value.strValue != nullptr ? ordered_json(node.value.strValue) : nullptr;
    case KAVREL_VALUE_INT:
      return node.value.intValue;
    case KAVREL_VALUE_DOUBLE:
      return node.value.doubleValue;
    case KAVREL_VALUE_BOOL:
      return node.value.boolValue != 0;
    default:
      return nullptr;
  }
}

std::optional<ordered_json> ReadProperty(const PropertyInfo& property, std::string& failure) {
  LogTap::Instance().TakeErrors();
  ordered_json value = Read(property);
  failure = StoreFailure(LogTap::Instance().TakeErrors());
  if (value.is_null() && !failure.empty()) return std::nullopt;
  return value;
}

std::string WriteProperty(const PropertyInfo& property, const std::string& text) {
  LogTap::Instance().TakeErrors();
  int result = -1;
  if (property.set_text != nullptr) {
    result = property.set_text(text.c_str());
  } else if (property.type == PropertyType::Bool) {
    result = property.set_number(ParseBool(text).value() ? 1 : 0);
  } else {
    result = property.set_number(ParseInt(text).value());
  }
  if (result == 0) return {};
  const std::string failure = StoreFailure(LogTap::Instance().TakeErrors());
  return failure.empty() ? "the state store refused the value" : failure;
}

}  // namespace kavrelctl
