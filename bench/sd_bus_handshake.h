// The channel's handshake by sd-bus, which does all of it on the caller's thread: what a leaner
// client of the bus needs for the same steps.
#pragma once

#include <stdexcept>
#include <string>
#include <string_view>
#include <systemd/sd-bus.h>
#include <vector>

namespace kavrel_bench {

/// One end, on a connection that ends of a process share. One thread, which also calls Process().
class SdBusEnd {
 public:
  SdBusEnd(sd_bus* bus, const std::string& pair)
      : bus_(bus), base_("org.zarnet.sdbare." + pair), path_("/org/zarnet/sdbare/" + pair) {
    sd_bus_get_unique_name(bus_, &self_);
    Export();
    Listen("_SYN", &SdBusEnd::OnSyn);
    Listen("_SYN_ACK", &SdBusEnd::OnSynAck);
    Listen("_ACK", &SdBusEnd::OnAck);
    Say("_SYN");
  }
  SdBusEnd(const SdBusEnd&) = delete;
  SdBusEnd& operator=(const SdBusEnd&) = delete;
  ~SdBusEnd() {
    for (sd_bus_slot* slot : slots_) sd_bus_slot_unref(slot);
  }

  bool ready() const { return ready_; }

  /// Handles what has come, or waits for it.
  void Process() const {
    if (sd_bus_process(bus_, nullptr) == 0) sd_bus_wait(bus_, UINT64_MAX);
  }

 private:
  using Callback = int (*)(sd_bus_message*, void*, sd_bus_error*);

  static int Ignore(sd_bus_message* /*message*/, void* /*end*/, sd_bus_error* /*error*/) {
    return 0;
  }

  void Keep(int result, sd_bus_slot* slot) {
    if (result < 0) throw std::runtime_error("a step of the handshake by sd-bus failed");
    slots_.push_back(slot);
  }

  void Export() {
    static const sd_bus_vtable kTable[] = {
        SD_BUS_VTABLE_START(0),
        SD_BUS_METHOD("Send", "a(ss)", "b", &SdBusEnd::Ignore, SD_BUS_VTABLE_UNPRIVILEGED),
        SD_BUS_VTABLE_END};
    sd_bus_slot* slot = nullptr;
    const int result = sd_bus_add_object_vtable(bus_, &slot, path_.c_str(),
                                                "org.zarnet.bare.DbusCommunication", kTable, this);
    Keep(result, slot);
  }

  void Match(const std::string& rule, Callback callback) {
    sd_bus_slot* slot = nullptr;
    const int result = sd_bus_add_match_async(bus_, &slot, rule.c_str(), callback, nullptr, this);
    Keep(result, slot);
  }

  static std::string OwnerChangesOf(const std::string& name) {
    return "type='signal',sender='org.freedesktop.DBus',interface='org.freedesktop.DBus',"
           "member='NameOwnerChanged',path='/org/freedesktop/DBus',arg0='" +
           name + "'";
  }

  void Listen(const char* step, Callback callback) {
    Match(OwnerChangesOf(base_ + step), callback);
  }

  void Say(const char* step) const {
    const std::string name = base_ + step;
    if (sd_bus_request_name(bus_, name.c_str(), 0) < 0 ||
        sd_bus_release_name(bus_, name.c_str()) < 0) {
      throw std::runtime_error("sd-bus cannot own " + name);
    }
  }

  /// Who has released the name; null for anything else.
  const char* Speaker(sd_bus_message* change) const {
    const char* name = nullptr;
    const char* before = nullptr;
    const char* after = nullptr;
    if (sd_bus_message_read(change, "sss", &name, &before, &after) <= 0) return nullptr;
    const std::string_view self = self_;
    return *after == '\0' && self != before ? before : nullptr;
  }

  bool TakeOn(sd_bus_message* change) {
    const char* const who = Speaker(change);
    if (who == nullptr || taken_on_) return false;
    taken_on_ = true;
    Match(OwnerChangesOf(who), &SdBusEnd::Ignore);
    sd_bus_slot* slot = nullptr;
    const int result = sd_bus_call_method_async(bus_, &slot, "org.freedesktop.DBus",
                                                "/org/freedesktop/DBus", "org.freedesktop.DBus",
                                                "GetNameOwner", &SdBusEnd::Ignore, this, "s", who);
    Keep(result, slot);
    Match("type='signal',sender='" + std::string(who) + "',path='" + path_ + "'",
          &SdBusEnd::Ignore);
    return true;
  }

  static int OnSyn(sd_bus_message* change, void* end, sd_bus_error* /*error*/) {
    auto& self = *static_cast<SdBusEnd*>(end);
    if (self.TakeOn(change)) self.Say("_SYN_ACK");
    return 0;
  }
  static int OnSynAck(sd_bus_message* change, void* end, sd_bus_error* /*error*/) {
    auto& self = *static_cast<SdBusEnd*>(end);
    if (!self.TakeOn(change)) return 0;
    self.Say("_ACK");
    self.ready_ = true;
    return 0;
  }
  static int OnAck(sd_bus_message* change, void* end, sd_bus_error* /*error*/) {
    auto& self = *static_cast<SdBusEnd*>(end);
    if (self.Speaker(change) != nullptr) self.ready_ = true;
    return 0;
  }

  sd_bus* bus_;
  const char* self_ = nullptr;
  std::string base_;
  std::string path_;
  std::vector<sd_bus_slot*> slots_;
  bool taken_on_ = false;
  bool ready_ = false;
};

}  // namespace kavrel_bench
