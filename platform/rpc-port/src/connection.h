// One client of a stub.
#pragma once

#include <rpc-port.h>

#include <atomic>
#include <span>
#include <string>

#include "bounds.h"
#include "credentials.h"
#include "intake.h"
#include "poller.h"
#include "service_port.h"

namespace kavrel_rpc {

class Connection;

/// What a connection tells the service. For the thread that delivers events.
class ConnectionOwner {
 public:
  /// A whole request; it is where `frame` lies until the call returns.
  virtual void OnRequest(Connection& connection, Bytes frame) = 0;
  /// Everything was read; to be forgotten.
  virtual void OnEnd(Connection& connection) = 0;
  /// Shared by all connections: what one receive reads into.
  virtual std::span<std::uint8_t> PassingBuffer() = 0;

 protected:
  ~ConnectionOwner() = default;
};

/// First half: its main socket is known. Joined: the callback socket is too, and requests are read.
/// For the thread that delivers events; Drop, and the ports' own functions, for any thread.
class Connection final : public PortOwner, public std::enable_shared_from_this<Connection> {
 public:
  Connection(ConnectionOwner& owner, Poller& poller, std::string sender, std::string instance,
             Credentials client, OwnedFd main, std::int64_t partial_timeout_ms);
  ~Connection();

  const std::string& sender() const { return sender_; }
  const std::string& instance() const { return instance_; }
  const Credentials& client() const { return client_; }
  Port& port(rpc_port_port_type_e type);
  EventPort& main_port() { return main_port_; }

  bool IsJoined() const { return is_joined_; }
  bool HasEnded() const { return link_->HasEnded(); }

  /// Watches for the client going away, and for the time that it has to join.
  bool AwaitCallback();
  void Join(OwnedFd callback);
  /// Tells the client that the connection stands; from now on requests are read.
  void Serve();

  void Drop(const char* reason) override;
  /// Takes the connection out of the poller and closes its ports.
  void Retire();

 private:
  class MainWatch final : public Watch {
   public:
    explicit MainWatch(Connection& connection) : connection_(connection) {}
    void OnReady(std::uint32_t events) override;
    void OnDeadline() override;
    void OnPending() override;

   private:
    Connection& connection_;
  };
  class CallbackWatch final : public Watch {
   public:
    explicit CallbackWatch(Connection& connection) : connection_(connection) {}
    void OnReady(std::uint32_t events) override;

   private:
    Connection& connection_;
  };

  void OnMainReady(std::uint32_t events);
  void OnDeadline();
  void Read();
  bool DeliverRequests(int& budget);
  bool DecideToLookAgain();
  void NoteLook(bool has_found_more);
  void MindPartialRequest(bool has_progressed);
  void End();

  ConnectionOwner& owner_;
  Poller& poller_;
  const std::string sender_;
  const std::string instance_;
  const Credentials client_;
  const std::int64_t partial_timeout_ms_;
  const std::shared_ptr<Link> link_;
  MainWatch main_watch_{*this};
  CallbackWatch callback_watch_{*this};
  ServicePort main_port_;
  ServicePort callback_port_;
  Intake intake_{Intake::Descriptors::kRefuse};
  int looks_to_skip_ = 0;
  int skipped_after_a_miss_ = 0;
  bool is_joined_ = false;
  bool is_retired_ = false;
};

}  // namespace kavrel_rpc
