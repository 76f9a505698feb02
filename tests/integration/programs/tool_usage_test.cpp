// The command line itself: mistakes, help, completion and man page. No viewer takes part.
#include <gmock/gmock.h>
#include <kavrel/state_properties.h>
#include <kavrel/tidl/KavrelAppApiMethods.h>

#include <nlohmann/json.hpp>

#include "method_names.h"
#include "programs.h"

namespace kavrel_test {
namespace {

using kavrel::app_api::ItemType;
using kavrel::app_api::kMethods;
using kavrel::app_api::MethodInfo;
using kavrelctl::ArgumentLabel;
using kavrelctl::KebabName;
using ::testing::HasSubstr;
using ::testing::StartsWith;

struct WrongUsage {
  const char* name;
  std::vector<std::string> arguments;
  std::string message;
  std::string command;        ///< whose usage is shown
  std::string command_takes;  ///< behind it
};

void PrintTo(const WrongUsage& wrong, std::ostream* stream) {
  *stream << wrong.name;
}

class ToolMistake : public Programs, public ::testing::WithParamInterface<WrongUsage> {};

TEST_P(ToolMistake, IsExplained) {
  const WrongUsage& wrong = GetParam();
  const Outcome outcome = Tool(wrong.arguments);
  EXPECT_EQ(outcome.exit_code, 2);
  EXPECT_EQ(outcome.output, "");
  EXPECT_EQ(outcome.errors, "kavrelctl: " + wrong.message + "\nUsage: " + wrong.command +
                                wrong.command_takes + "\nTry:   " + wrong.command + " --help\n");
}

const std::string kNotAnInt = " is not a whole number from -2147483648 to 2147483647";
const std::string kNotAnId =
    " is not an application id (1 to 64 letters, digits, '.', '_' and '-')";

INSTANTIATE_TEST_SUITE_P(
    ToolUsage, ToolMistake,
    ::testing::Values(
        WrongUsage{"NoCommand", {}, "a command is missing", "kavrelctl", " COMMAND"},
        WrongUsage{"UnknownCommand",
                   {"cal"},
                   "\"cal\" is no command of kavrelctl; did you mean call?",
                   "kavrelctl",
                   " COMMAND"},
        WrongUsage{"UnknownOption",
                   {"--jason", "methods"},
                   "\"--jason\" is no option of kavrelctl; a value that begins with a dash goes "
                   "behind \"--\"",
                   "kavrelctl",
                   " COMMAND"},
        WrongUsage{"NoMethod", {"call"}, "a command is missing", "kavrelctl call", " COMMAND"},
        WrongUsage{"UnknownMethod",
                   {"call", "tune-chanel", "7"},
                   "\"tune-chanel\" is no command of kavrelctl call; did you mean tune-channel?",
                   "kavrelctl call",
                   " COMMAND"},
        WrongUsage{"NothingLikeAMethod",
                   {"call", "frobnicate"},
                   "\"frobnicate\" is no command of kavrelctl call",
                   "kavrelctl call",
                   " COMMAND"},
        WrongUsage{"MissingArgument",
                   {"call", "move-selection-window-to", "5"},
                   "TOP is required",
                   "kavrelctl call move-selection-window-to",
                   " LEFT TOP"},
        WrongUsage{"ArgumentTooMany",
                   {"call", "set-window-size", "1", "2"},
                   "\"2\" is one argument too many",
                   "kavrelctl call set-window-size",
                   " SIZE"},
        WrongUsage{"NotAnInt",
                   {"call", "set-window-size", "big"},
                   "SIZE: \"big\"" + kNotAnInt,
                   "kavrelctl call set-window-size",
                   " SIZE"},
        WrongUsage{"IntOutOfRange",
                   {"call", "set-window-size", "-2147483649"},
                   "SIZE: \"-2147483649\"" + kNotAnInt,
                   "kavrelctl call set-window-size",
                   " SIZE"},
        WrongUsage{"NotABool",
                   {"call", "show-game-mode-banner", "1", "maybe"},
                   "GAME-MODE: \"maybe\" is none of true, false, on, off, 1, 0",
                   "kavrelctl call show-game-mode-banner",
                   " SHOW GAME-MODE"},
        WrongUsage{"DashedValue",
                   {"call", "send-command", "-x", "y"},
                   "\"-x\" is no option of kavrelctl call send-command; a value that begins with a "
                   "dash goes behind \"--\"",
                   "kavrelctl call send-command",
                   " COMMAND ARGUMENT"},
        WrongUsage{"ListWithoutElement",
                   {"call", "send-mbr-key", "1", "2", "3", "K", "--list"},
                   "--list: 1 required TEXT missing",
                   "kavrelctl call send-mbr-key",
                   " DEVICE-TYPE DEVICE-NUMBER ACTION KEY"},
        WrongUsage{"BadAppId",
                   {"call", "get-window-size", "--app-id", "../etc"},
                   "--app-id: \"../etc\"" + kNotAnId,
                   "kavrelctl call get-window-size",
                   ""},
        WrongUsage{"HostileAppId",
                   {"--app-id", "a\x1b[2J\n", "call", "get-window-size"},
                   "--app-id: \"a\\x1b[2J\\x0a\"" + kNotAnId,
                   "kavrelctl call get-window-size",
                   ""},
        WrongUsage{"DoctorOfOneViewer",
                   {"doctor", "--app-id", "org.other"},
                   "\"--app-id\" is no option of kavrelctl doctor; a value that begins with a dash "
                   "goes behind \"--\"",
                   "kavrelctl doctor",
                   ""},
        WrongUsage{"BadTimeout",
                   {"call", "get-window-size", "--timeout", "-1"},
                   "--timeout: \"-1\" is not a number of seconds from 0 (no limit) to 86400",
                   "kavrelctl call get-window-size",
                   ""},
        WrongUsage{
            "GetNothing", {"get"}, "PROPERTY or --all is required", "kavrelctl get", " [PROPERTY]"},
        WrongUsage{"GetUnknown",
                   {"get", "nope"},
                   "PROPERTY: no property is called \"nope\"; \"kavrelctl get --all\" lists them",
                   "kavrelctl get",
                   " [PROPERTY]"},
        WrongUsage{"SetReadOnly",
                   {"set", "visible_banners", "x"},
                   "PROPERTY: \"visible_banners\" is set by the viewer alone",
                   "kavrelctl set",
                   " PROPERTY VALUE"},
        WrongUsage{"SetWrongType",
                   {"set", "pip_focus", "x"},
                   "VALUE: \"x\"" + kNotAnInt,
                   "kavrelctl set",
                   " PROPERTY VALUE"},
        WrongUsage{"WatchUnwatchable",
                   {"watch", "db_serdes_error"},
                   "PROPERTY: \"db_serdes_error\" cannot be watched; it can be got",
                   "kavrelctl watch",
                   " [PROPERTY]..."},
        WrongUsage{"BadReadyFd",
                   {"watch", "--ready-fd", "2"},
                   "--ready-fd: \"2\" is not an open descriptor above 2",
                   "kavrelctl watch",
                   " [PROPERTY]..."}),
    [](const auto& wrong) { return wrong.param.name; });

// --- Help, version, texts

class ToolTexts : public Programs {
 protected:
  std::string Text(const std::vector<std::string>& command) {
    const Outcome outcome = Tool(command);
    EXPECT_EQ(outcome.exit_code, 0) << outcome.errors;
    EXPECT_EQ(outcome.errors, "");
    return outcome.output;
  }
};

TEST_F(ToolTexts, EveryCommandHelps) {
  for (const char* command : {"methods", "call", "get", "set", "watch", "completion", "man"}) {
    EXPECT_THAT(Text({command, "--help"}), HasSubstr(std::string("Usage: kavrelctl ") + command));
  }
  const std::string help = Text({"--help"});
  EXPECT_THAT(help, HasSubstr("Examples:"));
  EXPECT_THAT(help, HasSubstr("Exit codes:"));
  EXPECT_EQ(Text({"-h"}), help);
}

TEST_F(ToolTexts, EveryMethodHelps) {
  const std::string list = Text({"call", "--help"});
  for (const MethodInfo& method : kMethods) {
    const std::string name = KebabName(method.name);
    SCOPED_TRACE(name);
    EXPECT_THAT(list, HasSubstr("  " + name + ' '));
    const std::string help = Text({"call", name, "--help"});
    EXPECT_THAT(help, StartsWith(method.summary));
    EXPECT_THAT(help, HasSubstr(std::string("kavrel_api_") + method.c_name + "()"));
    for (std::size_t i = 0; i < method.argument_count; ++i) {
      EXPECT_THAT(help, HasSubstr(method.arguments[i] == ItemType::StringList
                                      ? "--list TEXT"
                                      : ArgumentLabel(method.argument_names[i]) + ' '));
    }
  }
}

TEST_F(ToolTexts, VersionIsOneLine) {
  EXPECT_EQ(Text({"--version"}), "kavrelctl " KAVREL_VERSION "\n");
}

TEST_F(ToolTexts, MethodsListsAll) {
  EXPECT_EQ(nlohmann::json::parse(Text({"methods", "--json"})).size(), 53U);
  EXPECT_EQ(nlohmann::json::parse(Text({"--json", "methods"})).size(), 53U);
  EXPECT_THAT(Text({"methods"}),
              HasSubstr(" 42  tune-channel NUMBER:string NAME:string SOURCE:string CALLER:string\n"
                        "       tune to a channel; kavrel_api_tunechannel()\n"));
}

TEST_F(ToolTexts, ManPageIsWellFormedAndWhole) {
  const Outcome page = Script("\"$KAVRELCTL\" man | groff -man -Tascii -ww -rLL=100n -P-c");
  EXPECT_EQ(page.exit_code, 0);
  EXPECT_EQ(page.errors, "");
  for (const MethodInfo& method : kMethods) {
    EXPECT_THAT(page.output, HasSubstr(std::string("kavrel_api_") + method.c_name + ')'));
  }
  for (const auto& property : kavrel::state::kProperties) {
    EXPECT_THAT(page.output, HasSubstr(property.key));
  }
}

TEST_F(ToolTexts, CompletionKnowsEveryName) {
  for (const char* shell : {"bash", "zsh", "fish"}) {
    const std::string script = Text({"completion", shell});
    for (const MethodInfo& method : kMethods) {
      EXPECT_THAT(script, HasSubstr(KebabName(method.name))) << shell;
    }
    EXPECT_THAT(script, HasSubstr("pip_focus")) << shell;
  }
  EXPECT_EQ(Tool({"completion", "csh"}).exit_code, 2);
}

TEST_F(ToolTexts, BashCompletes) {
  const std::string complete = R"(
set -e
"$KAVRELCTL" completion bash > "$KAVREL_RUNTIME_DIR/completion"
bash -n "$KAVREL_RUNTIME_DIR/completion"
. "$KAVREL_RUNTIME_DIR/completion"
complete_words() {
  COMP_WORDS=(kavrelctl "$@")
  COMP_CWORD=$#
  _kavrelctl
  echo "${COMPREPLY[*]}"
}
complete_words c
complete_words call tune-channel-
complete_words --app-id call call svc
complete_words call --timeout ''
complete_words call show-game-mode-banner 1 o
complete_words set use
complete_words watch db_
complete_words completion ''
complete_words call get-window-size --j
)";
  const Outcome outcome = Script(complete);
  EXPECT_EQ(outcome.errors, "");
  EXPECT_EQ(outcome.output,
            "call completion commands\n"
            "tune-channel-main tune-channel-major tune-channel-pip\n"
            "svc-id-tune\n"
            "\n"
            "on off\n"
            "use_4_direction_key\n"
            "\n"
            "bash zsh fish --help\n"
            "--json\n");
}

}  // namespace
}  // namespace kavrel_test
