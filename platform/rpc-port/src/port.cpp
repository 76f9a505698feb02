#include "port.h"

#include <cerrno>
#include <condition_variable>

namespace kavrel_rpc {
namespace {

constexpr unsigned kRetired = 1U << 31;

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

}  // namespace

// Counts a call while it is inside.
class Port::Use {
 public:
  explicit Use(Port& port) : port_(port), allowed_((port.state_.fetch_add(1) & kRetired) == 0) {}
  Use(const Use&) = delete;
  Use& operator=(const Use&) = delete;
  ~Use() {
    if (port_.state_.fetch_sub(1) != (kRetired | 1)) return;
    const std::lock_guard lock(TheDepartures().mutex);
    TheDepartures().last_has_left.notify_all();
  }

  bool IsAllowed() const { return allowed_; }

 private:
  Port& port_;
  const bool allowed_;
};

int Port::Send(const Parcel& parcel) {
  const Use use(*this);
  if (!use.IsAllowed()) return -EPIPE;
  if (parcel.Fault() != 0) return parcel.Fault();
  return DoSend(parcel.Frame());
}

int Port::Receive(Parcel** parcel) {
  const Use use(*this);
  return use.IsAllowed() ? DoReceive(parcel) : -EPIPE;
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
  const std::lock_guard lock(mutex_);
  staged_ = frame;
}

void EventPort::Unstage() {
  Stage({});
}

int EventPort::DoReceive(Parcel** parcel) {
  const std::lock_guard lock(mutex_);
  if (staged_.empty()) return -EAGAIN;
  Parcel* received = Parcel::FromFrame(staged_);
  if (received == nullptr) return -ENOMEM;
  staged_ = {};
  *parcel = received;
  return 0;
}

}  // namespace kavrel_rpc
