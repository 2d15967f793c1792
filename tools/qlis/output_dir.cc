#include "output_dir.h"

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <system_error>

#include "tool_error.h"

namespace qlis::tool {

namespace fs = std::filesystem;

void prepare_output_dir(const std::string &dir, bool force) {
  std::error_code ec;
  const fs::file_status status = fs::status(dir, ec);
  if (fs::exists(status)) {
    if (!fs::is_directory(status))
      throw ToolError(dir + " exists and is not a folder");
    const bool empty = fs::is_empty(dir, ec);
    if (ec)
      throw ToolError("cannot read the folder " + dir + ": " + ec.message());
    if (!empty && !force) {
      throw ToolError(
          "the output folder " + dir +
          " already holds files; give --force to write into it anyway");
    }
    return;
  }
  fs::create_directories(dir, ec);
  if (ec)
    throw ToolError("cannot create the folder " + dir + ": " + ec.message());
}

void write_file(const std::string &path, const void *data, size_t size) {
  std::FILE *file = std::fopen(path.c_str(), "wb");
  if (file == nullptr)
    throw ToolError("cannot write " + path + ": " + std::strerror(errno));
  const bool written = std::fwrite(data, 1, size, file) == size;
  const int saved_errno = errno;
  if (std::fclose(file) != 0 || !written) {
    throw ToolError("cannot write " + path + ": " +
                    std::strerror(written ? errno : saved_errno));
  }
}

}  // namespace qlis::tool
