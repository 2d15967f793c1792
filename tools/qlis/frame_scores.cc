#include "frame_scores.h"

#include <cmath>
#include <cstdlib>
#include <iterator>
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

DiffSummary summarize(const std::vector<DiffHistogram> &hists) {
  DiffSummary s;
  double total = 0.0;
  for (const DiffHistogram &h : hists) {
    uint64_t n = 0;
    double sum = 0.0;
    for (size_t k = 0; k < std::size(h.count); ++k) {
      n += static_cast<uint32_t>(h.count[k]);
      sum += static_cast<double>(k) * static_cast<uint32_t>(h.count[k]);
    }
    s.block_means.push_back(n == 0 ? std::nan("") : sum / static_cast<double>(n));
    s.differences += n;
    total += sum;
  }
  s.mean = s.differences == 0 ? std::nan("") : total / static_cast<double>(s.differences);
  return s;
}

}  // namespace

std::vector<DriverValue> driver_values(const FrameDesc &d, const std::vector<uint8_t> &bytes,
                                       std::optional<DiffSummary> *low_light) {
  BlockFeatureSet features{};
  switch (d.format) {
    case kFormatRaw10: {
      std::vector<DiffHistogram> hists(kBlockCount);
      const uint64_t normal = calc_feature_quality_with_sub(&features, kAllBlocksMode,
                                                            bytes.data(), d.height, d.width,
                                                            d.stride);
      const uint64_t low = calc_feature_quality_with_sub_low_light(
          &features, hists.data(), kAllBlocksMode, bytes.data(), d.height, d.width, d.stride);
      if (low_light != nullptr) *low_light = summarize(hists);
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
  s.drivers = driver_values(d, bytes, &s.low_light);
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
