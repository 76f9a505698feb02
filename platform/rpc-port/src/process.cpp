#include "process.h"

#include <pthread.h>
#include <unistd.h>

#include <cerrno>
#include <mutex>
#include <new>
#include <vector>

namespace kavrel_rpc::internal {

std::atomic<unsigned> fork_generation{0};

namespace {

struct Descriptors {
  std::mutex mutex;
  std::vector<bool> entered;  // indexed by descriptor
};

// Never destroyed: handles may outlive the static objects of a program that exits.
Descriptors& TheDescriptors() {
  static auto* descriptors = new Descriptors;
  return *descriptors;
}

void BeforeFork() {
  TheDescriptors().mutex.lock();
}
void AfterForkInParent() {
  TheDescriptors().mutex.unlock();
}

void AfterForkInChild() {
  fork_generation.fetch_add(1, std::memory_order_relaxed);
  auto& entered = TheDescriptors().entered;
  for (std::size_t fd = 0; fd < entered.size(); ++fd) {
    if (entered[fd]) ::close(static_cast<int>(fd));
    entered[fd] = false;
  }
  TheDescriptors().mutex.unlock();
}

// As the library is loaded: a child forked while another thread does something for the first time
// would wait for it for ever.
[[maybe_unused]] const int watches_forks = [] {
  TheDescriptors();
  return ::pthread_atfork(&BeforeFork, &AfterForkInParent, &AfterForkInChild);
}();

}  // namespace

void LockDescriptors() {
  TheDescriptors().mutex.lock();
}

void UnlockDescriptors() {
  const int saved = errno;
  TheDescriptors().mutex.unlock();
  errno = saved;
}

bool EnterDescriptor(int fd) noexcept {
  auto& entered = TheDescriptors().entered;
  const auto index = static_cast<std::size_t>(fd);
  try {
    if (index >= entered.size()) entered.resize(index + 64);
  } catch (const std::bad_alloc&) {
    ::close(fd);
    errno = ENOMEM;
    return false;
  }
  entered[index] = true;
  return true;
}

void CloseDescriptor(int fd) {
  const std::lock_guard lock(TheDescriptors().mutex);
  TheDescriptors().entered[static_cast<std::size_t>(fd)] = false;
  ::close(fd);
}

}  // namespace kavrel_rpc::internal
