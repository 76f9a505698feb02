// The headers compile alone, as C++.
#include <vconf.h>

#include <vconf-ext.h>
