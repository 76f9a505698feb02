// Owners of GLib and GIO handles. Each takes one thing and gives it back in its destructor; a plain
// pointer is always borrowed.
//
// Threads: what GDBus calls back through - a subscription, a watch, an ownership, an exported
// object
// - belongs to the main context that was the thread's default when it was made, and is given back
// on that context (see RunOn). After that no callback of it runs, whichever thread let go of it.
// The callbacks' user data is borrowed: its owner keeps the handle beside it, so that both end
// together, and stays where it is in memory.
//
// Names and paths are tested before GIO sees them: GIO answers a malformed one with a critical
// message, which ends processes that were told to treat those as fatal, and such names come from
// other processes.
#pragma once

#include <gio/gio.h>

#include <functional>
#include <memory>
#include <string>
#include <utility>

namespace kavrel::glib {

template <class T>
struct UnrefObject {
  void operator()(T* object) const { g_object_unref(object); }
};
/// One reference to a GObject. Constructed from a pointer it takes that reference over.
template <class T>
using Object = std::unique_ptr<T, UnrefObject<T>>;

using Connection = Object<GDBusConnection>;
using Proxy = Object<GDBusProxy>;
/// A method call that waits for its answer. Dropped unanswered, the caller waits for its time-out.
using Invocation = Object<GDBusMethodInvocation>;

/// A further reference to what somebody else owns; null gives null.
template <class T>
Object<T> Share(T* object) {
  return Object<T>(object == nullptr ? nullptr : static_cast<T*>(g_object_ref(object)));
}

struct UnrefVariant {
  void operator()(GVariant* variant) const { g_variant_unref(variant); }
};
/// One reference to a variant. Constructed from a pointer it takes that reference over.
using Variant = std::unique_ptr<GVariant, UnrefVariant>;

/// The first owner of a variant that was just made (its floating reference).
inline Variant Sink(GVariant* floating) {
  return Variant(floating == nullptr ? nullptr : g_variant_ref_sink(floating));
}

struct UnrefNodeInfo {
  void operator()(GDBusNodeInfo* info) const { g_dbus_node_info_unref(info); }
};
using NodeInfo = std::unique_ptr<GDBusNodeInfo, UnrefNodeInfo>;

struct UnrefMainContext {
  void operator()(GMainContext* context) const { g_main_context_unref(context); }
};
using MainContext = std::unique_ptr<GMainContext, UnrefMainContext>;

/// The main context that is the calling thread's default.
inline MainContext CurrentContext() {
  return MainContext(g_main_context_ref_thread_default());
}

/// Runs `work` while nothing of `context` is being dispatched: here and now, unless another thread
/// runs the context's loop; then there, and this thread waits. A loop whose thread waits for the
/// calling thread would wait for ever.
void RunOn(GMainContext* context, const std::function<void()>& work);

/// Receives the GError of one call. GIO reports some failures without one: code() and message()
/// answer then too.
class Error {
 public:
  Error() = default;
  Error(const Error&) = delete;
  Error& operator=(const Error&) = delete;
  ~Error() { g_clear_error(&error_); }

  /// Where a call may put its error; an earlier one is freed.
  GError** Out() {
    g_clear_error(&error_);
    return &error_;
  }
  /// Keeps an error of our own, in the place of one that the call did not give.
  void Set(GIOErrorEnum code, const std::string& message) {
    g_clear_error(&error_);
    error_ = g_error_new_literal(G_IO_ERROR, code, message.c_str());
  }
  explicit operator bool() const { return error_ != nullptr; }
  int code() const { return error_ == nullptr ? 0 : error_->code; }
  const char* message() const { return error_ == nullptr ? "no reason given" : error_->message; }

