// The set's header is exported to plug-in writers; sources of the library find it here.
#pragma once

#include <kavrel/KeyRepository.h>
