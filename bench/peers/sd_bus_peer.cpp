// sd-bus, peer to peer and through the bus daemon that DBUS_SYSTEM_BUS_ADDRESS names.
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <cstring>
#include <filesystem>
#include <stdexcept>
#include <systemd/sd-bus.h>
#include <systemd/sd-event.h>

#include "peers/peer.h"

namespace kavrel_bench {
namespace {

constexpr const char* kPath = "/viewer";
constexpr const char* kInterface = "org.zarnet.Bench";

int OnGetWindowSize(sd_bus_message* message, void* /*data*/, sd_bus_error* /*error*/) {
  return sd_bus_reply_method_return(message, "ib", kWindowSize, 1);
}

int OnShow(sd_bus_message* message, void* /*data*/, sd_bus_error* /*error*/) {
  int number = 0;
  const char* first = nullptr;
  const char* second = nullptr;
  sd_bus_message_read(message, "iss", &number, &first, &second);
  return sd_bus_message_get_expect_reply(message) > 0 ? sd_bus_reply_method_return(message, "") : 1;
}

const sd_bus_vtable kTable[] = {
    SD_BUS_VTABLE_START(0),
    SD_BUS_METHOD("GetWindowSize", "", "ib", &OnGetWindowSize, SD_BUS_VTABLE_UNPRIVILEGED),
    SD_BUS_METHOD("Show", "iss", "", &OnShow, SD_BUS_VTABLE_UNPRIVILEGED), SD_BUS_VTABLE_END};

void Check(int result, const char* what) {
  if (result < 0) throw std::runtime_error(std::string(what) + ": " + std::strerror(-result));
}

std::string BusNameOf(const std::string& address) {
  return "org.zarnet.SdBus." + std::filesystem::path(address).filename().string();
}

// ---- Who answers

int OnConnection(sd_event_source* source, int listener, std::uint32_t /*events*/, void* /*data*/) {
  const int fd = accept4(listener, nullptr, nullptr, SOCK_CLOEXEC | SOCK_NONBLOCK);
  if (fd < 0) return -errno;
  sd_bus* bus = nullptr;
  sd_id128_t id{};
  sd_id128_randomize(&id);
  Check(sd_bus_new(&bus), "sd_bus_new");
  Check(sd_bus_set_fd(bus, fd, fd), "sd_bus_set_fd");
  Check(sd_bus_set_server(bus, 1, id), "sd_bus_set_server");
  Check(sd_bus_add_object_vtable(bus, nullptr, kPath, kInterface, kTable, nullptr), "vtable");
  Check(sd_bus_start(bus), "sd_bus_start");
  return sd_bus_attach_event(bus, sd_event_source_get_event(source), 0);
}

void ServeDirectly(const std::string& address, const std::function<void()>& ready) {
  const int listener = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
  sockaddr_un path{};
  path.sun_family = AF_UNIX;
  address.copy(path.sun_path, sizeof path.sun_path - 1);
  if (bind(listener, reinterpret_cast<const sockaddr*>(&path), sizeof path) != 0 ||
      listen(listener, SOMAXCONN) != 0) {
    close(listener);
    throw std::runtime_error("cannot listen on " + address);
  }
  sd_event* event = nullptr;
  Check(sd_event_default(&event), "sd_event_default");
  Check(sd_event_add_io(event, nullptr, listener, EPOLLIN, &OnConnection, nullptr), "sd_event_add");
  ready();
  sd_event_loop(event);
}

void ServeOnBus(const std::string& address, const std::function<void()>& ready) {
  sd_bus* bus = nullptr;
  Check(sd_bus_open_system(&bus), "no bus");
  Check(sd_bus_add_object_vtable(bus, nullptr, kPath, kInterface, kTable, nullptr), "vtable");
  Check(sd_bus_request_name(bus, BusNameOf(address).c_str(), 0), "no name");
  ready();
  for (;;) {
    if (sd_bus_process(bus, nullptr) == 0) sd_bus_wait(bus, UINT64_MAX);
  }
}

// ---- Who calls

class SdBusCaller final : public Caller {
 public:
  /// Takes the connection over; `service` is null where there is no daemon.
  SdBusCaller(sd_bus* bus, const char* service)
      : bus_(bus), service_(service == nullptr ? "" : service) {
    // Until somebody has answered, what is sent is only put in a queue.
    TwoWay();
  }
  SdBusCaller(const SdBusCaller&) = delete;
  SdBusCaller& operator=(const SdBusCaller&) = delete;
  ~SdBusCaller() override { sd_bus_flush_close_unref(bus_); }

  void TwoWay() override {
    sd_bus_message* reply = nullptr;
    Check(sd_bus_call_method(bus_, Service(), kPath, kInterface, "GetWindowSize", nullptr, &reply,
                             ""),
          "GetWindowSize");
    int size = 0;
    int result = 0;
    sd_bus_message_read(reply, "ib", &size, &result);
    sd_bus_message_unref(reply);
  }
  void OneWay(int number) override {
    sd_bus_message* message = nullptr;
    Check(sd_bus_message_new_method_call(bus_, &message, Service(), kPath, kInterface, "Show"),
          "message");
    sd_bus_message_append(message, "iss", number, kText, kText);
    sd_bus_message_set_expect_reply(message, 0);
    int sent = sd_bus_send(bus_, message, nullptr);
    if (sent == -ENOBUFS) {  // its queue is full
      sd_bus_flush(bus_);
      sent = sd_bus_send(bus_, message, nullptr);
    }
    sd_bus_message_unref(message);
    Check(sent, "Show");
  }

 private:
  const char* Service() const { return service_.empty() ? nullptr : service_.c_str(); }

  sd_bus* bus_;
  std::string service_;
};

std::unique_ptr<Caller> ConnectDirectly(const std::string& address) {
  sd_bus* bus = nullptr;
  Check(sd_bus_new(&bus), "sd_bus_new");
  Check(sd_bus_set_address(bus, ("unix:path=" + address).c_str()), "sd_bus_set_address");
  Check(sd_bus_start(bus), "sd_bus_start");
  return std::make_unique<SdBusCaller>(bus, nullptr);
}

std::unique_ptr<Caller> ConnectToBus(const std::string& address) {
  sd_bus* bus = nullptr;
  Check(sd_bus_open_system(&bus), "no bus");
  return std::make_unique<SdBusCaller>(bus, BusNameOf(address).c_str());
}

}  // namespace

Peer SdBusDirectPeer() {
  return {"sd-bus, peer to peer", Kind::kPeer, &ServeDirectly, &ConnectDirectly};
}

Peer SdBusPeer() {
  return {"sd-bus, bus daemon", Kind::kPeer, &ServeOnBus, &ConnectToBus, true, 4'000};
}

}  // namespace kavrel_bench
