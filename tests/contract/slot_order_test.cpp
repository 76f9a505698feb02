// The order of virtual operations: programs that were compiled against an earlier header call by
// slot number. An operation may be appended, never inserted, moved or removed.
#include <gtest/gtest.h>
#include <kavrel/IKeyInputListener.h>
#include <kavrel/IViewerHost.h>
#include <kavrel/IViewerMessageListener.h>
#include <kavrel/IViewerPluggable.h>
#include <kavrel/IViewerStateChangeListener.h>
#include <kavrel/tidl/KavrelAppApiStub.h>

#include <cstddef>
#include <cstring>
#include <string>
#include <type_traits>
#include <utility>
#include <vector>

#include "app_api/tidl/KavrelAppApiProxy.h"

namespace {

namespace proxy = rpc_port::KavrelAppApiProxy::proxy;
namespace stub = rpc_port::KavrelAppApiStub::stub;

/// Slot 0 is the first of the table. A virtual destructor takes two.
template <class Member>
std::size_t SlotOf(Member member) {
  // The C++ ABI of Linux: a pointer to a virtual member holds its offset in the table, plus 1, or
  // with the mark in the second word where code addresses may be odd.
  struct {
    std::ptrdiff_t offset;
    std::ptrdiff_t adjustment;
  } parts;
  static_assert(sizeof parts == sizeof member);
  std::memcpy(&parts, &member, sizeof parts);
  return static_cast<std::size_t>(parts.offset & ~std::ptrdiff_t{1}) / sizeof(void*);
}

using Service = stub::KavrelAppApi::ServiceBase;
using Slots = std::vector<std::pair<std::string, std::size_t>>;

#define KAVREL_SLOT(class_name, operation) \
  { #operation, SlotOf(&class_name::operation) }

void ExpectAscendingFrom(std::size_t first, const Slots& slots) {
  for (std::size_t i = 0; i < slots.size(); ++i) {
    EXPECT_EQ(slots[i].second, first + i) << slots[i].first;
  }
}

constexpr std::size_t kAfterDestructor = 2;

TEST(SlotOrder, ServiceBase) {
  static_assert(std::has_virtual_destructor_v<Service>);
  const Slots slots = {
      KAVREL_SLOT(Service, OnClientConnected),
      KAVREL_SLOT(Service, OnClientDisconnected),
      KAVREL_SLOT(Service, ChangeSource),
      KAVREL_SLOT(Service, GetSelectionWindowInfo),
      KAVREL_SLOT(Service, GetSelectionWindowMoveRange),
      KAVREL_SLOT(Service, StoreSelectionWindowInfo),
      KAVREL_SLOT(Service, MoveSelectionWindowTo),
      KAVREL_SLOT(Service, ChangeSelectionWindowZoomLevel),
      KAVREL_SLOT(Service, GetWindowSize),
      KAVREL_SLOT(Service, SetWindowSize),
      KAVREL_SLOT(Service, SendMbrKey),
      KAVREL_SLOT(Service, ShowChannelBanner),
      KAVREL_SLOT(Service, ShowCaption),
      KAVREL_SLOT(Service, ShowSourceBanner),
      KAVREL_SLOT(Service, ShowMTSBanner),
      KAVREL_SLOT(Service, ShowRatingBanner),
      KAVREL_SLOT(Service, ShowNosignalBanner),
      KAVREL_SLOT(Service, ShowPVRInfo),
      KAVREL_SLOT(Service, ShowSleepTimerPopup),
      KAVREL_SLOT(Service, ShowAutoPowerOffPopup),
      KAVREL_SLOT(Service, ShowFanErrorPopup),
      KAVREL_SLOT(Service, ShowProjectorHsmErrorPopup),
      KAVREL_SLOT(Service, ShowQdDisplayNoti),
      KAVREL_SLOT(Service, ShowPellwinBrightnessReducePopup),
      KAVREL_SLOT(Service, ShowHotelNoChannelPopup),
      KAVREL_SLOT(Service, ShowHospitalNoChannelPopup),
      KAVREL_SLOT(Service, ShowInsufficientMemoryPopup),
      KAVREL_SLOT(Service, ShowSignZoomSetup),
      KAVREL_SLOT(Service, ShowReturnPrevChannelPopup),
      KAVREL_SLOT(Service, ShowNoSignalPowerOffTimerPopup),
      KAVREL_SLOT(Service, ShowKeyGuideBanner),
      KAVREL_SLOT(Service, ShowGameModeBanner),
      KAVREL_SLOT(Service, ShowOCLViewForMLED),
      KAVREL_SLOT(Service, SendCommand),
      KAVREL_SLOT(Service, EnableBanner),
      KAVREL_SLOT(Service, DisableBanner),
      KAVREL_SLOT(Service, SendInitCommand),
      KAVREL_SLOT(Service, SendHideBanner),
      KAVREL_SLOT(Service, SetLanguage),
      KAVREL_SLOT(Service, PluginCmd),
      KAVREL_SLOT(Service, SetTVSHint),
      KAVREL_SLOT(Service, NotificationCommand),
      KAVREL_SLOT(Service, TuneChannel),
      KAVREL_SLOT(Service, TuneChannelMain),
      KAVREL_SLOT(Service, TuneChannelMajor),
      KAVREL_SLOT(Service, TuneChannelPip),
      KAVREL_SLOT(Service, SvcIdTune),
      KAVREL_SLOT(Service, ShowLoading),
      KAVREL_SLOT(Service, SendDiscreteCommand),
      KAVREL_SLOT(Service, SendAutoRemoconKey),
      KAVREL_SLOT(Service, SendStorageCommand),
      KAVREL_SLOT(Service, SetHbbTVState),
      KAVREL_SLOT(Service, VoiceAppRequestTune),
      KAVREL_SLOT(Service, ExitTTX),
      KAVREL_SLOT(Service, CheckStateForVistane),
  };
  EXPECT_EQ(slots.size(), 2U + 53U);
  ExpectAscendingFrom(kAfterDestructor, slots);
}

TEST(SlotOrder, Factory) {
  static_assert(std::has_virtual_destructor_v<Service::Factory>);
  ExpectAscendingFrom(kAfterDestructor, {KAVREL_SLOT(Service::Factory, MakeService)});
}

TEST(SlotOrder, JobsAndWorker) {
  static_assert(std::has_virtual_destructor_v<stub::Job::IEvent>);
  static_assert(std::has_virtual_destructor_v<stub::Job>);
  static_assert(std::has_virtual_destructor_v<stub::ActiveObject>);
  ExpectAscendingFrom(kAfterDestructor, {KAVREL_SLOT(stub::Job::IEvent, Run)});
  ExpectAscendingFrom(kAfterDestructor, {KAVREL_SLOT(stub::ActiveObject, Run)});
}

TEST(SlotOrder, ProxysListenerHasNoDestructor) {
  using Listener = proxy::KavrelAppApi::IEventListener;
  static_assert(!std::has_virtual_destructor_v<Listener>);
  ExpectAscendingFrom(0, {KAVREL_SLOT(Listener, OnConnected), KAVREL_SLOT(Listener, OnDisconnected),
                          KAVREL_SLOT(Listener, OnRejected)});
}

TEST(SlotOrder, Callbacks) {
  using Callback = proxy::KavrelAppApi::CallbackBase;
  static_assert(std::has_virtual_destructor_v<Callback>);
  static_assert(std::has_virtual_destructor_v<stub::KavrelAppApi::CallbackBase>);
  ExpectAscendingFrom(kAfterDestructor, {KAVREL_SLOT(Callback, OnCallbackReceived)});
}

TEST(SlotOrder, ViewerHost) {
  static_assert(std::has_virtual_destructor_v<IViewerHost>);
  const Slots slots = {
      KAVREL_SLOT(IViewerHost, DispatchInput),
      KAVREL_SLOT(IViewerHost, SendMessage),
      KAVREL_SLOT(IViewerHost, GetPluginObject),
      KAVREL_SLOT(IViewerHost, ProcessRegisteredExclusiveKey),
      KAVREL_SLOT(IViewerHost, ProcessUnregisteredExclusiveKey),
      KAVREL_SLOT(IViewerHost, BroadcastViewerState),
  };
  ExpectAscendingFrom(kAfterDestructor, slots);
}

TEST(SlotOrder, ViewerPluggable) {
  static_assert(std::has_virtual_destructor_v<IViewerPluggable>);
  const Slots slots = {
      KAVREL_SLOT(IViewerPluggable, RegisterKeyInputListener),
      KAVREL_SLOT(IViewerPluggable, RegisterViewerStateChangeListener),
      KAVREL_SLOT(IViewerPluggable, RegisterViewerMessageListener),
      KAVREL_SLOT(IViewerPluggable, UnregisterKeyInputListener),
      KAVREL_SLOT(IViewerPluggable, UnregisterViewerStateChangeListener),
      KAVREL_SLOT(IViewerPluggable, UnregisterViewerMessageListener),
      KAVREL_SLOT(IViewerPluggable, RegsiterKeyRepository),
      KAVREL_SLOT(IViewerPluggable, ClearKeyRepository),
      KAVREL_SLOT(IViewerPluggable, RegisterExclusiveKeyRepository),
      KAVREL_SLOT(IViewerPluggable, UnregisterExclusiveKeyRepository),
      KAVREL_SLOT(IViewerPluggable, ClearExclusiveKeyRepository),
      KAVREL_SLOT(IViewerPluggable, Show),
      KAVREL_SLOT(IViewerPluggable, Hide),
      KAVREL_SLOT(IViewerPluggable, Enable),
      KAVREL_SLOT(IViewerPluggable, Disable),
      KAVREL_SLOT(IViewerPluggable, SendMessage),
      KAVREL_SLOT(IViewerPluggable, FlagConnection),
      KAVREL_SLOT(IViewerPluggable, SetConnectionChangedCallback),
  };
  EXPECT_EQ(slots.size(), 18U);
  ExpectAscendingFrom(kAfterDestructor, slots);
}

TEST(SlotOrder, ListenersHaveNoDestructor) {
  static_assert(!std::has_virtual_destructor_v<IKeyInputListener>);
  static_assert(!std::has_virtual_destructor_v<IViewerStateChangeListener>);
  static_assert(!std::has_virtual_destructor_v<IViewerMessageListener>);
  ExpectAscendingFrom(0, {KAVREL_SLOT(IKeyInputListener, OnKeyPressed),
                          KAVREL_SLOT(IKeyInputListener, OnKeyReleased)});
  ExpectAscendingFrom(0, {KAVREL_SLOT(IViewerStateChangeListener, OnViewerStateChanged)});
  ExpectAscendingFrom(0, {KAVREL_SLOT(IViewerMessageListener, OnViewerMessage)});
}

// Its only virtual operation is the destructor: plug-ins keep it by value.
TEST(SlotOrder, KeyRepositoryIsAPointerAndItsKeys) {
  static_assert(std::has_virtual_destructor_v<CKeyRepository>);
  static_assert(sizeof(CKeyRepository) == sizeof(void*) + sizeof(std::vector<std::string>));
}

TEST(SlotOrder, WhatIsPolymorphic) {
  static_assert(std::has_virtual_destructor_v<proxy::KavrelAppApi>);
  static_assert(!std::is_polymorphic_v<stub::KavrelAppApi>);
  static_assert(!std::is_polymorphic_v<proxy::Exception>);
  static_assert(!std::is_polymorphic_v<stub::Exception>);
  static_assert(std::is_empty_v<proxy::InvalidIOException>);
  static_assert(std::is_empty_v<stub::InvalidIOException>);
}

template <class... Exceptions>
constexpr bool kAreProxyExceptions = (std::is_base_of_v<proxy::Exception, Exceptions> && ...);

TEST(Exceptions, HaveTheirBases) {
  static_assert(kAreProxyExceptions<proxy::NotConnectedSocketException, proxy::InvalidIOException,
                                    proxy::InvalidProtocolException, proxy::InvalidIDException,
                                    proxy::PermissionDeniedException>);
  static_assert(std::is_base_of_v<stub::Exception, stub::InvalidIOException>);
}

}  // namespace
