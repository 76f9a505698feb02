#include "reception.h"

#include <sys/socket.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

#include "bounds.h"
#include "intake.h"
#include "log.h"

namespace kavrel_rpc {
namespace {

constexpr int kAcceptsInARow = 16;
// Without descriptors the listening socket stays readable; looking again must not become a spin.
constexpr std::int64_t kAcceptRetryMs = 100;

bool IsShortageOfDescriptors(int error) {
  return error == EMFILE || error == ENFILE || error == ENOBUFS || error == ENOMEM;
}

}  // namespace

/// A socket that has been accepted and has not yet said what it is.
class Reception::Guest final : public Watch {
 public:
  Guest(Reception& reception, OwnedFd socket, Credentials client)
      : reception_(reception), socket_(std::move(socket)), client_(client) {}

  void OnReady(std::uint32_t) override { reception_.Read(*this); }
  void OnDeadline() override { reception_.Dismiss(*this, "has not finished its greeting"); }

  int fd() const { return socket_.get(); }
  const Credentials& client() const { return client_; }
  GreetingReader<Hello>& hello() { return hello_; }
  OwnedFd TakeSocket() { return std::move(socket_); }
  Guests::iterator position;

 private:
  Reception& reception_;
  OwnedFd socket_;
  const Credentials client_;
  GreetingReader<Hello> hello_;
};

void Refuse(int socket, int code) {
  SendGreeting(socket, Answer::Make(code, {}));
}

Reception::Reception(ReceptionOwner& owner, Poller& poller, TrustedUsers users,
                     std::int64_t greeting_timeout_ms)
    : owner_(owner),
      poller_(poller),
      users_(std::move(users)),
      greeting_timeout_ms_(greeting_timeout_ms) {}

Reception::~Reception() {
  Close();
}

void Reception::ListenerWatch::OnReady(std::uint32_t) {
  reception_.AcceptSome();
}

void Reception::ListenerWatch::OnDeadline() {
  reception_.ResumeAccepting();
}

int Reception::Listen(const std::string& app_id, const std::string& port_name) {
  ListeningSocket listener;
  if (const int result = listener.Open(app_id, port_name, users_); result != 0) return result;
  if (!poller_.Add(listener.fd(), EPOLLIN, listener_watch_)) return -EIO;
  listener_ = std::move(listener);
  return 0;
}

void Reception::Close() {
  poller_.Remove(listener_watch_);
  listener_ = {};
  while (!guests_.empty()) Dismiss(guests_.front(), nullptr);
}

void Reception::AcceptSome() {
  poller_.NoteBusy(listener_watch_);
  for (int i = 0; i < kAcceptsInARow; ++i) {
    if (!IsListening() || !AcceptOne()) return;
  }
  poller_.NoteUnfinished();
}

// False when there is nobody to accept just now.
bool Reception::AcceptOne() {
  OwnedFd socket = OwnedFd::Open(
      [this] { return ::accept4(listener_.fd(), nullptr, nullptr, SOCK_CLOEXEC | SOCK_NONBLOCK); });
  if (!socket) {
    if (IsShortageOfDescriptors(errno)) PauseAccepting(errno);
    return errno == EINTR || errno == ECONNABORTED;
  }
  has_reported_pause_ = false;
  Receive(std::move(socket));
  return true;
}

void Reception::PauseAccepting(int error) {
  if (!has_reported_pause_) {
    RPC_LOG_ERROR("cannot accept more clients for now: %s", std::strerror(error));
  }
  has_reported_pause_ = true;
  is_paused_ = true;
  poller_.SetInput(0, listener_watch_);
  poller_.SetDeadline(listener_watch_, NowMs() + kAcceptRetryMs);
}

void Reception::ResumeAccepting() {
  is_paused_ = false;
  poller_.SetDeadline(listener_watch_, kNever);
  poller_.SetInput(EPOLLIN, listener_watch_);
}

void Reception::OnDescriptorsFreed() {
  if (is_paused_ && IsListening()) ResumeAccepting();
}

void Reception::Receive(OwnedFd socket) {
  const auto client = PeerCredentials(socket.get());
  if (!client || !users_.Contains(client->uid)) {
    RPC_LOG_ERROR("refused: a client of user %ld (pid %ld), who is not permitted",
                  client ? static_cast<long>(client->uid) : -1L,
                  client ? static_cast<long>(client->pid) : -1L);
    return Refuse(socket.get(), -EACCES);
  }
  if (guests_.size() >= kMaxGuests) {
    Dismiss(guests_.front(), "gave way: too many have not finished their greeting");
  }
  Guest& guest = guests_.emplace_back(*this, std::move(socket), *client);
  guest.position = std::prev(guests_.end());
  if (!poller_.Add(guest.fd(), EPOLLIN, guest)) return Dismiss(guest, "cannot be watched");
  poller_.SetDeadline(guest, NowMs() + greeting_timeout_ms_);
  Read(guest);  // the greeting is here as a rule
}

void Reception::Read(Guest& guest) {
  auto& hello = guest.hello();
  while (!hello.IsWhole()) {
    const ssize_t result = ReceiveBytes(guest.fd(), hello.Room(), MSG_DONTWAIT);
    if (result == -EAGAIN) return;
    if (result <= 0) return Dismiss(guest, result == -EBADMSG ? "sends descriptors" : nullptr);
    hello.Filled(static_cast<std::size_t>(result));
  }
  if (!hello.message().IsValid()) return Dismiss(guest, "has sent no greeting of this service");
  Admit(guest);
}

void Reception::Admit(Guest& guest) {
  const Hello hello = guest.hello().message();
  const Credentials client = guest.client();
  poller_.Remove(guest);
  OwnedFd socket = guest.TakeSocket();
  guests_.erase(guest.position);
  const std::string text(hello.text.Get());
  if (hello.kind == static_cast<std::uint16_t>(HelloKind::kMain)) {
    owner_.OnMainSocket(text, client, std::move(socket));
  } else {
    owner_.OnCallbackSocket(text, client, std::move(socket));
  }
}

// Without a reason: gone of its own accord, or this service closes.
void Reception::Dismiss(Guest& guest, const char* reason) {
  if (reason != nullptr) {
    RPC_LOG_ERROR("dropped: %s, a client of user %ld (pid %ld)", reason,
                  static_cast<long>(guest.client().uid), static_cast<long>(guest.client().pid));
  }
  poller_.Remove(guest);
  guests_.erase(guest.position);
}

}  // namespace kavrel_rpc
