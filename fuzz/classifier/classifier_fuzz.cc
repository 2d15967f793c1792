// The learned classifier. The frame features and the subsampled image of the
// NEON kernel match the portable ones bit for bit, the export hands back
// the caller's array, and a frame too small for the grid gives NaN, or zeros
// of the divisors' sign, in every feature. Swapping two feature vectors
// negates their difference, and at most one order is labelled 1. The
// sub-rectangle feature adds one histogram count per sample it reports and
// writes nothing when it reports none.
#include <algorithm>
#include <cmath>
#include <cstring>
#include <numeric>

#include "classifier/frame_feature.h"
#include "fuzz_target.h"
#include "ql_is/ql_is.h"
#include "support/page_end_buffer.h"

QLIS_FUZZ_TARGET(classifier) {
  qlis::fuzz::Input in(data, size);
  // Frames of hundreds of groups or rows come from the seeds, and from one
  // input in 256.
  const bool large = in.range(0, 255) == 0;
  const int32_t groups = in.range(0, large ? 2100 : 80), h = in.range(0, large ? 1400 : 160);
  const int32_t w = 4 * groups, stride = 5 * groups + in.range(0, 15), narrower = in.range(0, w);
  const int32_t distance = in.range(0, 4), top = in.range(0, h), bottom = in.range(-4, h + 4);
  const int32_t left = in.range(0, w), right = in.range(-4, w + 4);
  const size_t n = static_cast<size_t>(h / 4) * static_cast<size_t>(w / 4);
  qlis::test::PageEndBuffer frame(static_cast<size_t>(h) * static_cast<size_t>(stride)), scratch(n), twin(n);
  in.fill(frame.data(), frame.size());
  double a[320], b[320], ab[97], ba[97];
  QLIS_FUZZ_CHECK(get_feature_raw_10bitX5_(frame.data(), h, w, stride, 0, 0, a, scratch.data()) == a);
  qlis::portable::classifier_features(frame.data(), h, w, stride, b, twin.data());
  QLIS_FUZZ_CHECK(std::memcmp(a, b, sizeof a) == 0 && std::memcmp(scratch.data(), twin.data(), n) == 0);
  const bool nan = (h >= 4 && h < 36) || (w >= 4 && w < 36), zero = h < 4 || w < 4;
  const bool minus = (h < 4) != (w < 4);  // the sign of the divisors
  for (double v : a) QLIS_FUZZ_CHECK(nan ? std::isnan(v) : !zero || (v == 0 && std::signbit(v) == minus));

  get_feature_raw_10bitX5_(frame.data(), h, narrower, stride, 0, 0, b, twin.data());
  combine_feature(a, b, ab);
  combine_feature(b, a, ba);
  for (int k = 0; k < 97; ++k) QLIS_FUZZ_CHECK(ab[k] == -ba[k] || (std::isnan(ab[k]) && std::isnan(ba[k])));
  QLIS_FUZZ_CHECK(get_score_label(ab) + get_score_label(ba) <= 1);

  // The lower neighbour lies 4 d lines down, but the clamp keeps only 2 d
  // of them clear: the frame has 2 d lines more than the call is told.
  double mean = -1.0;
  uint32_t histogram[256] = {};
  const int32_t count = get_sub_raw_feature(&mean, histogram, frame.data(), top, bottom, left, right,
                                            distance, std::max(0, h - 2 * distance), w, stride);
  QLIS_FUZZ_CHECK(std::accumulate(histogram, histogram + 256, 0u) == static_cast<uint32_t>(count) &&
                  (count > 0 || mean == -1));
}
