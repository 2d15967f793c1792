// Ranks a burst of packed RAW10 frames by sharpness, the way the library's
// judgements see them: the re-blur score (larger is sharper) decides, the
// normal-light frame value and the mean sample show what the block
// features saw. Without arguments it runs on a built-in scene shot with
// growing amounts of simulated hand shake.
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <vector>

#include "ql_is/ql_is.h"

namespace {

constexpr int32_t kWidth = 1280;
constexpr int32_t kHeight = 960;
constexpr int32_t kStride = kWidth / 4 * 5;
constexpr uint32_t kArenaBytes = 14001024;  // the session's arena size

// A scene of soft gradients and hard-edged shapes, as sample bytes.
uint8_t scene(int32_t x, int32_t y) {
  int v = 40 + (x * 3 + y * 2) / 40;
  if (((x / 53) ^ (y / 37)) & 1) v += 90;
  if ((x - 640) * (x - 640) + (y - 480) * (y - 480) < 200 * 200) v = 235 - v / 3;
  return static_cast<uint8_t>(v > 255 ? 255 : v);
}

// Hand shake as a horizontal smear of `shake` pixels over the sampled bytes.
std::vector<uint8_t> shot(int shake) {
  std::vector<uint8_t> frame(static_cast<size_t>(kHeight) * kStride);
  for (int32_t y = 0; y < kHeight; ++y) {
    for (int32_t x = 0; x < kStride; ++x) {
      int sum = 0;
      for (int k = 0; k <= shake; ++k) sum += scene(x + 4 * k, y);
      frame[static_cast<size_t>(y) * kStride + x] = static_cast<uint8_t>(sum / (shake + 1));
    }
  }
  return frame;
}

}  // namespace

int main() {
  std::vector<uint8_t> arena_block(kArenaBytes);
  ScratchArena arena = {arena_block.data(), kArenaBytes, 0};
  const int shakes[] = {3, 0, 8, 1, 16};
  const int count = static_cast<int>(sizeof shakes / sizeof shakes[0]);

  std::printf("libql_is demo: %d frames of %dx%d packed RAW10 (stride %d)\n\n", count,
              kWidth, kHeight, kStride);
  std::printf("%-6s %-8s %-14s %-22s %-10s\n", "frame", "shake", "re-blur score",
              "normal-light value", "mean sample");
  int best = -1;
  int worst = -1;
  double best_score = 0;
  double worst_score = 0;
  for (int i = 0; i < count; ++i) {
    const std::vector<uint8_t> frame = shot(shakes[i]);
    BlockFeatureSet features = {};
    const uint64_t value =
        calc_feature_quality_with_sub(&features, 0, frame.data(), kHeight, kWidth, kStride);
    BlockFeatureSet stats = {};
    std::vector<DiffHistogram> hists(64);
    calc_feature_quality_with_sub_low_light(&stats, hists.data(), 1, frame.data(), kHeight,
                                            kWidth, kStride);
    double mean = 0;
    for (const BlockFeature &b : stats.block) mean += b.sample_sum;
    mean /= 64;
    const double score = compare_reblue_with_luminance_compensation(
        frame.data(), kHeight, kWidth, kStride, 1, 5, arena);
    std::printf("%-6d %-8d %-14.6f %-22llu %-10.2f\n", i, shakes[i], score,
                static_cast<unsigned long long>(value), mean);
    if (best < 0 || score > best_score) {
      best = i;
      best_score = score;
    }
    if (worst < 0 || score < worst_score) {
      worst = i;
      worst_score = score;
    }
  }
  std::printf("\nsharpest frame (bestId): %d\nblurriest frame (replaceId): %d\n", best, worst);
  return 0;
}
