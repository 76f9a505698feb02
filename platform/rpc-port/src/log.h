// Log lines of this service: one tag, and never more than one line for one cause.
#pragma once

#include <dlog.h>

#define RPC_LOG_ERROR(...) dlog_print(DLOG_ERROR, "RPC_PORT", __VA_ARGS__)
#define RPC_LOG_WARNING(...) dlog_print(DLOG_WARN, "RPC_PORT", __VA_ARGS__)
