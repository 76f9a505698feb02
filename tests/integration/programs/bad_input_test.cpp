// Every command of the tool, as the tool itself lists them, with what goes wrong: stated exit
// codes, one clear line, never a hang.
#include <gmock/gmock.h>
#include <kavrel/tidl/KavrelAppApiMethods.h>
#include <signal.h>

#include <algorithm>
#include <fstream>
#include <map>
#include <nlohmann/json.hpp>
#include <sstream>

#include "programs.h"

namespace kavrel_test {
namespace {

using nlohmann::json;
using ::testing::AnyOf;
using ::testing::HasSubstr;
using ::testing::StartsWith;

/// How a command ends.
struct Row {
  std::vector<std::string> arguments;  ///< valid ones
  int without_viewer = 0;
  int with_hung_viewer = 0;
  int with_closed_output = 0;  ///< with a viewer
  bool takes_timeout = false;
};

// The scenario and the files are the fixture's.
const std::map<std::string, Row> kRows = {
    {"methods", {{}, 0, 0, 1, false}},
    {"get", {{"--all"}, 0, 0, 1, false}},
    {"set", {{"pip_focus", "1"}, 0, 0, 0, false}},
    {"watch", {{"rating_locked", "--count", "1"}, -SIGINT, -SIGINT, 1, false}},
    {"keys send", {{"7"}, 1, 1, 1, true}},
    {"keys list", {{}, 1, 1, 1, true}},
    {"plugins", {{}, 1, 1, 1, true}},
    {"screenshot", {{"picture.png"}, 1, 1, 0, true}},
    {"bus", {{}, 1, 1, 1, false}},
    {"run", {{"scenario.yaml"}, 1, 1, 1, true}},
    {"record", {{"record.yaml", "--duration", "0.1"}, 1, 1, 1, true}},
    {"status", {{}, 1, 1, 1, true}},
    {"doctor", {{}, 0, 0, 1, true}},
    {"completion", {{"bash"}, 0, 0, 1, false}},
    {"man", {{}, 0, 0, 1, false}},
    {"commands", {{}, 0, 0, 1, false}},
};

/// A command without others below it.
struct Leaf {
  std::vector<std::string> words;  ///< "call", "exit-ttx"
  std::vector<std::string> required;
  bool takes_more = false;  ///< any number of arguments, or optional ones
  Row row;

  std::string Name() const {
    std::string name;
    for (const std::string& word : words) name += (name.empty() ? "" : " ") + word;
    return name;
  }
};

std::vector<std::string> Words(const std::string& text) {
  std::istringstream stream(text);
  std::vector<std::string> words;
  for (std::string word; stream >> word;) words.push_back(word);
  return words;
}

class BadInput : public Programs {
 protected:
  BadInput() {
    std::ofstream(directory_.Path("scenario.yaml")) << "steps:\n- {key: XF86Red}\n";
    for (const json& entry : json::parse(Tool({"commands", "--json"}).output)) {
      if (!entry["is_group"].get<bool>()) leaves_.push_back(LeafOf(entry));
    }
    EXPECT_GT(leaves_.size(), kavrel::app_api::kMethodCount + 10);
  }

  Leaf LeafOf(const json& entry) const {
    Leaf leaf;
    leaf.words = Words(entry["command"]);
    const std::vector<std::string> usage = Words(entry["usage"]);
    for (std::size_t i = leaf.words.size(); i < usage.size(); ++i) {
      if (usage[i].front() == '[') {
        leaf.takes_more = true;
      } else {
        leaf.required.push_back(usage[i]);
      }
    }
    leaf.words.erase(leaf.words.begin());
    const auto row = kRows.find(leaf.Name());
    if (leaf.words.front() == "call") {
      leaf.row = {std::vector<std::string>(leaf.required.size(), "1"), 1, 1, 1, true};
    } else if (row != kRows.end()) {
      leaf.row = row->second;
    } else {
      ADD_FAILURE() << "\"" << leaf.Name() << "\" has no row in this test";
    }
    for (std::string& argument : leaf.row.arguments) {
      const bool is_file =
          argument.find(".yaml") != std::string::npos || argument.find(".png") != std::string::npos;
      if (is_file) argument = directory_.Path(argument);
    }
    return leaf;
  }

