// Frames as files: the description of a raw frame (format, geometry) and
// loading a raw file into memory, refusing with one clear message whatever
// the library could not take.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace qlis::tool {

// Format codes as a FrameParam carries them. kFormatYuyv is the tool's own
// code for interleaved 4:2:2 (Y0 Cb Y1 Cr): the library's live path rejects
// it (result 0); only its YUYV feature driver reads such frames.
inline constexpr int32_t kFormatYuv10 = 10;
inline constexpr int32_t kFormatYuv13 = 13;
inline constexpr int32_t kFormatRaw10 = 15;
inline constexpr int32_t kFormatYuyv = 20;

// The session's buffers: every frame image must fit the first, every side
// buffer the second.
inline constexpr uint64_t kImageBufferBytes = 32'000'000;
inline constexpr uint64_t kSideBufferBytes = 400'000;

struct FrameDesc {
  int32_t format = kFormatRaw10;
  int32_t width = 0;
  int32_t height = 0;
  int32_t stride = 0;  // bytes per row of the first (or only) plane
};

bool is_known_format(int32_t format);
// "raw10", "yuv10", "yuv13", "yuyv"; "unknown" otherwise.
const char *format_name(int32_t format);
// Accepts a name above, "yuv" (= 13) or a known numeric code.
int32_t parse_format(std::string_view text);

// Bytes of the first plane, height * stride: all that the library's feature
// code reads, and all that its dumps of preview frames hold.
uint64_t plane_bytes(const FrameDesc &desc);
// Bytes of the whole frame as the tool writes it: the plane, and for the
// two YUV codes (height + 1) / 2 further rows of interleaved chroma.
uint64_t frame_bytes(const FrameDesc &desc);

// Throws ToolError unless the description is one the library can take:
// positive sizes, a known format, a RAW10 width that is a multiple of 4,
// at least 16 pixels, a stride that holds a row (RAW10: 5 * (width / 4)
// bytes; YUV: width; YUYV: 2 * width) and a first plane that fits the
// image buffer.
void validate_frame(const FrameDesc &desc);

struct LoadedFrame {
  FrameDesc desc;
  std::string path;
  std::vector<uint8_t> bytes;  // image_size bytes to hand the library
};

// Reads a raw frame. The file must hold at least the first plane; YUV
// chroma after it is loaded when present (up to frame_bytes) and optional
// otherwise, since the library never reads it and its own dumps of YUV
// frames hold the luma plane only. Bytes past frame_bytes are ignored
// (replay and score refuse such files unless told they are expected).
// Throws ToolError for an invalid description, a missing, unreadable or
// short file, or an image larger than the library's image buffer.
LoadedFrame load_frame(const std::string &path, const FrameDesc &desc);

}  // namespace qlis::tool
