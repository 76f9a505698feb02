// Where clients come in: the listening socket, and sockets that have not said yet what they are.
#pragma once

#include <list>
#include <memory>
#include <optional>
#include <string>

#include "address.h"
#include "credentials.h"
#include "greeting.h"
#include "poller.h"

namespace kavrel_rpc {

/// What the reception tells the service. For the thread that delivers events.
class ReceptionOwner {
 public:
  /// The first socket of a client.
  virtual void OnMainSocket(const std::string& sender, Credentials client, OwnedFd socket) = 0;
  /// The second socket, which names the connection that it belongs to.
  virtual void OnCallbackSocket(const std::string& instance, Credentials client,
                                OwnedFd socket) = 0;

 protected:
  ~ReceptionOwner() = default;
};

/// Accepts, checks credentials and reads greetings. For the thread that delivers events.
class Reception {
 public:
  Reception(ReceptionOwner& owner, Poller& poller, TrustedUsers users,
            std::int64_t greeting_timeout_ms);
  ~Reception();

  int Listen(const std::string& app_id, const std::string& port_name);
  bool IsListening() const { return listener_.fd() >= 0; }
  /// Descriptors have come free: go on accepting if they had run out.
  void OnDescriptorsFreed();
  void Close();

 private:
  class Guest;
  class ListenerWatch : public Watch {
   public:
    explicit ListenerWatch(Reception& reception) : reception_(reception) {}
    void OnReady(std::uint32_t events) override;
    void OnDeadline() override;

   private:
    Reception& reception_;
  };
  using Guests = std::list<Guest>;

  void AcceptSome();
  bool AcceptOne();
  void PauseAccepting(int error);
  void ResumeAccepting();
  void Receive(OwnedFd socket);
  void Read(Guest& guest);
  void Admit(Guest& guest);
  void Dismiss(Guest& guest, const char* reason);

  ReceptionOwner& owner_;
  Poller& poller_;
  const TrustedUsers users_;
  const std::int64_t greeting_timeout_ms_;
  ListeningSocket listener_;
  ListenerWatch listener_watch_{*this};
  bool is_paused_ = false;
  bool has_reported_pause_ = false;
  Guests guests_;  // oldest first
};

/// Answers a greeting with the code that refuses it; the socket is closed by its owner.
void Refuse(int socket, int code);

}  // namespace kavrel_rpc
