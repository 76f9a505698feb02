#include <rpc-port.h>
