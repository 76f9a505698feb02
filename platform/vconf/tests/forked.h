// What the tests of this room need of other processes.
#pragma once

#include "forked_process.h"
#include "repetitions.h"

namespace kavrel_vconf_test {

using kavrel_test::Bell;
using kavrel_test::Forked;
using kavrel_test::Repetitions;
using kavrel_test::Shared;

}  // namespace kavrel_vconf_test
