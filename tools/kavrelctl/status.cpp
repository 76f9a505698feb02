#include "status.h"

#include <kavrel/tidl/KavrelAppApiMethods.h>
#include <printable.h>
#include <unistd.h>

#include <string>
#include <vector>

#include "control_connection.h"
#include "output.h"
#include "paths.h"
#include "scenario_fields.h"
#include "style.h"
#include "viewer_connection.h"

namespace kavrelctl {
namespace {

using kavrel_programs::ControlCommand;
using nlohmann::ordered_json;

struct Status {
  std::string interface_failure;  ///< empty: the remote interface answers
  std::string control_failure;    ///< empty: the control port answers
  ordered_json about = ordered_json::object();
};

Status Ask(const Settings& settings) {
  Status status;
  ViewerConnection viewer(settings);
  status.interface_failure = viewer.Connect().value_or("");
  ControlConnection control(settings);
  if (const auto failure = control.Connect()) {
    status.control_failure = failure->message;
    return status;
  }
  const auto answer = control.AskJson(ControlCommand::kAbout);
  if (const auto* failure = std::get_if<ControlFailure>(&answer)) {
    status.control_failure = failure->message;
  } else if (std::get<ordered_json>(answer).is_object()) {
    status.about = std::get<ordered_json>(answer);
  }
  return status;
}

ordered_json OrNull(const std::string& text) {
  return text.empty() ? ordered_json(nullptr) : ordered_json(text);
}

ordered_json StatusJson(const Status& status, const Settings& settings) {
  const Paths paths = FindPaths();
  const auto port = [&](const char* name, const std::string& failure) -> ordered_json {
    return {{"reachable", failure.empty()},
            {"socket", OrNull(paths.Socket(settings.app_id, name))},
            {"error", OrNull(failure)}};
  };
  const ordered_json& about = status.about;
  return {{"reachable", status.interface_failure.empty() && status.control_failure.empty()},
          {"app_id", settings.app_id},
          {"interface", port(kavrel::app_api::kPortName, status.interface_failure)},
          {"control", port(kavrel_programs::kControlPort, status.control_failure)},
          {"viewer_version", about.value("version", ordered_json())},
          {"viewer_pid", about.value("pid", ordered_json())},
          {"viewer_platform", about.value("platform", ordered_json())},
          {"plugins", about.value("plugins", ordered_json())},
          {"clients", about.value("clients", ordered_json())},
          {"version", KAVREL_VERSION},
          {"platform", PlatformName()},
          {"runtime_directory", OrNull(paths.runtime)},
          {"state_directory", OrNull(paths.state)},
          {"event_directory", paths.events},
          {"xdg_runtime_directory", OrNull(paths.xdg_runtime)},
          {"bus_address", paths.bus_address}};
}

std::string Word(const ordered_json& value) {
  if (value.is_null()) return "-";
  if (value.is_boolean()) return value.get<bool>() ? "yes" : "no";
  if (!value.is_string()) return value.dump();
  return kavrel_programs::Printable(value.get_ref<const std::string&>());
}

std::string PortText(const ordered_json& port) {
  const bool is_reachable = port.at("reachable").get<bool>();
  const std::string word = Styled(is_reachable ? "reachable" : "not reachable",
                                  is_reachable ? Style::kGood : Style::kBad, STDOUT_FILENO);
  return word + (port.at("socket").is_null() ? "" : "  " + Word(port.at("socket")));
}

std::string ClientsText(const ordered_json& clients) {
  if (!clients.is_array()) return "-";
  std::vector<std::string> names;
  for (const ordered_json& client : clients) names.push_back(Word(client));
  return std::to_string(names.size()) + (names.empty() ? "" : ": " + Listed(names));
}

std::string StatusText(const ordered_json& status) {
  return Table({{"viewer", Word(status.at("app_id"))},
                {"remote interface", PortText(status.at("interface"))},
                {"control port", PortText(status.at("control"))},
                {"viewer's version", Word(status.at("viewer_version"))},
                {"viewer's process", Word(status.at("viewer_pid"))},
                {"plug-ins", Word(status.at("plugins"))},
                {"clients", ClientsText(status.at("clients"))},
                {"library", Word(status.at("version"))},
                {"platform services", Word(status.at("platform"))},
                {"runtime directory", Word(status.at("runtime_directory"))},
                {"state directory", Word(status.at("state_directory"))},
                {"event files", Word(status.at("event_directory"))},
                {"XDG_RUNTIME_DIR", Word(status.at("xdg_runtime_directory"))},
                {"system bus", Word(status.at("bus_address"))}});
}

}  // namespace

int RunStatus(const Settings& settings) {
  const Status asked = Ask(settings);
  const ordered_json status = StatusJson(asked, settings);
  const bool printed = settings.json ? PrintJson(status) : Print(StatusText(status));
  if (!asked.interface_failure.empty()) {
    PrintError(asked.interface_failure);
  } else if (!asked.control_failure.empty()) {
    PrintError(asked.control_failure);
  }
  return printed && status.at("reachable").get<bool>() ? kDone : kFailed;
}

}  // namespace kavrelctl
