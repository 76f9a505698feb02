// GLib's settings, kept by dconf and its service on a private session bus.
#include <gio/gio.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <stdexcept>

#include "child_process.h"
#include "stores/store.h"

namespace kavrel_bench {
namespace {

constexpr const char* kSchema = "org.zarnet.bench";
constexpr const char* kXml =
    "<schemalist><schema id='org.zarnet.bench' path='/org/zarnet/bench/'>"
    "<key name='value' type='i'><default>0</default></key></schema></schemalist>\n";

class Settings final : public Store {
 public:
  Settings() : settings_(g_settings_new(kSchema)) { g_settings_get_int(settings_, "value"); }
  Settings(const Settings&) = delete;
  Settings& operator=(const Settings&) = delete;
  ~Settings() override { g_object_unref(settings_); }

  int Get() override { return g_settings_get_int(settings_, "value"); }
  void Set(int value) override {
    Tell(value);
    g_settings_sync();
  }
  void Tell(int value) override {
    if (g_settings_set_int(settings_, "value", value) == FALSE) {
      throw std::runtime_error("GSettings cannot set");
    }
  }
  void Follow(const std::function<void()>& ready, const std::function<void()>& called) override {
    g_signal_connect(settings_, "changed::value",
                     G_CALLBACK(+[](GSettings*, const char*, gpointer data) {
                       (*static_cast<const std::function<void()>*>(data))();
                     }),
                     const_cast<std::function<void()>*>(&called));
    g_settings_sync();  // its service knows of this process
    ready();
    g_main_loop_run(g_main_loop_new(nullptr, FALSE));
  }

 private:
  GSettings* settings_;
};

/// Compiles the schema; false where that does not work.
bool MakeSchema(const std::string& home) {
  std::ofstream(home + "/org.zarnet.bench.gschema.xml") << kXml;
  kavrel_test::ChildProcess compiler({.arguments = {"/usr/bin/glib-compile-schemas", home}});
  return compiler.WaitForExit() == 0;
}

}  // namespace

StoreKind GSettingsStore(const std::string& directory) {
  const std::string home = directory + "/settings";
  std::filesystem::create_directory(home);
  const std::string address = "unix:path=" + home + "/bus";
  for (const char* name : {"XDG_CONFIG_HOME", "XDG_RUNTIME_DIR", "GSETTINGS_SCHEMA_DIR"}) {
    setenv(name, home.c_str(), 1);
  }
  setenv("DBUS_SESSION_BUS_ADDRESS", address.c_str(), 1);
  setenv("GSETTINGS_BACKEND", "dconf", 1);
  StoreKind kind{"GSettings and dconf",
                 []() -> std::unique_ptr<Store> { return std::make_unique<Settings>(); }};
  kind.threads = true;
  kind.most_followers = 10;
  auto bus = std::make_shared<kavrel_test::ChildProcess>(kavrel_test::ChildOptions{
      .arguments = {"/usr/bin/dbus-daemon", "--session", "--nofork", "--nopidfile",
                    "--address=" + address, "--print-address=1"}});
  if (!bus->WaitForLine("unix:", std::chrono::seconds(10))) kind.missing = "no session bus";
  if (!MakeSchema(home)) kind.missing = "glib-compile-schemas fails";
  if (!std::filesystem::exists("/usr/share/dbus-1/services/ca.desrt.dconf.service")) {
    kind.missing = "dconf-service is not installed";
  }
  kind.server = bus;
  return kind;
}

}  // namespace kavrel_bench
