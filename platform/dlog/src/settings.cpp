#include "settings.h"

#include <dlog.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <string_view>

#include "directories.h"

namespace kavrel_dlog {
namespace {

using kavrel_platform::Environment;

constexpr char kJournalSocket[] = "/run/systemd/journal/socket";

struct Level {
  std::string_view name;
  std::string_view number;
  int threshold;
};

constexpr std::array<Level, 7> kLevels = {{{"verbose", "2", DLOG_VERBOSE},
                                           {"debug", "3", DLOG_DEBUG},
                                           {"info", "4", DLOG_INFO},
                                           {"warning", "5", DLOG_WARN},
                                           {"error", "6", DLOG_ERROR},
                                           {"fatal", "7", DLOG_FATAL},
                                           {"none", "8", kNothing}}};

// A service manager names the stream that it gave as standard error by device and inode.
bool StandardErrorIsJournal() {
  const std::string stream = Environment("JOURNAL_STREAM");
  struct stat status {};
  if (stream.empty() || ::fstat(STDERR_FILENO, &status) != 0) return false;
  return stream == std::to_string(status.st_dev) + ':' + std::to_string(status.st_ino);
}

// Takes `prefix` away from the front of `text`.
bool Consume(std::string& text, std::string_view prefix) {
  if (!std::string_view(text).starts_with(prefix)) return false;
  text.erase(0, prefix.size());
  return true;
}

std::unique_ptr<Sink> OrStandardError(std::unique_ptr<Sink> sink, const std::string& value,
                                      Settings& settings) {
  if (sink != nullptr) return sink;
  settings.complaints.push_back("KAVREL_LOG is \"" + value + "\", which cannot be opened (" +
                                std::strerror(errno) + "): standard error is used");
  return StandardError();
}

// What KAVREL_LOG names; null for none.
std::unique_ptr<Sink> NamedSink(const std::string& value, Settings& settings) {
  std::string rest = value;
  if (value == "none") return nullptr;
  if (value == "stderr") return StandardError();
  if (value == "journal") return OrStandardError(Journal(kJournalSocket), value, settings);
  if (Consume(rest, "journal:")) return OrStandardError(Journal(rest), value, settings);
  if (Consume(rest, "file:")) return OrStandardError(OpenFile(rest), value, settings);
  settings.complaints.push_back("KAVREL_LOG is \"" + value +
                                "\", allowed are stderr, journal, journal:SOCKET, file:PATH and "
                                "none: standard error is used");
  return StandardError();
}

int Threshold(int otherwise, Settings& settings) {
  const std::string value = Environment("KAVREL_LOG_LEVEL");
  if (value.empty()) return otherwise;
  const auto* const level = std::find_if(kLevels.begin(), kLevels.end(), [&](const Level& known) {
    return value == known.name || value == known.number;
  });
  if (level != kLevels.end()) return level->threshold;
  const auto& used = kLevels[static_cast<std::size_t>(otherwise - DLOG_VERBOSE)].name;
  settings.complaints.push_back("KAVREL_LOG_LEVEL is \"" + value +
                                "\", allowed are verbose, debug, info, warning, error, fatal, none "
                                "and 2 to 8: " +
                                std::string(used) + " is used");
  return otherwise;
}

}  // namespace

Settings ReadSettings() {
  Settings settings;
  int threshold = DLOG_INFO;
  const std::string value = Environment("KAVREL_LOG");
  if (!value.empty()) {
    settings.sink = NamedSink(value, settings);
  } else if (StandardErrorIsJournal()) {
    settings.sink = Journal(kJournalSocket);
  }
  if (settings.sink == nullptr && value.empty()) {
    settings.sink = StandardError();
    threshold = DLOG_ERROR;
  }
  settings.threshold = Threshold(threshold, settings);
  if (settings.sink == nullptr) settings.threshold = kNothing;
  return settings;
}

}  // namespace kavrel_dlog
