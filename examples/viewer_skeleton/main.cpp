// The least that is a viewer: it serves clients, does some of what they ask for, publishes one
// property of its state, and hosts no plug-ins.
#include <kavrel/app_api.h>
#include <kavrel/state_api.h>

#include <csignal>
#include <cstdlib>
#include <glib-unix.h>
#include <iostream>
#include <memory>

#include "quiet_service.h"

/// What the viewer is doing. All clients command the same one.
struct Screen {
  int size = 0;
};

/// One client. Operations run one at a time, on the main loop.
class Service : public QuietService {
 public:
  Service(std::string sender, std::string instance, Screen& screen)
      : QuietService(std::move(sender), std::move(instance)), screen_(screen) {}

  void TuneChannel(std::string number, std::string name, std::string, std::string) override {
    std::cout << GetSender() << " tunes to " << number << ' ' << name << std::endl;
  }
  bool SetWindowSize(int size) override {
    if (size < 0 || size > 3) return false;  // what clients send is theirs to get wrong
    screen_.size = size;
    kavrel_set_bg_executable(size == 0 ? 0 : 1);
    return true;
  }
  bool GetWindowSize(int& size) override {
    size = screen_.size;
    return true;
  }

 private:
  Screen& screen_;
};

class Factory : public stub::KavrelAppApi::ServiceBase::Factory {
 public:
  explicit Factory(Screen& screen) : screen_(screen) {}

  std::unique_ptr<stub::KavrelAppApi::ServiceBase> MakeService(std::string sender,
                                                               std::string instance) override {
    return std::make_unique<Service>(std::move(sender), std::move(instance), screen_);
  }

 private:
  Screen& screen_;
};

static gboolean Quit(gpointer loop) {
  g_main_loop_quit(static_cast<GMainLoop*>(loop));
  return G_SOURCE_CONTINUE;
}

int main() try {
  setenv("KAVREL_APP_ID", KAVREL_VIEWER_APP_ID, 0);  // under which clients find it
  GMainLoop* const loop = g_main_loop_new(nullptr, FALSE);
  for (const int signal : {SIGINT, SIGTERM}) g_unix_signal_add(signal, &Quit, loop);
  Screen screen;
  stub::KavrelAppApi app_api;
  app_api.Listen(std::make_shared<Factory>(screen));
  std::cout << "serving" << std::endl;
  g_main_loop_run(loop);
  g_main_loop_unref(loop);
} catch (const stub::InvalidIOException&) {
  std::cerr << "another viewer serves already, or the log tells why not\n";
  return 1;
}
