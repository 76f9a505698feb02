// The texts that both ends of a channel must share, as the bus shows them.
#include <gio/gio.h>
#include <gtest/gtest.h>

#include <string>
#include <type_traits>

#include "legacy/AuxDbusClient.h"
#include "legacy/AuxDbusNames.h"
#include "legacy/AuxDbusServer.h"
#include "legacy/HostDbus.h"
#include "legacy/PluginDbus.h"

namespace {

using kavreldbus::CBaseDbus;

TEST(ChannelNames, AreAsPublished) {
  EXPECT_STREQ(CBaseDbus::FORMAT_DBUS_PREFIX, "org.zarnet.%s");
  EXPECT_STREQ(CBaseDbus::FORMAT_DBUS_OBJ_IFACE, "org.zarnet.%s.DbusCommunication");
  EXPECT_STREQ(CBaseDbus::FORMAT_DBUS_OBJ_NAME_PREFIX, "/org/zarnet/%s/CommunicationChannel");
  EXPECT_STREQ(CBaseDbus::DBUS_OBJ_METHOD, "Send");
  EXPECT_STREQ(CBaseDbus::DBUS_SIG_NAME, "SendSignal");
  EXPECT_STREQ(CBaseDbus::DBUS_SYN_SUFFIX, "_SYN");
  EXPECT_STREQ(CBaseDbus::DBUS_SYNACK_SUFFIX, "_SYN_ACK");
  EXPECT_STREQ(CBaseDbus::DBUS_ACK_SUFFIX, "_ACK");
}

TEST(ChannelNames, IntrospectionTextIsAsPublished) {
  EXPECT_STREQ(CBaseDbus::FORMAT_INTERFACE_XML,
               "<node>  <interface name='org.zarnet.%s.DbusCommunication'>    <method name='Send'>"
               "      <arg type='a(ss)' name='data' direction='in'/>      <arg type='b' "
               "name='response' direction='out'/>    </method>  </interface></node>");
}

TEST(ChannelNames, IntrospectionDescribesOneMethod) {
  const std::string text =
      util::CombinateFormatedString(CBaseDbus::FORMAT_INTERFACE_XML, "my-host", true);
  const kavrel::glib::NodeInfo node(g_dbus_node_info_new_for_xml(text.c_str(), nullptr));
  ASSERT_NE(node, nullptr);
  const GDBusInterfaceInfo* interface = node->interfaces[0];
  EXPECT_STREQ(interface->name, "org.zarnet.myhost.DbusCommunication");
  const GDBusMethodInfo* method = interface->methods[0];
  EXPECT_STREQ(method->name, "Send");
  EXPECT_STREQ(method->in_args[0]->signature, "a(ss)");
  EXPECT_STREQ(method->in_args[0]->name, "data");
  EXPECT_EQ(method->in_args[1], nullptr);
  EXPECT_STREQ(method->out_args[0]->signature, "b");
  EXPECT_STREQ(method->out_args[0]->name, "response");
  EXPECT_EQ(method->out_args[1], nullptr);
  EXPECT_EQ(interface->methods[1], nullptr);
  EXPECT_TRUE(interface->signals == nullptr || interface->signals[0] == nullptr);
}

TEST(ChannelNames, ObjectHasNoProperties) {
  EXPECT_NE(CBaseDbus::m_vTable.method_call, nullptr);
  EXPECT_EQ(CBaseDbus::m_vTable.get_property, nullptr);
  EXPECT_EQ(CBaseDbus::m_vTable.set_property, nullptr);
}

TEST(AuxiliaryNames, LeaveDashesOut) {
  EXPECT_EQ(kavreldbus::AuxName("my-host"), "org.zarnet.myhost.auxiliary");
  EXPECT_EQ(kavreldbus::AuxPath("my-host"), "/org/zarnet/myhost/auxiliary");
}

// Slot numbers as the C++ ABI of this platform encodes pointers to virtual operations.
template <class Member>
std::ptrdiff_t Slot(Member member) {
  static_assert(sizeof(member) == 2 * sizeof(std::ptrdiff_t));
  std::ptrdiff_t words[2];
  __builtin_memcpy(words, &member, sizeof words);
  return (words[0] - 1) / static_cast<std::ptrdiff_t>(sizeof(void*));
}

struct Slots : CBaseDbus {
  static std::ptrdiff_t Message() { return Slot(&Slots::t_HandleMessage); }
  static std::ptrdiff_t Notification() { return Slot(&Slots::t_HandleNotification); }
};

TEST(ChannelClasses, KeepTheirVirtualOrder) {
  // Destructors take two slots: one that destroys, one that also frees.
  EXPECT_EQ(Slots::Message(), 2);
  EXPECT_EQ(Slots::Notification(), 3);
  EXPECT_TRUE(std::has_virtual_destructor_v<CBaseDbus>);
  EXPECT_TRUE(std::has_virtual_destructor_v<kavreldbus::PTAutoLockDBus>);
  EXPECT_TRUE(std::has_virtual_destructor_v<CAuxDbusServer>);
  EXPECT_TRUE(std::has_virtual_destructor_v<CAuxDbusClient>);
  EXPECT_TRUE((std::is_base_of_v<CBaseDbus, kavreldbus::CHostDbus>));
  EXPECT_TRUE((std::is_base_of_v<CBaseDbus, kavreldbus::CPluginDbus>));
}

TEST(ChannelMutex, IsNotRecursive) {
  kavreldbus::PTMutexDBus mutex;
  EXPECT_EQ(mutex.Lock(), 0);
  EXPECT_FALSE(mutex.TryLock());
  EXPECT_EQ(mutex.Unlock(), 0);
  {
    const kavreldbus::PTAutoLockDBus lock(mutex);
    EXPECT_FALSE(mutex.TryLock());
  }
  EXPECT_TRUE(mutex.TryLock());
  EXPECT_EQ(mutex.Unlock(), 0);
}

}  // namespace
