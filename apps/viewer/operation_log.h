// The list of operations as they happen, for people and for programs.
#pragma once

#include <kavrel/tidl/KavrelAppApiMethods.h>

#include <functional>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "line_writer.h"

namespace viewer {

/// One operation that has been carried out.
struct Operation {
  const kavrel::app_api::MethodInfo& method;
  std::string sender;    ///< the client's application id
  std::string instance;  ///< its connection
  nlohmann::ordered_json arguments = nlohmann::ordered_json::object();  ///< by name, in wire order
  nlohmann::ordered_json values = nlohmann::ordered_json::object();     ///< out values by name
  nlohmann::ordered_json result = nullptr;                              ///< null: one-way
};

/// Numbers the operations and writes a line for each. Belongs to the viewer's main thread.
class OperationLog {
 public:
  enum class Format { kText, kJson };

  OperationLog(int fd, Format format) : writer_(fd), format_(format) {}

  /// `listener` is told each line as it is written for programs, instead of an earlier one; null:
  /// nobody is.
  using Listener = std::function<void(const nlohmann::ordered_json& line)>;
  void SetListener(Listener listener) { listener_ = std::move(listener); }
  /// The same for each line as it is written for people, whatever the format.
  using TextListener = std::function<void(const std::string& line)>;
  void SetTextListener(TextListener listener) { text_listener_ = std::move(listener); }

  /// Something that the operation under way does; stands in its line.
  void AddEffect(const std::string& text) { effects_.push_back(text); }

  /// Ends the operation under way. Its number is used up also when its line cannot be written, so
  /// a gap in the numbers tells that the reader was too slow.
  void Write(const Operation& operation);

  /// Writes a line about something that no client of the remote interface asked for: `text` for
  /// people, {"event":`event`, and the fields} for programs. Takes the effects, as Write() does.
  void WriteEvent(const std::string& text, const std::string& event,
                  const nlohmann::ordered_json& fields);

 private:
  std::string TextLine(const Operation& operation) const;
  nlohmann::ordered_json JsonLine(const Operation& operation) const;
  void End(const std::string& text, const nlohmann::ordered_json& line);
  std::string Effects() const;

  LineWriter writer_;
  Format format_;
  Listener listener_;
  TextListener text_listener_;
  unsigned long sequence_ = 0;
  std::vector<std::string> effects_;
};

}  // namespace viewer
