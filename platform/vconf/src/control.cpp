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
#include "patience.h"

namespace kavrel_vconf {
namespace {

constexpr std::uint64_t kMagic = 0x766e6f63666b7601;  // says "vconfk", and the byte order
// Processes of another word size or C library lay the page out differently: they must not mix.
constexpr std::uint32_t kFormat = 1 + (sizeof(void*) << 8) + (sizeof(pthread_mutex_t) << 16);

std::array<char, 48> BootId() {
  std::array<char, 48> id{};
  kavrel_platform::UniqueFd file(::open("/proc/sys/kernel/random/boot_id", O_RDONLY | O_CLOEXEC));
  if (file && ::read(file.get(), id.data(), id.size() - 1) < 0) id.fill(0);
  return id;
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
  std::array<char, 48> boot_id{};
  std::uint64_t generation = 0;
};
static_assert(offsetof(ControlPage, generation) == offsetof(Head, generation));

bool ReadHead(int fd, Head* head) {
  if (!HasPageSize(fd)) return false;
  if (::pread(fd, head, sizeof *head, 0) != static_cast<ssize_t>(sizeof *head)) return false;
  return head->magic == kMagic && head->format == kFormat && head->size == sizeof(ControlPage);
}

template <typename Number>
Number ReadMember(int fd, std::size_t offset) {
  Number number = 0;
  const ssize_t size = ::pread(fd, &number, sizeof number, static_cast<off_t>(offset));
  return size == static_cast<ssize_t>(sizeof number) ? number : 0;
}

// A hole in the file could only be filled when it is first written through the map, and on a full
// disk that is a SIGBUS: write it all now, when a failure is still an error code.
int FillWithZeros(int fd) {
  if (::ftruncate(fd, sizeof(ControlPage)) != 0) return -errno;
  const std::vector<char> zeros(sizeof(ControlPage));
  const ssize_t written = ::pwrite(fd, zeros.data(), zeros.size(), 0);
  if (written < 0) return -errno;
  return written == static_cast<ssize_t>(zeros.size()) ? 0 : -ENOSPC;
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

ControlInfo InspectControl(int fd) {
  Head head;
  ControlInfo info;
  if (!ReadHead(fd, &head)) return info;
  info.is_valid = true;
  info.is_retired = ReadMember<std::uint32_t>(fd, offsetof(ControlPage, retired)) != 0;
  info.is_of_this_boot = head.boot_id == BootId();
  info.generation = head.generation;
  info.sequence = ReadMember<std::uint64_t>(fd, offsetof(ControlPage, sequence));
  return info;
}

int InitialiseControl(int fd, std::uint64_t sequence, std::uint64_t generation) {
  ++sequence;
  if (int error = FillWithZeros(fd); error != 0) return error;
  ControlPage* page = Map(fd);
  if (page == nullptr) return -errno;
  for (auto& word : page->words) word.store(2 * sequence, std::memory_order_relaxed);
  page->sequence.store(sequence, std::memory_order_relaxed);
  page->format = kFormat;
  page->size = sizeof(ControlPage);
  page->boot_id = BootId();
  page->generation = generation != 0 ? generation : NewGeneration();
  const int error = InitialiseLock(&page->writer_lock);
  page->magic = kMagic;
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
