#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <iterator>
#include <vector>

#include "diag/dump.h"
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

TEST(SaveToFile, ComposesPathWithBlankBeforeOneDigitIndex) {
  char path[qlis::kDumpPathCapacity];
  qlis::compose_dump_path(path, 3000, 4000, 5000, 15, 7);
  EXPECT_STREQ(path, "/sdcard/DCIM/qlfd/4000X3000_stride5000_fmt15_index 7.yuv");
  qlis::compose_dump_path(path, 1080, 1920, 2048, 10, 1234);
  EXPECT_STREQ(path, "/data/misc/camera/qlas/1920X1080_stride2048_fmt10_index1234.yuv");
}

TEST(SaveToFile, WritesHeightTimesStrideForPaddedFormatsAndLogs) {
  ScopedFsRoot root;
  root.make_dirs("/sdcard/DCIM/qlfd");
  LogCapture log;
  const auto frame = pattern(6 * 20);
  for (int format : {13, 15}) {
    ASSERT_EQ(1, save_to_file(frame.data(), 6, 16, 20, format, 3));
  }
  EXPECT_EQ(read_file(root.path() + "/sdcard/DCIM/qlfd/16X6_stride20_fmt15_index 3.yuv"),
            frame);
  EXPECT_EQ(read_file(root.path() + "/sdcard/DCIM/qlfd/16X6_stride20_fmt13_index 3.yuv"),
            frame);
  const std::vector<std::string> info = log.texts("QLIS-I");
  ASSERT_EQ(info.size(), 4u);
  EXPECT_EQ(info[0],
            "Vrel qlis mode dump file name /sdcard/DCIM/qlfd/16X6_stride20_fmt13_index 3.yuv\n");
  EXPECT_EQ(info[1], "save_to_file X\n");
  for (const auto &line : log.lines()) EXPECT_EQ(line.priority, 6);
}

TEST(SaveToFile, OtherFormatsWriteHeightTimesWidthAndFormatTenGoesToCameraData) {
  ScopedFsRoot root;
  root.make_dirs("/sdcard/DCIM/qlfd");
  root.make_dirs("/data/misc/camera/qlas");
  const auto frame = pattern(6 * 20);
  ASSERT_EQ(1, save_to_file(frame.data(), 6, 16, 20, 10, 12));
  ASSERT_EQ(1, save_to_file(frame.data(), 6, 16, 20, 12, 12));
  const std::vector<uint8_t> rows(frame.begin(), frame.begin() + 6 * 16);
  EXPECT_EQ(read_file(root.path() + "/data/misc/camera/qlas/16X6_stride20_fmt10_index12.yuv"),
            rows);
  EXPECT_EQ(read_file(root.path() + "/sdcard/DCIM/qlfd/16X6_stride20_fmt12_index12.yuv"), rows);
}

TEST(SaveToFile, RefusesNullDataAndReportsUnopenableFile) {
  ScopedFsRoot root;
  LogCapture log;
  EXPECT_EQ(0, save_to_file(nullptr, 2, 2, 2, 15, 1));
  const auto frame = pattern(8);
  // The directory is not created by the writer.
  EXPECT_EQ(0, save_to_file(frame.data(), 2, 4, 4, 15, 1));
  EXPECT_TRUE(root.files().empty());
  const std::vector<std::string> errors = log.texts("QLIS-E");
  ASSERT_EQ(errors.size(), 2u);
  EXPECT_EQ(errors[0], "data addr is null\n");
  EXPECT_EQ(errors[1], "can not open file: /sdcard/DCIM/qlfd/4X2_stride4_fmt15_index 1.yuv\n");
}

TEST(DumpYuv, WritesSizeBytesAndIgnoresUnopenablePaths) {
  ScopedFsRoot root;
  root.make_dirs("/sdcard");
  const auto frame = pattern(1000);
  dumpYUV(frame.data(), 999, "/sdcard/x_qlas_prv_5_4x3.raw");
  const auto written = read_file(root.path() + "/sdcard/x_qlas_prv_5_4x3.raw");
  EXPECT_EQ(written, std::vector<uint8_t>(frame.begin(), frame.begin() + 999));
  LogCapture log;
  dumpYUV(frame.data(), 10, "/no/such/dir/file.raw");
  EXPECT_TRUE(log.lines().empty());
  EXPECT_EQ(root.files(), std::vector<std::string>{"/sdcard/x_qlas_prv_5_4x3.raw"});
}

}  // namespace
