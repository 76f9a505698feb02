/* The headers compile alone, as C. */
#include <vconf.h>

#include <vconf-ext.h>

int vconf_header_check(void);
int vconf_header_check(void) {
  return VCONF_TYPE_STRING;
}
