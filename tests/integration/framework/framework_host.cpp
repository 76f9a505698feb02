// A viewer without a screen: framework_host [thread | host=NAME]. With "thread" its host is made by
// a second thread while the main loop runs; a host of another name is made without a window.
// Commands:
//   key NAME [released] [DEVICE]   keys COUNT NAME   state STATE   grab NAME   release NAME
//   [REQUESTER] window NAME   place NAME X Y WIDTH HEIGHT   hide NAME   pixel X Y RRGGBB send NAME
//   ASYNC KEY VALUE...   cost   create   destroy   quit
// It says what plug-ins tell it, and dispatches the key that one asks for with a message "press".
#include <Ecore_Evas.h>
#include <kavrel/KavrelAPI.h>

#include <cstdint>
#include <map>
#include <sstream>
#include <thread>
#include <vector>

#include "framework_program.h"

namespace {

using framework_program::Say;

IViewerHost* the_host = nullptr;
Evas_Object* the_window = nullptr;
std::string the_name = "kavrel";

struct WantedPixel {
  int x = 0;
  int y = 0;
  std::uint32_t color = 0;
};
std::vector<WantedPixel> wanted_pixels;

Ecore_Evas* Canvas() {
  return ecore_evas_ecore_evas_get(evas_object_evas_get(the_window));
}

bool Dispatch(const std::string& key, int type, int device) {
  std::string consumer = "-";
  const bool taken = the_host->DispatchInput(key, type, device, consumer);
  Say("key " + key + (taken ? " taken " : " left ") + consumer);
  return taken;
}

void Receive(CMessage& message, void*) {
  if (message.GetKey(0) == "press") {
    std::string consumer;
    the_host->DispatchInput(message.GetValue(0), 0, 0, consumer);
    return;
  }
  Say("told:" + framework_program::Show(message));
}

void Create() {
  Evas_Object* const window = the_name == "kavrel" ? the_window : nullptr;
  const bool made =
      KavrelAPI::CreateViewerHost(window, &the_host, &Receive, nullptr, the_name.c_str());
  Say(made ? "created" : "not created");
}

// Says each wanted pixel once the picture shows it.
void LookAtPixels(void*, Evas*, void*) {
  int width = 0;
  ecore_evas_geometry_get(Canvas(), nullptr, nullptr, &width, nullptr);
  const auto* const pixels =
      static_cast<const std::uint32_t*>(ecore_evas_buffer_pixels_get(Canvas()));
  std::erase_if(wanted_pixels, [&](const WantedPixel& wanted) {
    if ((pixels[wanted.y * width + wanted.x] & 0xffffffU) != wanted.color) return false;
    Say("pixel " + std::to_string(wanted.x) + ' ' + std::to_string(wanted.y));
    return true;
  });
}

void WantPixel(std::istream& words) {
  WantedPixel wanted;
  words >> wanted.x >> wanted.y >> std::hex >> wanted.color;
  wanted_pixels.push_back(wanted);
  // Draws what has changed and looks; if that is not it, the next change does.
  ecore_evas_manual_render(Canvas());
  LookAtPixels(nullptr, nullptr, nullptr);
}

void PressOnce(const std::string& name, std::istream& words) {
  std::string type;
  int device = 2;
  words >> type >> device;
  Dispatch(name, type == "released" ? 1 : 0, device);
}

void PressOften(int count, std::istream& words) {
  std::string name;
  words >> name;
  int taken = 0;
  for (int press = 0; press < count; ++press) {
    std::string consumer;
    if (the_host->DispatchInput(name, 1, 0, consumer)) ++taken;
  }
  Say("keys " + name + ' ' + std::to_string(taken));
}

void Send(const std::string& plugin, std::istream& words) {
  int async = 0;
  words >> async;
  CMessage message;
  for (std::string key, value; words >> key >> value;) {
    message.AddValue(key.c_str(), value.c_str());
  }
  Say("sent " + std::to_string(the_host->SendMessage(plugin, message, async)));
}

void ChangeWindow(const std::string& command, const std::string& name, std::istream& words) {
  Evas_Object* const object = the_host->GetPluginObject(name);
  if (command == "window") {
    Say("window " + name + ' ' +
        (object == nullptr ? "none" : std::to_string(evas_object_layer_get(object))));
  } else if (command == "hide") {
    evas_object_hide(object);
  } else if (command == "place") {
    int x = 0, y = 0, width = 0, height = 0;
    words >> x >> y >> width >> height;
    evas_object_move(object, x, y);
    evas_object_resize(object, width, height);
  }
}

void Obey(const std::string& line) {
  std::istringstream words(line);
  std::string command;
  words >> command;
  if (command == "create") return Create();
  if (command == "quit") return ecore_main_loop_quit();
  if (command == "cost") return Say("cost " + framework_program::Cost());
  if (command == "pixel") return WantPixel(words);
  if (command == "destroy") {
    KavrelAPI::DestroyViewerHost();
    return Say("destroyed");
  }
  std::string name;
  words >> name;
  if (command == "key") return PressOnce(name, words);
  if (command == "keys") return PressOften(std::stoi(name), words);
  if (command == "send") return Send(name, words);
  if (command == "state") return the_host->BroadcastViewerState(name);
  if (command == "grab") return the_host->ProcessRegisteredExclusiveKey(name, "kavrel");
  if (command == "release") {
    std::string requester = "kavrel";
    words >> requester;
    return the_host->ProcessUnregisteredExclusiveKey(name, requester);
  }
  ChangeWindow(command, name, words);
}

void OpenRootWindow() {
  the_window = elm_win_add(nullptr, "viewer", ELM_WIN_BASIC);
  elm_win_title_set(the_window, "viewer");
  Evas_Object* const background = evas_object_rectangle_add(evas_object_evas_get(the_window));
  evas_object_color_set(background, 0, 0, 0, 255);
  evas_object_layer_set(background, EVAS_LAYER_MIN);
  evas_object_resize(background, 320, 240);
  evas_object_show(background);
  evas_object_resize(the_window, 320, 240);
  evas_object_show(the_window);
  evas_event_callback_add(evas_object_evas_get(the_window), EVAS_CALLBACK_RENDER_POST,
                          &LookAtPixels, nullptr);
}

}  // namespace

int main(int argc, char** argv) {
  framework_program::StartEfl(argc, argv);
  OpenRootWindow();
  framework_program::Commands commands(&Obey);
  commands.ReadInEflLoop();
  const std::string word = argc > 1 ? argv[1] : "";
  if (word.starts_with("host=")) the_name = word.substr(5);
  std::thread creator;
  if (word == "thread") {
    creator = std::thread(&Create);
  } else {
    Create();
  }
  ecore_main_loop_begin();
  if (creator.joinable()) creator.join();
  KavrelAPI::DestroyViewerHost();
  Say("ended");
  // Not elm_shutdown(): the toolkit's own leftovers are not under test.
  ::_exit(0);
}
