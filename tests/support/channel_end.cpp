// One end of the channel in a process of its own, told what to do by bus_peer.h. It also does
//
//     {"do": "ask_back", "value": true}   sends two messages from within each message's handler and
//                                         waits for their answers -> asked_back, "result"
//     serve_aux, open_aux, announce, close_aux   the auxiliary channel
#include <unistd.h>

#include <cstdio>
#include <glib-unix.h>
#include <memory>
#include <nlohmann/json.hpp>
#include <string>
#include <utility>
#include <vector>

#include "legacy/AuxDbusClient.h"
#include "legacy/AuxDbusServer.h"
#include "legacy/HostDbus.h"
#include "legacy/PluginDbus.h"
#include "shared_connection.h"

namespace {

using Json = nlohmann::json;

void Say(const Json& event) {
  const std::string line = event.dump(-1, ' ', false, Json::error_handler_t::replace) + "\n";
  (void)std::fwrite(line.data(), 1, line.size(), stdout);
  (void)std::fflush(stdout);
}

CMessage MessageOf(const Json& command) {
  CMessage message;
  for (const auto& pair : command.at("pairs")) {
    message.AddValue(pair.at(0).get<std::string>().c_str(), pair.at(1).get<std::string>().c_str());
  }
  return message;
}

Json PairsOf(const CMessage& message) {
  Json pairs = Json::array();
  for (int i = 0; i < message.Size(); ++i) {
    pairs.push_back({message.GetKey(i), message.GetValue(i)});
  }
  return pairs;
}

// This process's name on the bus; empty without a bus.
std::string UniqueName() {
  const kavrel::glib::Connection connection(g_bus_get_sync(G_BUS_TYPE_SYSTEM, nullptr, nullptr));
  if (connection == nullptr) return {};
  return g_dbus_connection_get_unique_name(connection.get());
}

class End {
 public:
  void Do(const Json& command) {
    const std::string what = command.at("do");
    if (what == "open") Open(command);
    if (what == "close") Close();
    if (what == "send") Send(command);
    if (what == "notify") Notify(command);
    if (what == "answer") answer_ = command.at("value");
    if (what == "ask_back") ask_back_ = command.at("value");
    if (what == "who") Say({{"event", "who"}, {"who", UniqueName()}});
    if (what == "state") Say({{"event", "state"}, {"ready", channel_->IsConnectionReady()}});
    if (what == "serve_aux") ServeAux(command);
    if (what == "open_aux") OpenAux(command);
    if (what == "close_aux") CloseAux();
    if (what == "announce") Announce(command);
  }

 private:
  void Open(const Json& command) {
    const std::string host = command.at("host");
    const std::string plugin = command.at("plugin");
    if (command.at("role") == "host") {
      auto end = std::make_unique<kavreldbus::CHostDbus>(host, plugin);
      end->SetHostDbusMsgCb(
          [](CMessage& message, void* self) { return static_cast<End*>(self)->Receive(message); },
          this);
      channel_ = std::move(end);
    } else {
      auto end = std::make_unique<kavreldbus::CPluginDbus>(host, plugin);
      end->SetPluginDubsMsgCB([this](CMessage& message) { return Receive(message); });
      channel_ = std::move(end);
    }
    channel_->SetConnectionChangedCallback(
        [](void*) {
          Say({{"event", "connected"}});
        },
        [](void*) {
          Say({{"event", "disconnected"}});
        },
        this);
    Say({{"event", "opened"}});
  }

  // As if the process had ended: only then does a partner see that this end has gone.
  void Close() {
    channel_.reset();
    kavrel_test::ForgetSystemBus();
    Say({{"event", "closed"}});
  }

  bool Receive(CMessage& message) const {
    Say({{"event", "received"}, {"pairs", PairsOf(message)}});
    if (ask_back_) AskBack();
    return answer_;
  }

  void Send(const Json& command) {
    CMessage message = MessageOf(command);
    const bool result = channel_->SendMessage(message, command.at("wait") ? 0 : 1);
    Say({{"event", "sent"}, {"result", result}});
  }

  // Twice: the second cannot be answered before the partner, who waits for this end, has given up.
  void AskBack() const {
    CMessage question;
    channel_->SendMessage(question, 0);
    Say({{"event", "asked_back"}, {"result", channel_->SendMessage(question, 0)}});
  }

  void Notify(const Json& command) {
    CMessage message = MessageOf(command);
    Say({{"event", "notified"}, {"result", channel_->SendNotification(message)}});
  }

  void ServeAux(const Json& command) {
    server_ = std::make_unique<CAuxDbusServer>(command.at("host").get<std::string>());
    server_->SetAuxDbusSignalCb(
        [](const char* text, int value, bool flag, void*) {
          Say({{"event", "announced"}, {"text", text}, {"value", value}, {"flag", flag}});
          return true;
        },
        nullptr);
  }

  void OpenAux(const Json& command) {
    client_ = std::make_unique<CAuxDbusClient>(command.at("host").get<std::string>());
    client_->RegisterDbusNameHandler(
        [](GDBusConnection*, const char* name, const char*, void*) {
          Say({{"event", "appeared"}, {"name", name}});
        },
        [](GDBusConnection*, const char* name, void*) {
          Say({{"event", "vanished"}, {"name", name}});
        },
        nullptr);
  }

  void CloseAux() {
    if (client_) client_->UnregisterDbusNameHandler();
    client_.reset();
    server_.reset();
    Say({{"event", "aux_closed"}});
  }

  void Announce(const Json& command) {
    client_->SendNotification(command.at("text").get<std::string>().c_str(), command.at("value"),
                              command.at("flag"));
    Say({{"event", "announce_sent"}});
  }

  std::unique_ptr<kavreldbus::CBaseDbus> channel_;
  std::unique_ptr<CAuxDbusServer> server_;
  std::unique_ptr<CAuxDbusClient> client_;
  bool answer_ = true;
  bool ask_back_ = false;
};

struct Program {
  End end;
  std::string input;
  GMainLoop* loop = g_main_loop_new(nullptr, FALSE);
};

gboolean ReadCommands(int fd, GIOCondition /*condition*/, void* data) {
  Program& program = *static_cast<Program*>(data);
  std::vector<char> bytes(65536);
  const ssize_t size = ::read(fd, bytes.data(), bytes.size());
  if (size <= 0) {
    g_main_loop_quit(program.loop);
    return G_SOURCE_REMOVE;
  }
  program.input.append(bytes.data(), static_cast<std::size_t>(size));
  for (auto end = program.input.find('\n'); end != std::string::npos;
       end = program.input.find('\n')) {
    const std::string line = program.input.substr(0, end);
    program.input.erase(0, end + 1);
    program.end.Do(Json::parse(line));
  }
  return G_SOURCE_CONTINUE;
}

}  // namespace

int main() {
  Program program;
  g_unix_fd_add(STDIN_FILENO, static_cast<GIOCondition>(G_IO_IN | G_IO_HUP), ReadCommands,
                &program);
  g_main_loop_run(program.loop);
  g_main_loop_unref(program.loop);
}
