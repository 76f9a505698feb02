// The viewer in a window: on an X server, and as a client of another Wayland compositor.
#include <sched.h>
#include <signal.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <chrono>
#include <cstring>

#include "plugin_programs.h"

namespace kavrel_test {
namespace {

constexpr unsigned kButton = 0x39414d;
constexpr unsigned kLayer7 = 0x207040;

class Windowed : public PluginPrograms {
 protected:
  /// An X server without a window manager: windows lie at its upper left corner. Its number is this
  /// process's own: servers that look for a free one may take each other's.
  std::unique_ptr<ChildProcess> StartXServer() {
    const std::string display = ":" + std::to_string(100 + ::getpid() % 50000);
    auto server = std::make_unique<ChildProcess>(
        Options("/usr/bin/Xvfb", {display, "-displayfd", "1", "-screen", "0", "1600x900x24",
                                  "-nolisten", "tcp", "-noreset"}));
    EXPECT_TRUE(server->WaitForLine("")) << server->errors();
    environment_["DISPLAY"] = display;
    return server;
  }

  /// Lets the server take its socket away.
  static void Stop(ChildProcess& server) {
    server.Signal(SIGTERM);
    EXPECT_EQ(OutcomeOf(server).exit_code, 0);
  }

  /// A compositor that shows one window, as large as it can be.
  std::unique_ptr<ChildProcess> StartWeston() {
    auto weston = std::make_unique<ChildProcess>(Options(
        "/usr/bin/weston", {"--backend=headless-backend.so", "--shell=kiosk-shell.so",
                            "--socket=outer", "--idle-time=0", "--width=1520", "--height=720"}));
    WaitForSocket(directory_.Path("outer"));
    environment_["WAYLAND_DISPLAY"] = "outer";
    return weston;
  }

  /// Weston has no way to say that it is ready but to accept a client.
  static void WaitForSocket(const std::string& path) {
    const auto limit = std::chrono::steady_clock::now() + kGenerous;
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    ASSERT_LT(path.size(), sizeof(address.sun_path));
    std::memcpy(address.sun_path, path.c_str(), path.size());
    int result = -1;
    while (result != 0 && std::chrono::steady_clock::now() < limit) {
      const int client = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
      result = ::connect(client, reinterpret_cast<const sockaddr*>(&address), sizeof(address));
      ::close(client);
      if (result != 0) ::sched_yield();
    }
    EXPECT_EQ(result, 0) << path;
  }

  void Pointer(const std::vector<std::string>& arguments) const {
    ChildProcess tool(Options("/usr/bin/xdotool", arguments));
    EXPECT_EQ(OutcomeOf(tool).exit_code, 0) << tool.errors();
  }

  /// Until the picture shows that colour there.
  void ExpectColour(int x, int y, unsigned colour) const {
    const auto limit = std::chrono::steady_clock::now() + kGenerous;
    unsigned found = Screenshot().At(x, y);
    while (found != colour && std::chrono::steady_clock::now() < limit) {
      found = Screenshot().At(x, y);
    }
    EXPECT_EQ(found, colour) << x << ',' << y;
  }
};

TEST_F(Windowed, ShowsPluginsAndTakesKeysOnAnXServer) {
  const auto server = StartXServer();
  const auto viewer = StartViewer();
  EXPECT_NE(Tool({"get", "window_id"}).output, "0\n");
  const auto panel = StartPanel(*viewer, "hbbtv", "5", "207040", {"--key", "XF86Red"});
  ExpectColour(1000, 500, kLayer7);
  ExpectColour(1306, 84, kButton);
  Pointer({"search", "--sync", "--onlyvisible", "--name", "kavrel-viewer", "windowfocus", "--sync",
           "key", "Prior"});
  Expect(*viewer, "key XF86ChannelUp pressed, the viewer's: channel 2 Two");
  Pointer({"key", "F1"});
  Expect(*panel, "released XF86Red");
  Stop(*server);
}

TEST_F(Windowed, HasButtonsThatAreKeys) {
  const auto server = StartXServer();
  const auto viewer = StartViewer();
  ExpectColour(1306, 84, kButton);
  // Pressed on "CH-", released beside it.
  Pointer({"search", "--sync", "--onlyvisible", "--name", "kavrel-viewer", "mousemove", "1330",
           "462", "mousedown", "1"});
  Expect(*viewer, "key XF86ChannelDown pressed, the viewer's: channel 99 Test Card");
  Pointer({"mousemove", "600", "300", "mouseup", "1"});
  Expect(*viewer, "key XF86ChannelDown released");
  Stop(*server);
}

TEST_F(Windowed, LeavesOutTheButtonsOnRequest) {
  const auto server = StartXServer();
  const auto viewer = StartViewer({"--no-remote"});
  EXPECT_EQ(Screenshot().width(), 1280);
  Stop(*server);
}

TEST_F(Windowed, IsAClientOfAnotherCompositor) {
  const auto weston = StartWeston();
  const auto viewer = StartViewer();
  environment_["WAYLAND_DISPLAY"] = std::nullopt;
  const auto panel = StartPanel(*viewer, "hbbtv", "5", "207040", {"--key", "XF86Red"});
  EXPECT_EQ(SendKey("XF86Red", {"--release"})["plugin"], "hbbtv");
  Expect(*panel, "released XF86Red");
  const Pixels pixels = Screenshot();
  EXPECT_GT(pixels.width(), 1280);
  // The panel's place on a window of that size; its middle has nothing written on it.
  ExpectColour(pixels.width() * 1000 / 1520, pixels.height() * 500 / 720, kLayer7);
}

}  // namespace
}  // namespace kavrel_test
