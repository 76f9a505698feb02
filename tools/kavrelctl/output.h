// What goes to standard output and standard error.
#pragma once

#include <nlohmann/json.hpp>
#include <string>
#include <vector>

namespace kavrelctl {

/// Writes a text to standard output at once. False when nobody can read it: a reader that has left
/// needs no message, other reasons get one on standard error.
bool Print(const std::string& text);

/// A JSON value as one line. Bytes that are not UTF-8 come out as U+FFFD.
bool PrintJson(const nlohmann::ordered_json& value);

/// Rows of cells as columns, each as wide as its widest cell, two blanks between.
std::string Table(const std::vector<std::vector<std::string>>& rows);

/// "kavrelctl: <message>" on standard error, as one line whatever the message holds.
void PrintError(const std::string& message);

}  // namespace kavrelctl
