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

std::vector<uint8_t> pattern(size_t n) {
  std::vector<uint8_t> v(n);
  for (size_t i = 0; i < n; ++i) v[i] = static_cast<uint8_t>(i * 31 + 7);
  return v;
}

// Padded formats (13, 15) are written with their padding, height x stride
// bytes; the others height x width. Format 10 goes to the camera's data
// folder; a one-digit index gets printf's leading blank.
TEST(SaveToFile, WritesEachFormatWhereAndAsItsNameSays) {
  ScopedFsRoot root;
  root.make_dirs("/sdcard/DCIM/qlfd");
  root.make_dirs("/data/misc/camera/qlas");
  const auto frame = pattern(6 * 20);
  const std::vector<uint8_t> rows(frame.begin(), frame.begin() + 6 * 16);
  const struct {
    int32_t format, index;
    const char *path;
    bool padded;
  } cases[] = {
      {15, 3, "/sdcard/DCIM/qlfd/16X6_stride20_fmt15_index 3.yuv", true},
      {13, 3, "/sdcard/DCIM/qlfd/16X6_stride20_fmt13_index 3.yuv", true},
      {12, 12, "/sdcard/DCIM/qlfd/16X6_stride20_fmt12_index12.yuv", false},
      {10, 1234, "/data/misc/camera/qlas/16X6_stride20_fmt10_index1234.yuv",
       false},
  };
  for (const auto &c : cases) {
    LogCapture log;
    ASSERT_EQ(1, save_to_file(frame.data(), 6, 16, 20, c.format, c.index));
    EXPECT_EQ(read_file(root.path() + c.path), c.padded ? frame : rows) << c.path;
    EXPECT_EQ(log.texts("QLIS-I"),
              (std::vector<std::string>{
                  std::string("Vrel qlis mode dump file name ") + c.path + "\n",
                  "save_to_file X\n"}));
    for (const auto &line : log.lines()) EXPECT_EQ(line.priority, 6);
  }
}

// The writer creates no folder; dumpYUV writes `size` bytes and says
// nothing when it cannot.
TEST(SaveToFile, RefusesNullDataAndReportsUnopenableFile) {
  ScopedFsRoot root;
  LogCapture log;
  EXPECT_EQ(0, save_to_file(nullptr, 2, 2, 2, 15, 1));
  const auto frame = pattern(1000);
  EXPECT_EQ(0, save_to_file(frame.data(), 2, 4, 4, 15, 1));
  dumpYUV(frame.data(), 10, "/no/such/dir/file.raw");
  EXPECT_TRUE(root.files().empty());
  EXPECT_EQ(log.texts("QLIS-E"),
            (std::vector<std::string>{
                "data addr is null\n",
                "can not open file: /sdcard/DCIM/qlfd/4X2_stride4_fmt15_index 1.yuv\n"}));
  EXPECT_EQ(log.lines().size(), 3u);
  root.make_dirs("/sdcard");
  dumpYUV(frame.data(), 999, "/sdcard/x_qlas_prv_5_4x3.raw");
  EXPECT_EQ(read_file(root.path() + "/sdcard/x_qlas_prv_5_4x3.raw"),
            std::vector<uint8_t>(frame.begin(), frame.begin() + 999));
}

}  // namespace
