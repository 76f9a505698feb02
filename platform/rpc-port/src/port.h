// What a port handle names.
#pragma once

#include <pthread.h>

#include <atomic>
#include <memory>

#include "link.h"
#include "parcel.h"
#include "process.h"

namespace kavrel_rpc {

/// One end of one socket. Any thread may call Send, Receive and Disconnect.
class Port : public ProcessBound {
 public:
  explicit Port(std::shared_ptr<Link> link) : link_(std::move(link)) {}
  virtual ~Port() = default;

  /// 0 or a negative errno value.
  int Send(const Parcel& parcel);
  virtual int Receive(Parcel** parcel) = 0;
  int Disconnect();

  /// Lets go of the connection: waits until the calls that are inside have failed, makes all later
  /// ones fail. What is left is a handle that is safe to use.
  void Retire();

 protected:
  // Counts a call while it is inside.
  class Use {
   public:
    explicit Use(Port& port) : port_(port), allowed_((port.state_.fetch_add(1) & kRetired) == 0) {}
    Use(const Use&) = delete;
    Use& operator=(const Use&) = delete;
    ~Use() {
      if (port_.state_.fetch_sub(1) == (kRetired | 1)) AnnounceLastDeparture();
    }
    bool IsAllowed() const { return allowed_; }

   private:
    Port& port_;
    const bool allowed_;
  };

  Link& link() const { return *link_; }

 private:
  static constexpr unsigned kRetired = 1U << 31;

  static void AnnounceLastDeparture();
  virtual int DoSend(Bytes frame) = 0;
  virtual void Release() {}

  std::shared_ptr<Link> link_;
  // The calls that are inside, and the bit that says that no more may enter.
  std::atomic<unsigned> state_{0};
};

/// A port whose parcels come with events: a read takes the parcel of the event being delivered, on
/// the thread that delivers it. Elsewhere and otherwise there is nothing to read.
class EventPort : public Port {
 public:
  using Port::Port;

  int Receive(Parcel** parcel) override;

  /// For the thread that delivers events: `frame` can be taken, once, until Unstage.
  void Stage(Bytes frame);
  void Unstage();

 private:
  std::atomic<pthread_t> thread_{};  // that delivers; 0: none
  Bytes staged_;                     // for that thread
};

}  // namespace kavrel_rpc
