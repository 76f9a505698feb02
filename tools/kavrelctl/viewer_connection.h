// One connection to a viewer, and what people can do about it when it fails.
#pragma once

#include <kavrel/app_api_types.h>

#include <chrono>
#include <optional>
#include <string>
#include <vector>

#include "log_tap.h"
#include "method_call.h"
#include "settings.h"

namespace kavrelctl {

/// Belongs to the thread that made it.
class ViewerConnection {
 public:
  explicit ViewerConnection(const Settings& settings) : settings_(settings) {}
  ViewerConnection(const ViewerConnection&) = delete;
  ViewerConnection& operator=(const ViewerConnection&) = delete;
  ~ViewerConnection();

  /// Nothing when the connection stands, else a message for people.
  std::optional<std::string> Connect();

  /// The answer, or nothing with a message in `failure`.
  std::optional<Answer> Call(const CallableMethod& method, const std::vector<Argument>& arguments,
                             std::string& failure);

 private:
  using Clock = std::chrono::steady_clock;

  bool IsTimeUp(Clock::time_point begin) const;
  std::string ConnectFailure(const std::vector<LogLine>& errors) const;
  std::string CallFailure(const std::vector<LogLine>& errors, const CallableMethod& method,
                          Clock::time_point begin) const;

  const Settings& settings_;
  kavrel_api_h handle_ = nullptr;
};

}  // namespace kavrelctl
