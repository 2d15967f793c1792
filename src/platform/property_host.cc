#include <cstdlib>
#include <cstring>
#include <map>
#include <mutex>
#include <string>
#include <string_view>

#include "ql_is/ql_is.h"
#include "platform/property.h"

namespace qlis {
namespace {

struct PropertyTable {
  std::mutex mutex;
  // Transparent comparison: a lookup by C string builds no std::string,
  // so reading a property on the live path allocates nothing.
  std::map<std::string, std::string, std::less<>> values;
};

PropertyTable &property_table() {
  static PropertyTable table;
  return table;
}

}  // namespace

int read_property_int(const char *name) {
  char value[kPropertyValueMax] = "0";
  {
    PropertyTable &table = property_table();
    std::lock_guard<std::mutex> lock(table.mutex);
    auto it = table.values.find(std::string_view(name));
    if (it != table.values.end()) {
      std::strncpy(value, it->second.c_str(), sizeof value - 1);
      return std::atoi(value);
    }
  }
  if (const char *env = std::getenv(name)) {
    std::strncpy(value, env, sizeof value - 1);
  }
  return std::atoi(value);
}

}  // namespace qlis

extern "C" int ql_is_host_set_property(const char *name, const char *value) {
  if (name == nullptr) return -1;
  if (value != nullptr && std::strlen(value) >= qlis::kPropertyValueMax) return -1;
  auto &table = qlis::property_table();
  std::lock_guard<std::mutex> lock(table.mutex);
  if (value == nullptr) {
    table.values.erase(name);
  } else {
    table.values[name] = value;
  }
  return 0;
}