  static std::vector<std::string> With(const Leaf& leaf, const std::vector<std::string>& more) {
    std::vector<std::string> arguments = leaf.words;
    arguments.insert(arguments.end(), more.begin(), more.end());
    return arguments;
  }

  static std::vector<std::string> Valid(const Leaf& leaf, const char* timeout) {
    std::vector<std::string> arguments = With(leaf, leaf.row.arguments);
    if (leaf.row.takes_timeout) arguments.insert(arguments.end(), {"--timeout", timeout});
    return arguments;
  }

  /// A message, and what helps with wrong usage; nothing that could command a terminal.
  static void ExpectExplained(const Outcome& outcome) {
    if (outcome.exit_code == 0) return;
    EXPECT_THAT(outcome.errors, StartsWith("kavrelctl: "));
    EXPECT_LE(std::count(outcome.errors.begin(), outcome.errors.end(), '\n'),
              outcome.exit_code == 2 ? 3 : 1)
        << outcome.errors;
    EXPECT_LT(outcome.errors.size(), 4000U);
    EXPECT_EQ(outcome.errors.find('\x1b'), std::string::npos);
  }

  void ExpectUsageMistake(const std::vector<std::string>& arguments) const {
    const Outcome outcome = Tool(arguments);
    EXPECT_EQ(outcome.exit_code, 2) << outcome.errors;
    EXPECT_EQ(outcome.output, "");
    ExpectExplained(outcome);
  }

