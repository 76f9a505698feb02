// The viewer's side of the framework: which plug-ins there are, whose window lies where, who gets
// which key.
//
// Plug-ins announce themselves on the auxiliary channel; for each the host opens its end of a
// channel and keeps an entry. Entries are kept by type, and within a type in the order in which
// they came, because that is the order in which a key looks for somebody who wants it:
//
//     exclusive?  --yes-->  latest requester  --"kavrel"-->      nobody: the viewer keeps the key
//         |                        |---------registered-->      that plug-in
//         no                       | not registered
//         +------------------------+--->  first entry, type 0 to 6, whose keys hold it  --> that
//         one
//
// Windows are another matter: the compositor reports them by their titles, and one whose title is
// no plug-in's name is shown all the same. It gets its layer when a plug-in of that name announces
// itself later.
//
// Names, order of virtual operations, and log texts are contract.
#pragma once

#include <kavrel/IPluginList.h>
#include <kavrel/IViewerHost.h>
#include <kavrel/ViewerPluginType.h>

#include <array>
#include <cstdint>
#include <list>
#include <memory>
#include <optional>
#include <string>
#include <unordered_map>
#include <vector>

#include "../common/efl.h"
#include "AuxDbusServer.h"
#include "HostDbus.h"
#include "KeyRepository.h"

/// One registered plug-in.
struct tagHostPluginInfo {
  int pluginType = 0;
  std::string pluginName;
  std::unique_ptr<kavreldbus::CHostDbus> pTargetHostDbus;
  CKeyRepository keyRepository;
};

/// One window of the compositor. The object belongs to the host from its appearance to its end.
struct TPluginObj {
  std::string name;
  Evas_Object* object = nullptr;
};

/// Thread: the one that runs the process's main loop; no locks. The constructor may run on another
/// one (see KavrelAPI::CreateViewerHost).
class CViewerHost : public IViewerHost, public IPluginList {
 public:
  static constexpr int kPluginTypes = 7;
  /// What plug-ins may cost the host. Each channel takes up to five of the 512 rules that the bus
  /// grants to a process, and a channel without its rules would be deaf.
  static constexpr std::size_t kMaxPlugins = 96;
  static constexpr int kMaxKeys = 1024;
  static constexpr std::size_t kMaxExclusiveKeys = 1024;
  static constexpr std::size_t kMaxRequesters = 128;
  static constexpr std::size_t kMaxNameLength = 255;

  /// Connects to the bus, tells plug-ins that the host is there, and starts the compositor on
  /// `rootWindow`, which is borrowed. Aborts when plug-ins cannot be told.
  CViewerHost(Evas_Object* rootWindow, HostMessageCB callback, void* userData,
              const char* hostName);
  CViewerHost(const CViewerHost&) = delete;
  CViewerHost& operator=(const CViewerHost&) = delete;
  ~CViewerHost() override;

  bool DispatchInput(const std::string& keyName, int keyType, int inputDevice,
                     std::string& consumer) override;
  int SendMessage(const std::string& pluginName, CMessage& message, int async) override;
  Evas_Object* GetPluginObject(const std::string& pluginName) override;
  void ProcessRegisteredExclusiveKey(const std::string& keyName,
                                     const std::string& requester) override;
  void ProcessUnregisteredExclusiveKey(const std::string& keyName,
                                       const std::string& requester) override;
  void BroadcastViewerState(const std::string& state) override;

  std::vector<Plugin> Plugins() const override;
  std::vector<ExclusiveKey> ExclusiveKeys() const override;
  bool HasCompositor() const override { return m_Compositor != nullptr; }

 private:
  using PluginList = std::list<tagHostPluginInfo>;
  using RequesterList = std::list<std::string>;

  struct DestroyCompositor {
    void operator()(void* compositor) const;
  };

  static bool m_AuxDbusSignalCallback(const char* pluginName, int pluginType, bool added,
                                      void* host);
  static bool m_HostDbusMessageCallback(CMessage& message, void* host);
  static void m_AddObjectCB(void* host, Evas_Object* rootWindow, void* object);
  static void m_DelObjectCB(void* host, Evas_Object* rootWindow, void* object);

  void m_RaiseReadyEvent(kavrel::SourceLine where) const;
  void m_CreateCompositor(kavrel::SourceLine where);

  void m_AddPlugin(const char* pluginName, int pluginType);
  void m_RemovePlugin(const char* pluginName, int pluginType);
  tagHostPluginInfo* m_GetHostPluginByName(const std::string& pluginName);
  bool m_HasRoomForPlugin(const std::string& pluginName, int pluginType,
                          kavrel::SourceLine where) const;

  void m_ListObject(const char* title, Evas_Object* object);
  void m_SetProperties(const char* title, Evas_Object* object);
  void m_LayerEarlyWindow(const char* pluginName);
  std::list<TPluginObj>::iterator m_FindObject(const Evas_Object* object);
  void m_UnlistObject(std::list<TPluginObj>::iterator listed, kavrel::SourceLine where);

  void m_RegisterKeyRepository(CMessage& message);
  void m_ClearKeyRepository(CMessage& message);
  void m_RegisterExclusiveKey(CMessage& message);
  void m_UnregisterExclusiveKey(CMessage& message);
  void m_ClearExclusiveKey(CMessage& message);
  void m_Notify(CMessage& message);
  void m_Notify(const char* key, const char* value);

  std::string m_Owner(const std::string& keyName) const;
  bool m_HasRoomForClaim(const std::string& keyName, const std::string& requester,
                         kavrel::SourceLine where) const;
  void m_GrabKey(const std::string& keyName);
  void m_UngrabKey(const std::string& keyName);
  static void m_SendPluginKey(kavreldbus::CHostDbus& channel, const std::string& keyName,
                              int keyType, int inputDevice);

  std::string m_HostName;
  std::unique_ptr<CAuxDbusServer> m_AuxServer;
  std::array<PluginList, kPluginTypes> m_Plugins;
  std::list<TPluginObj> m_Objects;
  std::uint32_t m_ObjectCount = 0;
  HostMessageCB m_Callback = nullptr;
  void* m_UserData = nullptr;
  std::unique_ptr<void, DestroyCompositor> m_Compositor;
  Evas_Object* m_RootWindow = nullptr;
  std::unordered_map<std::string, RequesterList> m_ExclusiveKeys;

  std::optional<kavrel::efl::SmartCallback> m_ObjectAdded;
  std::optional<kavrel::efl::SmartCallback> m_ObjectDeleted;
  // Set to false at destruction, for those who called the application meanwhile.
  std::shared_ptr<bool> m_Alive = std::make_shared<bool>(true);
};
