// Arguments as people type them, checked before anything is sent.
#pragma once

#include <kavrel/tidl/KavrelAppApiMethods.h>

#include <optional>
#include <string>

namespace kavrelctl {

/// A whole number that fits into 32 bits, in decimal.
std::optional<int> ParseInt(const std::string& text);

/// true, false, 1, 0, on, off; in any mix of cases.
std::optional<bool> ParseBool(const std::string& text);

/// "INT", "BOOL" or "TEXT", as help shows the type.
const char* TypeLabel(kavrel::app_api::ItemType type);

/// What is wrong with `text` as a value of that type; empty when nothing is.
std::string ValueMistake(kavrel::app_api::ItemType type, const std::string& text);

}  // namespace kavrelctl
