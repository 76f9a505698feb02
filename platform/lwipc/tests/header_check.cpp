#include <lwipc.h>
