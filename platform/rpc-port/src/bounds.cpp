#include "bounds.h"

#include <directories.h>
#include <sys/resource.h>

#include <algorithm>

#include "log.h"

namespace kavrel_rpc {
namespace {

constexpr long kDayMs = 24L * 60 * 60 * 1000;
// For what else a service process has open.
constexpr rlim_t kOtherDescriptors = 256;

}  // namespace

using kavrel_platform::EnvironmentNumber;

std::int64_t ClientTimeoutMs() {
  return EnvironmentNumber("KAVREL_RPC_TIMEOUT_MS", 10000, 0, kDayMs);
}

ServiceLimits ServiceLimitsFromEnvironment() {
  return {
      static_cast<std::size_t>(EnvironmentNumber("KAVREL_RPC_MAX_CONNECTIONS", 2048, 1, 65536)),
      static_cast<std::size_t>(
          EnvironmentNumber("KAVREL_RPC_MAX_CONNECTIONS_PER_USER", 1024, 1, 65536)),
      EnvironmentNumber("KAVREL_RPC_PARTIAL_TIMEOUT_MS", 5000, 1, kDayMs),
  };
}

void RaiseDescriptorLimit(std::size_t connections) {
  struct rlimit limit {};
  if (::getrlimit(RLIMIT_NOFILE, &limit) != 0) return;
  const rlim_t needed = 2 * connections + kMaxGuests + kOtherDescriptors;
  const rlim_t wanted = std::min<rlim_t>(needed, limit.rlim_max);
  if (wanted <= limit.rlim_cur) return;
  limit.rlim_cur = wanted;
  if (::setrlimit(RLIMIT_NOFILE, &limit) != 0) {
    RPC_LOG_WARNING("cannot raise the limit of descriptors to %llu",
                    static_cast<unsigned long long>(wanted));
  }
}

}  // namespace kavrel_rpc
