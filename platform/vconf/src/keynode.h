// What a callback is told: the node behind vconf's opaque type.
#pragma once

#include <vconf.h>

#include <string>

#include "record.h"

struct _keynode_t {
  std::string name;
  kavrel_vconf::Value value;
};
