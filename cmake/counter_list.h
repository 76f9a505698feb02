// The parts of a process that count which lines are run: see counted_exit.c.
#ifndef KAVREL_COUNTER_LIST_H
#define KAVREL_COUNTER_LIST_H

enum { kMostCounters = 16 };

struct CounterList {
  void (*dump[kMostCounters])(void);
};

#endif
