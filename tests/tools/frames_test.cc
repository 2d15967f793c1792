// Frames as files and the synthetic camera that makes them: the library's
// dump names read back, raw frames loaded, the RAW10 packing, the sensor
// model and reproducible draws.
#include <algorithm>
#include <random>

#include "dump_name.h"
#include "ql_is/ql_is.h"
#include "raw10_pack.h"
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

// Whatever geometry, format and counter the library dumps a frame with,
// the name it writes is the one synth writes, and it reads back as it was.
TEST(DumpName, SavedFramesReadBackAsTheLibraryWroteThem) {
  ScopedFsRoot root;
  root.make_dirs("/sdcard/DCIM/qlfd");
  root.make_dirs("/data/misc/camera/qlas");
  std::mt19937 draw(11);
  const std::vector<uint8_t> data(64 * 64);
  for (int i = 0; i < 40; ++i) {
    const int32_t formats[] = {10, 13, 15, 20}, index = static_cast<int32_t>(draw() % 2001);
    const FrameDesc d{formats[draw() % 4], int32_t(1 + draw() % 64), int32_t(1 + draw() % 64), int32_t(draw() % 64)};
    ASSERT_EQ(save_to_file(data.data(), d.height, d.width, d.stride, d.format, index), 1);
    const std::string file = root.files().at(0);
    std::filesystem::remove(root.path() + file);
    EXPECT_EQ(std::filesystem::path(file).filename(), saved_dump_name(d, index));
    const DumpName back = parse_dump_name(file).value();
    EXPECT_EQ(fields(back) + " " + std::to_string(back.format_in_name),
              fields({"", DumpKind::kSaved, d, true, "", -1, index}) + " 1");
  }
}

TEST(DumpName, ReadsTheLibrarysPatternsAndRefusesNearMisses) {
  const std::string t = "20240102-09-05-03-007_qlas_", p = "_qlas_prv_2_1x1.raw", s = "4000X3000_stride5000_fmt";
  // As the capture and worker paths print them: "%2d" fields keep printf's blank.
  const std::pair<std::string, std::string> cases[] = {
      {t + "prv_2000_1600x1200.raw", "0 1600x1200 2000 15 -1 0 -1"},
      {t + "prv_1664_1600x1200.raw", "0 1600x1200 1664 13 -1 0 -1"},  // too narrow for RAW10: a luma plane
      {t + "cap_inbase_5000_4000x3000.raw", "2 4000x3000 5000 15 -1 0 -1"},
      {t + "cap_input 3_5000_4000x3000.raw", "4 4000x3000 5000 15 3 0 -1"},
      {t + "cap_output-1_5000_4000x3000.raw", "5 4000x3000 5000 15 -1 -1 -1"},
      {t + "cap_output 2 5_5000_4000x3000.raw", "6 4000x3000 5000 15 -1 2 5"},
      {"20241302-09-05-03-007" + p, "refused"}, {"20240102-09-05-61-007" + p, "refused"},
      {t + "prv_2147483648_1600x1200.raw", "refused"}, {t + "prv_02000_1600x1200.raw", "refused"},
      {t + "cap_output 2 _5000_4000x3000.raw", "refused"}, {s + "15_index7.yuv", "refused"},
      {"4000X3000_stride4294967296_fmt15_index 7.yuv", "refused"}, {"4000X3000_frame.yuv", "none"},
      {"qlas_prv_2000_1600x1200.raw", "none"}};
  for (const auto &[name, expected] : cases) {
    std::string got;
    try {
      const std::optional<DumpName> d = parse_dump_name("/sdcard/" + name);
      got = d ? fields(*d) : "none";
    } catch (const ToolError &e) {
      got = std::string(e.what()).rfind('"' + name + "\" looks like a dump", 0) == 0 ? "refused" : e.what();
    }
    EXPECT_EQ(got, expected) << name;
  }
  const DumpName d = *parse_dump_name(t + "prv_2000_1600x1200.raw");
  EXPECT_EQ(d.time + " " + std::to_string(d.time_key) + std::to_string(d.format_in_name),
            "20240102-09-05-03-007 202401020905030070");
}

