// Stands in for _exit and abort where lines are counted (--wrap): what was counted is written
// first, here and in each other part of the process. In every program and library, since each has
// counters of its own; they find each other in the program's list.
#define _GNU_SOURCE
#include <dlfcn.h>
#include <stdlib.h>

#include "counter_list.h"

void __gcov_dump(void);
_Noreturn void __real__exit(int code);
_Noreturn void __real_abort(void);
_Noreturn void __wrap__exit(int code);
_Noreturn void __wrap_abort(void);

static struct CounterList* list;  // null in a program that does not count

__attribute__((constructor)) static void Enter(void) {
  list = dlsym(RTLD_DEFAULT, "kavrel_counters");
  for (int i = 0; list != NULL && i < kMostCounters; ++i) {
    if (list->dump[i] != NULL) continue;
    list->dump[i] = &__gcov_dump;
    break;
  }
}

__attribute__((destructor)) static void Leave(void) {
  for (int i = 0; list != NULL && i < kMostCounters; ++i) {
    if (list->dump[i] == &__gcov_dump) list->dump[i] = NULL;
  }
}

static void DumpAll(void) {
  for (int i = 0; list != NULL && i < kMostCounters; ++i) {
    if (list->dump[i] != NULL) list->dump[i]();
  }
  __gcov_dump();
}

void __wrap__exit(int code) {
  DumpAll();
  __real__exit(code);
}

void __wrap_abort(void) {
  DumpAll();
  __real_abort();
}
