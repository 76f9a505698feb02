#include "faults.h"

#include <link.h>

#include <array>
#include <cerrno>
#include <cstdint>
#include <string_view>

#include "failing_allocations.h"

namespace kavrel_test {
namespace {

struct Plan {
  bool armed = false;
  Fault fault = Fault::kNew;
  bool lasting = false;
  int nth = 0;
  int count = 0;
};

thread_local Plan the_plan;

struct Range {
  std::uintptr_t begin;
  std::uintptr_t end;
};

// The code whose requests can fail. Fixed in size: it is read inside malloc.
struct OwnCode {
  std::array<Range, 64> ranges{};
  std::size_t count = 0;

  bool Holds(const void* address) const {
    const auto at = reinterpret_cast<std::uintptr_t>(address);
    for (std::size_t i = 0; i < count; ++i) {
      if (at >= ranges[i].begin && at < ranges[i].end) return true;
    }
    return false;
  }
};

thread_local OwnCode the_own_code;

bool IsOwn(std::string_view path) {
  constexpr std::string_view kLibraries[] = {"libkavrel-api", "libdlog",     "liblwipc",
                                             "libpepper-efl", "librpc-port", "libvconf",
                                             "libstdc++",     "liblmdb.so",  "libwayland-server"};
  if (path.empty()) return true;  // the program itself
  const std::string_view file = path.substr(path.rfind('/') + 1);
  for (const std::string_view library : kLibraries) {
    if (file.starts_with(library)) return true;
  }
  return false;
}

int AddObject(dl_phdr_info* object, std::size_t /*size*/, void* data) {
  auto& code = *static_cast<OwnCode*>(data);
  if (!IsOwn(object->dlpi_name)) return 0;
  for (int i = 0; i < object->dlpi_phnum && code.count < code.ranges.size(); ++i) {
    const auto& part = object->dlpi_phdr[i];
    if (part.p_type != PT_LOAD || (part.p_flags & PF_X) == 0) continue;
    const std::uintptr_t begin = object->dlpi_addr + part.p_vaddr;
    code.ranges[code.count++] = {begin, begin + part.p_memsz};
  }
  return 0;
}

int ErrorOf(Fault fault) {
  switch (fault) {
    case Fault::kNew:
    case Fault::kMemory:
      return ENOMEM;
    case Fault::kFullDisk:
    case Fault::kWatches:
      return ENOSPC;
    case Fault::kBrokenDisk:
      return EIO;
    case Fault::kReadOnly:
      return EROFS;
    case Fault::kDescriptors:
      return EMFILE;
    case Fault::kThreads:
      return EAGAIN;
  }
  return EIO;
}

}  // namespace

ScopedFault::ScopedFault(Fault fault, int nth, bool lasting) {
  the_own_code.count = 0;
  ::dl_iterate_phdr(&AddObject, &the_own_code);
  the_plan = {true, fault, lasting, nth, 0};
}

ScopedFault::~ScopedFault() {
  the_plan.armed = false;
}

bool ScopedFault::has_occurred() const {
  return the_plan.nth != 0 && the_plan.count >= the_plan.nth;
}

int ScopedFault::count() const {
  return the_plan.count;
}

bool FailsNow(Fault fault, const void* caller) {
  Plan& plan = the_plan;
  if (!plan.armed || plan.fault != fault || FakeAtWork::Any()) return false;
  if (!the_own_code.Holds(caller)) return false;
  ++plan.count;
  if (plan.nth == 0 || plan.count < plan.nth || (plan.count > plan.nth && !plan.lasting)) {
    return false;
  }
  errno = ErrorOf(fault);
  return true;
}

}  // namespace kavrel_test
