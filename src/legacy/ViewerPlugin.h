// The plug-in's side of the framework: its wishes become messages to the host, the host's messages
// become calls of its listeners.
//
// Names, order of virtual operations, and log texts are contract.
#pragma once

#include <kavrel/IViewerPluggable.h>
#include <kavrel/ViewerPluginType.h>

#include <memory>
#include <string>

#include "AuxDbusClient.h"
#include "PluginDbus.h"

/// Thread: the one whose main context was the default when it was made; no locks.
class CViewerPlugin : public IViewerPluggable {
 public:
  /// Connects to the bus and announces the plug-in to its host, now and whenever the host appears.
  CViewerPlugin(VIEWER_PLUGIN_TYPE type, std::string pluginName, std::string hostName);
  CViewerPlugin(const CViewerPlugin&) = delete;
  CViewerPlugin& operator=(const CViewerPlugin&) = delete;
  /// Takes leave of the host.
  ~CViewerPlugin() override;

  void RegisterKeyInputListener(IKeyInputListener* listener) override;
  void RegisterViewerStateChangeListener(IViewerStateChangeListener* listener) override;
  void RegisterViewerMessageListener(IViewerMessageListener* listener) override;
  void UnregisterKeyInputListener() override;
  void UnregisterViewerStateChangeListener() override;
  void UnregisterViewerMessageListener() override;
  bool RegsiterKeyRepository(CKeyRepository& keys) override;
  bool ClearKeyRepository() override;
  bool RegisterExclusiveKeyRepository(CKeyRepository& keys) override;
  bool UnregisterExclusiveKeyRepository(CKeyRepository& keys) override;
  bool ClearExclusiveKeyRepository() override;
  void Show() override;
  void Hide() override;
  void Enable(std::string what) override;
  void Disable(std::string what) override;
  bool SendMessage(CMessage& message, int async) override;
  bool FlagConnection() override;
  void SetConnectionChangedCallback(void (*connected)(void*), void (*disconnected)(void*),
                                    void* userData) override;

  /// Takes what the host says. Throws what std::stoull throws when the time of a key event is no
  /// number.
  bool HandleMessage(CMessage& message);

 private:
  static void m_AuxDbusNameAppearedCallback(GDBusConnection* connection, const char* name,
                                            const char* owner, void* plugin);
  static void m_AuxDbusNameVanishedCallback(GDBusConnection* connection, const char* name,
                                            void* plugin);

  bool m_SendRepositoryKey(const char* messageName, const CKeyRepository& keys);
  bool m_SendName(const char* messageName);
  void m_SendSwitch(const char* messageName, const std::string& what);
  void m_Connect(kavrel::SourceLine where);
  bool m_HandleKey(const std::string& keyName, const CMessage& message, kavrel::SourceLine where);

  VIEWER_PLUGIN_TYPE m_Type;
  std::string m_PluginName;
  std::string m_HostName;
  IKeyInputListener* m_KeyListener = nullptr;
  IViewerStateChangeListener* m_StateListener = nullptr;
  IViewerMessageListener* m_MessageListener = nullptr;
  std::unique_ptr<kavreldbus::CPluginDbus> m_Channel;
  std::unique_ptr<CAuxDbusClient> m_AuxClient;
  void (*m_Disconnected)(void*) = nullptr;
  void* m_DisconnectedData = nullptr;
};
