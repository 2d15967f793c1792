#include "diag/dump.h"

#include <cstdio>
#include <cstring>

#include "ql_is/ql_is.h"
#include "platform/files.h"
#include "platform/log.h"

namespace qlis {
namespace {

constexpr int32_t kFormatYuvNv = 10;  // dumped under the camera's data folder
constexpr int32_t kFormatYuvPadded = 13;
constexpr int32_t kFormatRaw10 = 15;

}  // namespace

void compose_dump_path(char *path, int32_t height, int32_t width,
                       int32_t stride, int32_t format, int32_t index) {
  std::memset(path, 0, kDumpPathCapacity);
  const char *dir =
      format == kFormatYuvNv ? "/data/misc/camera/qlas/" : "/sdcard/DCIM/qlfd/";
  // "%2d" gives one-digit indices a leading blank; file names depend on it.
  std::snprintf(path, kDumpPathCapacity, "%s%dX%d_stride%d_fmt%d_index%2d.yuv",
                dir, width, height, stride, format, index);
}

}  // namespace qlis

extern "C" int32_t save_to_file(const uint8_t *data, int32_t height,
                                int32_t width, int32_t stride, int32_t format,
                                int32_t index) {
  using namespace qlis;
  if (data == nullptr) {
    log_line(kTagError, "data addr is null\n");
    return 0;
  }
  char path[kDumpPathCapacity];
  compose_dump_path(path, height, width, stride, format, index);
  log_line(kTagInfo, "Vrel qlis mode dump file name %s\n", path);
  std::FILE *file = open_file(path, "wb");
  if (file == nullptr) {
    log_line(kTagError, "can not open file: %s\n", path);
    return 0;
  }
  // Padded formats are written with their padding, the others unpadded.
  const bool whole_rows = format == kFormatYuvPadded || format == kFormatRaw10;
  const size_t rows = static_cast<size_t>(static_cast<uint32_t>(height));
  const size_t row_bytes =
      static_cast<size_t>(static_cast<uint32_t>(whole_rows ? stride : width));
  std::fwrite(data, 1, rows * row_bytes, file);
  std::fclose(file);
  log_line(kTagInfo, "save_to_file X\n");
  return 1;
}

extern "C" void dumpYUV(const uint8_t *data, uint32_t size, const char *path) {
  std::FILE *file = qlis::open_file(path, "wb");
  if (file == nullptr) return;
  std::fwrite(data, size, 1, file);
  std::fclose(file);
}
