// The factories' header is exported; sources of the library find it here.
#pragma once

#include <kavrel/KavrelAPI.h>
