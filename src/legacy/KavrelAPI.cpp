// Who owns the framework's objects: one host, and plug-ins by host and name. Log texts are
// contract.
#include "KavrelAPI.h"

#include <Eina.h>
#include <Elementary.h>
#include <lwipc.h>
#include <malloc.h>
#include <unistd.h>

#include <cstdlib>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <utility>

#include "../common/efl.h"
#include "ChannelLog.h"
#include "MainLoopBridge.h"
#include "Util.h"
#include "ViewerHost.h"
#include "ViewerPlugin.h"

using kavrel::Here;
using kavrel::SourceLine;

namespace {

constexpr std::string_view kHostWithWindows = "kavrel";
constexpr const char* kReadyEvent = "/tmp/%s-host_ready";
constexpr const char* kCompositorEvent = "/tmp/kavrel-compositor_ready";
constexpr const char* kCompositorName = "kavrel-compositor";
constexpr int kReadyTimeoutMillis = 10000;
constexpr int kWindowAttempts = 51;
constexpr useconds_t kWindowPauseMicros = 10000;
constexpr unsigned kHighestType = 6;

using PluginsByName = std::map<std::string, std::unique_ptr<IViewerPluggable>>;
using PluginsByHost = std::map<std::string, PluginsByName>;

// Never destroyed by themselves: at the end of the process the bus's and EFL's own objects may be
// gone before these.
std::unique_ptr<IViewerHost>& m_lpViewerHost = *new std::unique_ptr<IViewerHost>;
PluginsByHost& m_Plugins = *new PluginsByHost;

bool IsHostNameValid(const char* hostName, SourceLine where) {
  if (util::CheckNameValidity(hostName)) return true;
  CHANNEL_ERROR(where, "host name is invalid!\n");
  return false;
}

bool IsPluginNameValid(const char* pluginName, SourceLine where) {
  if (util::CheckNameValidity(pluginName)) return true;
  CHANNEL_ERROR(where, "plugin name is invalid!\n");
  return false;
}

// On another thread than EFL's, the main loop waits until the host is complete: otherwise a
// plug-in's announcement could reach it half made.
std::unique_ptr<CViewerHost> MakeHost(Evas_Object* rootWindow, HostMessageCB callback,
                                      void* userData, const char* hostName) {
  std::optional<kavrel::efl::MainLoopSection> section;
  if (rootWindow != nullptr && eina_main_loop_is() == EINA_FALSE) section.emplace();
  kavrel::ServeGlibInEflLoop();
  return std::make_unique<CViewerHost>(rootWindow, callback, userData, hostName);
}

// A host without plug-ins is not listed, also when there is no memory for its first one.
void KeepPlugin(const char* hostName, const char* pluginName,
                std::unique_ptr<IViewerPluggable> plugin) {
  const auto host = m_Plugins.try_emplace(hostName).first;
  try {
    host->second.emplace(pluginName, std::move(plugin));
  } catch (...) {
    if (host->second.empty()) m_Plugins.erase(host);
    throw;
  }
}

bool IsHostReady(const char* hostName, SourceLine where) {
  const std::string event = util::CombinateFormatedString(kReadyEvent, hostName, false);
  if (LwipcWaitEvent(event.c_str(), kReadyTimeoutMillis) == 0) return true;
  CHANNEL_ERROR(where, "host: %s is not ready, please try it again later\n", hostName);
  return false;
}

// EFL chooses among the displays and engines that it finds, and would rather open an X11 window, or
// one that nobody sees, than none. ELM_DISPLAY comes before whatever else names a display or an
// engine - variables and the program's own configuration - and EFL looks at it for each window.
void ChooseDisplay() {
  ::setenv("WAYLAND_DISPLAY", kCompositorName, 1);
  ::setenv("ELM_DISPLAY", "wl", 1);
}

Evas_Object* OpenWindow(const char* windowName, const char* title, SourceLine where) {
  for (int attempt = 1; attempt <= kWindowAttempts; ++attempt) {
    if (Evas_Object* const window = elm_win_util_standard_add(windowName, title)) return window;
    if (attempt == kWindowAttempts) break;
    CHANNEL_ERROR(where, "create plugin %s win fails, sleep and try again\n", title);
    ::usleep(kWindowPauseMicros);
  }
  CHANNEL_ERROR(where, "Assertion failed\n");
  return nullptr;
}

}  // namespace

