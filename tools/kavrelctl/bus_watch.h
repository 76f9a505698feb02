// The traffic between hosts and plug-ins, as a monitor of the system bus sees it.
#pragma once

#include <functional>
#include <memory>
#include <string>

#include "bus_traffic.h"
#include "gio_owned.h"

namespace kavrelctl {

class BusTap;

/// Main thread only, whose main context has to run between two calls of Deliver().
class BusWatch {
 public:
  using OnEvent = std::function<void(BusEvent event)>;

  /// `limit_seconds` is how long the bus may take to let it in; 0: no limit.
  explicit BusWatch(double limit_seconds);
  BusWatch(const BusWatch&) = delete;
  BusWatch& operator=(const BusWatch&) = delete;
  ~BusWatch();

  /// Becomes a monitor of the system bus. Empty, or why it cannot.
  std::string Begin();

  /// Hands over what has arrived. Returns how many messages came faster than they were delivered
  /// and were dropped.
  std::size_t Deliver(const OnEvent& on_event);

  /// Whether the bus has gone. What came before is still to be delivered.
  bool IsLost() const { return lost_; }

 private:
  std::string Connect();
  void LearnOwners();
  std::string BecomeMonitor();
  Owned<GVariant> Call(const char* interface, const char* method, GVariant* arguments);
  std::string Failure(const char* what) const;
  static void OnClosed(GDBusConnection* connection, gboolean vanished, GError* error,
                       gpointer watch);

  double limit_seconds_;
  Owned<GDBusConnection> connection_;
  Owned<GError> error_;
  // Outlives the connection, whose filter it is, on GIO's thread too.
  std::shared_ptr<BusTap> tap_;
  BusTraffic traffic_;
  guint second_ = 0;  // source of the timer that lets the main context go round
  bool lost_ = false;
};

}  // namespace kavrelctl
