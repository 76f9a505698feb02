#include "ledger.h"

#include <linux/sockios.h>
#include <sys/ioctl.h>

#include <algorithm>
#include <array>
#include <cstring>
#include <new>

#include "log.h"
#include "quotas.h"

namespace kavrel_pepper {
namespace {

struct Kind {
  const char* interface;  // null: all objects together
  int most;
};

constexpr std::array<Kind, 4> kKinds = {{{"wl_surface", kMaxSurfaces},
                                         {"wl_shm_pool", kMaxPools},
                                         {"wl_buffer", kMaxBuffers},
                                         {nullptr, kMaxObjects}}};

std::size_t pixel_bytes_of_all = 0;

}  // namespace

/// Counts the protocol objects of one client, those that libwayland makes by itself included. Lives
/// until the last of them and the ledger are gone, in whatever order that happens.
struct Ledger::Census {
  struct Entry {
    wl_listener gone;
    Census* census;
    std::array<bool, kKinds.size()> counted;
  };

  wl_listener created;
  wl_client* client;
  std::array<int, kKinds.size()> counts{};
  bool ledger_gone = false;

  static void Created(wl_listener* listener, void* data) {
    Census* self = wl_container_of(listener, self, created);
    self->Count(static_cast<wl_resource*>(data));
  }

  void Count(wl_resource* resource) {
    Entry* const entry = new (std::nothrow) Entry{};
    if (entry == nullptr) {
      wl_client_post_no_memory(client);
      return;
    }
    entry->census = this;
    entry->gone.notify = Gone;
    wl_resource_add_destroy_listener(resource, &entry->gone);
    const char* interface = wl_resource_get_class(resource);
    for (std::size_t i = 0; i < kKinds.size(); ++i) {
      const Kind& kind = kKinds[i];
      entry->counted[i] = kind.interface == nullptr || std::strcmp(interface, kind.interface) == 0;
      if (!entry->counted[i] || ++counts[i] <= kind.most) continue;
      wl_client_post_implementation_error(client, "more than %d objects of kind %s", kind.most,
                                          kind.interface != nullptr ? kind.interface : "any");
    }
  }

  static void Gone(wl_listener* listener, void*) {
    Entry* entry = wl_container_of(listener, entry, gone);
    Census* self = entry->census;
    for (std::size_t i = 0; i < kKinds.size(); ++i) self->counts[i] -= entry->counted[i] ? 1 : 0;
    delete entry;
    self->FreeWhenDone();
  }

  void FreeWhenDone() {
    if (ledger_gone && counts.back() == 0) delete this;
  }
};

Ledger::Ledger(wl_client* client)
    : client_(client), census_(new Census{}), commits_(kCommitsPerSecond) {
  census_->client = client;
  census_->created.notify = Census::Created;
  wl_client_add_resource_created_listener(client, &census_->created);
}

Ledger::~Ledger() {
  GivePixels(pixel_bytes_);
  ClientGone();
  census_->ledger_gone = true;
  census_->FreeWhenDone();
}

void Ledger::ClientGone() {
  if (client_ == nullptr) return;
  wl_list_remove(&census_->created.link);
  client_ = nullptr;
}

bool Ledger::SpendCommit() {
  const Clock::time_point now = Clock::now();
  const std::chrono::duration<double> passed = now - refilled_;
  refilled_ = now;
  commits_ = std::min(kCommitsPerSecond, commits_ + passed.count() * kCommitsPerSecond);
  if (commits_ < 1) {
    if (client_ != nullptr) {
      wl_client_post_implementation_error(client_, "more than %d commits a second",
                                          static_cast<int>(kCommitsPerSecond));
    }
    return false;
  }
  commits_ -= 1;
  return true;
}

bool Ledger::TakePixels(std::size_t bytes) {
  if (bytes > kMaxClientPixelBytes - pixel_bytes_ || bytes > kMaxPixelBytes - pixel_bytes_of_all) {
    if (client_ != nullptr) wl_client_post_no_memory(client_);
    return false;
  }
  pixel_bytes_ += bytes;
  pixel_bytes_of_all += bytes;
  return true;
}

void Ledger::GivePixels(std::size_t bytes) {
  pixel_bytes_ -= bytes;
  pixel_bytes_of_all -= bytes;
}

bool IsBehind(wl_client* client) {
  int unread = 0;
  return ::ioctl(wl_client_get_fd(client), SIOCOUTQ, &unread) == 0 && unread > kMaxUnreadBytes;
}

}  // namespace kavrel_pepper
