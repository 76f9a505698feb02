// The owner of one file descriptor.
#pragma once

#include <unistd.h>

namespace kavrelctl {

struct Descriptor {
  explicit Descriptor(int number) : fd(number) {}
  Descriptor(const Descriptor&) = delete;
  Descriptor& operator=(const Descriptor&) = delete;
  ~Descriptor() {
    if (fd >= 0) ::close(fd);
  }
  int fd;
};

}  // namespace kavrelctl
