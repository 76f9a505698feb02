// Stands in for _exit and abort where lines are counted (--wrap): what was counted is written first.
#include <stdlib.h>

void __gcov_dump(void);
_Noreturn void __real__exit(int code);
_Noreturn void __real_abort(void);
_Noreturn void __wrap__exit(int code);
_Noreturn void __wrap_abort(void);

void __wrap__exit(int code) {
  __gcov_dump();
  __real__exit(code);
}

void __wrap_abort(void) {
  __gcov_dump();
  __real_abort();
}
