#include "port.h"

#include <cerrno>
#include <condition_variable>
#include <mutex>

namespace kavrel_rpc {
namespace {

// Retiring is rare, so all ports share what its waiters wait on. It is not in the port, which may
// be freed as soon as the last call has left.
struct Departures {
  std::mutex mutex;
  std::condition_variable last_has_left;
};

Departures& TheDepartures() {
  static auto* departures = new Departures;
  return *departures;
}

// As the library is loaded: to destroy a handle must not need memory.
[[maybe_unused]] const Departures& from_the_start = TheDepartures();

}  // namespace

void Port::AnnounceLastDeparture() {
  const std::lock_guard lock(TheDepartures().mutex);
  TheDepartures().last_has_left.notify_all();
}

int Port::Send(const Parcel& parcel) {
  const Use use(*this);
  if (!use.IsAllowed()) return -EPIPE;
  if (parcel.Fault() != 0) return parcel.Fault();
  return DoSend(parcel.Frame());
}

int Port::Disconnect() {
  const Use use(*this);
  return use.IsAllowed() && link_->End() ? 0 : -EPIPE;
}

void Port::Retire() {
  if ((state_.fetch_or(kRetired) & kRetired) != 0) return;
  link_->End();
  {
    std::unique_lock lock(TheDepartures().mutex);
    TheDepartures().last_has_left.wait(lock, [this] { return state_.load() == kRetired; });
  }
  Release();
  link_.reset();
}

void EventPort::Stage(Bytes frame) {
  staged_ = frame;
  thread_.store(::pthread_self(), std::memory_order_relaxed);
}

void EventPort::Unstage() {
  thread_.store({}, std::memory_order_relaxed);
}

int EventPort::Receive(Parcel** parcel) {
  if (thread_.load(std::memory_order_relaxed) != ::pthread_self()) return -EAGAIN;
  Parcel* received = Parcel::FromFrame(staged_);
  if (received == nullptr) return -ENOMEM;
  Unstage();
  *parcel = received;
  return 0;
}

}  // namespace kavrel_rpc
