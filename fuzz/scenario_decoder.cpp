#include "scenario_decoder.h"

#include <algorithm>
#include <cstdlib>
#include <string>

#include "scenario_reader.h"

namespace kavrel_fuzz {
namespace {

using kavrelctl::Scenario;
using kavrelctl::Step;
using kavrelctl::TextMistake;

bool IsLineOf(const std::string& text, int line) {
  return line >= 0 && line <= 1 + std::count(text.begin(), text.end(), '\n') +
                                  std::count(text.begin(), text.end(), '\r');
}

void Check(bool holds) {
  if (!holds) std::abort();
}

}  // namespace

bool DecodeScenario(const std::uint8_t* data, std::size_t size) {
  const std::string text(reinterpret_cast<const char*>(data), size);
  try {
    const Scenario scenario = kavrelctl::ReadScenario(text);
    Check(!scenario.steps.empty() && scenario.steps.size() <= kavrelctl::kMostSteps);
    for (const Step& step : scenario.steps) Check(step.line > 0 && IsLineOf(text, step.line));
    return true;
  } catch (const TextMistake& mistake) {
    const std::string message = mistake.what();
    Check(!message.empty() && message.size() < 1000 && IsLineOf(text, mistake.line));
    return false;
  }
}

}  // namespace kavrel_fuzz
