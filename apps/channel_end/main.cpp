// kavrel-channel-end: one end of the channel between a host and a plug-in, played by hand. Start it
// twice, naming the same pair, and tell each end on its standard input what to send:
//
//     kavrel-channel-end host kavrel hello
//     kavrel-channel-end plugin kavrel hello
//     send page=100 lang=en     a message; waits and tells the answer
//     post page=101             a message that is not waited for
//     notify page=102           a notification
//     announce 5 true           plug-in only: an auxiliary event
//
// It works below the exported framework, on the library's own classes, and shows what these do.
#include <glib.h>
#include <standard_streams.h>
#include <unistd.h>

#include <array>
#include <glib-unix.h>
#include <iostream>
#include <memory>
#include <sstream>
#include <string>
#include <utility>

#include "legacy/AuxDbusClient.h"
#include "legacy/AuxDbusServer.h"
#include "legacy/HostDbus.h"
#include "legacy/PluginDbus.h"
#include "printable.h"

namespace {

using kavrel_programs::Printable;

void Say(const std::string& text) {
  std::cout << text << std::endl;
}

std::string TextOf(const CMessage& message) {
  std::string text;
  for (int i = 0; i < message.Size(); ++i) {
    text += ' ' + Printable(message.GetKey(i)) + '=' + Printable(message.GetValue(i));
  }
  return text;
}

CMessage MessageFrom(std::istream& words) {
  CMessage message;
  std::string word;
  while (words >> word) {
    const auto equals = word.find('=');
    const bool has_value = equals != std::string::npos;
    message.AddValue(word.substr(0, equals).c_str(),
                     has_value ? word.substr(equals + 1).c_str() : "");
  }
  return message;
}

/// Main thread only, whose main context delivers everything.
class End {
 public:
  End(bool is_host, const std::string& host, const std::string& plugin) : plugin_(plugin) {
    if (is_host) {
      OpenHost(host, plugin);
    } else {
      OpenPlugin(host, plugin);
    }
    channel_->SetConnectionChangedCallback([](void*) { Say("partner found, ready"); },
                                           [](void*) { Say("partner lost"); }, nullptr);
  }
  End(const End&) = delete;
  End& operator=(const End&) = delete;
  ~End() {
    if (client_) client_->UnregisterDbusNameHandler();
  }

  void Do(const std::string& line) {
    std::istringstream words(line);
    std::string what;
    words >> what;
    if (what == "announce" && client_) {
      Announce(words);
      return;
    }
    CMessage message = MessageFrom(words);
    if (what == "send") {
      Say(channel_->SendMessage(message, 0) ? "answered true" : "answered false, or not delivered");
    } else if (what == "post") {
      Say(channel_->SendMessage(message, 1) ? "posted" : "not posted");
    } else if (what == "notify") {
      Say(channel_->SendNotification(message) ? "notified" : "not notified");
    } else if (!what.empty()) {
      Say("send, post and notify take KEY=VALUE...; a plug-in's announce takes a number and a "
          "flag");
    }
  }

 private:
  void OpenHost(const std::string& host, const std::string& plugin) {
    server_ = std::make_unique<CAuxDbusServer>(host);
    server_->SetAuxDbusSignalCb(
        [](const char* text, int value, bool flag, void*) {
          Say("heard that " + Printable(text) + " says " + std::to_string(value) +
              (flag ? " true" : " false"));
          return true;
        },
        nullptr);
    auto end = std::make_unique<kavreldbus::CHostDbus>(host, plugin);
    end->SetHostDbusMsgCb(
        [](CMessage& message, void*) {
          Say("received" + TextOf(message));
          return true;
        },
        nullptr);
    channel_ = std::move(end);
  }

  void OpenPlugin(const std::string& host, const std::string& plugin) {
    client_ = std::make_unique<CAuxDbusClient>(host);
    client_->RegisterDbusNameHandler(
        [](GDBusConnection*, const char*, const char*, void* self) {
          Say("the host is there");
          auto& end = *static_cast<End*>(self);
          end.client_->SendNotification(end.plugin_.c_str(), 5, true);
        },
        [](GDBusConnection*, const char*, void*) { Say("the host is not there"); }, this);
    auto end = std::make_unique<kavreldbus::CPluginDbus>(host, plugin);
    end->SetPluginDubsMsgCB([](CMessage& message) {
      Say("received" + TextOf(message));
      return true;
    });
    channel_ = std::move(end);
  }

  void Announce(std::istream& words) const {
    int value = 0;
    std::string flag;
    words >> value >> flag;
    client_->SendNotification(plugin_.c_str(), value, flag == "true");
    Say("announced");
  }

  std::string plugin_;
  std::unique_ptr<CAuxDbusServer> server_;
  std::unique_ptr<CAuxDbusClient> client_;
  std::unique_ptr<kavreldbus::CBaseDbus> channel_;
};

/// Standard input, a line at a time.
struct Input {
  End& end;
  std::string text;
  bool over = false;

  static gboolean OnReadable(int fd, GIOCondition /*condition*/, void* data) {
    auto& input = *static_cast<Input*>(data);
    std::array<char, 4096> bytes;
    const ssize_t size = ::read(fd, bytes.data(), bytes.size());
    if (size <= 0) {
      input.over = true;
      return G_SOURCE_REMOVE;
    }
    input.text.append(bytes.data(), static_cast<std::size_t>(size));
    for (auto line = input.text.find('\n'); line != std::string::npos;
         line = input.text.find('\n')) {
      input.end.Do(input.text.substr(0, line));
      input.text.erase(0, line + 1);
    }
    return G_SOURCE_CONTINUE;
  }
};

}  // namespace

int main(int argc, char** argv) {
  kavrel_programs::ProtectStandardStreams();
  const std::string role = argc == 4 ? argv[1] : "";
  if (role != "host" && role != "plugin") {
    std::cerr << "Usage: kavrel-channel-end host|plugin HOST PLUGIN\n";
    return 2;
  }
  End end(role == "host", argv[2], argv[3]);
  Input input{end, {}, false};
  g_unix_fd_add(STDIN_FILENO, static_cast<GIOCondition>(G_IO_IN | G_IO_HUP), &Input::OnReadable,
                &input);
  Say("started as " + role + " of " + argv[2] + "/" + argv[3]);
  while (!input.over) g_main_context_iteration(nullptr, TRUE);
}
