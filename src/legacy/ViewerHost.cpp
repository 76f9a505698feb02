// Creation and destruction, the public operations, and the windows. What plug-ins say, and their
// keys, are in ViewerHostMessages.cpp and ViewerHostKeys.cpp.
#include "ViewerHost.h"

#include <Elementary.h>
#include <lwipc.h>
#include <pepper-efl.h>

#include <algorithm>
#include <cstring>
#include <new>

#include "../common/assertion.h"
#include "ChannelLog.h"
#include "Util.h"

using kavrel::Assert;
using kavrel::Here;
using kavrel::SourceLine;
using kavreldbus::CHostDbus;

namespace {

constexpr const char* kHostName = "kavrel";
constexpr const char* kReadyEvent = "/tmp/%s-host_ready";
constexpr const char* kCompositorName = "kavrel-compositor";

// Layers of plug-ins' windows.
constexpr const char* kBroadcastPlugin = "hbbtv";
constexpr short kBroadcastLayer = 7;
constexpr short kMiddleLayer = 4;
constexpr short kTopLayer = 101;

}  // namespace

void CViewerHost::DestroyCompositor::operator()(void* compositor) const {
  pepper_efl_compositor_destroy(compositor);
}

CViewerHost::CViewerHost(Evas_Object* rootWindow, HostMessageCB callback, void* userData,
                         const char* hostName)
    : m_HostName(hostName), m_Callback(callback), m_UserData(userData), m_RootWindow(rootWindow) {
  m_AuxServer.reset(new (std::nothrow) CAuxDbusServer(m_HostName));
  if (!m_AuxServer) {
    CHANNEL_ERROR(Here(), "get host auxiliary dbus failed!\n");
    return;
  }
  m_AuxServer->SetAuxDbusSignalCb(&CViewerHost::m_AuxDbusSignalCallback, this);
  m_RaiseReadyEvent(Here());
  if (m_HostName != kHostName) {
    CHANNEL_ERROR(Here(), "host[%s] is not kavrel!\n", m_HostName.c_str());
    return;
  }
  if (m_RootWindow != nullptr) m_CreateCompositor(Here());
}

void CViewerHost::m_RaiseReadyEvent(SourceLine where) const {
  const std::string event = util::CombinateFormatedString(kReadyEvent, m_HostName, false);
  if (LwipcEventDone(event.c_str()) >= 0) return;
  CHANNEL_INFO(where, "failed to send event, host: %s not ready, may cause plugin side deadlock\n",
               m_HostName.c_str());
  Assert(false, where, "0");
}

void CViewerHost::m_CreateCompositor(SourceLine where) {
  const kavrel::efl::MainLoopSection section;
  m_Compositor.reset(pepper_efl_compositor_create(m_RootWindow, kCompositorName));
  if (!m_Compositor) {
    CHANNEL_ERROR(where, "pepper_efl_compositor_create failed\n");
    return;
  }
  CHANNEL_INFO(where, "pepper_efl_compositor_create done(%s)\n", kCompositorName);
  m_ObjectAdded.emplace(m_RootWindow, "add.object", &CViewerHost::m_AddObjectCB, this);
  m_ObjectDeleted.emplace(m_RootWindow, "del.object", &CViewerHost::m_DelObjectCB, this);
}

CViewerHost::~CViewerHost() {
  *m_Alive = false;
  m_ObjectAdded.reset();
  m_ObjectDeleted.reset();
  m_Compositor.reset();
  m_AuxServer.reset();
  for (PluginList& plugins : m_Plugins) {
    for (tagHostPluginInfo& plugin : plugins) plugin.pTargetHostDbus.reset();
    plugins.clear();
  }
}

int CViewerHost::SendMessage(const std::string& pluginName, CMessage& message, int async) {
  const tagHostPluginInfo* const plugin = m_GetHostPluginByName(pluginName);
  if (plugin == nullptr || plugin->pTargetHostDbus == nullptr) {
    CHANNEL_INFO(Here(), "Plugin %.256s cannot be found\n", pluginName.c_str());
    return 0;
  }
  return plugin->pTargetHostDbus->SendMessage(message, async) ? 1 : 0;
}

void CViewerHost::BroadcastViewerState(const std::string& state) {
  for (const PluginList& plugins : m_Plugins) {
    for (const tagHostPluginInfo& plugin : plugins) {
      if (plugin.pTargetHostDbus == nullptr) continue;
      CMessage message;
      message.AddValue("state", state.c_str());
      plugin.pTargetHostDbus->SendMessage(message, 1);
      CHANNEL_INFO(Here(), "send msg %.256s to %.256s,\n", state.c_str(),
                   plugin.pluginName.c_str());
    }
  }
}

std::vector<IPluginList::Plugin> CViewerHost::Plugins() const {
  std::vector<Plugin> listed;
  for (const PluginList& plugins : m_Plugins) {
    for (const tagHostPluginInfo& plugin : plugins) {
      listed.push_back({static_cast<VIEWER_PLUGIN_TYPE>(plugin.pluginType), plugin.pluginName,
                        plugin.pTargetHostDbus->IsConnectionReady(), plugin.keyRepository});
    }
  }
  return listed;
}

