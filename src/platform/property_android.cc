#include "platform/property.h"

#include <sys/system_properties.h>

#include <cstdlib>

namespace qlis {

static_assert(kPropertyValueMax == PROP_VALUE_MAX, "the value buffer is bionic's");

int read_property_int(const char *name) {
  char value[kPropertyValueMax] = "0";
  __system_property_get(name, value);
  return std::atoi(value);
}

}  // namespace qlis
