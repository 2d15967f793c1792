// Frames as files and the synthetic camera that makes them: the library's
// dump names read back, raw frames loaded, the RAW10 packing, the sensor
// model and reproducible draws.
#include <algorithm>

#include "dump_name.h"
#include "replay_inputs.h"
#include "tool_test.h"

namespace {

using namespace qlis::tool;
using qlis::test::ScopedFsRoot;

// kind width x height stride format index result replace_id
std::string fields(const DumpName &d) {
  char text[96];
  std::snprintf(text, sizeof text, "%d %dx%d %d %d %d %d %d", static_cast<int>(d.kind), d.frame.width,
                d.frame.height, d.frame.stride, d.frame.format, d.index, d.result, d.replace_id);
  return text;
}

TEST(DumpName, ReadsEveryPatternTheLibraryPrints) {
  // As the capture and worker paths print them: "%2d" fields keep printf's blank.
  const std::pair<std::string, std::string> cases[] = {
      {"prv_2000_1600x1200.raw", "0 1600x1200 2000 15 -1 0 -1"},
      {"prv_1664_1600x1200.raw", "0 1600x1200 1664 13 -1 0 -1"},  // too narrow for RAW10: a luma plane
      {"cap_inbase_5000_4000x3000.raw", "2 4000x3000 5000 15 -1 0 -1"},
      {"cap_input_5000_4000x3000.raw", "3 4000x3000 5000 15 -1 0 -1"},
      {"cap_input 3_5000_4000x3000.raw", "4 4000x3000 5000 15 3 0 -1"},
      {"cap_output3_5000_4000x3000.raw", "5 4000x3000 5000 15 -1 3 -1"},
      {"cap_output-1_5000_4000x3000.raw", "5 4000x3000 5000 15 -1 -1 -1"},
      {"cap_output 2 5_5000_4000x3000.raw", "6 4000x3000 5000 15 -1 2 5"},
      {"cap_output-1 0_5000_4000x3000.raw", "6 4000x3000 5000 15 -1 -1 0"}};
  for (const auto &[tail, expected] : cases) {
    const std::string file = "20240102-09-05-03-007_qlas_" + tail;
    const auto d = parse_dump_name("/sdcard/" + file);
    ASSERT_TRUE(d.has_value()) << file;
    EXPECT_EQ(fields(*d), expected) << file;
    EXPECT_EQ(d->file + " " + d->time + " " + std::to_string(d->time_key) + std::to_string(d->format_in_name),
              file + " 20240102-09-05-03-007 202401020905030070");
  }
  // The names save_to_file writes.
  ScopedFsRoot root;
  root.make_dirs("/sdcard/DCIM/qlfd");
  root.make_dirs("/data/misc/camera/qlas");
  const std::vector<uint8_t> frame(20 * 6);
  ASSERT_EQ(1, save_to_file(frame.data(), 6, 20, 20, 10, 1999));
  ASSERT_EQ(1, save_to_file(frame.data(), 6, 16, 20, 15, 7));
  const std::vector<std::string> files = root.files();
  ASSERT_EQ(files.size(), 2u);
  EXPECT_EQ(fields(*parse_dump_name(files[0])), "1 20x6 20 10 1999 0 -1");
  EXPECT_EQ(fields(*parse_dump_name(files[1])), "1 16x6 20 15 7 0 -1");
  EXPECT_EQ(std::to_string(parse_dump_name(files[1])->time_key) + parse_dump_name(files[1])->time, "-1");
}

TEST(DumpName, RefusesDumpLikeNamesThatDoNotParseAndIgnoresOthers) {
  const std::string t = "20240102-09-05-03-007_qlas_", p = "_qlas_prv_2_1x1.raw", s = "4000X3000_stride5000_fmt";
  for (const std::string &name : std::vector<std::string>{
           t + "prv_2000_1600x.raw", t + "prv_2000_1600x1200.yuv", t + "prv_20001600x1200.raw",
           "20240102-09-05-03" + p, "20241302-09-05-03-007" + p, "20240100-09-05-03-007" + p,
           "20240132-09-05-03-007" + p, "20240102-24-05-03-007" + p, "20240102-09-60-03-007" + p,
           "20240102-09-05-61-007" + p, "2024010a-09-05-03-007" + p, t + "prv_99999999999_1600x1200.raw",
           t + "prv_2147483648_1600x1200.raw", t + "prv_02000_1600x1200.raw", t + "prv_+2000_1600x1200.raw",
           t + "preview_2000_1600x1200.raw", t + "cap_input7_5000_4000x3000.raw",
           t + "cap_output 2 _5000_4000x3000.raw", t + "cap_output2x_5000_4000x3000.raw",
           s + "15_index7.yuv", s + "15_index  7.yuv", s + "15.yuv", s + "15_index 7.raw", s + "X_index 7.yuv",
           "4000X3000_stride4294967296_fmt15_index 7.yuv"}) {
    try {
      parse_dump_name(name);
      ADD_FAILURE() << name << " accepted";
    } catch (const ToolError &e) {
      EXPECT_NE(std::string(e.what()).find("\"" + name + "\" looks like a dump"), std::string::npos) << e.what();
    }
  }
  for (const char *name : {"frame.raw", "/data/burst/IMG_0001.png", "1600x1200.raw", "4000X3000.yuv",
                           "4000X3000_frame.yuv", "x4000X3000_stride5000.yuv", "X3000_stride5000.yuv",
                           "4000X_stride5000.yuv", "qlas_prv_2000_1600x1200.raw", "12345", ""})
    EXPECT_FALSE(parse_dump_name(name).has_value()) << name;
}

TEST(DumpName, OrdersByTimeThenCaptureStepThenIndexWithSavedDumpsLast) {
  const std::string t = "20240102-09-05-03-007_qlas_cap_", end = "_20_16x6.raw", saved = "16X6_stride20_fmt15_index";
  const std::vector<std::string> expected = {
      "20240102-09-05-02-999_qlas_prv" + end, t + "inbase" + end, t + "input 0" + end, t + "input 1" + end,
      t + "output 1 0" + end, "20240102-09-05-03-008_qlas_cap_input 2" + end, "20240102-10-00-00-000_qlas_prv" + end,
      "20241231-23-59-60-999_qlas_prv" + end, saved + " 2.yuv", saved + " 9.yuv", saved + "10.yuv", saved + "100.yuv"};
  std::vector<DumpName> names;
  for (const std::string &n : expected) names.push_back(*parse_dump_name(n));
  std::shuffle(names.begin(), names.end(), std::mt19937(7));
  std::sort(names.begin(), names.end(), dump_order_less);
  std::vector<std::string> sorted;
  for (const DumpName &d : names) sorted.push_back(d.file);
  EXPECT_EQ(sorted, expected);
}

TEST(FrameFile, LoadsThePlaneAndWhateverChromaTheFileHolds) {
  ScopedFsRoot dir;
  const std::string path = dir.path() + "/frame.raw";
  // A plane of 100 bytes and 3 rows of chroma: whatever of them the file holds.
  std::vector<uint8_t> bytes(175);
  for (size_t i = 0; i < bytes.size(); ++i) bytes[i] = static_cast<uint8_t>(i * 7 + 3);
  qlis::test::write_bytes(path, bytes);
  EXPECT_EQ(load_frame(path, {13, 16, 5, 20}).bytes, std::vector<uint8_t>(bytes.begin(), bytes.begin() + 160));
  qlis::test::write_bytes(path, std::vector<uint8_t>(bytes.begin(), bytes.begin() + 130));
  EXPECT_EQ(load_frame(path, {13, 16, 5, 20}).bytes, std::vector<uint8_t>(bytes.begin(), bytes.begin() + 130));
  // RAW10 and YUYV frames are one plane: trailing bytes are not part of it.
  EXPECT_EQ(load_frame(path, {15, 16, 4, 20}).bytes.size() + load_frame(path, {20, 10, 2, 40}).bytes.size(), 160u);
  // Exactly the image buffer fits, as a plane and with its chroma.
  EXPECT_NO_THROW(validate_frame({15, 8000, 3200, 10000}));
  const std::string full = dir.path() + "/1000X21333_stride1000_fmt13_index 1.yuv";
  std::ofstream(full, std::ios::binary).put('\0');
  std::filesystem::resize_file(full, 32'000'000);  // sparse: no disk used
  EXPECT_NO_THROW(resolve_single_input(full, {}));
}

TEST(Raw10Packing, PutsPixelThreesHighBitsInByteFourAndRoundTrips) {
  const uint16_t group[4] = {1, 2, 3, 0xFFFF};  // bits above the tenth are not stored
  uint8_t packed[5] = {};
  pack_raw10(group, 1, packed);
  EXPECT_EQ(std::vector<uint8_t>(packed, packed + 5), (std::vector<uint8_t>{0xF9, 0, 0, 0, 0xFF}));
  uint16_t back[8] = {7, 7, 7, 7, 7, 7, 7, 7};
  unpack_raw10(packed, 1, back);  // one group: nothing after its four pixels
  EXPECT_EQ(std::vector<uint16_t>(back, back + 8), (std::vector<uint16_t>{1, 2, 3, 1023, 7, 7, 7, 7}));
}

SynthParams small(int32_t format, uint64_t seed, double max_blur = 12.0) {
  SynthParams p;
  p.width = 160, p.height = 120, p.frames = 3, p.format = format, p.seed = seed, p.max_blur_px = max_blur;
  return p;
}

const RgbImage grey128{8, 6, std::vector<uint8_t>(8 * 6 * 3, 128)};

// The frame's codes: its rows follow one another without padding.
std::vector<uint16_t> unpacked(const SynthFrame &f) {
  std::vector<uint16_t> pixels(f.bytes.size() / 5 * 4);
  unpack_raw10(f.bytes.data(), f.bytes.size() / 5, pixels.data());
  return pixels;
}

TEST(Synth, SensorModelMosaicAndDevelopmentWithoutNoiseOrShake) {
  SynthParams p = small(15, 1, 0.0);
  p.sensor.read_noise_dn = 0.0;
  p.sensor.full_well_electrons = 1e30;
  // sRGB 128 is linear 0.21586; black 64 + 0.21586 * (1023 - 64) = 271.0.
  for (const SynthFrame &f : synthesize(grey128, p)) EXPECT_EQ(unpacked(f), std::vector<uint16_t>(160 * 120, 271));
  RgbImage red = grey128;
  for (size_t i = 0; i < red.rgb.size(); ++i) red.rgb[i] = i % 3 == 0 ? 255 : 0;
  const std::vector<uint16_t> rggb = unpacked(synthesize(red, p).front());
  EXPECT_EQ(std::vector<uint16_t>({rggb[0], rggb[1], rggb[160], rggb[161]}), std::vector<uint16_t>({1023, 64, 64, 64}));
  // Developed, that grey comes back as 128 in every luma and chroma byte.
  for (int32_t format : {13, 20}) {
    p.format = format;
    const SynthFrame f = synthesize(grey128, p).front();
    EXPECT_EQ(f.bytes, std::vector<uint8_t>(frame_bytes(f.desc), 128)) << format;
  }
}

// Recorded streams must come out again byte for byte, on every platform
// and in every version: the draws of one seed are pinned.
TEST(Synth, SameSeedSameStream) {
  const std::vector<FrameTruth> plan = plan_frames(small(15, 3));
  EXPECT_EQ(std::make_pair(plan[0].blur_length_px, plan[2].blur_angle_deg), std::make_pair(0.2, 159.0));
  EXPECT_EQ(std::make_pair(plan[2].shift_x, plan[2].shift_y), std::make_pair(-4, -1));
  EXPECT_EQ(plan[2].noise_sigma_dn, 6.61);
  const std::vector<uint16_t> px = unpacked(synthesize(grey128, small(15, 3, 0.0)).front());
  EXPECT_EQ(std::vector<uint16_t>(px.begin(), px.begin() + 8),
            (std::vector<uint16_t>{266, 276, 276, 280, 267, 263, 272, 268}));
  // YUV and YUYV carry the same luma, each at its own places.
  const SynthFrame yuv = synthesize(qlis::test::coffee(), small(13, 9)).front();
  const SynthFrame yuyv = synthesize(qlis::test::coffee(), small(20, 9)).front();
  for (size_t i = 0; i < 160 * 120; ++i) ASSERT_EQ(yuv.bytes[i], yuyv.bytes[2 * i]) << i;
}

}  // namespace
