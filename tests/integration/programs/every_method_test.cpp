// Every method of the table, from the shell through the tool, the library and the wire into the
// viewer, and its answer back.
#include <kavrel/tidl/KavrelAppApiMethods.h>

#include <nlohmann/json.hpp>

#include "method_names.h"
#include "programs.h"

namespace kavrel_test {
namespace {

using kavrel::app_api::ItemType;
using kavrel::app_api::kMethods;
using kavrel::app_api::MethodInfo;
using kavrelctl::KebabName;
using nlohmann::ordered_json;

/// One argument as it is typed, and as it must arrive.
struct Sample {
  std::vector<std::string> typed;
  ordered_json value;
};

Sample SampleOf(ItemType type, std::size_t position) {
  const std::string place = std::to_string(position);
  switch (type) {
    case ItemType::Int32:
      return {{place}, static_cast<int>(position)};
    case ItemType::Bool:
      return {{"on"}, true};
    case ItemType::StringList:
      return {{"--list", "first of " + place, "--list", "", "--list", "[a,b]"},
              {"first of " + place, "", "[a,b]"}};
    default:
      return {{"\xc3\xa4 call {} " + place}, "\xc3\xa4 call {} " + place};
  }
}

class EveryMethod : public Programs {
 protected:
  EveryMethod() : viewer_(StartViewer({"--json"})) {}

  ordered_json NextOperation() {
    const auto line = viewer_->WaitForLine("\"sequence\":" + std::to_string(++sequence_) + ',');
    return line ? ordered_json::parse(*line) : ordered_json("the viewer wrote nothing");
  }

  void Check(const MethodInfo& method) {
    std::vector<std::string> command = {"call", "--json", KebabName(method.name)};
    ordered_json arguments = ordered_json::object();
    for (std::size_t i = 0; i < method.argument_count; ++i) {
      const Sample sample = SampleOf(method.arguments[i], i + 1);
      command.insert(command.end(), sample.typed.begin(), sample.typed.end());
      arguments[std::string(method.argument_names[i])] = sample.value;
    }
    const Outcome outcome = Tool(command);
    const ordered_json operation = NextOperation();
    EXPECT_EQ(outcome.exit_code, 0) << outcome.errors;
    EXPECT_EQ(outcome.errors, "");
    ASSERT_TRUE(operation.is_object()) << operation;
    EXPECT_EQ(operation["method"], method.name);
    EXPECT_EQ(operation["arguments"], arguments);
    EXPECT_EQ(operation["client"]["sender"], "kavrelctl");
    EXPECT_EQ(operation["values"].size(), method.out_value_count);
    EXPECT_EQ(operation["result"].is_null(), !method.HasReply());
    const ordered_json answer = {{"method", KebabName(method.name)},
                                 {"ok", true},
                                 {"values", operation["values"]},
                                 {"result", operation["result"]}};
    EXPECT_EQ(ordered_json::parse(outcome.output), answer);
  }

  std::unique_ptr<ChildProcess> viewer_;
  int sequence_ = 0;
};

TEST_F(EveryMethod, ArrivesAsItWasTypedAndIsAnswered) {
  for (const MethodInfo& method : kMethods) {
    SCOPED_TRACE(method.name);
    Check(method);
  }
  EXPECT_EQ(sequence_, 53);
}

TEST_F(EveryMethod, ExtremeValuesArriveUnchanged) {
  Tool({"call", "send-mbr-key", "-2147483648", "2147483647", "-1", ""});
  EXPECT_EQ(NextOperation()["arguments"].dump(),
            R"({"device_type":-2147483648,"device_number":2147483647,"action":-1,"key":"",)"
            R"("options":[]})");
  const std::string longest(100000, 'x');
  Tool({"call", "set-tvs-hint", longest});
  EXPECT_EQ(NextOperation()["arguments"]["hint"], longest);
  Tool({"call", "send-command", "--", "--json", "-1x"});
  EXPECT_EQ(NextOperation()["arguments"].dump(), R"({"command":"--json","argument":"-1x"})");
}

TEST_F(EveryMethod, AnswersAreTrue) {
  Tool({"call", "set-window-size", "2"});
  EXPECT_EQ(Tool({"call", "get-window-size"}).output, "size    2\nresult  true\n");
  Tool({"call", "change-selection-window-zoom-level", "4"});
  EXPECT_EQ(Tool({"call", "get-selection-window-move-range"}).output,
            "least_left     0\nleast_top      0\ngreatest_left  1536\ngreatest_top   864\n"
            "result         true\n");
  Tool({"call", "move-selection-window-to", "1536", "864"});
  EXPECT_EQ(Tool({"call", "get-selection-window-info"}).output,
            "left    1536\ntop     864\nwidth   384\nheight  216\nresult  true\n");
  EXPECT_EQ(Tool({"call", "check-state-for-vistane"}).output, "state   0\nresult  0\n");
  Tool({"call", "show-nosignal-banner", "1", "check the cable"});
  EXPECT_EQ(Tool({"call", "check-state-for-vistane"}).output, "state   2\nresult  1\n");
}

TEST_F(EveryMethod, ARefusalIsAFailure) {
  const Outcome text = Tool({"call", "move-selection-window-to", "1921", "0"});
  EXPECT_EQ(text.exit_code, 1);
  EXPECT_EQ(text.output, "result  false\n");
  EXPECT_EQ(text.errors,
            "kavrelctl: the viewer answered false to move-selection-window-to: it refuses these "
            "values or cannot do this now\n");
  const Outcome json = Tool({"--json", "call", "set-window-size", "-1"});
  EXPECT_EQ(json.exit_code, 1);
  EXPECT_EQ(json.output, R"({"method":"set-window-size","ok":false,"values":{},"result":false})"
                         "\n");
}

}  // namespace
}  // namespace kavrel_test
