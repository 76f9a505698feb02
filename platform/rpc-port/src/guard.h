// The edges to C: what every exported function does first and last, and calls into user callbacks.
#pragma once

#include <cerrno>
#include <exception>
#include <new>

#include "log.h"

namespace kavrel_rpc {

/// Runs `call`; what it throws ends here with one error line. False when it threw.
template <typename Call>
bool RunGuarded(const char* what, Call call) noexcept {
  try {
    call();
    return true;
  } catch (const std::exception& error) {
    RPC_LOG_ERROR("exception in %s: %s", what, error.what());
  } catch (...) {
    RPC_LOG_ERROR("exception in %s", what);
  }
  return false;
}

/// Runs the body of a C function, whose result it gives; -EIO or -ENOMEM for what it throws.
template <typename Body>
int Guard(const char* function, Body body) noexcept {
  try {
    return body();
  } catch (const std::bad_alloc&) {
    return -ENOMEM;
  } catch (const std::exception& error) {
    RPC_LOG_ERROR("%s: %s", function, error.what());
  } catch (...) {
    RPC_LOG_ERROR("%s: unknown exception", function);
  }
  return -EIO;
}

/// 0 when `object` may be used here; the code to return otherwise.
template <typename Object>
int CheckHandle(const Object* object, const char* function) {
  if (object == nullptr) return -EINVAL;
  if (!object->IsForeign()) [[likely]] {
    return 0;
  }
  RPC_LOG_ERROR("%s: refused, the handle belongs to the parent of this forked process", function);
  return -EPERM;
}

}  // namespace kavrel_rpc
