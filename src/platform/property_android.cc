#include "platform/property.h"

#include <sys/system_properties.h>

#include <cstdlib>

namespace qlis {

int read_property_int(const char *name) {
  char value[kPropertyValueMax] = "0";
  __system_property_get(name, value);
  return std::atoi(value);
}

}  // namespace qlis