  std::vector<Leaf> leaves_;
};

TEST_F(BadInput, EveryCommandHelps) {
  for (const Leaf& leaf : leaves_) {
    SCOPED_TRACE(leaf.Name());
    const Outcome outcome = Tool(With(leaf, {"--help"}));
    EXPECT_EQ(outcome.exit_code, 0);
    EXPECT_THAT(outcome.output, HasSubstr("Usage: kavrelctl " + leaf.Name()));
  }
}

TEST_F(BadInput, CompletionAndManPageKnowEveryCommand) {
  for (const char* shell : {"bash", "zsh", "fish"}) {
    const std::string script = Tool({"completion", shell}).output;
    for (const Leaf& leaf : leaves_) {
      EXPECT_THAT(script, HasSubstr("kavrelctl " + leaf.Name())) << shell;
    }
  }
  const std::string page = Tool({"man"}).output;
  for (const Leaf& leaf : leaves_) {
    if (leaf.words.front() == "call") continue;
    EXPECT_THAT(page, HasSubstr("kavrelctl " + leaf.Name()));
  }
}

TEST_F(BadInput, UnknownOptions) {
  for (const Leaf& leaf : leaves_) {
    SCOPED_TRACE(leaf.Name());
    ExpectUsageMistake(With(leaf, {"--no-such-option"}));
  }
}

TEST_F(BadInput, MissingArguments) {
  for (const Leaf& leaf : leaves_) {
    SCOPED_TRACE(leaf.Name());
    if (!leaf.required.empty()) ExpectUsageMistake(leaf.words);
  }
}

TEST_F(BadInput, TooManyArguments) {
  for (const Leaf& leaf : leaves_) {
    SCOPED_TRACE(leaf.Name());
    if (leaf.takes_more) continue;
    std::vector<std::string> arguments = With(leaf, leaf.row.arguments);
    arguments.emplace_back("one-too-many");
    ExpectUsageMistake(arguments);
  }
}

TEST_F(BadInput, OddArguments) {
  const std::string odd[] = {std::string(100000, 'x'), "\xff\xfe\x80", "\x1b[2J\n"};
  for (const Leaf& leaf : leaves_) {
    SCOPED_TRACE(leaf.Name());
    if (leaf.required.empty()) continue;
    for (const std::string& text : odd) {
      const Outcome outcome =
          Tool(With(leaf, std::vector<std::string>(leaf.required.size(), text)));
      // Texts for the viewer may be anything; there is none.
      EXPECT_THAT(outcome.exit_code, AnyOf(1, 2)) << outcome.errors;
      ExpectExplained(outcome);
    }
  }
}

TEST_F(BadInput, OddOptionValues) {
  for (const Leaf& leaf : leaves_) {
    SCOPED_TRACE(leaf.Name());
    if (leaf.words.front() == "call" && leaf.words.back() != "exit-ttx") continue;
    if (!leaf.row.takes_timeout) continue;
    for (const char* value : {"", "-1", "x", "nan", "86401", "1e999", "\xff"}) {
      std::vector<std::string> arguments = With(leaf, leaf.row.arguments);
      arguments.push_back(std::string("--timeout=") + value);
      ExpectUsageMistake(arguments);
    }
    for (const char* value : {"", "../x", "a b", "\xff"}) {
      std::vector<std::string> arguments = With(leaf, leaf.row.arguments);
      arguments.push_back(std::string("--app-id=") + value);
      ExpectUsageMistake(arguments);
    }
  }
}

TEST_F(BadInput, NoViewer) {
  for (const Leaf& leaf : leaves_) {
    SCOPED_TRACE(leaf.Name());
    if (leaf.row.without_viewer < 0) continue;
    const Outcome outcome = Tool(Valid(leaf, "5"));
    EXPECT_EQ(outcome.exit_code, leaf.row.without_viewer) << outcome.output << outcome.errors;
    ExpectExplained(outcome);
  }
}

TEST_F(BadInput, AHungViewer) {
  const auto viewer = StartViewer();
  viewer->Signal(SIGSTOP);
  for (const Leaf& leaf : leaves_) {
    SCOPED_TRACE(leaf.Name());
    if (leaf.row.with_hung_viewer < 0) continue;
    const Outcome outcome = Tool(Valid(leaf, "0.1"));
    EXPECT_EQ(outcome.exit_code, leaf.row.with_hung_viewer) << outcome.output << outcome.errors;
    ExpectExplained(outcome);
  }
}

TEST_F(BadInput, AClosedStandardOutput) {
  const auto viewer = StartViewer();
  for (const Leaf& leaf : leaves_) {
    SCOPED_TRACE(leaf.Name());
    std::vector<std::string> wrapped = {"-c", "exec \"$KAVRELCTL\" \"$@\" >&-", "sh"};
    const std::vector<std::string> valid = Valid(leaf, "20");
    wrapped.insert(wrapped.end(), valid.begin(), valid.end());
    ChildProcess tool(Options("/bin/sh", wrapped));
    if (leaf.words.front() == "watch") {
      EXPECT_TRUE(tool.WaitForLine("kavrelctl: watching"));
      Tool({"call", "show-rating-banner", "1", "18", "x"});
    }
    const Outcome outcome = OutcomeOf(tool);
    EXPECT_EQ(outcome.exit_code, leaf.row.with_closed_output) << outcome.errors;
  }
}

// Those that have not begun to wait yet end in the same way.
TEST_F(BadInput, AnInterrupt) {
  const auto viewer = StartViewer();
  viewer->Signal(SIGSTOP);
  for (const Leaf& leaf : leaves_) {
    SCOPED_TRACE(leaf.Name());
    if (leaf.row.with_hung_viewer == 0 || leaf.words.front() == "bus") continue;
    const auto tool = StartTool(Valid(leaf, "1000"));
    tool->Signal(SIGINT);
    const int exit_code = OutcomeOf(*tool).exit_code;
    const bool may_end_well = leaf.words.front() == "watch" || leaf.words.front() == "record";
    EXPECT_TRUE(exit_code == -SIGINT || exit_code == 130 || (exit_code == 0 && may_end_well))
        << exit_code;
  }
}

}  // namespace
}  // namespace kavrel_test
