// What every command of the C command API does around its one call of the proxy: test the handle,
// forward, and turn the proxy's exceptions into a log line and a neutral return value.
//
// All lines belong to the exported function, so each frame takes its caller's place.
#pragma once

#include <kavrel/app_api_types.h>

#include <string>
#include <type_traits>
#include <utility>
#include <vector>

#include "../common/log.h"
#include "tidl/KavrelAppApiProxy.h"

namespace kavrel::app_api {

using rpc_port::KavrelAppApiProxy::proxy::KavrelAppApi;

inline constexpr const char* kLogTag = "kavrel-api";

inline void LogNullHandle(SourceLine where) {
  KAVREL_LOG(kLogError, kLogTag, where, "The instance of KavrelAppApi is null\n");
}

/// Runs `call` on the handle's proxy. On a null handle or an exception of the proxy's own family:
/// one error line, and R() - nothing, false or 0. Anything else that is thrown passes through.
/// InvalidProtocolException is caught for calls with a result alone; others cannot raise it.
template <class R, class F>
R WithProxy(kavrel_api_h handle, SourceLine where, const F& call) {
  namespace proxy = rpc_port::KavrelAppApiProxy::proxy;
  if (handle == nullptr) {
    LogNullHandle(where);
    return R();
  }
  try {
    return call(*static_cast<KavrelAppApi*>(handle));
  } catch (const proxy::NotConnectedSocketException&) {
    KAVREL_LOG(kLogError, kLogTag, where, "exception occured: NotConnectedSocketException\n");
  } catch (const proxy::InvalidIOException&) {
    KAVREL_LOG(kLogError, kLogTag, where, "exception occured: InvalidIOException\n");
  } catch (const proxy::InvalidProtocolException&) {
    if constexpr (std::is_void_v<R>) throw;
    KAVREL_LOG(kLogError, kLogTag, where, "exception occured: InvalidProtocolException\n");
  }
  return R();
}

/// The frame of one command: `method` with `arguments`, strings and lists copied for it.
template <class R, class... P, class... Arguments>
R Command(kavrel_api_h handle, SourceLine where, R (KavrelAppApi::*method)(P...),
          Arguments&... arguments) {
  return WithProxy<R>(handle, where,
                      [&](KavrelAppApi& proxy) { return (proxy.*method)(arguments...); });
}

/// The frame of a show command: the same after an empty entry line.
template <class... P, class... Arguments>
void Show(kavrel_api_h handle, SourceLine where, void (KavrelAppApi::*method)(P...),
          Arguments&... arguments) {
  KAVREL_LOG(kLogInfo, kLogTag, where, "\n");
  Command(handle, where, method, arguments...);
}

}  // namespace kavrel::app_api
