#include "system_bus.h"

#include <gio/gio.h>

#include <memory>

namespace viewer {
namespace {

constexpr guint kPatienceSeconds = 2;
// The name under which the library's host serves plug-ins.
constexpr const char* kAuxiliaryName = "org.zarnet.kavrel.auxiliary";

struct Unref {
  void operator()(gpointer object) const { g_object_unref(object); }
};
template <class T>
using Object = std::unique_ptr<T, Unref>;

struct FreeVariant {
  void operator()(GVariant* variant) const { g_variant_unref(variant); }
};

// An error of GIO's for people; takes it over.
std::string TextOf(GError* error) {
  if (error == nullptr) return "no reason given";
  const std::unique_ptr<GError, void (*)(GError*)> owned(error, &g_error_free);
  return owned->message;
}

/// Asks for the bus, and whether somebody is host there. Main thread.
class Question {
 public:
  Question() : cancellable_(g_cancellable_new()) {}
  Question(const Question&) = delete;
  Question& operator=(const Question&) = delete;

  std::string Ask() {
    const guint limit = g_timeout_add_seconds(kPatienceSeconds, &Question::GiveUp, this);
    pending_ = true;
    g_bus_get(G_BUS_TYPE_SYSTEM, cancellable_.get(), &Question::HaveBus, this);
    while (pending_) g_main_context_iteration(nullptr, TRUE);
    if (!late_) g_source_remove(limit);
    return late_ ? "the system bus does not answer" : obstacle_;
  }

 private:
  static gboolean GiveUp(gpointer self) {
    auto& question = *static_cast<Question*>(self);
    question.late_ = true;
    g_cancellable_cancel(question.cancellable_.get());
    return G_SOURCE_REMOVE;
  }

  static void HaveBus(GObject* /*source*/, GAsyncResult* result, gpointer self) {
    auto& question = *static_cast<Question*>(self);
    GError* error = nullptr;
    question.bus_.reset(g_bus_get_finish(result, &error));
    if (question.bus_ == nullptr) return question.End("no system bus: " + TextOf(error));
    // A viewer goes on when the bus ends.
    g_dbus_connection_set_exit_on_close(question.bus_.get(), FALSE);
    g_dbus_connection_call(question.bus_.get(), "org.freedesktop.DBus", "/org/freedesktop/DBus",
                           "org.freedesktop.DBus", "NameHasOwner",
                           g_variant_new("(s)", kAuxiliaryName), G_VARIANT_TYPE("(b)"),
                           G_DBUS_CALL_FLAGS_NONE, -1, question.cancellable_.get(),
                           &Question::HaveAnswer, self);
  }

  static void HaveAnswer(GObject* /*source*/, GAsyncResult* result, gpointer self) {
    auto& question = *static_cast<Question*>(self);
    GError* error = nullptr;
    const std::unique_ptr<GVariant, FreeVariant> answer(
        g_dbus_connection_call_finish(question.bus_.get(), result, &error));
    if (answer == nullptr) return question.End("the system bus: " + TextOf(error));
    gboolean taken = FALSE;
    g_variant_get(answer.get(), "(b)", &taken);
    question.End(taken ? "another viewer on this bus is their host" : "");
  }

  void End(const std::string& obstacle) {
    obstacle_ = obstacle;
    pending_ = false;
  }

  Object<GCancellable> cancellable_;
  Object<GDBusConnection> bus_;
  bool pending_ = false;
  bool late_ = false;
  std::string obstacle_;
};

}  // namespace

std::string PluginObstacle() {
  return Question().Ask();
}

}  // namespace viewer
