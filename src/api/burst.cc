// Burst capture: measures every frame of a burst against the base image,
// names the sharpest and the blurriest, and replaces the blurriest with the
// best preview frame when the whole burst shows the base image's scene.
#include <cstdlib>
#include <cstring>

#include "api/capture_common.h"
#include "api/frame_record.h"
#include "api/session_state.h"
#include "platform/log.h"
#include "platform/property.h"

namespace qlis {
namespace {

constexpr int kBurstLogLine = 1274;
constexpr int32_t kRadius = 5;
constexpr int kBlocks = 64;

struct Burst {
  int32_t count;
  uint8_t *image[QL_IS_BURST_MAX_FRAMES];
  uint32_t image_size;
  uint32_t side_size;
  int32_t mode;
};

int32_t frame_i32(const void *record, int offset) {
  return read_field<int32_t>(record, static_cast<size_t>(offset));
}

// Border blocks are rows 0 and 7 and columns 0 and 7 of the grid.
bool is_border_block(int b) {
  const int r = b / 8;
  const int c = b % 8;
  return r == 0 || r == 7 || c == 0 || c == 7;
}

// Whether frame's block features agree with the base image's: enough
// texture, few blocks changing texture class, and the same scene in the
// border ring and in the interior.
bool consistent_with_base(const BlockFeatureSet &frame) {
  double bright = 0.0;
  double dark = 0.0;
  double sum = 0.0;
  for (const BlockFeature &b : frame.block) {
    bright += b.bright_ratio;
    dark += b.dark_ratio;
    sum += b.sample_sum;
  }
  log_line(kTagError, " \n ######## sum_lumu_high_cnt:%f, sum_lumu_low_cnt:%f \n",
           bright, dark);
  const double mean = sum * 0.015625;
  const double texture_limit = mean < 20.0 ? 10000.0 : 50000.0;
  const double variation_limit = mean < 35.0 ? 0.15 : 0.2;

  uint8_t border[kBlocks] = {};
  uint8_t interior[kBlocks] = {};
  int disagreements = 0;
  int varied = 0;
  for (int b = 0; b < kBlocks; ++b) {
    const bool textured = frame.block[b].deviation_sum > texture_limit;
    const bool base_textured = base_feature.block[b].deviation_sum > texture_limit;
    if (textured && base_textured) (is_border_block(b) ? border : interior)[b] = 1;
    if (textured != base_textured) ++disagreements;
    if (frame.block[b].variation > variation_limit) ++varied;
  }
  if (static_cast<float>(varied) * 0.015625f < 0.5f) return false;
  if (disagreements > 4) return false;
  if (judge_scene_change(&base_feature, &frame, border) != 0) return false;
  return judge_scene_change(&base_feature, &frame, interior) == 0;
}

}  // namespace
}  // namespace qlis

extern "C" int32_t ql_is_process_bat_takepicture(void *record) {
  using namespace qlis;
  if (record == nullptr) return -1;
  Burst burst = {};
  burst.count = frame_i32(record, QL_IS_BURST_COUNT);
  if (burst.count < 2 || burst.count > QL_IS_BURST_MAX_FRAMES) return -1;
  for (int i = 0; i < burst.count; ++i) {
    burst.image[i] = read_field<uint8_t *>(record, QL_IS_BURST_IMAGE(i));
    if (burst.image[i] == nullptr) return -1;
  }
  if (frame_i32(record, QL_IS_BURST_MODE) != 1) return -1;
  InFlightCall in_flight(g_asIQThdInfo.capture_calls);
  if (!session_accepts_calls()) return -1;

  lock_for_capture();
  burst.image_size = read_field<uint32_t>(record, QL_IS_BURST_IMAGE_SIZE);
  burst.side_size = read_field<uint32_t>(record, QL_IS_BURST_SIDE_SIZE);
  const int32_t width = frame_i32(record, QL_IS_BURST_WIDTH(0));
  const int32_t height = frame_i32(record, QL_IS_BURST_HEIGHT(0));
  const int32_t stride = frame_i32(record, QL_IS_BURST_STRIDE(0));
  const bool dump = read_property_int(kPropDumpCapture) != 0;
  if (dump) {
    dump_capture(bufmax.image, burst.image_size, "/sdcard/%s_qlas_cap_inbase_%d_%dx%d.raw",
                 stride, width, height);
    for (int i = 0; i < burst.count; ++i) {
      dump_capture(burst.image[i], burst.image_size,
                   "/sdcard/%s_qlas_cap_input%2d_%d_%dx%d.raw", i,
                   frame_i32(record, QL_IS_BURST_STRIDE(i)),
                   frame_i32(record, QL_IS_BURST_WIDTH(i)),
                   frame_i32(record, QL_IS_BURST_HEIGHT(i)));
    }
  }

  auto *scratch = static_cast<DiffHistogram *>(std::calloc(1, kDiffHistBytes));
  bool consistent = true;
  for (int i = 0; i < burst.count && consistent; ++i) {
    BlockFeatureSet features = {};
    calc_feature_quality_with_sub_low_light(&features, scratch, 1, burst.image[i],
                                            height, width, stride);
    consistent = consistent_with_base(features);
  }

  // A consistent burst is measured against the base image's clarity, so
  // that only frames blurrier than the kept preview frame are replaced.
  double low;
  double high;
  int32_t best_id;
  int32_t replace_id;
  bool replace_allowed;
  if (consistent) {
    low = high = base_clarity;
    best_id = replace_id = -1;
    replace_allowed = true;
  } else {
    low = high = compare_reblue_with_luminance_compensation(
        burst.image[0], height, width, static_cast<uint32_t>(stride), 1, kRadius, alg_buf);
    best_id = replace_id = 0;
    replace_allowed = false;
  }
  for (int i = 0; i < burst.count; ++i) {
    const double m = compare_reblue_with_luminance_compensation(
        burst.image[i], height, width, static_cast<uint32_t>(stride), 1, kRadius, alg_buf);
    if (m == base_clarity) replace_allowed = false;
    if (m < low) {
      low = m;
      replace_id = i;
    }
    if (m > high) {
      high = m;
      best_id = i;
    }
  }
  if (replace_allowed && replace_id != -1) {
    if (burst.image_size != 0) {
      std::memcpy(burst.image[replace_id], bufmax.image, burst.image_size);
    }
    if (burst.side_size != 0) {
      std::memcpy(read_field<uint8_t *>(record, QL_IS_BURST_SIDE(replace_id)),
                  bufmax.side, burst.side_size);
    }
  }
  const int32_t result = (best_id == -1 && replace_id != -1) ? 0 : best_id;
  write_field<int32_t>(record, QL_IS_BURST_RESULT, result);
  std::free(scratch);

  if (dump && replace_id >= 0 && replace_id < burst.count) {
    dump_capture(burst.image[replace_id], burst.image_size,
                 "/sdcard/%s_qlas_cap_output%2d%2d_%d_%dx%d.raw", best_id, replace_id,
                 frame_i32(record, QL_IS_BURST_STRIDE(replace_id)),
                 frame_i32(record, QL_IS_BURST_WIDTH(replace_id)),
                 frame_i32(record, QL_IS_BURST_HEIGHT(replace_id)));
  }
  log_line(kTagError, "%s, %d, bestId:%d, replaceId:%d", "ql_is_process_bat_takepicture",
           kBurstLogLine, best_id, replace_id);
  finish_capture();
  return 0;
}
