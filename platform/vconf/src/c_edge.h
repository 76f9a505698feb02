// The edge between this library and C: no exception crosses it.
#pragma once

#include <cerrno>
#include <exception>
#include <new>

#include "log.h"

namespace kavrel_vconf {

/// What `function` returns, or the errno value for the exception that ended it.
template <typename Function>
int ToErrno(Function function) noexcept {
  try {
    return function();
  } catch (const std::bad_alloc&) {
    return -ENOMEM;
  } catch (const std::exception& error) {
    VCONF_LOG_ERROR("unexpected failure: %s", error.what());
    return -EIO;
  }
}

}  // namespace kavrel_vconf