 private:
  GError* error_ = nullptr;
};

/// What GDBus gave a number for, with the context that its callbacks run on. `GiveBack` gives it
/// back and tells whether that worked; the connection is null where the number stands alone.
template <bool (*GiveBack)(GDBusConnection*, guint)>
class Handle {
 public:
  Handle() = default;
  /// Takes over `id`, made just now on this thread; 0 makes an empty handle.
  Handle(guint id, GDBusConnection* connection) : id_(id) {
    if (id == 0) return;
    connection_ = Share(connection);
    context_ = CurrentContext();
  }
  Handle(Handle&& other) noexcept { *this = std::move(other); }
  Handle& operator=(Handle&& other) noexcept {
    if (this == &other) return *this;
    Reset();
    id_ = std::exchange(other.id_, 0);
    connection_ = std::move(other.connection_);
    context_ = std::move(other.context_);
    return *this;
  }
  Handle(const Handle&) = delete;
  Handle& operator=(const Handle&) = delete;
  ~Handle() { Reset(); }

  guint id() const { return id_; }
  explicit operator bool() const { return id_ != 0; }

  /// Lets go without giving it back: it stays as it is until the process ends.
  void Release() {
    id_ = 0;
    connection_.reset();
    context_.reset();
  }

  /// Gives it back; false when there was something and GDBus did not know it.
  bool Reset() {
    if (id_ == 0) return true;
    bool released = false;
    const guint id = std::exchange(id_, 0);
    RunOn(context_.get(), [&] { released = GiveBack(connection_.get(), id); });
    connection_.reset();
    context_.reset();
    return released;
  }

 private:
  guint id_ = 0;
  Connection connection_;
  MainContext context_;
};

bool ReleaseSubscription(GDBusConnection* connection, guint id);
bool ReleaseNameWatch(GDBusConnection* connection, guint id);
bool ReleaseNameOwnership(GDBusConnection* connection, guint id);
bool ReleaseRegistration(GDBusConnection* connection, guint id);

using Subscription = Handle<ReleaseSubscription>;
using NameWatch = Handle<ReleaseNameWatch>;
using NameOwnership = Handle<ReleaseNameOwnership>;
using Registration = Handle<ReleaseRegistration>;

/// Which signals a subscription wants; null takes any.
struct SignalFilter {
  const char* sender = nullptr;
  const char* interface = nullptr;
  const char* member = nullptr;
  const char* path = nullptr;
  const char* arg0 = nullptr;
};

/// Empty when a name or the path of `filter` cannot exist on a bus.
Subscription SubscribeToSignals(GDBusConnection* connection, const SignalFilter& filter,
                                GDBusSignalCallback callback, void* user_data);

/// Watches `name` on `connection`. Empty when it cannot be a bus name.
NameWatch WatchName(GDBusConnection* connection, const char* name,
                    GBusNameAppearedCallback appeared, GBusNameVanishedCallback vanished,
                    void* user_data);
/// The same on the system bus, which is connected to in the background.
NameWatch WatchNameOnSystemBus(const char* name, GBusNameAppearedCallback appeared,
                               GBusNameVanishedCallback vanished, void* user_data);

/// Owns `name` on the system bus as long as it lives. Empty when it cannot be a bus name.
NameOwnership OwnNameOnSystemBus(const char* name, GBusAcquiredCallback acquired, void* user_data);

/// Exports an object with the first interface of `info`. Empty, and `error` set, on failure.
Registration RegisterObject(GDBusConnection* connection, const char* path,
                            const GDBusNodeInfo* info, const GDBusInterfaceVTable* table,
                            void* user_data, Error& error);

/// A proxy on `connection` that loads no properties. Null, and `error` set, on failure.
Proxy MakeProxy(GDBusConnection* connection, const char* name, const char* path,
                const char* interface, Error& error);

/// Emits a signal to `destination`, or to everybody when that is null. False, and `error` set, on
/// failure; true does not mean that anybody got it.
bool EmitSignal(GDBusConnection* connection, const char* destination, const char* path,
                const char* interface, const char* member, GVariant* body, Error& error);

}  // namespace kavrel::glib
