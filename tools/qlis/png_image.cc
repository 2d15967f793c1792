#include "png_image.h"

#include <png.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <memory>

#include "tool_error.h"

namespace qlis::tool {
namespace {

// Far beyond any photograph the tool needs, small enough that the decoded
// picture always fits in memory.
constexpr uint64_t kMaxPixels = 200'000'000;

struct FileCloser {
  void operator()(std::FILE *f) const { std::fclose(f); }
};

// Frees libpng's state on every path out of the reader.
struct ImageGuard {
  png_image *image;
  ~ImageGuard() { png_image_free(image); }
};

void write_png(const std::string &path, int32_t width, int32_t height,
               const uint8_t *data, size_t row_bytes, png_uint_32 format) {
  png_image image{};
  image.version = PNG_IMAGE_VERSION;
  image.width = static_cast<png_uint_32>(width);
  image.height = static_cast<png_uint_32>(height);
  image.format = format;
  if (width <= 0 || height <= 0 ||
      png_image_write_to_file(&image, path.c_str(), 0, data,
                              static_cast<png_int_32>(row_bytes),
                              nullptr) == 0) {
    const std::string why =
        image.message[0] != '\0' ? image.message : "invalid size";
    png_image_free(&image);
    throw ToolError("cannot write " + path + ": " + why);
  }
}

}  // namespace

RgbImage read_png_rgb(const std::string &path) {
  std::unique_ptr<std::FILE, FileCloser> file(std::fopen(path.c_str(), "rb"));
  if (!file)
    throw ToolError("cannot open " + path + ": " + std::strerror(errno));
  png_image image{};
  image.version = PNG_IMAGE_VERSION;
  ImageGuard guard{&image};
  if (png_image_begin_read_from_stdio(&image, file.get()) == 0) {
    throw ToolError(path + " is not a readable PNG file (" + image.message +
                    ")");
  }
  if (static_cast<uint64_t>(image.width) * image.height > kMaxPixels) {
    throw ToolError(path + " is too large: " + std::to_string(image.width) +
                    "x" + std::to_string(image.height) + " pixels");
  }
  image.format = PNG_FORMAT_RGB;
  image.flags |= PNG_IMAGE_FLAG_16BIT_sRGB;
  RgbImage out;
  out.width = static_cast<int32_t>(image.width);
  out.height = static_cast<int32_t>(image.height);
  out.rgb.resize(PNG_IMAGE_SIZE(image));
  const png_color black{0, 0, 0};
  if (png_image_finish_read(&image, &black, out.rgb.data(), 0, nullptr) == 0) {
    throw ToolError(path + " is not a readable PNG file (" + image.message +
                    ")");
  }
  return out;
}

void write_png_gray(const std::string &path, int32_t width, int32_t height,
                    const uint8_t *data, size_t row_bytes) {
  write_png(path, width, height, data, row_bytes, PNG_FORMAT_GRAY);
}

void write_png_rgb(const std::string &path, int32_t width, int32_t height,
                   const uint8_t *data, size_t row_bytes) {
  write_png(path, width, height, data, row_bytes, PNG_FORMAT_RGB);
}

}  // namespace qlis::tool
