#include "service.h"

#include <pthread.h>

#include <atomic>

#include "read_cache.h"

namespace kavrel_vconf {
namespace {

std::atomic<Service*> g_service;

}  // namespace

// As the library is loaded: a child forked while another thread does something for the first time
// would wait for it for ever.
const int Service::watches_forks_ = ::pthread_atfork(nullptr, nullptr, &AfterForkInChild);

Service& Service::Instance() {
  Service* service = g_service.load(std::memory_order_acquire);
  if (service != nullptr) return *service;
  auto* made = new Service;
  if (g_service.compare_exchange_strong(service, made, std::memory_order_acq_rel)) return *made;
  delete made;  // another thread was first
  return *service;
}

// The parent's service is left as it is: closing LMDB here would free the parent's readers. Only
// descriptors whose closing means something to other processes are closed.
void Service::AfterForkInChild() {
  Service* parents = g_service.exchange(nullptr, std::memory_order_acq_rel);
  if (parents == nullptr) return;
  parents->memory_.AbandonInForkedChild();
  parents->durable_.AbandonInForkedChild();
  parents->registry_.AbandonInForkedChild();
}

void Service::AtExit() {
  Service* service = g_service.load(std::memory_order_acquire);
  if (service == nullptr) return;
  service->memory_.FinishWaking();
  service->durable_.FinishWaking();
}

namespace {

// When the library is unloaded, which for most programs is when they end.
[[gnu::destructor]] void Finish() {
  Service::AtExit();
}

}  // namespace

Store::Look LookAt(const Key& key) {
  ReadCache* cache = ReadCache::OfThisThread();
  if (cache != nullptr) {
    if (const Store::Look* kept = cache->Find(key)) return *kept;
  }
  Store::Look look = Service::Instance().StoreOf(key).Read(key);
  if (cache != nullptr) cache->Remember(key, look);
  return look;
}

int Change(const Key& key, const Value& value) {
  Store::Look look;
  const int error = Service::Instance().StoreOf(key).Write(key, value, &look);
  if (error != 0) return error;
  if (ReadCache* cache = ReadCache::OfThisThread()) cache->Remember(key, look);
  return 0;
}

}  // namespace kavrel_vconf
