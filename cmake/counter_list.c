#include "counter_list.h"

// Of the program; its libraries look for it.
__attribute__((visibility("default"))) struct CounterList kavrel_counters;
