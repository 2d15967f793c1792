// What the library's exported measures say about single frames, outside a
// session: each feature driver's frame value, the re-blur score and the
// learned classifier's verdict against a reference frame.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "frame_file.h"

namespace qlis::tool {

struct DriverValue {
  std::string driver;  // the exported function's name
  uint64_t value = 0;
};

// The 64 difference histograms the low-light driver fills (fresh ones: the
// library never clears them). Its frame value is 0 for any frame without an
// empty block, so the histograms are where the frame's detail shows: the
// mean absolute neighbour difference, larger for a sharper or noisier frame.
struct DiffSummary {
  uint64_t differences = 0;         // three per sampled pixel
  double mean = 0.0;                // over all blocks; NaN with no differences
  std::vector<double> block_means;  // 64, row-major; NaN for an empty block
};

struct FrameScores {
  std::vector<DriverValue> drivers;
  std::optional<DiffSummary> low_light;  // RAW10 only
  double reblur = 0.0;  // NaN when not RAW10
  // RAW10 only: get_score_label of (this frame - reference): 1 when the
  // classifier finds this frame the sharper, with the probability the
  // library logs.
  std::optional<int32_t> label;
  std::optional<double> probability;
};

// RAW10: calc_feature_quality_with_sub (mode 0) and
// calc_feature_quality_with_sub_low_light (mode 0, fresh histograms); YUV:
// calc_feature_quality_with_sub_yuv; YUYV: calc_feature_quality_with_sub_yuyv.
// For RAW10 the low-light driver's histograms go to *low_light when given.
std::vector<DriverValue> driver_values(const FrameDesc &desc, const std::vector<uint8_t> &bytes,
                                       std::optional<DiffSummary> *low_light = nullptr);

// The classifier's 320 features of a RAW10 frame.
std::vector<double> classifier_features(const FrameDesc &desc, const std::vector<uint8_t> &bytes);

// Everything above for `bytes`, with the label against `reference`'s
// features (both RAW10 of one geometry; none otherwise). The classifier's
// probability is read from the library's log, so no SessionRunner may live
// meanwhile (it would lose its log lines).
FrameScores score_frame(const FrameDesc &desc, const std::vector<uint8_t> &bytes,
                        const std::vector<double> *reference);

}  // namespace qlis::tool
