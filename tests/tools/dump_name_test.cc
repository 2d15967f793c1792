#include "dump_name.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdio>
#include <random>
#include <string>
#include <vector>

#include "ql_is/ql_is.h"
#include "support/host_hooks.h"
#include "tool_error.h"

namespace {

using qlis::tool::DumpKind;
using qlis::tool::DumpName;
using qlis::tool::parse_dump_name;

constexpr const char *kTime = "20240102-09-05-03-007";
constexpr int64_t kTimeKey = 20240102090503007;

struct NameCase {
  std::string name;
  DumpKind kind;
  int32_t width, height, stride, format;
  int32_t index, result, replace_id;
};

std::string printed(const char *format, int a, int b, int c, int d = 0,
                    int e = 0) {
  char text[256];
  std::snprintf(text, sizeof text, format, kTime, a, b, c, d, e);
  return text;
}

// Names built with the very patterns the capture and worker paths print.
std::vector<NameCase> qlas_names() {
  return {
      {printed("%s_qlas_prv_%d_%dx%d.raw", 2000, 1600, 1200),
       DumpKind::kPreview, 1600, 1200, 2000, 15, -1, 0, -1},
      // A stride that cannot hold a packed row: a luma plane.
      {printed("%s_qlas_prv_%d_%dx%d.raw", 1664, 1600, 1200),
       DumpKind::kPreview, 1600, 1200, 1664, 13, -1, 0, -1},
      {printed("%s_qlas_cap_inbase_%d_%dx%d.raw", 5000, 4000, 3000),
       DumpKind::kCaptureBase, 4000, 3000, 5000, 15, -1, 0, -1},
      {printed("%s_qlas_cap_input_%d_%dx%d.raw", 5000, 4000, 3000),
       DumpKind::kCaptureInput, 4000, 3000, 5000, 15, -1, 0, -1},
      {printed("%s_qlas_cap_input%2d_%d_%dx%d.raw", 3, 5000, 4000, 3000),
       DumpKind::kBurstInput, 4000, 3000, 5000, 15, 3, 0, -1},
      {printed("%s_qlas_cap_output%d_%d_%dx%d.raw", 3, 5000, 4000, 3000),
       DumpKind::kCaptureOutput, 4000, 3000, 5000, 15, -1, 3, -1},
      {printed("%s_qlas_cap_output%d_%d_%dx%d.raw", -1, 5000, 4000, 3000),
       DumpKind::kCaptureOutput, 4000, 3000, 5000, 15, -1, -1, -1},
      {printed("%s_qlas_cap_output%2d%2d_%d_%dx%d.raw", 2, 5, 5000, 4000, 3000),
       DumpKind::kBurstOutput, 4000, 3000, 5000, 15, -1, 2, 5},
      {printed("%s_qlas_cap_output%2d%2d_%d_%dx%d.raw", -1, 0, 5000, 4000,
               3000),
       DumpKind::kBurstOutput, 4000, 3000, 5000, 15, -1, -1, 0},
  };
}

void expect_fields(const NameCase &c, const DumpName &d) {
  EXPECT_EQ(d.kind, c.kind);
  EXPECT_EQ(d.frame.width, c.width);
  EXPECT_EQ(d.frame.height, c.height);
  EXPECT_EQ(d.frame.stride, c.stride);
  EXPECT_EQ(d.frame.format, c.format);
  EXPECT_EQ(d.index, c.index);
  EXPECT_EQ(d.result, c.result);
  EXPECT_EQ(d.replace_id, c.replace_id);
}

TEST(DumpName, ReadsEveryTimeStampedPattern) {
  for (const NameCase &c : qlas_names()) {
    SCOPED_TRACE(c.name);
    const auto parsed = parse_dump_name("/sdcard/" + c.name);
    ASSERT_TRUE(parsed.has_value());
    expect_fields(c, *parsed);
    EXPECT_FALSE(parsed->format_in_name);
    EXPECT_EQ(parsed->file, c.name);
    EXPECT_EQ(parsed->time, kTime);
    EXPECT_EQ(parsed->time_key, kTimeKey);
  }
}

TEST(DumpName, ReadsTheNamesSaveToFileWrites) {
  qlis::test::ScopedFsRoot root;
  root.make_dirs("/sdcard/DCIM/qlfd");
  root.make_dirs("/data/misc/camera/qlas");
  const std::vector<uint8_t> frame(20 * 6);
  ASSERT_EQ(1, save_to_file(frame.data(), 6, 16, 20, 15, 7));
  ASSERT_EQ(1, save_to_file(frame.data(), 6, 16, 20, 13, 12));
  ASSERT_EQ(1, save_to_file(frame.data(), 6, 20, 20, 10, 1999));
  const std::vector<NameCase> expected = {
      {"", DumpKind::kSaved, 20, 6, 20, 10, 1999, 0, -1},
      {"", DumpKind::kSaved, 16, 6, 20, 13, 12, 0, -1},
      {"", DumpKind::kSaved, 16, 6, 20, 15, 7, 0, -1},
  };
  const std::vector<std::string> files = root.files();
  ASSERT_EQ(files.size(), expected.size());
  for (size_t i = 0; i < files.size(); ++i) {
    SCOPED_TRACE(files[i]);
    const auto parsed = parse_dump_name(files[i]);
    ASSERT_TRUE(parsed.has_value());
    expect_fields(expected[i], *parsed);
    EXPECT_TRUE(parsed->format_in_name);
    EXPECT_EQ(parsed->time_key, -1);
  }
  // The one-digit index really carries printf's blank.
  EXPECT_NE(files[2].find("_index 7.yuv"), std::string::npos);
}

TEST(DumpName, ReadsTheTimeThatGetNowTimePrints) {
  char stamp[64] = {};
  ASSERT_EQ(21, getNowTime(stamp));
  const auto parsed =
      parse_dump_name(std::string(stamp) + "_qlas_prv_20_16x6.raw");
  ASSERT_TRUE(parsed.has_value());
  EXPECT_EQ(parsed->time, stamp);
  std::string digits(stamp);
  digits.erase(std::remove(digits.begin(), digits.end(), '-'), digits.end());
  EXPECT_EQ(parsed->time_key, std::stoll(digits));
}

TEST(DumpName, RejectsDumpLikeNamesThatDoNotParse) {
  const std::string t = kTime;
  for (const std::string &name : std::vector<std::string>{
           t + "_qlas_prv_2000_1600x.raw",
           t + "_qlas_prv_2000_1600x1200.yuv",
           t + "_qlas_prv_20001600x1200.raw",
           "20240102-09-05-03_qlas_prv_2000_1600x1200.raw",
           "20241302-09-05-03-007_qlas_prv_2000_1600x1200.raw",
           "2024010a-09-05-03-007_qlas_prv_2000_1600x1200.raw",
           t + "_qlas_prv_99999999999_1600x1200.raw",
           t + "_qlas_prv_2147483648_1600x1200.raw",
           t + "_qlas_prv_02000_1600x1200.raw",
           t + "_qlas_prv_+2000_1600x1200.raw",
           t + "_qlas_preview_2000_1600x1200.raw",
           t + "_qlas_cap_input7_5000_4000x3000.raw",
           t + "_qlas_cap_output 2 _5000_4000x3000.raw",
           t + "_qlas_cap_output2x_5000_4000x3000.raw",
           "4000X3000_stride5000_fmt15_index7.yuv",
           "4000X3000_stride5000_fmt15_index  7.yuv",
           "4000X3000_stride5000_fmt15.yuv",
           "4000X3000_stride5000_fmt15_index 7.raw",
           "4000X3000_stride5000_fmtX_index 7.yuv",
           "4000X3000_stride4294967296_fmt15_index 7.yuv",
       }) {
    SCOPED_TRACE(name);
    try {
      parse_dump_name(name);
      ADD_FAILURE() << "accepted";
    } catch (const qlis::tool::ToolError &e) {
      const std::string message = e.what();
      EXPECT_NE(message.find("\"" + name + "\" looks like a dump"),
                std::string::npos)
          << message;
      EXPECT_EQ(message.find('\n'), std::string::npos);
    }
  }
}

TEST(DumpName, OtherNamesAreNotDumps) {
  for (const char *name :
       {"frame.raw", "/data/burst/IMG_0001.png", "1600x1200.raw",
        "4000X3000.yuv", "4000X3000_frame.yuv", "x4000X3000_stride5000.yuv",
        "qlas_prv_2000_1600x1200.raw", ""}) {
    SCOPED_TRACE(name);
    EXPECT_FALSE(parse_dump_name(name).has_value());
  }
}

TEST(DumpName, OrdersByTimeThenCaptureStepThenIndexWithSavedDumpsLast) {
  const std::vector<std::string> expected = {
      "20240102-09-05-02-999_qlas_prv_20_16x6.raw",
      "20240102-09-05-03-007_qlas_cap_inbase_20_16x6.raw",
      "20240102-09-05-03-007_qlas_cap_input 0_20_16x6.raw",
      "20240102-09-05-03-007_qlas_cap_input 1_20_16x6.raw",
      "20240102-09-05-03-007_qlas_cap_output 1 0_20_16x6.raw",
      "20240102-09-05-03-008_qlas_cap_input 2_20_16x6.raw",
      "20240102-10-00-00-000_qlas_prv_20_16x6.raw",
      "20241231-00-00-00-000_qlas_prv_20_16x6.raw",
      "16X6_stride20_fmt15_index 2.yuv",
      "16X6_stride20_fmt15_index 9.yuv",
      "16X6_stride20_fmt15_index10.yuv",
      "16X6_stride20_fmt15_index100.yuv",
  };
  std::vector<DumpName> names;
  for (const std::string &n : expected) names.push_back(*parse_dump_name(n));
  std::mt19937 engine(7);
  for (int round = 0; round < 5; ++round) {
    std::shuffle(names.begin(), names.end(), engine);
    std::sort(names.begin(), names.end(), qlis::tool::dump_order_less);
    std::vector<std::string> sorted;
    for (const DumpName &d : names) sorted.push_back(d.file);
    EXPECT_EQ(sorted, expected);
  }
}

}  // namespace
