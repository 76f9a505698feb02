// Twice in a row.
// clang-format off
#include <kavrel/testing.h>
#include <kavrel/testing.h>