std::vector<IPluginList::ExclusiveKey> CViewerHost::ExclusiveKeys() const {
  std::vector<ExclusiveKey> listed;
  for (const auto& [key, requesters] : m_ExclusiveKeys) {
    listed.push_back({key, {requesters.begin(), requesters.end()}});
  }
  std::sort(listed.begin(), listed.end(),
            [](const ExclusiveKey& one, const ExclusiveKey& other) { return one.key < other.key; });
  return listed;
}

Evas_Object* CViewerHost::GetPluginObject(const std::string& pluginName) {
  if (m_ObjectCount == 0) return nullptr;
  for (const TPluginObj& listed : m_Objects) {
    if (listed.name == pluginName) return listed.object;
  }
  return nullptr;
}

// The note about the host is wrong, and known by it.
void CViewerHost::m_AddObjectCB(void* host, Evas_Object*, void* object) {
  Assert(object != nullptr, Here(), "no event info");
  Assert(host != nullptr, Here(), "t_pluginType is NULL");
  auto* const window = static_cast<Evas_Object*>(object);
  const char* const title = pepper_efl_object_title_get(window);
  if (title == nullptr) {
    CHANNEL_ERROR(Here(), "pepper_efl_object_title_get() returns NULL\n");
    return;
  }
  CHANNEL_INFO(Here(), "[PEPPER] [_add_object_cb] title: %.256s\n", title);
  if (const char* const app_id = pepper_efl_object_app_id_get(window)) {
    CHANNEL_INFO(Here(), "[PEPPER] [_add_object_cb] app id: %.256s \n", app_id);
  }
  auto* const self = static_cast<CViewerHost*>(host);
  for (const TPluginObj& listed : self->m_Objects) {
    if (listed.name == title) {
      CHANNEL_INFO(Here(), "object has exist\n");
      return;
    }
  }
  self->m_ListObject(title, window);
}

void CViewerHost::m_ListObject(const char* title, Evas_Object* object) {
  m_SetProperties(title, object);
  evas_object_show(object);
  m_Objects.push_back({title, object});
  ++m_ObjectCount;
  m_Notify("plugin_add", title);
}

void CViewerHost::m_SetProperties(const char* title, Evas_Object* object) {
  const tagHostPluginInfo* const plugin = m_GetHostPluginByName(title);
  if (plugin == nullptr) {
    CHANNEL_ERROR(Here(), "Plugin %.256s cannot be found\n", title);
    return;
  }
  if (plugin->pluginType == VIEWER_PLUGIN_LEAVES_LAYER_4) {
    const bool broadcast = std::strcmp(title, kBroadcastPlugin) == 0;
    evas_object_layer_set(object, broadcast ? kBroadcastLayer : kMiddleLayer);
  } else if (plugin->pluginType == VIEWER_PLUGIN_LEAVES_LAYER_101) {
    evas_object_layer_set(object, kTopLayer);
  }
}

void CViewerHost::m_DelObjectCB(void* host, Evas_Object* rootWindow, void* object) {
  if (object == nullptr) {
    CHANNEL_ERROR(Here(), "no event info, return\n");
    return;
  }
  CHANNEL_INFO(Here(), "[PEPPER] obj:%p, evas_object:%p\n", static_cast<void*>(rootWindow), object);
  Assert(host != nullptr, Here(), "data is NULL");
  auto* const self = static_cast<CViewerHost*>(host);
  auto* const window = static_cast<Evas_Object*>(object);
  const auto listed = self->m_FindObject(window);
  if (listed != self->m_Objects.end()) self->m_UnlistObject(listed, Here());
  // The host may be gone by now; the window still has to go.
  evas_object_del(window);
}

std::list<TPluginObj>::iterator CViewerHost::m_FindObject(const Evas_Object* object) {
  auto listed = m_Objects.begin();
  while (listed != m_Objects.end() && listed->object != object) ++listed;
  return listed;
}

void CViewerHost::m_UnlistObject(std::list<TPluginObj>::iterator listed, SourceLine where) {
  const std::string title = listed->name;
  const Evas_Object* const object = listed->object;
  CHANNEL_INFO(where, "remove service object node (%.256s)\n", title.c_str());
  const std::shared_ptr<const bool> alive = m_Alive;
  m_Notify("plugin_remove", title.c_str());
  if (!*alive) return;
  listed = m_FindObject(object);
  if (listed == m_Objects.end()) return;
  --m_ObjectCount;
  m_Objects.erase(listed);
}

void CViewerHost::m_Notify(CMessage& message) {
  if (m_Callback != nullptr) m_Callback(message, m_UserData);
}

void CViewerHost::m_Notify(const char* key, const char* value) {
  CMessage message;
  message.AddValue(key, value);
  m_Notify(message);
}
