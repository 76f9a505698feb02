#include "doctor.h"

#include <printable.h>
#include <unistd.h>

#include <algorithm>

#include "output.h"
#include "style.h"

namespace kavrelctl {
namespace {

using kavrel_programs::Printable;
using nlohmann::ordered_json;

const char* WordOf(Health health) {
  switch (health) {
    case Health::kOk:
      return "ok";
    case Health::kWarning:
      return "warning";
    case Health::kProblem:
      break;
  }
  return "problem";
}

Style StyleOf(Health health) {
  return health == Health::kOk        ? Style::kGood
         : health == Health::kWarning ? Style::kWarning
                                      : Style::kBad;
}

ordered_json FindingsJson(const std::vector<Finding>& findings, bool healthy) {
  ordered_json list = ordered_json::array();
  for (const Finding& finding : findings) {
    list.push_back(
        {{"about", finding.about},
         {"health", WordOf(finding.health)},
         {"what", finding.what},
         {"advice", finding.advice.empty() ? ordered_json() : ordered_json(finding.advice)}});
  }
  return {{"ok", healthy}, {"findings", list}};
}

std::string FindingsText(const std::vector<Finding>& findings) {
  constexpr std::size_t kLongest = 1000;
  std::string text;
  for (const Finding& finding : findings) {
    std::string word = WordOf(finding.health);
    const std::size_t width = word.size();
    word = Styled(word, StyleOf(finding.health), STDOUT_FILENO);
    text += word + std::string(9 - width, ' ') + finding.about + ": " +
            Printable(finding.what, kLongest) + '\n';
    if (!finding.advice.empty()) {
      text += "         -> " + Printable(finding.advice, kLongest) + '\n';
    }
  }
  return text;
}

}  // namespace

int RunDoctor(const Settings& settings) {
  const Paths paths = FindPaths();
  std::vector<Finding> all;
  for (auto& findings : {CheckDirectories(paths), CheckStore(paths), CheckLeftovers(paths),
                         CheckBus(paths, EffectiveTimeoutSeconds(settings)), CheckFonts()}) {
    all.insert(all.end(), findings.begin(), findings.end());
  }
  const auto problems = std::count_if(all.begin(), all.end(), [](const Finding& finding) {
    return finding.health == Health::kProblem;
  });
  const bool printed =
      settings.json ? PrintJson(FindingsJson(all, problems == 0)) : Print(FindingsText(all));
  if (problems > 0) {
    PrintError(std::to_string(problems) + (problems == 1 ? " problem" : " problems") +
               "; what to do stands behind \"->\"");
  }
  return printed && problems == 0 ? kDone : kFailed;
}

}  // namespace kavrelctl
