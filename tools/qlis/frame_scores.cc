#include "frame_scores.h"

#include <cstdlib>
#include <string_view>

#include "library_log.h"
#include "ql_is/ql_is.h"
#include "session_runner.h"

namespace qlis::tool {
namespace {

constexpr uint32_t kAllBlocksMode = 0;
constexpr size_t kClassifierFeatures = 320;
constexpr size_t kDifferenceEntries = 97;
constexpr size_t kBlockCount = 64;

}  // namespace

std::vector<DriverValue> driver_values(const FrameDesc &d, const std::vector<uint8_t> &bytes) {
  BlockFeatureSet features{};
  switch (d.format) {
    case kFormatRaw10: {
      std::vector<DiffHistogram> hists(kBlockCount);
      const uint64_t normal = calc_feature_quality_with_sub(&features, kAllBlocksMode,
                                                            bytes.data(), d.height, d.width,
                                                            d.stride);
      const uint64_t low = calc_feature_quality_with_sub_low_light(
          &features, hists.data(), kAllBlocksMode, bytes.data(), d.height, d.width, d.stride);
      return {{"calc_feature_quality_with_sub", normal},
              {"calc_feature_quality_with_sub_low_light", low}};
    }
    case kFormatYuyv:
      return {{"calc_feature_quality_with_sub_yuyv",
               calc_feature_quality_with_sub_yuyv(&features, bytes.data(), d.height, d.width,
                                                  d.stride)}};
    default:
      return {{"calc_feature_quality_with_sub_yuv",
               calc_feature_quality_with_sub_yuv(&features, bytes.data(), d.height, d.width,
                                                 d.stride)}};
  }
}

std::vector<double> classifier_features(const FrameDesc &d, const std::vector<uint8_t> &bytes) {
  std::vector<double> features(kClassifierFeatures);
  std::vector<uint8_t> scratch(static_cast<size_t>(d.height >> 2) *
                               static_cast<size_t>(d.width >> 2));
  get_feature_raw_10bitX5_(bytes.data(), d.height, d.width, static_cast<uint32_t>(d.stride), 0,
                           0, features.data(), scratch.data());
  return features;
}

FrameScores score_frame(const FrameDesc &d, const std::vector<uint8_t> &bytes,
                        const std::vector<double> *reference) {
  FrameScores s;
  s.drivers = driver_values(d, bytes);
  s.reblur = reblur_score(d, bytes);
  if (d.format == kFormatRaw10 && reference != nullptr) {
    const std::vector<double> mine = classifier_features(d, bytes);
    std::vector<double> difference(kDifferenceEntries);
    combine_feature(mine.data(), reference->data(), difference.data());
    LibraryLog log;
    s.label = get_score_label(difference.data());
    // The probability reaches the host only as the library's "%1.2f " line.
    for (const std::string &line : log.take()) {
      const size_t colon = line.find(": ");
      const std::string text = colon == std::string::npos ? line : line.substr(colon + 2);
      char *end = nullptr;
      const double p = std::strtod(text.c_str(), &end);
      if (end != text.c_str() && std::string_view(end) == " ") s.probability = p;
    }
  }
  return s;
}

}  // namespace qlis::tool
