// File access for dumps. On the host, absolute device paths are resolved
// under a file-system root so that dumps land in a folder of the caller's
// choosing; on Android paths are used as they stand.
#pragma once

#include <sys/types.h>

#include <cstdio>

namespace qlis {

std::FILE *open_file(const char *path, const char *mode);
int make_directory(const char *path, mode_t mode);

}  // namespace qlis