bool KavrelAPI::CreateViewerHost(Evas_Object* rootWindow, IViewerHost** host,
                                 HostMessageCB callback, void* userData, const char* hostName) {
  if (!IsHostNameValid(hostName, Here())) return false;
  if (m_lpViewerHost) {
    CHANNEL_INFO(Here(), "host[%s] already exists, just return.\n", hostName);
    *host = m_lpViewerHost.get();
    return true;
  }
  if (rootWindow == nullptr && hostName == kHostWithWindows) {
    CHANNEL_ERROR(Here(), "for host kavrel, root window is NULL!\n");
    return false;
  }
  m_lpViewerHost = MakeHost(rootWindow, callback, userData, hostName);
  *host = m_lpViewerHost.get();
  return true;
}

void KavrelAPI::DestroyViewerHost() {
  m_lpViewerHost.reset();
}

bool KavrelAPI::CreatePluggable(VIEWER_PLUGIN_TYPE type, const char* pluginName,
                                IViewerPluggable** plugin, const char* hostName) {
  if (static_cast<unsigned>(type) > kHighestType) {
    CHANNEL_ERROR(Here(), "invalid plugin type!\n");
    return false;
  }
  if (!IsPluginNameValid(pluginName, Here()) || !IsHostNameValid(hostName, Here())) return false;
  if (!IsHostReady(hostName, Here())) return false;
  const auto host = m_Plugins.find(hostName);
  if (host != m_Plugins.end()) {
    const auto existing = host->second.find(pluginName);
    if (existing != host->second.end()) {
      CHANNEL_INFO(Here(), "Plugin already exists, just return.\n");
      *plugin = existing->second.get();
      return true;
    }
  }
  kavrel::ServeGlibInEflLoop();
  auto created = std::make_unique<CViewerPlugin>(type, pluginName, hostName);
  IViewerPluggable* const made = created.get();
  KeepPlugin(hostName, pluginName, std::move(created));
  *plugin = made;
  if (host != m_Plugins.end()) {
    CHANNEL_INFO(Here(), "create plugin successfully!\n");
  } else {
    CHANNEL_INFO(Here(), "Create plugin successfully!\n");
  }
  return true;
}

void KavrelAPI::DestroyPluggable(const char* pluginName, const char* hostName) {
  if (!IsPluginNameValid(pluginName, Here()) || !IsHostNameValid(hostName, Here())) return;
  const auto host = m_Plugins.find(hostName);
  if (host == m_Plugins.end()) {
    CHANNEL_ERROR(Here(), "Wrong host name! Can't find the correspondent plugin handler!\n");
    return;
  }
  const auto plugin = host->second.find(pluginName);
  if (plugin == host->second.end()) {
    CHANNEL_ERROR(Here(), "Wrong plugin name! Can't find the correspondent plugin handler!\n");
    return;
  }
  CHANNEL_INFO(Here(), "found the pugin handler and destroyed it!\n");
  plugin->second.reset();
  host->second.erase(plugin);
  if (host->second.empty()) m_Plugins.erase(host);
}

void KavrelAPI::DestroyPluggable() {
  if (m_Plugins.empty()) return;
  m_Plugins.clear();
  ::malloc_trim(0);
}

Evas_Object* KavrelAPI::CreatePepperPluginWindow(const char* windowName, const char* title,
                                                 const char* hostName) {
  if (!util::CheckNameValidity(title)) {
    CHANNEL_ERROR(Here(), "title name(plugin name) is invalid!\n");
    return nullptr;
  }
  if (!IsHostNameValid(hostName, Here())) return nullptr;
  if (hostName != kHostWithWindows) {
    CHANNEL_ERROR(Here(), "wrong host name[%s],only host kavrel supports this service!\n",
                  hostName);
    return nullptr;
  }
  // Whatever it answers: the attempts cover a compositor that is late.
  LwipcWaitEvent(kCompositorEvent, kReadyTimeoutMillis);
  ChooseDisplay();
  return OpenWindow(windowName, title, Here());
}
