// A viewer without a screen that does what its standard input says, one command a line:
//   key NAME | state NAME | grab NAME | release NAME | window NAME | destroy | create | quit
// and says what it was told, one line each.
#include <Elementary.h>
#include <kavrel/KavrelAPI.h>
#include <unistd.h>

#include <cstdio>
#include <iostream>
#include <sstream>
#include <string>

namespace {

IViewerHost* the_host = nullptr;
Evas_Object* the_window = nullptr;

void Say(const std::string& line) {
  std::printf("%s\n", line.c_str());
  std::fflush(stdout);
}

void Receive(CMessage& message, void*) {
  std::string line = "told:";
  for (int index = 0; index < message.Size(); ++index) {
    line += ' ' + message.GetKey(index) + '=' + message.GetValue(index);
  }
  Say(line);
}

void Create() {
  const bool made = KavrelAPI::CreateViewerHost(the_window, &the_host, &Receive, nullptr, "kavrel");
  Say(made ? "created" : "not created");
}

void Obey(const std::string& line) {
  std::istringstream words(line);
  std::string command;
  std::string name;
  words >> command >> name;
  if (command == "create") return Create();
  if (command == "quit") return ecore_main_loop_quit();
  if (command == "destroy") {
    KavrelAPI::DestroyViewerHost();
    return Say("destroyed");
  }
  if (command == "key") {
    std::string consumer = "-";
    const bool taken = the_host->DispatchInput(name, 0, 2, consumer);
    Say("key " + name + (taken ? " taken " : " left ") + consumer);
  } else if (command == "state") {
    the_host->BroadcastViewerState(name);
  } else if (command == "grab") {
    the_host->ProcessRegisteredExclusiveKey(name, "kavrel");
  } else if (command == "release") {
    the_host->ProcessUnregisteredExclusiveKey(name, "kavrel");
  } else if (command == "window") {
    const Evas_Object* const window = the_host->GetPluginObject(name);
    Say("window " + name + ' ' +
        (window == nullptr ? "none" : std::to_string(evas_object_layer_get(window))));
  }
}

Eina_Bool ReadCommand(void*, Ecore_Fd_Handler*) {
  static std::string pending;
  char bytes[256];
  const ssize_t size = ::read(STDIN_FILENO, bytes, sizeof(bytes));
  if (size <= 0) {
    ecore_main_loop_quit();
    return ECORE_CALLBACK_CANCEL;
  }
  pending.append(bytes, static_cast<std::size_t>(size));
  for (auto end = pending.find('\n'); end != std::string::npos; end = pending.find('\n')) {
    const std::string line = pending.substr(0, end);
    pending.erase(0, end + 1);
    Obey(line);
  }
  return ECORE_CALLBACK_RENEW;
}

}  // namespace

int main(int argc, char** argv) {
  elm_init(argc, argv);
  the_window = elm_win_util_standard_add("viewer", "viewer");
  evas_object_resize(the_window, 1280, 720);
  evas_object_show(the_window);
  ecore_main_fd_handler_add(STDIN_FILENO, ECORE_FD_READ, &ReadCommand, nullptr, nullptr, nullptr);
  Create();
  ecore_main_loop_begin();
  KavrelAPI::DestroyViewerHost();
  std::fflush(stdout);
  // Not elm_shutdown(): the toolkit's own leftovers are not under test.
  ::_exit(0);
}
