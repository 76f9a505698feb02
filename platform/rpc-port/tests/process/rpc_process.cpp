// A service or a client as a process of its own, for tests that kill, stop, limit or disguise it.
//
//   serve [descriptors]     answers each int with the next; 0 is not answered. Prints "listen
//   CODE".
//                           With a number: that many descriptors are all it may have.
//   serve-fork              as serve, with a forked child that outlives it and keeps what it
//   inherits call VALUE [uid]        connects (as another user) and calls. Prints "connect CODE",
//   "answer N". hold-fork               connects, forks a child that outlives it, and waits. Prints
//   "connect CODE".
#include <dlog.h>
#include <glib.h>
#include <grp.h>
#include <rpc-port.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

namespace {

constexpr const char* kPort = "TestPort";

void Report(const char* what, int value) {
  std::printf("%s %d\n", what, value);
  (void)std::fflush(stdout);
}

int OnRequest(const char*, const char*, rpc_port_h port, void*) {
  rpc_port_parcel_h request = nullptr;
  if (rpc_port_parcel_create_from_port(&request, port) != 0) return -1;
  int32_t value = 0;
  rpc_port_parcel_read_int32(request, &value);
  rpc_port_parcel_header_h header = nullptr;
  int sequence = 0;
  rpc_port_parcel_get_header(request, &header);
  rpc_port_parcel_header_get_seq_num(header, &sequence);
  rpc_port_parcel_destroy(request);
  if (value == 0) return 0;
  rpc_port_parcel_h answer = nullptr;
  rpc_port_parcel_create(&answer);
  rpc_port_parcel_get_header(answer, &header);
  rpc_port_parcel_header_set_seq_num(header, sequence);
  rpc_port_parcel_write_int32(answer, value + 1);
  const int result = rpc_port_parcel_send(answer, port);
  rpc_port_parcel_destroy(answer);
  return result;
}

void OnDisconnected(const char*, const char*, void*) {
  Report("disconnected", 0);
}

// A child that lives until this program's standard input is closed by the test.
void ForkSurvivor() {
  if (::fork() != 0) return;
  Report("survivor", 0);
  char byte = 0;
  while (::read(STDIN_FILENO, &byte, 1) > 0) continue;
  ::_exit(0);
}

int Serve(long descriptors, bool forks) {
  rpc_port_stub_h stub = nullptr;
  int result = rpc_port_stub_create(&stub, kPort);
  if (result == 0) {
    rpc_port_stub_add_received_event_cb(stub, &OnRequest, nullptr);
    rpc_port_stub_add_disconnected_event_cb(stub, &OnDisconnected, nullptr);
    if (descriptors > 0) {
      // A sanitizer needs a descriptor when it sees a type for the first time: let it see the
      // log's.
      dlog_print(DLOG_WARN, "RPC_PROCESS", "limited to %ld descriptors", descriptors);
      const auto count = static_cast<rlim_t>(descriptors);
      const struct rlimit limit { count, count };
      ::setrlimit(RLIMIT_NOFILE, &limit);
    }
    result = rpc_port_stub_listen(stub);
  }
  Report("listen", result);
  if (result != 0) return 1;
  if (forks) ForkSurvivor();
  g_main_loop_run(g_main_loop_new(nullptr, FALSE));
  return 0;
}

rpc_port_proxy_h Connect() {
  rpc_port_proxy_h proxy = nullptr;
  rpc_port_proxy_create(&proxy);
  Report("connect", rpc_port_proxy_connect_sync(proxy, std::getenv("KAVREL_APP_ID"), kPort));
  return proxy;
}

int Call(int value) {
  const rpc_port_proxy_h proxy = Connect();
  rpc_port_h port = nullptr;
  if (rpc_port_proxy_get_port(proxy, RPC_PORT_PORT_MAIN, &port) != 0) return 1;
  rpc_port_parcel_h request = nullptr;
  rpc_port_parcel_create(&request);
  rpc_port_parcel_write_int32(request, value);
  rpc_port_parcel_send(request, port);
  rpc_port_parcel_h answer = nullptr;
  int32_t result = 0;
  if (rpc_port_parcel_create_from_port(&answer, port) != 0) return 1;
  rpc_port_parcel_read_int32(answer, &result);
  Report("answer", result);
  return 0;
}

bool BecomeUser(uid_t uid) {
  return ::setgroups(0, nullptr) == 0 && ::setgid(uid) == 0 && ::setuid(uid) == 0;
}

}  // namespace

int main(int count, char** arguments) {
  const std::string mode = count > 1 ? arguments[1] : "";
  const long number = count > 2 ? std::stol(arguments[2]) : 0;
  if (mode == "serve" || mode == "serve-fork") return Serve(number, mode == "serve-fork");
  if (mode == "call") {
    if (count > 3 && !BecomeUser(static_cast<uid_t>(std::stol(arguments[3])))) return 3;
    return Call(static_cast<int>(number));
  }
  if (mode == "hold-fork") {
    Connect();
    ForkSurvivor();
    Report("holding", 0);
    for (;;) ::pause();
  }
  return 2;
}
