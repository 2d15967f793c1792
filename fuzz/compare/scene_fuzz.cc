// The scene-change test and the median statistics under it, on two feature
// sets of whole multiples of a step (as block sums are), with few enough
// levels that ties are common, and a mask of 0, 1 and 2 bytes. Only a 1
// selects, so the 2s may as well be 0s, and the masked statistics do not
// depend on the order of the blocks. A set is never changed from itself.
// Over all 64 blocks every sum is exact, so both statistics find the same
// variance, never negative, and the masked median (one past the middle of
// the descending order) is not above the other (one past the middle of the
// ascending one). When the medians differ the darker set's statistics
// apply, whichever set comes first.
#include <bit>
#include <cstring>
#include <utility>

#include "fuzz_target.h"
#include "ql_is/ql_is.h"

QLIS_FUZZ_TARGET(scene) {
  qlis::fuzz::Input in(data, size);
  const int32_t field = in.range(0, 5), step = in.range(1, 4096), turn = in.range(0, 63);
  uint8_t bytes[2 * 384 + 64], mask[64], only[64], moved[64], all[64];
  in.fill(bytes, sizeof bytes);
  double values[768];
  for (int32_t i = 0; i < 768; ++i) values[i] = (bytes[i] - 16) * step;
  BlockFeatureSet a, b, moved_a;
  std::memcpy(&a, values, sizeof a);
  std::memcpy(&b, values + 384, sizeof b);
  for (int32_t i = 0; i < 64; ++i) {
    mask[i] = bytes[768 + i] % 3;
    only[i] = mask[i] == 1;
    all[i] = 1;
    // Reflected and turned: block i goes to (turn - i) mod 64.
    moved[(turn - i) & 63] = mask[i];
    moved_a.block[(turn - i) & 63] = a.block[i];
  }

  // Median and the variance's bits; without a mask, the earlier statistics
  // over all 64 blocks.
  const auto stats = [&](const BlockFeatureSet &s, const uint8_t *m, int32_t f) {
    double variance = 0.0;
    const double median = m ? calcMedianFeatureAndVarianceV2(&s, &variance, f, m)
                            : calcMedianFeatureAndVariance(&s, &variance, f);
    return std::pair(median, std::bit_cast<uint64_t>(variance));
  };
  QLIS_FUZZ_CHECK(stats(a, mask, field) == stats(a, only, field) && stats(a, mask, field) == stats(moved_a, moved, field));
  const auto [median, variance] = stats(a, nullptr, field);
  const auto [masked_median, masked_variance] = stats(a, all, field);
  QLIS_FUZZ_CHECK(masked_median <= median && masked_variance == variance && std::bit_cast<double>(variance) >= 0.0);
  const int32_t changed = judge_scene_change(&a, &b, mask);
  QLIS_FUZZ_CHECK(changed == judge_scene_change(&a, &b, only) && judge_scene_change(&a, &a, mask) == 0);
  if (stats(a, mask, 0).first != stats(b, mask, 0).first) QLIS_FUZZ_CHECK(changed == judge_scene_change(&b, &a, mask));
}
