#include "plugin_options.h"

#include <printable.h>

#include <CLI/CLI.hpp>
#include <charconv>
#include <cstdio>
#include <vector>

namespace plugins {
namespace {

constexpr int kWrongUsage = 2;

constexpr const char* kFooter = R"(SIGINT and SIGTERM end it. Waits up to 10 seconds for the viewer.

Exit codes: 0 ended, 1 no viewer, 2 wrong usage.)";

std::string ColourMistake(const std::string& text) {
  const bool valid =
      text.size() == 6 && text.find_first_not_of("0123456789abcdefABCDEF") == std::string::npos;
  return valid ? "" : '"' + text + "\" is not a colour (six hexadecimal digits, RRGGBB)";
}

CKeyRepository ToRepository(const std::vector<std::string>& names) {
  CKeyRepository keys;
  for (const std::string& name : names) keys.AddKey(name);
  return keys;
}

// What a name on the bus can be made of; anything else would leave the plug-in without a channel.
std::string NameMistake(const std::string& text) {
  const auto is_letter = [](char c) { return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z'); };
  bool valid = !text.empty() && text.size() <= 64 && is_letter(text.front());
  for (const char c : text) valid = valid && (is_letter(c) || (c >= '0' && c <= '9'));
  return valid ? "" : '"' + text + "\" is not a name (a letter, then up to 63 letters and digits)";
}

}  // namespace

std::variant<Options, int> ParseOptions(const Program& program, int argc, char** argv) {
  Options options;
  options.name = program.plugin;
  int type = program.type;
  std::vector<std::string> keys;
  std::vector<std::string> exclusive_keys;
  CLI::App app(program.purpose, program.name);
  app.footer(kFooter);
  app.get_formatter()->column_width(40);
  const CLI::Validator name_check(&NameMistake, "");
  app.add_option("--host", options.host, "The viewer's name")
      ->type_name("NAME")
      ->check(name_check)
      ->capture_default_str();
  app.add_option("--name", options.name, "The plug-in's name, and its window's title")
      ->type_name("NAME")
      ->check(name_check)
      ->capture_default_str();
  app.add_option("--type", type, "0 to 6: order of keys, layer of the window")
      ->type_name("TYPE")
      ->check(CLI::Range(0, 6))
      ->capture_default_str();
  app.add_option("--key", keys, "A key that it wants, for example XF86Red; repeatable")
      ->type_name("KEY")
      ->allow_extra_args(false);
  app.add_option("--exclusive", exclusive_keys, "A key that it wants for itself alone; repeatable")
      ->type_name("KEY")
      ->allow_extra_args(false);
  std::string colour;
  if (program.has_window) {
    app.add_option("--colour", colour, "Colour of the window")
        ->type_name("RRGGBB")
        ->check(CLI::Validator(&ColourMistake, ""));
  }
  try {
    app.parse(argc, argv);
  } catch (const CLI::ParseError& error) {
    if (error.get_exit_code() == 0) return app.exit(error);
    (void)std::fprintf(stderr, "%s: %s\nTry %s --help.\n", program.name, error.what(),
                       program.name);
    return kWrongUsage;
  }
  options.type = static_cast<VIEWER_PLUGIN_TYPE>(type);
  std::from_chars(colour.data(), colour.data() + colour.size(), options.colour, 16);
  options.keys = ToRepository(keys);
  options.exclusive_keys = ToRepository(exclusive_keys);
  return options;
}

void Say(const std::string& line) {
  std::printf("%s\n", kavrel_programs::Printable(line).c_str());
  (void)std::fflush(stdout);
}

const char* StateName(int state) {
  constexpr const char* kNames[] = {"BACKGROUND", "RESUME", "RESUME_FOCUS", "PAUSE"};
  return state >= 0 && state < 4 ? kNames[state] : "unknown";
}

}  // namespace plugins
