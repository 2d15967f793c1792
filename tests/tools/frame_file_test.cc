#include "frame_file.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include "support/host_hooks.h"
#include "tool_error.h"

namespace {

using qlis::tool::FrameDesc;
using qlis::tool::load_frame;
using qlis::tool::ToolError;

std::vector<uint8_t> counting(size_t n) {
  std::vector<uint8_t> v(n);
  for (size_t i = 0; i < n; ++i) v[i] = static_cast<uint8_t>(i * 7 + 3);
  return v;
}

void write_bytes(const std::string &path, const std::vector<uint8_t> &bytes) {
  std::ofstream(path, std::ios::binary)
      .write(reinterpret_cast<const char *>(bytes.data()),
             static_cast<std::streamsize>(bytes.size()));
}

std::string error_of(const std::string &path, const FrameDesc &desc) {
  try {
    load_frame(path, desc);
  } catch (const ToolError &e) {
    return e.what();
  }
  return "(accepted)";
}

struct Refusal {
  const char *what;
  FrameDesc desc;
  uint64_t file_bytes;  // 0: no file at all
  const char *message;  // a part of the one-line message
};

TEST(FrameFile, RefusesWhatTheLibraryCouldNotTakeWithOneClearLine) {
  const Refusal refusals[] = {
      {"zero width",
       {15, 0, 4, 20},
       80,
       "width, height and stride must be positive"},
      {"negative stride", {13, 16, 4, -16}, 80, "must be positive"},
      {"unknown code", {12, 16, 4, 20}, 80, "unknown format code 12"},
      {"raw10 stride",
       {15, 16, 4, 19},
       80,
       "stride 19 is too small for a raw10 row of 16 pixels, which needs 20 "
       "bytes"},
      {"yuv stride", {13, 16, 4, 15}, 80, "needs 16 bytes"},
      {"yuyv stride", {20, 16, 4, 31}, 128, "needs 32 bytes"},
      {"plane too large",
       {15, 8000, 3201, 10000},
       1,
       "needs 32010000 bytes, more than the library's 32000000-byte image "
       "buffer"},
      {"short file",
       {15, 16, 4, 20},
       79,
       "holds 79 bytes, fewer than the 80 (height x stride)"},
      {"missing file", {15, 16, 4, 20}, 0, "cannot open"},
      // 24,000,000 bytes of luma fit, with the chroma they do not.
      {"yuv with chroma too large",
       {13, 6000, 4000, 6000},
       36'000'000,
       "with its chroma needs 36000000 bytes"},
  };
  qlis::test::ScopedFsRoot dir;
  for (const Refusal &r : refusals) {
    SCOPED_TRACE(r.what);
    const std::string path = dir.path() + "/frame.raw";
    std::filesystem::remove(path);
    if (r.file_bytes != 0) {
      std::ofstream(path, std::ios::binary).put('\0');
      std::filesystem::resize_file(path, r.file_bytes);  // sparse: no disk used
    }
    const std::string message = error_of(path, r.desc);
    EXPECT_NE(message.find(r.message), std::string::npos) << message;
    EXPECT_EQ(message.find('\n'), std::string::npos) << message;
  }
  EXPECT_NE(error_of(dir.path(), {15, 16, 4, 20}).find("is not a regular file"),
            std::string::npos);
}

TEST(FrameFile, LoadsThePlaneAndWhateverChromaTheFileHolds) {
  qlis::test::ScopedFsRoot dir;
  const std::string path = dir.path() + "/frame.raw";
  const FrameDesc yuv{13, 16, 5, 20};  // plane 100 bytes, chroma 3 rows of 20
  struct Case {
    size_t file_bytes, loaded;
  } cases[] = {{100, 100}, {130, 130}, {160, 160}, {175, 160}};
  for (const Case &c : cases) {
    SCOPED_TRACE(c.file_bytes);
    const std::vector<uint8_t> bytes = counting(c.file_bytes);
    write_bytes(path, bytes);
    const qlis::tool::LoadedFrame frame = load_frame(path, yuv);
    EXPECT_EQ(frame.bytes,
              std::vector<uint8_t>(bytes.begin(), bytes.begin() + c.loaded));
  }
  // RAW10 and YUYV frames are one plane: trailing bytes are not part of it.
  write_bytes(path, counting(90));
  EXPECT_EQ(load_frame(path, {15, 16, 4, 20}).bytes.size(), 80u);
  EXPECT_EQ(load_frame(path, {20, 10, 2, 40}).bytes.size(), 80u);
}

TEST(FrameFile, ParsesFormatNamesAndCodes) {
  EXPECT_EQ(qlis::tool::parse_format("raw10"), 15);
  EXPECT_EQ(qlis::tool::parse_format("yuv"), 13);
  EXPECT_EQ(qlis::tool::parse_format("yuv10"), 10);
  EXPECT_EQ(qlis::tool::parse_format("yuyv"), 20);
  EXPECT_EQ(qlis::tool::parse_format("13"), 13);
  for (const char *bad : {"12", "raw", "15x", "", "99999999999"}) {
    SCOPED_TRACE(bad);
    EXPECT_THROW(qlis::tool::parse_format(bad), ToolError);
  }
}

}  // namespace
