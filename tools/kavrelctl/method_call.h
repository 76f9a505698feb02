// One call of the C command API with arguments that are known at run time alone.
#pragma once

#include <kavrel/app_api_types.h>
#include <kavrel/tidl/KavrelAppApiMethods.h>

#include <string>
#include <variant>
#include <vector>

namespace kavrelctl {

using Argument = std::variant<int, bool, std::string, kavrel::app_api::Strings>;

/// What a call gave back; of meaning only when no error was logged meanwhile.
struct Answer {
  std::vector<int> values;                           ///< out values in order
  std::variant<std::monostate, bool, int> result{};  ///< nothing for a method without an answer
};

struct CallableMethod {
  const kavrel::app_api::MethodInfo* info;
  /// Calls the C function. `arguments` are those of the row, in number and types.
  Answer (*call)(kavrel_api_h handle, const std::vector<Argument>& arguments);
};

/// All rows of the method table, in their order.
const std::vector<CallableMethod>& CallableMethods();

}  // namespace kavrelctl
