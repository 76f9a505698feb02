// What a port handle names.
#pragma once

#include <atomic>
#include <memory>
#include <mutex>

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
  int Receive(Parcel** parcel);
  int Disconnect();

  /// Lets go of the connection: waits until the calls that are inside have failed, makes all later
  /// ones fail. What is left is a handle that is safe to use.
  void Retire();

 protected:
  Link& link() const { return *link_; }

 private:
  class Use;

  virtual int DoSend(Bytes frame) = 0;
  virtual int DoReceive(Parcel** parcel) = 0;
  virtual void Release() {}

  std::shared_ptr<Link> link_;
  // The calls that are inside, and a bit that says that no more may enter.
  std::atomic<unsigned> state_{0};
};

/// A port whose parcels come with events: a read takes the parcel of the event being delivered.
class EventPort : public Port {
 public:
  using Port::Port;

  /// For the thread that delivers events: `frame` can be taken, once, until Unstage.
  void Stage(Bytes frame);
  void Unstage();

 private:
  int DoReceive(Parcel** parcel) override;

  std::mutex mutex_;
  Bytes staged_;
};

}  // namespace kavrel_rpc
