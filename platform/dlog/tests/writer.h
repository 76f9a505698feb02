// Runs dlog_writer with an environment of its own and takes its log apart.
#pragma once

#include <map>
#include <optional>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

#include "child_process.h"

namespace dlog_test {

using Words = std::vector<std::string>;
using Environment = std::map<std::string, std::optional<std::string>>;

/// The options of a writer that sees none of the log variables but those given.
inline kavrel_test::ChildOptions Writer(const Words& words, const Environment& environment) {
  kavrel_test::ChildOptions options;
  options.arguments = {DLOG_WRITER};
  options.arguments.insert(options.arguments.end(), words.begin(), words.end());
  options.environment = environment;
  for (const char* name : {"KAVREL_LOG", "KAVREL_LOG_LEVEL", "JOURNAL_STREAM"}) {
    options.environment.emplace(name, std::nullopt);
  }
  return options;
}

struct Outcome {
  std::optional<int> exit;
  std::string output;
  std::string errors;
};

inline Outcome Finish(kavrel_test::ChildProcess& child) {
  const std::optional<int> exit = child.WaitForExit();
  return {exit, child.output(), child.errors()};
}

inline Outcome RunWriter(const Words& words, const Environment& environment) {
  kavrel_test::ChildProcess child(Writer(words, environment));
  return Finish(child);
}

inline std::vector<std::string> Lines(const std::string& text) {
  std::vector<std::string> lines;
  std::istringstream stream(text);
  for (std::string line; std::getline(stream, line);) lines.push_back(line);
  return lines;
}

/// What follows the time, the priority, the tag and the process in each line.
inline std::vector<std::string> Texts(const std::string& log) {
  std::vector<std::string> texts;
  for (const std::string& line : Lines(log)) {
    const auto colon = line.find(": ");
    texts.push_back(colon == std::string::npos ? line : line.substr(colon + 2));
  }
  return texts;
}

}  // namespace dlog_test