TEST(DumpName, OrdersByTimeThenCaptureStepThenIndexWithSavedDumpsLast) {
  const std::string t = "20240102-09-05-03-007_qlas_cap_", end = "_20_16x6.raw", saved = "16X6_stride20_fmt15_index";
  const std::vector<std::string> expected = {
      "20240102-09-05-02-999_qlas_prv" + end, t + "inbase" + end, t + "input 0" + end, t + "input 1" + end,
      t + "output 1 0" + end, "20240102-09-05-03-008_qlas_cap_input 2" + end, "20240102-10-00-00-000_qlas_prv" + end,
      saved + " 2.yuv", saved + " 9.yuv", saved + "10.yuv", saved + "100.yuv"};
  std::vector<std::string> sorted = expected;
  std::shuffle(sorted.begin(), sorted.end(), std::mt19937(7));
  std::sort(sorted.begin(), sorted.end(), [](const std::string &a, const std::string &b) {
    return dump_order_less(*parse_dump_name(a), *parse_dump_name(b));
  });
  EXPECT_EQ(sorted, expected);
}

// The library's own dumps of YUV frames hold the luma plane only.
TEST(FrameFile, LoadsThePlaneAndWhateverChromaTheFileHolds) {
  ScopedFsRoot dir;
  const std::string path = dir.path() + "/frame.raw";
  std::vector<uint8_t> bytes(175);  // a plane of 100 bytes, 3 rows of chroma and more
  for (size_t i = 0; i < bytes.size(); ++i) bytes[i] = static_cast<uint8_t>(i * 7 + 3);
  qlis::test::write_bytes(path, bytes);
  EXPECT_EQ(load_frame(path, {13, 16, 5, 20}).bytes, std::vector<uint8_t>(bytes.begin(), bytes.begin() + 160));
  // RAW10 and YUYV frames are one plane: trailing bytes are not part of it.
  EXPECT_EQ(load_frame(path, {15, 16, 4, 20}).bytes.size() + load_frame(path, {20, 10, 2, 40}).bytes.size(), 160u);
  qlis::test::write_bytes(path, std::vector<uint8_t>(bytes.begin(), bytes.begin() + 130));
  EXPECT_EQ(load_frame(path, {13, 16, 5, 20}).bytes, std::vector<uint8_t>(bytes.begin(), bytes.begin() + 130));
  EXPECT_NO_THROW(validate_frame({15, 8000, 3200, 10000}));  // exactly the image buffer
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

std::vector<uint16_t> unpacked(const SynthFrame &f) {
  std::vector<uint16_t> pixels(f.bytes.size() / 5 * 4);
  unpack_raw10(f.bytes.data(), f.bytes.size() / 5, pixels.data());
  return pixels;
}

// The sensor model without noise or shake. The draws of a seed are pinned
// by the tool's tests on the built-in stream, whose scores hang on every byte.
TEST(Synth, SensorModelWithoutNoiseIsPinned) {
  SynthParams p;
  p.width = 160, p.height = 120, p.frames = 1, p.max_blur_px = 0.0;
  p.sensor.read_noise_dn = 0.0;
  p.sensor.full_well_electrons = 1e30;
  RgbImage image{8, 6, std::vector<uint8_t>(8 * 6 * 3, 128)};
  // sRGB 128 is linear 0.21586; black 64 + 0.21586 * (1023 - 64) = 271.0.
  EXPECT_EQ(unpacked(synthesize(image, p).back()), std::vector<uint16_t>(160 * 120, 271));
  // Developed, that grey comes back as 128 in every luma and chroma byte.
  for (int32_t format : {13, 20}) {
    p.format = format;
    const SynthFrame f = synthesize(image, p).front();
    EXPECT_EQ(f.bytes, std::vector<uint8_t>(frame_bytes(f.desc), 128)) << format;
  }
  p.format = 15;
  for (size_t i = 0; i < image.rgb.size(); ++i) image.rgb[i] = i % 3 == 0 ? 255 : 0;
  const std::vector<uint16_t> rggb = unpacked(synthesize(image, p).front());
  EXPECT_EQ(std::vector<uint16_t>({rggb[0], rggb[1], rggb[160], rggb[161]}), std::vector<uint16_t>({1023, 64, 64, 64}));
}

}  // namespace
