#include <gtest/gtest.h>

#include <fstream>
#include <iterator>
#include <vector>

#include "ql_is/ql_is.h"
#include "support/host_hooks.h"

namespace {

using qlis::test::LogCapture;
using qlis::test::ScopedFsRoot;

std::vector<uint8_t> read_file(const std::string &path) {
  std::ifstream in(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
}

// The writer creates no folder: before the folders exist every write is
// refused (0) and logged, except dumpYUV's, which says nothing. Then the
// padded formats (13, 15) are written with their padding, height x stride
// bytes, the others height x width; format 10 goes to the camera's data
// folder; a one-digit index gets printf's leading blank.
TEST(SaveToFile, WritesEachFormatWhereAndAsItsNameSaysOnceTheFolderExists) {
  ScopedFsRoot root;
  std::vector<uint8_t> frame(6 * 20);
  for (size_t i = 0; i < frame.size(); ++i) frame[i] = static_cast<uint8_t>(i * 31 + 7);
  {
    LogCapture log;
    EXPECT_EQ(0, save_to_file(nullptr, 2, 2, 2, 15, 1));
    EXPECT_EQ(0, save_to_file(frame.data(), 2, 4, 4, 15, 1));
    dumpYUV(frame.data(), 10, "/no/such/dir/file.raw");
    EXPECT_TRUE(root.files().empty());
    EXPECT_EQ(log.texts("QLIS-E"),
              (std::vector<std::string>{
                  "data addr is null\n",
                  "can not open file: /sdcard/DCIM/qlfd/4X2_stride4_fmt15_index 1.yuv\n"}));
    EXPECT_EQ(log.lines().size(), 3u);
  }
  root.make_dirs("/sdcard/DCIM/qlfd");
  root.make_dirs("/data/misc/camera/qlas");
  dumpYUV(frame.data(), 99, "/sdcard/x_qlas_prv_5_4x3.raw");
  EXPECT_EQ(read_file(root.path() + "/sdcard/x_qlas_prv_5_4x3.raw"),
            std::vector<uint8_t>(frame.begin(), frame.begin() + 99));
  const std::vector<uint8_t> rows(frame.begin(), frame.begin() + 6 * 16);
  const struct {
    int32_t format, index;
    const char *path;
  } cases[] = {
      {15, 3, "/sdcard/DCIM/qlfd/16X6_stride20_fmt15_index 3.yuv"},
      {13, 3, "/sdcard/DCIM/qlfd/16X6_stride20_fmt13_index 3.yuv"},
      {12, 12, "/sdcard/DCIM/qlfd/16X6_stride20_fmt12_index12.yuv"},
      {10, 1234, "/data/misc/camera/qlas/16X6_stride20_fmt10_index1234.yuv"},
  };
  for (const auto &c : cases) {
    LogCapture log;
    ASSERT_EQ(1, save_to_file(frame.data(), 6, 16, 20, c.format, c.index));
    EXPECT_EQ(read_file(root.path() + c.path), c.format >= 13 ? frame : rows) << c.path;
    EXPECT_EQ(log.texts("QLIS-I"),
              (std::vector<std::string>{
                  std::string("Vrel qlis mode dump file name ") + c.path + "\n",
                  "save_to_file X\n"}));
  }
}

}  // namespace
