#include <sys/system_properties.h>

#include <android-base/properties.h>

#include <cstring>
#include <string>

extern "C" int __system_property_get(const char *name, char *value) {
  std::string found = android::base::GetProperty(name, "");
  if (found.size() >= PROP_VALUE_MAX) found.resize(PROP_VALUE_MAX - 1);
  std::memcpy(value, found.c_str(), found.size() + 1);
  return static_cast<int>(found.size());
}
