// Scene test of a RAW10 frame against a caller-owned base set, from the
// checkerboard block sums alone. Exported for hosts; the live path judges
// scenes elsewhere.
#include <cstdint>

#include "feature/block_grid.h"
#include "feature/raw10_frame.h"
#include "platform/convert.h"
#include "platform/log.h"
#include "platform/simd_dispatch.h"
#include "ql_is/ql_is.h"

extern "C" {
QL_IS_API int32_t sccount = 0;
}

namespace qlis {
namespace {

constexpr uint32_t kStatisticsOnCheckerboard = 1;

constexpr int32_t kSceneChanged = 4;
constexpr int32_t kSceneKept = 3;

// A base whose block sums add up to at most this level is dark and
// tolerates a squared difference of kDarkFactor times its level; a
// brighter one tolerates kBrightFactor times.
constexpr uint64_t kDarkBaseLevel = 22000000;
constexpr uint64_t kDarkFactor = 1000;
constexpr uint64_t kBrightFactor = 6500;

// From this many unchanged calls in a row on, the base is cleared instead
// of refreshed (and the score zeroed), so that a scene that holds still
// forces a fresh base on the next call.
constexpr int32_t kUnchangedCallsBeforeClear = 3;

int32_t compare_with_base(const uint8_t *data, double *score_out,
                          BlockFeatureSet *base, int32_t height, int32_t width,
                          int32_t stride) {
  const double extraction_start = now_ms();
  // Zeroed so that the fields mode 1 leaves alone are defined when the set
  // is copied into the base.
  BlockFeatureSet frame{};
  raw10_frame_features(&frame, kStatisticsOnCheckerboard, data, height, width,
                       stride, &kernels::raw10_block_features);
  log_line(kTagInfo, "feature calc1:%lf", now_ms() - extraction_start);

  // Three readings, of which the last starts the comparison's timing, as
  // the traces have always been timed.
  now_ms();
  now_ms();
  const double comparison_start = now_ms();

  // Signed 64-bit sums kept in unsigned words, so that they wrap without
  // undefined behaviour. The truncations go through the saturating
  // conversion: a sum or difference beyond the int64 range, or NaN, can
  // only come from a base the caller filled so, and converts as on the
  // device instead of being undefined.
  uint64_t difference_energy = 0;  // iso2
  uint64_t base_level = 0;         // iso0
  for (int32_t k = 0; k < kBlocks; ++k) {
    const double difference =
        frame.block[k].sample_sum - base->block[k].sample_sum;
    const auto d = static_cast<uint64_t>(saturate_to_i64(difference));
    difference_energy += d * d;
    base_level +=
        static_cast<uint64_t>(saturate_to_i64(base->block[k].sample_sum));
  }
  log_line(kTagInfo, "\nondasi feature iso0 %lld \nondasi iso2 %lld",
           static_cast<long long>(static_cast<int64_t>(base_level)),
           static_cast<long long>(static_cast<int64_t>(difference_energy)));

  const uint64_t factor =
      base_level <= kDarkBaseLevel ? kDarkFactor : kBrightFactor;
  const bool changed = base_level * factor < difference_energy;
  int32_t result;
  if (changed) {
    sccount = 0;
    result = kSceneChanged;
  } else {
    sccount = static_cast<int32_t>(static_cast<uint32_t>(sccount) + 1u);
    result = kSceneKept;
  }

  if (sccount < kUnchangedCallsBeforeClear) {
    *base = frame;
  } else {
    *score_out = 0.0;
    *base = BlockFeatureSet{};
  }
  log_line(kTagAlgo, "feature sccount %d %d", changed ? 1 : 0, sccount);
  log_line(kTagAlgo, "feature cal2:%lf", now_ms() - comparison_start);
  return result;
}

}  // namespace
}  // namespace qlis

extern "C" QL_IS_API int32_t calc_feature_with_base_image(
    const uint8_t *data, double *score_out, BlockFeatureSet *base,
    int32_t height, int32_t width, int32_t stride) {
  return qlis::compare_with_base(data, score_out, base, height, width, stride);
}
