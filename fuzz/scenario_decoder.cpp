#include "scenario_decoder.h"

#include <printable.h>

#include <algorithm>
#include <string>

#include "expect.h"
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

// What the tool prints as it is, on a terminal.
bool IsPrintableLine(const std::string& text) {
  return !text.empty() && text.size() < 1000 &&
         kavrel_programs::Printable(text, text.size()) == text;
}

}  // namespace

bool DecodeScenario(const std::uint8_t* data, std::size_t size) {
  const std::string text(reinterpret_cast<const char*>(data), size);
  try {
    const Scenario scenario = kavrelctl::ReadScenario(text);
    Expect(!scenario.steps.empty() && scenario.steps.size() <= kavrelctl::kMostSteps,
           "a scenario has steps, and not too many");
    for (const Step& step : scenario.steps) {
      Expect(step.line > 0 && IsLineOf(text, step.line), "a step stands in a line of the file");
    }
    return true;
  } catch (const TextMistake& mistake) {
    const std::string message = mistake.what();
    Expect(IsPrintableLine(message), "a mistake is told in one printable line");
    Expect(IsLineOf(text, mistake.line), "a mistake stands in a line of the file, or in none");
    return false;
  }
}

}  // namespace kavrel_fuzz
