// The preview worker: frames judged end to end (verdicts, the best frame,
// the lighting regime), its dumps, and the buffer rotation it relies on.
#include <gtest/gtest.h>

#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <numeric>
#include <regex>
#include <tuple>

#include "ql_is/ql_is.h"
#include "support/host_hooks.h"
#include "support/scenes.h"
#include "support/session.h"
#include "worker/swap_buf.h"

namespace {

using namespace qlis::test;

constexpr int32_t kRaw10 = 15;
constexpr int32_t kYuv = 13;

Scene bright(int amplitude, int level_step = 10, bool mirrored = false) {
  return Scene{640, 480, 800, 60, level_step, amplitude, mirrored};
}
Scene dim(int amplitude) { return Scene{640, 480, 800, 10, 2, amplitude}; }
Scene band(int amplitude) { return Scene{640, 480, 800, 24, 0, amplitude}; }
Scene plane(int amplitude) { return Scene{320, 240, 320, 60, 10, amplitude}; }

// The luminance the normal-light judgement reports is twice the sum of the
// samples of the 32 checkerboard blocks (18804 of them: 20 groups by 30 row
// pairs, two groups fewer in the right column, two row pairs fewer in the
// bottom row) over width * height / 16 = 19200, in integers; the texture
// averages out. The flat band scene gives 2 * 24 * 18804 / 19200 = 47, in
// the band above the low-light limit 46.5 that resets the base only right
// after start; the dim one, whose checkerboard levels add up to 265488,
// gives 2 * 265488 / 19200 = 27: the luminances 47 and 27 of the last two
// sequences below.
//
// A frame and its judgement: verdict 2 sharper, 3 keep the best, 4 base
// replaced; the luminance of the lighting regime afterwards; whether the
// judgement left no base image; the consecutive scene changes (RAW10 only).
struct Step {
  Scene scene;
  int32_t format, verdict;
  double luminance;
  bool base_reset;
  uint32_t changes = 0;
};

TEST(PreviewEvaluation, VerdictsBestFrameAndLightingRegimeOverASequence) {
  const std::pair<std::vector<Step>, size_t> sequences[] = {  // the steps, the best one
      // The first frame sets the base, a sharper one replaces it, a softer one is kept out.
      {{{bright(30), kRaw10, 4, 255, false, 1}, {bright(50), kRaw10, 2, 255, false, 0},
        {bright(35), kRaw10, 3, 255, false, 0}}, 1},
      // YUV frames by their block quality; that path keeps no regime.
      {{{plane(20), kYuv, 4, 255, false}, {plane(30), kYuv, 2, 255, false},
        {plane(10), kYuv, 3, 255, false}}, 1},
      // A scene change replaces the base even with a blurrier frame.
      {{{bright(50, 25), kRaw10, 4, 255, false, 1},
        {bright(30, 25, true), kRaw10, 4, 255, false, 2}}, 1},
      // The first dim frame is judged in normal light and flips the regime,
      // resetting the base; the regime's luminance is written on a flip only.
      {{{dim(6), kRaw10, 4, 27, true, 1}, {dim(8), kRaw10, 4, 27, false, 2},
        {dim(9), kRaw10, 2, 27, false, 0}}, 2},
      // Right after start the band resets the base by the start-up rule
      // alone, and the regime stays normal.
      {{{band(10), kRaw10, 4, 47, true, 1}, {band(12), kRaw10, 4, 47, false, 2}}, 1},
  };
  for (const auto &[steps, best] : sequences) {
    ScopedSession session;
    ASSERT_TRUE(session.ok());
    scene_change_count = 0;  // a diagnostic count that outlives sessions
    std::vector<HostFrame> frames;
    for (const Step &step : steps) {
      const Scene &s = step.scene;
      frames.push_back(host_frame_of(step.format == kYuv ? yuv_scene(s) : raw10_scene(s),
                                     step.format, s.width, s.height, s.stride, 16, 0));
      const double clarity = base_clarity;
      EXPECT_EQ(preview_verdict(frames.back()), step.verdict);
      EXPECT_EQ(last_luminance, step.luminance);
      // The low-light quality is 0 for any base: only the clarity tells.
      EXPECT_EQ(base_quality == 0.0 && base_clarity == 0.0, step.base_reset);
      EXPECT_TRUE(step.verdict != 3 || base_clarity == clarity);  // the base stays
      EXPECT_TRUE(step.format == kYuv || scene_change_count == step.changes);
    }
    EXPECT_TRUE(!std::memcmp(bufmax.image, frames[best].image.data(), frames[best].image.size()) &&
                !std::memcmp(bufmax.side, frames[best].side.data(), 16));
  }
}

// Frames are numbered from 1 up to the limit 2000 while the property is 1;
// the count restarts when it is 0 (or unset) and stands still otherwise.
// Format 10 goes to the camera's data folder unpadded, its stride standing
// for the width; an unsupported format is counted, logged by the dump and
// by the judgement. The worker itself dumps the frame it takes up, one
// plane of it, named after its time stamp.
TEST(FrameDumps, NumberEvaluatedFramesUpToTheLimit) {
  ScopedFsRoot root;
  root.make_dirs("/sdcard/DCIM");
  root.make_dirs("/data/misc/camera/qlas");
  ScopedSession session;
  ASSERT_TRUE(session.ok());
  ScopedProperty prv("debug.camera.dump_qlas_prv", "1");  // evaluate() bypasses the worker
  const HostFrame preview = make_host_frame(12, 64, 16, 80, 0, 0, 1);
  ASSERT_TRUE(preview_until_evaluated(&preview.param));
  const std::vector<uint8_t> image = raw10_scene(Scene{});
  std::vector<int> counts;
  // Puts the image into bufproc as the intake would and evaluates it with
  // the dump property `dump` (null: unset); returns the verdict and notes
  // the dump count afterwards.
  auto evaluate = [&](int32_t format, const char *dump) {
    ScopedProperty property("debug.camera.dump_qlfd", dump);
    PrevParam job = {};
    std::tie(job.height, job.width, job.stride, job.format) = std::tuple(480, 640, 800, format);
    pthread_mutex_lock(&g_asIQThdInfo.mutex);
    std::memcpy(bufproc.image, image.data(), image.size());
    PreviewThread(&job);
    pthread_mutex_unlock(&g_asIQThdInfo.mutex);
    counts.push_back(dump_count);
    return job.result;
  };
  const std::string first = "/sdcard/DCIM/qlfd/640X480_stride800_fmt15_index 1.yuv";
  EXPECT_EQ(evaluate(15, "1"), 4);
  // Whole rows, written before the judgement swaps the frame away.
  std::ifstream in(root.path() + first, std::ios::binary);
  EXPECT_EQ(std::vector<uint8_t>(std::istreambuf_iterator<char>(in), {}), image);
  LogCapture log;
  EXPECT_EQ(evaluate(12, "1"), 0);
  EXPECT_EQ(log.texts("QLIS-E"), std::vector<std::string>({"qlas PrevTh format not support 12",
                                                            "qlas PrevTh format not support 12\n"}));
  dump_count = 1999;
  for (auto [format, dump] : {std::pair{15, "1"}, {15, "1"}, {15, "3"}, {10, nullptr}, {10, "1"}})
    evaluate(format, dump);
  EXPECT_EQ(counts, (std::vector<int>{1, 2, 2000, 2000, 2000, 0, 1}));
  const std::string nv = "/data/misc/camera/qlas/800X480_stride800_fmt10_index 1.yuv";
  const std::string last = "/sdcard/DCIM/qlfd/640X480_stride800_fmt15_index2000.yuv";
  std::vector<std::string> files = root.files();
  const std::regex stamp(R"(^/sdcard/\d{8}-\d\d-\d\d-\d\d-\d{3}_)");
  for (std::string &f : files) f = std::regex_replace(f, stamp, "/sdcard/T_");
  EXPECT_EQ(files, std::vector<std::string>({nv, "/sdcard/T_qlas_prv_80_64x16.raw", first, last}));
  EXPECT_EQ(std::filesystem::file_size(root.path() + root.files()[1]), 80u * 16u);
  EXPECT_EQ(std::filesystem::file_size(root.path() + nv), 480u * 800u);
}

// Four-word steps need more than five words and the arrays 16 bytes apart,
// either way round. (What the swap exchanges, and that both versions agree
// on overlapping arrays: Fuzz.copy.)
TEST(SwapBuf, VectorStepsNeedSixWordsSixteenBytesApart) {
  uint8_t m[256] = {};
  for (auto [a, b, n, vector] : {std::tuple{0, 64, 5, false}, {0, 64, 6, true}, {16, 0, 6, true},
                                 {15, 0, 6, false}, {0, 15, 6, false}})
    EXPECT_EQ(qlis::swap_uses_vector_steps(m + a, m + b, n), vector) << a << " " << b;
}

}  // namespace
