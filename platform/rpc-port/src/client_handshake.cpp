#include "client_handshake.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/socket.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <limits>

#include "bounds.h"
#include "intake.h"
#include "log.h"

namespace kavrel_rpc {
namespace {

// A full backlog gives no sign when it has room again.
constexpr std::int64_t kBacklogRetryMs = 10;

void MakeBlocking(int socket) {
  ::fcntl(socket, F_SETFL, ::fcntl(socket, F_GETFL) & ~O_NONBLOCK);
}

}  // namespace

int ClientHandshake::Start(const std::string& app_id, const std::string& port_name) {
  const std::string own_id = OwnApplicationId();
  if (own_id.empty()) return -EINVAL;
  if (const int result = address_.Find(app_id, port_name, TrustedUsers::FromEnvironment());
      result != 0) {
    return result;
  }
  deadline_ = DeadlineAfter(ClientTimeoutMs());
  return BeginSocket(HelloKind::kMain, own_id);
}

int ClientHandshake::BeginSocket(HelloKind kind, const std::string& text) {
  kind_ = kind;
  hello_text_ = text;
  answer_ = {};
  is_connected_ = false;
  current() = OwnedFd::Open(
      [] { return ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0); });
  if (!current()) {
    RPC_LOG_ERROR("cannot make a socket: %s", std::strerror(errno));
    return -EIO;
  }
  return Connect();
}

// 0 also when the backlog is full, which leaves is_connected_ false.
int ClientHandshake::Connect() {
  const int result = address_.Connect(current().get());
  if (result == -EAGAIN || result == -EINTR) return 0;
  if (result == -EACCES || result == -EPERM) return -EACCES;
  if (result != 0) return -EIO;
  is_connected_ = true;
  if (const int check = CheckService(); check != 0) return check;
  // A service that refuses may have hung up already; its answer says why.
  SendGreeting(current().get(), Hello::Make(kind_, hello_text_));
  return 0;
}

int ClientHandshake::CheckService() const {
  const auto service = PeerCredentials(current().get());
  if (service && TrustedUsers::FromEnvironment().Contains(service->uid)) return 0;
  RPC_LOG_ERROR("the service's user %ld (pid %ld) is not to be trusted",
                service ? static_cast<long>(service->uid) : -1L,
                service ? static_cast<long>(service->pid) : -1L);
  return -EACCES;
}

std::int64_t ClientHandshake::retry_at() const {
  return is_connected_ ? deadline_ : std::min(deadline_, NowMs() + kBacklogRetryMs);
}

ClientHandshake::State ClientHandshake::End(State state, int code) {
  code_ = code;
  return state;
}

ClientHandshake::State ClientHandshake::Advance() {
  if (!is_connected_) {
    if (const int result = Connect(); result != 0) return End(State::kFailed, result);
  }
  const State state = is_connected_ ? ReadAnswer() : State::kUnderWay;
  if (state == State::kUnderWay && NowMs() >= deadline_) return End(State::kFailed, -ETIMEDOUT);
  return state;
}

ClientHandshake::State ClientHandshake::ReadAnswer() {
  for (;;) {
    const ssize_t result = ReceiveBytes(current().get(), answer_.Room(), MSG_DONTWAIT);
    if (result == -EAGAIN) return State::kUnderWay;
    // A hang-up without an answer refuses as well.
    if (result <= 0) return End(State::kRefused, -EIO);
    answer_.Filled(static_cast<std::size_t>(result));
    if (!answer_.IsWhole()) continue;
    const State state = TakeAnswer(answer_.message());
    if (state != State::kUnderWay || !is_connected_) return state;
  }
}

ClientHandshake::State ClientHandshake::TakeAnswer(const Answer& answer) {
  const std::string instance(answer.text.Get());
  const bool needs_instance = kind_ == HelloKind::kMain && answer.result == 0;
  if (!answer.IsValid() || (needs_instance && instance.empty())) {
    RPC_LOG_ERROR("the service's answer is not one: wrong version or no service at all");
    return End(State::kFailed, -EIO);
  }
  if (answer.result != 0) {
    return End(State::kRefused, answer.result == -EACCES ? -EACCES : -EIO);
  }
  if (kind_ == HelloKind::kCallback) {
    MakeBlocking(main_.get());
    return State::kDone;
  }
  if (const int result = BeginSocket(HelloKind::kCallback, instance); result != 0) {
    return End(State::kFailed, result);
  }
  return State::kUnderWay;
}

ClientHandshake::State FinishHandshake(ClientHandshake& handshake) {
  for (;;) {
    const auto state = handshake.Advance();
    if (state != ClientHandshake::State::kUnderWay) return state;
    const std::int64_t wait = std::max<std::int64_t>(handshake.retry_at() - NowMs(), 0);
    struct pollfd entry {
      handshake.fd(), POLLIN, 0
    };
    ::poll(&entry, 1,
           static_cast<int>(std::min<std::int64_t>(wait, std::numeric_limits<int>::max())));
  }
}

}  // namespace kavrel_rpc
