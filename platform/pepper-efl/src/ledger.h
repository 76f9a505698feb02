// What each client holds and how fast it works, against the limits.
#pragma once

#include <chrono>
#include <cstddef>
#include <memory>
#include <wayland-server.h>

namespace kavrel_pepper {

/// Counts for one client. Shared by its surfaces, because libwayland tells of a client's end before
/// it destroys what the client made. Main thread.
class Ledger {
 public:
  explicit Ledger(wl_client* client);
  Ledger(const Ledger&) = delete;
  Ledger& operator=(const Ledger&) = delete;
  ~Ledger();

  wl_client* client() const { return client_; }

  /// False, and the client is told, when it commits faster than allowed.
  bool SpendCommit();

  /// Pixels for one picture. False, and the client is told, when there are too many.
  bool TakePixels(std::size_t bytes);
  void GivePixels(std::size_t bytes);

  /// Before libwayland destroys the client's objects.
  void ClientGone();

 private:
  using Clock = std::chrono::steady_clock;

  struct Census;

  wl_client* client_;
  Census* census_;  // frees itself with the client's last object
  double commits_ = 0;
  Clock::time_point refilled_ = Clock::now();
  std::size_t pixel_bytes_ = 0;
};

/// Whether so much waits unread in the client's socket that motions should be skipped.
bool IsBehind(wl_client* client);

}  // namespace kavrel_pepper
