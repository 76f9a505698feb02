// The system's journal, through its documented protocol of one datagram a record.
//
// GLib's and systemd's own senders are not used because they wait: when the journal does not read,
// their sendmsg blocks for ever once its queue holds a few records. They also keep one socket for
// the life of the process, which a program that closes all descriptors takes from them. Here each
// record has a socket of its own and is dropped when the journal's queue is full.
#include <dlog.h>
#include <fcntl.h>
#include <sys/mman.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstdio>
#include <cstring>

#include "sink.h"

namespace kavrel_dlog {
namespace {

using kavrel_platform::UniqueFd;

// The journal counts as syslog does: 2 critical to 7 debug.
std::string_view SyslogPriority(int priority) {
  constexpr std::string_view kByPriority[] = {"7", "7", "6", "4", "3", "2"};
  return kByPriority[priority - DLOG_VERBOSE];
}

// A value of any content: name, newline, its length in eight bytes (least first), value, newline.
bool AppendField(TextBuffer& out, std::string_view name, std::string_view value) noexcept {
  std::array<char, 8> length{};
  for (std::size_t i = 0; i < length.size(); ++i) {
    length[i] = static_cast<char>((value.size() >> (8 * i)) & 0xff);
  }
  return out.Append(name) && out.Append("\n") && out.Append({length.data(), length.size()}) &&
         out.Append(value) && out.Append("\n");
}

bool AppendCleanField(TextBuffer& out, std::string_view name, std::string_view value) noexcept {
  TextBuffer clean;
  constexpr std::size_t kLongestValue = 4 * kLongestText + 4096;
  AppendClean(clean, value, Newlines::kKeep, kLongestValue);
  return AppendField(out, name, clean.view());
}

bool AppendFields(TextBuffer& out, const Record& record) noexcept {
  char thread[16];
  std::snprintf(thread, sizeof thread, "%d", ::gettid());
  return AppendCleanField(out, "MESSAGE", record.text) &&
         AppendField(out, "PRIORITY", SyslogPriority(record.priority)) &&
         AppendCleanField(out, "SYSLOG_IDENTIFIER", program_invocation_short_name) &&
         AppendCleanField(out, "KAVREL_TAG", record.tag) && AppendField(out, "TID", thread);
}

int Send(int socket, const msghdr& message) noexcept {
  while (::sendmsg(socket, &message, MSG_DONTWAIT | MSG_NOSIGNAL) < 0) {
    if (errno != EINTR) return -errno;
  }
  return 0;
}

int SendBytes(int socket, const sockaddr_un& address, std::string_view bytes) noexcept {
  iovec part{const_cast<char*>(bytes.data()), bytes.size()};
  msghdr message{};
  message.msg_name = const_cast<sockaddr_un*>(&address);
  message.msg_namelen = sizeof address;
  message.msg_iov = &part;
  message.msg_iovlen = 1;
  return Send(socket, message);
}

int SendDescriptor(int socket, const sockaddr_un& address, int fd) noexcept {
  alignas(cmsghdr) char control[CMSG_SPACE(sizeof fd)] = {};
  msghdr message{};
  message.msg_name = const_cast<sockaddr_un*>(&address);
  message.msg_namelen = sizeof address;
  message.msg_control = control;
  message.msg_controllen = sizeof control;
  cmsghdr* const header = CMSG_FIRSTHDR(&message);
  header->cmsg_level = SOL_SOCKET;
  header->cmsg_type = SCM_RIGHTS;
  header->cmsg_len = CMSG_LEN(sizeof fd);
  std::memcpy(CMSG_DATA(header), &fd, sizeof fd);
  return Send(socket, message);
}

// The journal takes what no datagram can carry as sealed memory.
int SendAsMemory(int socket, const sockaddr_un& address, std::string_view bytes) noexcept {
  const UniqueFd memory(::memfd_create("dlog-record", MFD_CLOEXEC | MFD_ALLOW_SEALING));
  if (!memory) return -errno;
  while (!bytes.empty()) {
    const ssize_t done = ::write(memory.get(), bytes.data(), bytes.size());
    if (done < 0 && errno != EINTR) return -errno;
    if (done > 0) bytes.remove_prefix(static_cast<std::size_t>(done));
  }
  constexpr int kSeals = F_SEAL_SHRINK | F_SEAL_GROW | F_SEAL_WRITE | F_SEAL_SEAL;
  if (::fcntl(memory.get(), F_ADD_SEALS, kSeals) != 0) return -errno;
  return SendDescriptor(socket, address, memory.get());
}

class JournalSink final : public Sink {
 public:
  explicit JournalSink(const sockaddr_un& address) : address_(address) {}

  int Write(const Record& record, std::uint64_t lost_records) noexcept override {
    if (lost_records > 0) {
      TextBuffer text;
      if (const int result = WriteOne(LostNotice(text, lost_records)); result != 0) return result;
    }
    return WriteOne(record);
  }

 private:
  int WriteOne(const Record& record) noexcept {
    TextBuffer fields;
    if (!AppendFields(fields, record)) return -ENOMEM;
    const UniqueFd socket(::socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0));
    if (!socket) return -errno;
    const int result = SendBytes(socket.get(), address_, fields.view());
    if (result != -EMSGSIZE && result != -ENOBUFS) return result;
    return SendAsMemory(socket.get(), address_, fields.view());
  }

  sockaddr_un address_;
};

}  // namespace

std::unique_ptr<Sink> Journal(const std::string& path) {
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  if (path.size() >= sizeof address.sun_path) {
    errno = ENAMETOOLONG;
    return nullptr;
  }
  path.copy(address.sun_path, path.size());
  struct stat status {};
  if (::stat(path.c_str(), &status) != 0) return nullptr;
  if (!S_ISSOCK(status.st_mode)) {
    errno = ENOTSOCK;
    return nullptr;
  }
  return std::make_unique<JournalSink>(address);
}

}  // namespace kavrel_dlog
