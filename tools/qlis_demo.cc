// Runs the library's main job on a built-in scene: a preview stream shot
// with changing hand shake, then a shaken capture that the library either
// keeps or replaces with the sharpest preview frame, then a burst of which
// it names the sharpest and the blurriest frame. It first prints how each
// frame scores, so that the decisions can be followed.
#include <unistd.h>

#include <cstdint>
#include <cstdio>
#include <cstring>
#include <vector>

#include "ql_is/ql_is.h"

namespace {

constexpr int32_t kWidth = 1280;
constexpr int32_t kHeight = 960;
constexpr int32_t kStride = kWidth / 4 * 5;
constexpr int32_t kRaw10 = 15;
constexpr uint32_t kArenaBytes = 14001024;  // the session's arena size

// A scene of soft gradients, hard-edged shapes and fine texture, as sample
// bytes (x counts bytes, five to a group of four pixels).
uint8_t scene(int32_t x, int32_t y) {
  int v = 40 + (x * 3 + y * 2) / 40 + 30 * ((x / 5 + y / 2) % 3) - 30;
  if (v < 0) v = 0;
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

// Prints the library's decision lines as they happen.
void print_decisions(int, const char *tag, const char *text, void *) {
  if (std::strcmp(tag, "QLIS-E") == 0 && std::strstr(text, "ql_is_process") != nullptr) {
    std::printf("  library: %s\n", text);
  }
}

FrameParam frame_param(std::vector<uint8_t> &image, int32_t mode) {
  FrameParam p = {};
  p.format = kRaw10;
  p.width = kWidth;
  p.height = kHeight;
  p.stride = kStride;
  p.image.ptr = image.data();
  p.image_size = static_cast<uint32_t>(image.size());
  p.mode = mode;
  return p;
}

// Hands a frame to the worker as a 30 frames-per-second preview would,
// for a third of a second: the worker takes what it can.
void preview(std::vector<uint8_t> &image) {
  const FrameParam p = frame_param(image, 0);
  for (int i = 0; i < 10; ++i) {
    ql_is_process_preview(&p);
    usleep(33000);
  }
}

}  // namespace

int main() {
  const int shakes[] = {3, 1, 0, 2, 4};
  const int count = static_cast<int>(sizeof shakes / sizeof shakes[0]);
  std::vector<std::vector<uint8_t>> frames;
  for (int s : shakes) frames.push_back(shot(s));

  std::printf("libql_is %s: %d frames of %dx%d packed RAW10 (stride %d)\n\n", ql_is_get_version(),
              count, kWidth, kHeight, kStride);
  std::printf("%-6s %-7s %-15s %-20s %s\n", "frame", "shake", "re-blur score",
              "normal-light value", "mean sample");
  std::vector<uint8_t> arena_block(kArenaBytes);
  const ScratchArena arena = {arena_block.data(), kArenaBytes, 0};
  for (int i = 0; i < count; ++i) {
    BlockFeatureSet features = {};
    const uint64_t value = calc_feature_quality_with_sub(&features, 0, frames[i].data(),
                                                         kHeight, kWidth, kStride);
    BlockFeatureSet stats = {};
    std::vector<DiffHistogram> hists(64);
    calc_feature_quality_with_sub_low_light(&stats, hists.data(), 1, frames[i].data(), kHeight,
                                            kWidth, kStride);
    double mean = 0;
    for (const BlockFeature &b : stats.block) mean += b.sample_sum / 64;
    const double score = compare_reblue_with_luminance_compensation(
        frames[i].data(), kHeight, kWidth, kStride, 1, 5, arena);
    std::printf("%-6d %-7d %-15.6f %-20llu %.2f\n", i, shakes[i], score,
                static_cast<unsigned long long>(value), mean);
  }

  ql_is_host_set_log_sink(print_decisions, nullptr);
  if (ql_is_init() != 0) {
    std::fprintf(stderr, "qlis_demo: the library could not allocate its buffers\n");
    return 1;
  }
  std::printf("\npreview stream: frames 0 to %d, 10 hand-overs each\n", count - 1);
  for (auto &f : frames) preview(f);
  int kept = -1;
  for (int i = 0; i < count; ++i) {
    if (std::memcmp(bufmax.image, frames[i].data(), frames[i].size()) == 0) kept = i;
  }
  std::printf("  kept as best: frame %d (shake %d)\n", kept, kept >= 0 ? shakes[kept] : -1);

  std::vector<uint8_t> capture = shot(5);
  const std::vector<uint8_t> taken = capture;
  FrameParam param = frame_param(capture, 1);
  std::printf("\ncapture shot with shake 5:\n");
  ql_is_process_takepicture(&param);
  std::printf("  %s\n", capture == taken ? "the capture stands"
                                         : "the capture was replaced by the best preview frame");

  std::printf("\nburst of frames 0, 2, 3 and 4 (shakes 3, 0, 2, 4):\n");
  std::vector<uint8_t> record(QL_IS_BURST_RECORD_SIZE, 0);
  const int burst[] = {0, 2, 3, 4};
  for (int i = 0; i < 4; ++i) {
    ql_is_record_put_i32(record.data(), QL_IS_BURST_WIDTH(i), kWidth);
    ql_is_record_put_i32(record.data(), QL_IS_BURST_HEIGHT(i), kHeight);
    ql_is_record_put_i32(record.data(), QL_IS_BURST_STRIDE(i), kStride);
    ql_is_record_put_ptr(record.data(), QL_IS_BURST_IMAGE(i), frames[burst[i]].data());
  }
  ql_is_record_put_i32(record.data(), QL_IS_BURST_IMAGE_SIZE,
                       static_cast<int32_t>(frames[0].size()));
  ql_is_record_put_i32(record.data(), QL_IS_BURST_COUNT, 4);
  ql_is_record_put_i32(record.data(), QL_IS_BURST_MODE, 1);
  ql_is_process_bat_takepicture(record.data());
  const int best = ql_is_record_get_i32(record.data(), QL_IS_BURST_RESULT);
  std::printf("  sharpest frame of the burst (result): %d, that is frame %d\n", best,
              best >= 0 && best < 4 ? burst[best] : -1);
  ql_is_deinit();
  ql_is_host_set_log_sink(nullptr, nullptr);
  return 0;
}
