#include <sys/stat.h>

#include <cstdlib>
#include <mutex>
#include <string>

#include "ql_is/ql_is.h"
#include "platform/files.h"

namespace qlis {
namespace {

struct RootSlot {
  std::mutex mutex;
  std::string root;
  bool set = false;
};

RootSlot &root_slot() {
  static RootSlot slot;
  return slot;
}

std::string resolve(const char *path) {
  std::string root;
  {
    RootSlot &slot = root_slot();
    std::lock_guard<std::mutex> lock(slot.mutex);
    if (slot.set) root = slot.root;
  }
  if (root.empty()) {
    const char *env = std::getenv("QLIS_FS_ROOT");
    if (env != nullptr) root = env;
  }
  if (root.empty() || path[0] != '/') return path;
  if (root.back() == '/') root.pop_back();
  return root + path;
}

}  // namespace

std::FILE *open_file(const char *path, const char *mode) {
  return std::fopen(resolve(path).c_str(), mode);
}

int make_directory(const char *path, mode_t mode) {
  return mkdir(resolve(path).c_str(), mode);
}

}  // namespace qlis

extern "C" void ql_is_host_set_fs_root(const char *dir) {
  auto &slot = qlis::root_slot();
  std::lock_guard<std::mutex> lock(slot.mutex);
  slot.set = dir != nullptr && dir[0] != '\0';
  slot.root = slot.set ? dir : "";
}
