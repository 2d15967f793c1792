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

struct FrameScores {
  std::vector<DriverValue> drivers;
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
std::vector<DriverValue> driver_values(const FrameDesc &desc, const std::vector<uint8_t> &bytes);

// The classifier's 320 features of a RAW10 frame.
std::vector<double> classifier_features(const FrameDesc &desc, const std::vector<uint8_t> &bytes);

// Everything above for `bytes`, with the label against `reference`'s
// features (both RAW10 of one geometry; none otherwise). The classifier's
// probability is read from the library's log, so no SessionRunner may live
// meanwhile (it would lose its log lines).
FrameScores score_frame(const FrameDesc &desc, const std::vector<uint8_t> &bytes,
                        const std::vector<double> *reference);

}  // namespace qlis::tool
