#include "play_report.h"

#include <unistd.h>

#include <cstdio>
#include <nlohmann/json.hpp>

#include "interrupt.h"
#include "output.h"
#include "style.h"

namespace kavrelctl {
namespace {

using nlohmann::ordered_json;

std::string Problem(const StepOutcome& outcome) {
  if (!outcome.failure.empty()) return outcome.failure;
  return "expected " + outcome.expected + ", seen " + outcome.seen;
}

}  // namespace

PlayReport::PlayReport(Options options, const Scenario& scenario)
    : options_(std::move(options)),
      scenario_(scenario),
      shows_progress_(!options_.json && !options_.each_step && ::isatty(STDERR_FILENO) != 0) {}

// "step 3 of 12, tune.yaml:14 (wait: {banner: channel})"
std::string PlayReport::Place(std::size_t step) const {
  const Step& at = scenario_.steps[step];
  return "step " + std::to_string(step + 1) + " of " + std::to_string(scenario_.steps.size()) +
         ", " + options_.file + ':' + std::to_string(at.line) + " (" + at.text + ')';
}

void PlayReport::Begin(std::size_t step) {
  SetInterruptText("at " + Place(step));
  if (!shows_progress_) return;
  const std::string place = std::to_string(step + 1) + '/' + std::to_string(scenario_.steps.size());
  (void)std::fprintf(stderr, "\r\x1b[K%s %s", Styled(place, Style::kFaint, STDERR_FILENO).c_str(),
                     scenario_.steps[step].text.substr(0, 60).c_str());
}

void PlayReport::ClearProgress() {
  if (shows_progress_) (void)std::fputs("\r\x1b[K", stderr);
}

bool PlayReport::End(std::size_t step, const StepOutcome& outcome, double seconds) {
  ++(outcome.holds ? held_ : failed_);
  ClearProgress();
  if (!outcome.holds) PrintError(Place(step) + ": " + Problem(outcome));
  const Step& at = scenario_.steps[step];
  if (options_.json) {
    ordered_json line = {{"step", step + 1},
                         {"line", at.line},
                         {"text", at.text},
                         {"ok", outcome.holds},
                         {"seconds", seconds}};
    if (!outcome.answer.empty()) line["answer"] = ordered_json::parse(outcome.answer);
    if (!outcome.expected.empty()) line["expected"] = outcome.expected;
    if (!outcome.holds && outcome.failure.empty()) line["seen"] = outcome.seen;
    if (!outcome.failure.empty()) line["error"] = outcome.failure;
    return PrintJson(line);
  }
  if (!options_.each_step) return true;
  const std::string word = outcome.holds ? Styled("ok    ", Style::kGood, STDOUT_FILENO)
                                         : Styled("failed", Style::kBad, STDOUT_FILENO);
  return Print(word + "  " + std::to_string(step + 1) + "  " + at.text + '\n');
}

void PlayReport::Fail(const std::string& message) {
  ClearProgress();
  failure_ = message;
  PrintError(message);
}

bool PlayReport::Finish() {
  const std::size_t all = scenario_.steps.size();
  if (options_.json) {
    ordered_json summary = {{"summary", true},   {"scenario", scenario_.title},
                            {"steps", all},      {"held", held_},
                            {"failed", failed_}, {"not_played", all - held_ - failed_},
                            {"ok", held_ == all}};
    if (!failure_.empty()) summary["error"] = failure_;
    return PrintJson(summary);
  }
  std::string text = std::to_string(all) + (all == 1 ? " step: " : " steps: ");
  if (held_ == all) return Print(text + (all == 1 ? "holds\n" : "all hold\n"));
  text += std::to_string(failed_) + " failed";
  const std::size_t left = all - held_ - failed_;
  if (left > 0) text += ", " + std::to_string(left) + " not played";
  return Print(text + '\n');
}

}  // namespace kavrelctl
