// Messages of pairs over the bus without the channel: by GDBus as the channel uses it, and by
// sd-bus, a leaner client of the same bus.
#pragma once

#include <gio/gio.h>

#include <functional>
#include <string>
#include <systemd/sd-bus.h>
#include <utility>
#include <vector>

#include "common/glib.h"

namespace kavrel_bench {

using Pairs = std::vector<std::pair<const char*, const char*>>;

/// The body of a message, as the channel's method takes it.
GVariant* MakeBody(const Pairs& pairs);

/// Serve for ever an object that answers each message with true, under a name of the bus. `ready`
/// once it can be called, `called` for each message; both on the calling thread.
void ServeWithGDBus(const char* name, const std::function<void()>& ready,
                    const std::function<void()>& called);
void ServeWithSdBus(const char* name, const std::function<void()>& ready,
                    const std::function<void()>& called);

/// A proxy as the channel makes it, on a connection of its own without the channel's filter. Throws
/// std::runtime_error when a call fails. One thread.
class GDBusCaller {
 public:
  explicit GDBusCaller(const char* name);

  void Call(const Pairs& pairs) const;
  void Send(const Pairs& pairs) const;
  GDBusConnection* connection() const { return connection_.get(); }

 private:
  kavrel::glib::Connection connection_;
  kavrel::glib::Proxy proxy_;
};

/// The same by sd-bus. One thread.
class SdBusCaller {
 public:
  explicit SdBusCaller(std::string name);
  SdBusCaller(const SdBusCaller&) = delete;
  SdBusCaller& operator=(const SdBusCaller&) = delete;
  ~SdBusCaller() { sd_bus_flush_close_unref(bus_); }

  void Call(const Pairs& pairs) const;
  void Send(const Pairs& pairs) const;

 private:
  sd_bus_message* MakeCall(const Pairs& pairs) const;

  std::string name_;
  sd_bus* bus_ = nullptr;
};

}  // namespace kavrel_bench
