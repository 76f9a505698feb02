// Texts that stand in the help as well as in the man page.
#pragma once

#include <array>

namespace kavrelctl {

struct Explained {
  const char* what;
  const char* meaning;
};

inline constexpr const char* kPurpose =
    "Commands and asks the viewer of a television, and shows its state.";

inline constexpr std::array kExamples = {
    Explained{"kavrelctl methods", "what can be called"},
    Explained{"kavrelctl call tune-channel 7 News DVB-T me", "tune"},
    Explained{"kavrelctl call get-window-size", "ask"},
    Explained{"kavrelctl call tune-channel --help", "what a method takes"},
    Explained{"kavrelctl get --all", "the viewer's state"},
    Explained{"kavrelctl watch", "its changes, as they happen"},
    Explained{"kavrelctl plugins", "the viewer's plug-ins"},
    Explained{"kavrelctl keys send XF86Red", "press a key of the remote control"},
    Explained{"kavrelctl screenshot picture.png", "what the viewer shows"},
    Explained{"kavrelctl keys list", "who owns which key"},
    Explained{"kavrelctl run scenario.yaml -v", "play steps, and tell whether everything held"},
    Explained{"kavrelctl record session.yaml", "record what happens as such steps"},
    Explained{"kavrelctl status", "whether the viewer is there"},
    Explained{"kavrelctl doctor", "what is in the way, and what to do"},
    Explained{"kavrelctl bus", "what hosts and plug-ins say to each other"},
};

inline constexpr std::array kEnvironment = {
    Explained{"KAVREL_RUNTIME_DIR", "where viewers are found and their volatile state is kept"},
    Explained{"KAVREL_STATE_DIR", "where their durable state is kept"},
    Explained{"KAVREL_RPC_TIMEOUT_MS", "as --timeout, in milliseconds"},
    Explained{"NO_COLOR", "when set, no colours on a terminal either"},
};

inline constexpr std::array kExitCodes = {
    Explained{"0", "done"},
    Explained{"1",
              "failed by the viewer, the connection, the store or the output; a step of a "
              "scenario did not hold; doctor has found a problem"},
    Explained{"2", "wrong usage, or a scenario that is none"},
    Explained{"130",
              "run was interrupted (143: by SIGTERM); watch, bus and record end with 0 then, "
              "others by the signal itself"},
};

}  // namespace kavrelctl
