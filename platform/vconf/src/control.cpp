#include "control.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <time.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <new>
#include <vector>

#include "barrier.h"
#include "damage.h"
#include "patience.h"

namespace kavrel_vconf {
namespace {

constexpr std::uint64_t kMagic = 0x766e6f63666b7601;  // says "vconfk", and the byte order
// Processes of another word size or C library lay the page out differently: they must not mix.
constexpr std::uint32_t kFormat = 1 + (sizeof(void*) << 8) + (sizeof(pthread_mutex_t) << 16);

using BootId = std::array<char, 48>;

// All zeros on a system that has none. 0, or a negative errno value when it cannot be read now:
// then nobody knows whether values are of this boot, and none may be thrown away.
int ReadBootId(BootId* id) {
  id->fill(0);
  kavrel_platform::UniqueFd file(::open("/proc/sys/kernel/random/boot_id", O_RDONLY | O_CLOEXEC));
  if (!file) return IsShortage(errno) ? -errno : 0;
  return ::read(file.get(), id->data(), id->size() - 1) < 0 ? -errno : 0;
}

// Differs from that of every other store that a process of this machine can still know.
std::uint64_t NewGeneration() {
  timespec now{};
  ::clock_gettime(CLOCK_REALTIME, &now);
  return static_cast<std::uint64_t>(now.tv_sec) * 1'000'000'000 +
         static_cast<std::uint64_t>(now.tv_nsec);
}

bool HasPageSize(int fd) {
  struct stat status {};
  return ::fstat(fd, &status) == 0 && status.st_size == sizeof(ControlPage);
}

bool IsControlPage(const ControlPage& page) {
  return page.magic == kMagic && page.format == kFormat && page.size == sizeof(ControlPage);
}

// Only the head and the counter are looked at, in a copy: the atomics of a copy mean nothing.
struct Head {
  std::uint64_t magic = 0;
  std::uint32_t format = 0;
  std::uint32_t size = 0;
  BootId boot_id{};
  std::uint64_t generation = 0;
};
static_assert(offsetof(ControlPage, generation) == offsetof(Head, generation));

// Of a file that is long enough. 0 or a negative errno value.
template <typename Object>
int ReadAt(int fd, std::size_t offset, Object* object) {
  const ssize_t size = ::pread(fd, object, sizeof *object, static_cast<off_t>(offset));
  return size < 0 ? -errno : 0;
}

// A hole in the file could only be filled when it is first written through the map, and on a full
// disk that is a SIGBUS: write it all now, when a failure is still an error code. The head is
// written with it: whatever fails from here on, the values beside the page stay those of this boot.
int WritePage(int fd, const Head& head, std::uint64_t sequence) {
  std::vector<char> page(sizeof(ControlPage));
  std::memcpy(page.data(), &head, sizeof head);
  std::memcpy(page.data() + offsetof(ControlPage, sequence), &sequence, sizeof sequence);
  if (::ftruncate(fd, sizeof(ControlPage)) != 0) return -errno;
  const ssize_t written = ::pwrite(fd, page.data(), page.size(), 0);
  if (written < 0) return -errno;
  return written == static_cast<ssize_t>(page.size()) ? 0 : -ENOSPC;
}

int InitialiseLock(pthread_mutex_t* lock) {
  pthread_mutexattr_t attributes;
  if (int error = ::pthread_mutexattr_init(&attributes); error != 0) return -error;
  ::pthread_mutexattr_setpshared(&attributes, PTHREAD_PROCESS_SHARED);
  ::pthread_mutexattr_setrobust(&attributes, PTHREAD_MUTEX_ROBUST);
  const int error = ::pthread_mutex_init(lock, &attributes);
  ::pthread_mutexattr_destroy(&attributes);
  return -error;
}

ControlPage* Map(int fd) {
  void* address = ::mmap(nullptr, sizeof(ControlPage), PROT_READ | PROT_WRITE, MAP_SHARED, fd, 0);
  return address == MAP_FAILED ? nullptr : static_cast<ControlPage*>(address);
}

}  // namespace

int InspectControl(int fd, ControlInfo* info) {
  *info = ControlInfo();
  Head head;
  if (!HasPageSize(fd)) return 0;
  if (int error = ReadAt(fd, 0, &head); error != 0) return error;
  if (head.magic != kMagic || head.format != kFormat || head.size != sizeof(ControlPage)) return 0;
  std::uint32_t retired = 0;
  BootId boot_id{};
  int error = ReadAt(fd, offsetof(ControlPage, retired), &retired);
  if (error == 0) error = ReadAt(fd, offsetof(ControlPage, sequence), &info->sequence);
  if (error == 0) error = ReadBootId(&boot_id);
  info->is_valid = true;
  info->is_retired = retired != 0;
  info->is_of_this_boot = head.boot_id == boot_id;
  info->generation = head.generation;
  return error;
}

int InitialiseControl(int fd, std::uint64_t sequence, std::uint64_t generation) {
  ++sequence;
  Head head{kMagic, kFormat, sizeof(ControlPage), {}, generation};
  if (generation == 0) head.generation = NewGeneration();
  if (int error = ReadBootId(&head.boot_id); error != 0) return error;
  if (int error = WritePage(fd, head, sequence); error != 0) return error;
  ControlPage* page = Map(fd);
  if (page == nullptr) return -errno;
  for (auto& word : page->words) word.store(2 * sequence, std::memory_order_relaxed);
  const int error = InitialiseLock(&page->writer_lock);
  ::munmap(page, sizeof(ControlPage));
  return error;
}

ControlPage* MapControl(int fd) {
  if (!HasPageSize(fd)) {
    errno = EPROTO;
    return nullptr;
  }
  ControlPage* page = Map(fd);
  if (page == nullptr || IsControlPage(*page)) return page;
  ::munmap(page, sizeof(ControlPage));
  errno = EPROTO;
  return nullptr;
}

void RetireControl(ControlPage* page) {
  page->retired.store(1, std::memory_order_release);
  for (auto& word : page->words) word.fetch_or(1, std::memory_order_relaxed);
}

WriterLock::~WriterLock() {
  if (held_) ::pthread_mutex_unlock(&page_->writer_lock);
}

int WriterLock::Take() {
  int error = LockPatiently(&page_->writer_lock);
  if (error == EOWNERDEAD) error = ::pthread_mutex_consistent(&page_->writer_lock);
  held_ = error == 0;
  return -error;
}

// The stores below are seen in this order even when the process is killed between any two: the
// number of the word before the word itself is odd, the word odd before the commit.
ChangeMark::ChangeMark(ControlPage* page, std::uint64_t hash)
    : page_(page),
      word_(page->WordOf(hash)),
      sequence_(page->sequence.load(std::memory_order_relaxed) + 1) {
  page_->sequence.store(sequence_, std::memory_order_release);
  const auto number = static_cast<std::uint32_t>(hash % ControlPage::kWords);
  page_->in_flight.store(number + 1, std::memory_order_release);
  word_.store(2 * sequence_ + 1, std::memory_order_release);
  FullBarrier();
}

ChangeMark::~ChangeMark() {
  word_.store(2 * sequence_, std::memory_order_release);
  page_->in_flight.store(0, std::memory_order_release);
}

bool ChangeMark::SettleForDeadWriter(ControlPage* page) {
  const std::uint32_t number = page->in_flight.load(std::memory_order_acquire);
  if (number == 0 || number > ControlPage::kWords) return false;
  const std::uint64_t sequence = page->sequence.load(std::memory_order_relaxed) + 1;
  page->sequence.store(sequence, std::memory_order_release);
  page->words[number - 1].store(2 * sequence, std::memory_order_release);
  page->in_flight.store(0, std::memory_order_release);
  return true;
}

}  // namespace kavrel_vconf
