#include <dlog.h>
