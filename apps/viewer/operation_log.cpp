#include "operation_log.h"

#include <printable.h>

namespace viewer {
namespace {

using kavrel_programs::Printable;
using nlohmann::ordered_json;

constexpr std::size_t kMostElements = 8;

// Clients may send any bytes; JSON holds UTF-8 only.
std::string Dumped(const ordered_json& line) {
  return line.dump(-1, ' ', false, ordered_json::error_handler_t::replace);
}

std::string TextOf(const ordered_json& value) {
  if (value.is_string()) return '"' + Printable(value.get_ref<const std::string&>()) + '"';
  if (!value.is_array()) return value.dump();
  std::string text = "[";
  for (std::size_t i = 0; i < value.size() && i < kMostElements; ++i) {
    if (i > 0) text += ", ";
    text += TextOf(value[i]);
  }
  return text + (value.size() > kMostElements ? ", ...]" : "]");
}

}  // namespace

void OperationLog::Write(const Operation& operation) {
  ++sequence_;
  const std::string text = TextLine(operation);
  if (format_ == Format::kText) writer_.Write(text);
  End(text, format_ == Format::kJson || listener_ ? JsonLine(operation) : ordered_json());
}

void OperationLog::WriteEvent(const std::string& text, const std::string& event,
                              const ordered_json& fields) {
  const std::string line_of_text = Printable(text) + Effects();
  if (format_ == Format::kText) writer_.Write(line_of_text);
  ordered_json line = {{"event", event}};
  line.update(fields);
  if (!effects_.empty()) line["effects"] = effects_;
  End(line_of_text, line);
}

void OperationLog::End(const std::string& text, const ordered_json& line) {
  if (format_ == Format::kJson) writer_.Write(Dumped(line));
  effects_.clear();
  if (text_listener_) text_listener_(text);
  if (listener_) listener_(line);
}

// #7 kavrelctl MoveSelectionWindowTo(9, 9) = true: selection window at 9,9, 960x540
std::string OperationLog::TextLine(const Operation& operation) const {
  std::string line = '#' + std::to_string(sequence_) + ' ' + Printable(operation.sender) + ' ' +
                     operation.method.name + '(';
  const char* separator = "";
  for (const ordered_json& argument : operation.arguments) {
    line += separator + TextOf(argument);
    separator = ", ";
  }
  line += ')';
  if (!operation.result.is_null()) line += " = " + TextOf(operation.result);
  for (const auto& [name, value] : operation.values.items())
    line += ", " + name + ' ' + value.dump();
  return line + Effects();
}

std::string OperationLog::Effects() const {
  std::string text;
  const char* separator = ": ";
  for (const std::string& effect : effects_) {
    text += separator + Printable(effect);
    separator = "; ";
  }
  return text;
}

ordered_json OperationLog::JsonLine(const Operation& operation) const {
  return {
      {"sequence", sequence_},
      {"client", {{"sender", operation.sender}, {"instance", operation.instance}}},
      {"method", operation.method.name},
      {"arguments", operation.arguments},
      {"values", operation.values},
      {"result", operation.result},
      {"effects", effects_},
  };
}

}  // namespace viewer
