#include "platform/files.h"

#include <sys/stat.h>

namespace qlis {

std::FILE *open_file(const char *path, const char *mode) {
  return std::fopen(path, mode);
}

int make_directory(const char *path, mode_t mode) { return mkdir(path, mode); }

}  // namespace qlis
