#include "connection.h"

#include <algorithm>
#include <cerrno>

#include "greeting.h"
#include "guard.h"
#include "log.h"

namespace kavrel_rpc {
namespace {

// How many looks for more are left out after one that found nothing, at most.
constexpr int kMaxLooksToSkip = 32;

}  // namespace

Connection::Connection(ConnectionOwner& owner, Poller& poller, std::string sender,
                       std::string instance, Credentials client, OwnedFd main,
                       std::int64_t partial_timeout_ms)
    : owner_(owner),
      poller_(poller),
      sender_(std::move(sender)),
      instance_(std::move(instance)),
      client_(client),
      partial_timeout_ms_(partial_timeout_ms),
      link_(std::make_shared<Link>(std::move(main), OwnedFd())),
      main_port_(link_, ServicePort::Kind::kMain, poller, main_watch_, *this),
      callback_port_(link_, ServicePort::Kind::kCallback, poller, callback_watch_, *this) {}

Connection::~Connection() {
  Retire();
}

Port& Connection::port(rpc_port_port_type_e type) {
  return type == RPC_PORT_PORT_MAIN ? main_port_ : callback_port_;
}

bool Connection::AwaitCallback() {
  poller_.SetDeadline(main_watch_, NowMs() + partial_timeout_ms_);
  return poller_.Add(link_->main(), EPOLLRDHUP, main_watch_);
}

void Connection::Join(OwnedFd callback) {
  link_->SetCallback(std::move(callback));
  is_joined_ = true;
  poller_.SetDeadline(main_watch_, kNever);
}

// The callback socket is not watched for input: clients send nothing there, and when one goes away
// its main socket tells.
void Connection::Serve() {
  SendGreeting(link_->callback(), Answer::Make(0, {}));
  poller_.SetInput(EPOLLIN, main_watch_);
  poller_.Add(link_->callback(), 0, callback_watch_);
  main_port_.Open();
  callback_port_.Open();
}

void Connection::Drop(const char* reason) {
  if (!link_->End()) return;
  RPC_LOG_ERROR("dropped: %s, the connection %s of \"%s\" (user %ld, pid %ld)", reason,
                instance_.c_str(), sender_.c_str(), static_cast<long>(client_.uid),
                static_cast<long>(client_.pid));
}

void Connection::Retire() {
  if (std::exchange(is_retired_, true)) return;
  // The ports first: a send that is inside may still enter its socket in the poller.
  main_port_.Retire();
  callback_port_.Retire();
  poller_.Remove(main_watch_);
  poller_.Remove(callback_watch_);
}

void Connection::MainWatch::OnReady(std::uint32_t events) {
  const auto self = connection_.shared_from_this();
  if (!RunGuarded("reading a request", [&] { self->OnMainReady(events); })) self->Drop("fault");
}

void Connection::MainWatch::OnPending() {
  OnReady(EPOLLIN);
}

void Connection::MainWatch::OnDeadline() {
  connection_.shared_from_this()->OnDeadline();
}

void Connection::CallbackWatch::OnReady(std::uint32_t) {
  connection_.shared_from_this()->callback_port_.Flush();
}

void Connection::OnDeadline() {
  Drop(is_joined_ ? "has sent half a parcel for too long" : "has not finished its handshake");
  End();
}

void Connection::OnMainReady(std::uint32_t events) {
  if (!is_joined_) return End();
  if ((events & EPOLLOUT) != 0) main_port_.Flush();
  if ((events & ~static_cast<std::uint32_t>(EPOLLOUT)) != 0) Read();
}

void Connection::Read() {
  if (HasEnded()) return End();
  int budget = kMaxRequestsInARow;
  bool has_progressed = false;
  bool is_look = false;
  do {
    if (!intake_.HasNext()) {
      const ssize_t result = intake_.Receive(link_->main(), owner_.PassingBuffer(), MSG_DONTWAIT);
      if (result == -EBADMSG) Drop("sends descriptors");
      if (result <= 0 && result != -EAGAIN) return End();
      if (is_look) NoteLook(result > 0);
      if (result == -EAGAIN) break;
    }
    has_progressed |= DeliverRequests(budget);
    if (is_retired_) return;
    intake_.Settle();
    if (HasEnded()) return End();
    is_look = true;
  } while (budget > 0 && DecideToLookAgain());
  poller_.NoteBusy(main_watch_);
  MindPartialRequest(has_progressed);
}

// False when no whole request was there.
bool Connection::DeliverRequests(int& budget) {
  const int before = budget;
  Bytes frame;
  while (budget > 0 && !HasEnded()) {
    const Intake::Next next = intake_.Take(frame);
    if (next == Intake::Next::kNothing) break;
    --budget;
    if (next == Intake::Next::kFault) {
      Drop(intake_.fault());
      break;
    }
    owner_.OnRequest(*this, frame);
  }
  return budget != before;
}

// A client that runs on the same processor as this service has often sent its next request when the
// answer to the last one has been sent: the kernel lets it run at once. To look again spares the
// way through the main loop then, three times what a look in vain costs. Where it does not pay it
// is tried less and less often.
bool Connection::DecideToLookAgain() {
  if (!intake_.empty()) return false;
  if (looks_to_skip_ == 0) return true;
  --looks_to_skip_;
  return false;
}

void Connection::NoteLook(bool has_found_more) {
  skipped_after_a_miss_ = has_found_more ? skipped_after_a_miss_ / 2
                                         : std::min(2 * skipped_after_a_miss_ + 1, kMaxLooksToSkip);
  looks_to_skip_ = has_found_more ? 0 : skipped_after_a_miss_;
}

void Connection::MindPartialRequest(bool has_progressed) {
  if (intake_.HasNext()) {
    poller_.MakePending(main_watch_);
    poller_.SetDeadline(main_watch_, kNever);
  } else if (intake_.empty()) {
    poller_.SetDeadline(main_watch_, kNever);
  } else if (has_progressed || !poller_.HasDeadline(main_watch_)) {
    poller_.SetDeadline(main_watch_, NowMs() + partial_timeout_ms_);
  }
}

void Connection::End() {
  intake_.Discard();
  owner_.OnEnd(*this);
}

}  // namespace kavrel_rpc
