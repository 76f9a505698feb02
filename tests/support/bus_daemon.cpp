#include "bus_daemon.h"

#include <sys/stat.h>

#include <fstream>
#include <stdexcept>

namespace kavrel_test {
namespace {

constexpr const char* kHead =
    "<!DOCTYPE busconfig PUBLIC \"-//freedesktop//DTD D-Bus Bus Configuration 1.0//EN\"\n"
    " \"http://www.freedesktop.org/standards/dbus/1.0/busconfig.dtd\">\n"
    "<busconfig>\n"
    "  <type>system</type>\n"
    "  <auth>EXTERNAL</auth>\n";

constexpr const char* kOpen =
    "  <policy context=\"default\">\n"
    "    <allow own=\"*\"/>\n"
    "    <allow send_destination=\"*\" eavesdrop=\"true\"/>\n"
    "    <allow eavesdrop=\"true\"/>\n"
    "  </policy>\n";

void WriteConfiguration(const std::string& path, const std::string& socket,
                        const BusOptions& options) {
  std::ofstream file(path);
  file << kHead << "  <listen>unix:path=" << socket << "</listen>\n"
       << (options.closed ? "" : kOpen) << options.configuration << "</busconfig>\n";
  if (!file.flush()) throw std::runtime_error("cannot write " + path);
}

}  // namespace

BusDaemon::BusDaemon(const BusOptions& options) : address_("unix:path=" + directory_.Path("bus")) {
  if (options.closed) ::chmod(directory_.path().c_str(), 0755);
  WriteConfiguration(directory_.Path("bus.conf"), directory_.Path("bus"), options);
  Start();
}

void BusDaemon::Start() {
  daemon_ = std::make_unique<ChildProcess>(ChildOptions{
      .arguments = {"/usr/bin/dbus-daemon", "--config-file=" + directory_.Path("bus.conf"),
                    "--nofork", "--nopidfile", "--nosyslog", "--print-address=1"}});
  if (!daemon_->WaitForLine("unix:")) {
    throw std::runtime_error("no bus: " + daemon_->errors());
  }
}

}  // namespace kavrel_test
