// The stub's header is exported to viewers; sources of the library find it under its own name here.
#pragma once

#include <kavrel/tidl/KavrelAppApiStub.h>
