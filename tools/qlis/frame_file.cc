#include "frame_file.h"

#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <cstdio>
#include <cstring>
#include <memory>
#include <string>

#include "tool_error.h"

namespace qlis::tool {
namespace {

// Four pixels in five bytes.
constexpr int64_t kRaw10GroupBytes = 5;
constexpr int64_t kRaw10GroupPixels = 4;
constexpr int64_t kYuyvBytesPerPixel = 2;
// Below this the library's luminance divides by zero.
constexpr int64_t kMinPixels = 16;

std::string geometry_text(const FrameDesc &d) {
  return std::to_string(d.width) + "x" + std::to_string(d.height) +
         ", stride " + std::to_string(d.stride);
}

// The smallest stride that holds one row of the frame.
int64_t min_stride(const FrameDesc &d) {
  switch (d.format) {
    case kFormatRaw10:
      return kRaw10GroupBytes * (d.width / kRaw10GroupPixels);
    case kFormatYuyv:
      return kYuyvBytesPerPixel * d.width;
    default:
      return d.width;
  }
}

struct FileCloser {
  void operator()(std::FILE *f) const { std::fclose(f); }
};

}  // namespace

bool is_known_format(int32_t format) {
  return format == kFormatRaw10 || format == kFormatYuv10 ||
         format == kFormatYuv13 || format == kFormatYuyv;
}

const char *format_name(int32_t format) {
  switch (format) {
    case kFormatRaw10:
      return "raw10";
    case kFormatYuv10:
      return "yuv10";
    case kFormatYuv13:
      return "yuv13";
    case kFormatYuyv:
      return "yuyv";
    default:
      return "unknown";
  }
}

int32_t parse_format(std::string_view text) {
  if (text == "yuv") return kFormatYuv13;
  for (int32_t code : {kFormatRaw10, kFormatYuv10, kFormatYuv13, kFormatYuyv}) {
    if (text == format_name(code)) return code;
  }
  int32_t code = 0;
  const auto [end, ec] =
      std::from_chars(text.data(), text.data() + text.size(), code);
  if (ec == std::errc() && end == text.data() + text.size() &&
      is_known_format(code)) {
    return code;
  }
  throw ToolError(
      "unknown format \"" + std::string(text) +
      "\": use raw10 (15), yuv10 (10), yuv13 or yuv (13), or yuyv (20)");
}

uint64_t plane_bytes(const FrameDesc &d) {
  if (d.height <= 0 || d.stride <= 0) return 0;
  return static_cast<uint64_t>(d.height) * static_cast<uint64_t>(d.stride);
}

uint64_t frame_bytes(const FrameDesc &d) {
  const uint64_t plane = plane_bytes(d);
  if (d.format != kFormatYuv10 && d.format != kFormatYuv13) return plane;
  const uint64_t chroma_rows = (static_cast<uint64_t>(d.height) + 1) / 2;
  return plane + chroma_rows * static_cast<uint64_t>(d.stride);
}

void validate_frame(const FrameDesc &d) {
  if (d.width <= 0 || d.height <= 0 || d.stride <= 0) {
    throw ToolError("frame geometry " + geometry_text(d) +
                    " is invalid: width, height and " +
                    "stride must be positive");
  }
  if (!is_known_format(d.format)) {
    throw ToolError("unknown format code " + std::to_string(d.format) +
                    ": use 15 (raw10), 10 or 13 (yuv) or 20 (yuyv)");
  }
  if (d.format == kFormatRaw10 && d.width % kRaw10GroupPixels != 0) {
    throw ToolError("a raw10 frame's width must be a multiple of 4 (four pixels pack into "
                    "five bytes), not " + std::to_string(d.width));
  }
  if (static_cast<int64_t>(d.width) * d.height < kMinPixels) {
    throw ToolError("a frame of " + std::to_string(d.width) + "x" + std::to_string(d.height) +
                    " is too small: the library takes frames of at least " +
                    std::to_string(kMinPixels) + " pixels");
  }
  const int64_t needed = min_stride(d);
  if (d.stride < needed) {
    throw ToolError(
        "stride " + std::to_string(d.stride) + " is too small for a " +
        format_name(d.format) + " row of " + std::to_string(d.width) +
        " pixels, which needs " + std::to_string(needed) + " bytes");
  }
  if (plane_bytes(d) > kImageBufferBytes) {
    throw ToolError("a " + geometry_text(d) + " frame needs " +
                    std::to_string(plane_bytes(d)) +
                    " bytes, more than the library's " +
                    std::to_string(kImageBufferBytes) + "-byte image buffer");
  }
}

LoadedFrame load_frame(const std::string &path, const FrameDesc &desc) {
  validate_frame(desc);
  std::unique_ptr<std::FILE, FileCloser> file(std::fopen(path.c_str(), "rb"));
  if (!file)
    throw ToolError("cannot open " + path + ": " + std::strerror(errno));
  struct stat info {};
  if (fstat(fileno(file.get()), &info) != 0) {
    throw ToolError("cannot read " + path + ": " + std::strerror(errno));
  }
  if (!S_ISREG(info.st_mode)) throw ToolError(path + " is not a regular file");
  const uint64_t size = static_cast<uint64_t>(info.st_size);
  if (size < plane_bytes(desc)) {
    throw ToolError(
        path + " holds " + std::to_string(size) + " bytes, fewer than the " +
        std::to_string(plane_bytes(desc)) + " (height x stride) of a " +
        format_name(desc.format) + " frame " + geometry_text(desc));
  }
  const uint64_t wanted = std::min(size, frame_bytes(desc));
  if (wanted > kImageBufferBytes) {
    throw ToolError(path + ": a " + geometry_text(desc) +
                    " frame with its chroma needs " + std::to_string(wanted) +
                    " bytes, more than the library's " +
                    std::to_string(kImageBufferBytes) + "-byte image buffer");
  }
  LoadedFrame frame{desc, path,
                    std::vector<uint8_t>(static_cast<size_t>(wanted))};
  if (std::fread(frame.bytes.data(), 1, frame.bytes.size(), file.get()) !=
      frame.bytes.size()) {
    throw ToolError("cannot read " + path + ": " +
                    (std::ferror(file.get()) ? std::strerror(errno)
                                             : "file shrank while read"));
  }
  return frame;
}

}  // namespace qlis::tool
