#include "viewer_connection.h"

#include <kavrel/app_api.h>

#include <algorithm>

#include "failure_texts.h"
#include "method_names.h"

namespace kavrelctl {
namespace {

// A wait that ends a little early by its own clock is still one that was waited out.
constexpr double kAlmost = 0.95;

bool Mention(const std::vector<LogLine>& errors, const char* text) {
  return std::any_of(errors.begin(), errors.end(), [text](const LogLine& line) {
    return line.text.find(text) != std::string::npos;
  });
}

// The reason nearest to the cause: what the platform service said, else what the library said
// last. The library's lines begin with a place in its sources.
std::string LoggedReason(const std::vector<LogLine>& errors) {
  if (errors.empty()) return {};
  const auto platform = std::find_if(errors.begin(), errors.end(), [](const LogLine& line) {
    return line.tag != "kavrel-api" && line.tag != "RPC_PORT_PROXY";
  });
  const std::string& text = (platform != errors.end() ? *platform : errors.back()).text;
  const auto arrow = text.find(" > ");
  return " (log: " + (arrow == std::string::npos ? text : text.substr(arrow + 3)) + ')';
}

}  // namespace

ViewerConnection::~ViewerConnection() {
  if (handle_ != nullptr) kavrel_api_destroy(handle_);
}

bool ViewerConnection::IsTimeUp(Clock::time_point begin) const {
  const std::chrono::duration<double> spent = Clock::now() - begin;
  const double limit = EffectiveTimeoutSeconds(settings_);
  return limit > 0 && spent.count() >= limit * kAlmost;
}

std::optional<std::string> ViewerConnection::Connect() {
  LogTap::Instance().TakeErrors();
  try {
    handle_ = kavrel_api_create(settings_.app_id.c_str());
  } catch (...) {
    // What it throws is not exported; the log has the reason.
  }
  const std::vector<LogLine> errors = LogTap::Instance().TakeErrors();
  // A handle that comes with an error line exists, but is not connected.
  if (handle_ != nullptr && errors.empty()) return std::nullopt;
  return ConnectFailure(errors);
}

std::string ViewerConnection::ConnectFailure(const std::vector<LogLine>& errors) const {
  std::string message = "cannot reach " + ViewerName(settings_) + ": ";
  if (Mention(errors, "PermissionDeniedException")) {
    message += kNotPermitted;
  } else if (Mention(errors, "InvalidIDException")) {
    message += "this is not an application id";
  } else if (Mention(errors, "InvalidIOException")) {
    message += "nobody listens; start one with kavrel-viewer, or name another with --app-id";
  } else if (handle_ != nullptr) {
    message += SilenceText(settings_);
  } else {
    message += "no connection can be made";
  }
  return message + LoggedReason(errors);
}

std::optional<Answer> ViewerConnection::Call(const CallableMethod& method,
                                             const std::vector<Argument>& arguments,
                                             std::string& failure) {
  const auto begin = Clock::now();
  const Answer answer = method.call(handle_, arguments);
  const std::vector<LogLine> errors = LogTap::Instance().TakeErrors();
  if (errors.empty()) return answer;
  failure = CallFailure(errors, method, begin);
  return std::nullopt;
}

std::string ViewerConnection::CallFailure(const std::vector<LogLine>& errors,
                                          const CallableMethod& method,
                                          Clock::time_point begin) const {
  const std::string name = KebabName(method.info->name);
  std::string message;
  if (IsTimeUp(begin)) {
    message = ViewerName(settings_) + " does not answer " + name + " within " +
              LimitText(settings_) + kWaitLonger;
  } else if (Mention(errors, "InvalidProtocolException")) {
    message = ViewerName(settings_) + " ended the connection without an answer to " + name;
  } else {
    message = "cannot send " + name + " to " + ViewerName(settings_) +
              ": it has gone, or the request is too large";
  }
  return message + LoggedReason(errors);
}

}  // namespace kavrelctl
