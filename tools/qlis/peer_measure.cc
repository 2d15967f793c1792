#include "peer_measure.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <numeric>

#include "raw10_pack.h"

namespace qlis::tool {
namespace {

constexpr int32_t kRaw10FirstRow = 3;
constexpr int32_t kRaw10RowStep = 4;

// Sample (x, y) of the plane is at first + y * row_step + x * col_step.
struct SamplePlane {
  const uint8_t *first = nullptr;
  int64_t width = 0, height = 0;
  size_t row_step = 0, col_step = 0;
  int32_t at(int64_t x, int64_t y) const {
    return first[static_cast<size_t>(y) * row_step + static_cast<size_t>(x) * col_step];
  }
};

SamplePlane sample_plane(const FrameDesc &d, const std::vector<uint8_t> &bytes) {
  const size_t stride = static_cast<size_t>(d.stride);
  switch (d.format) {
    case kFormatRaw10:
      if (d.height <= kRaw10FirstRow) return {};
      return {bytes.data() + kRaw10FirstRow * stride + (kRaw10GroupBytes - 1), d.width / kRaw10GroupPixels,
              (d.height - kRaw10FirstRow + kRaw10RowStep - 1) / kRaw10RowStep, kRaw10RowStep * stride,
              kRaw10GroupBytes};
    case kFormatYuyv:
      return {bytes.data(), d.width, d.height, stride, 2};
    default:
      return {bytes.data(), d.width, d.height, stride, 1};
  }
}

}  // namespace

double laplacian_variance(const FrameDesc &desc, const std::vector<uint8_t> &bytes) {
  const SamplePlane p = sample_plane(desc, bytes);
  if (p.width < 3 || p.height < 3 || bytes.size() < plane_bytes(desc))
    return std::numeric_limits<double>::quiet_NaN();
  // |L| <= 1020: a frame of 2^24 samples sums L^2 well inside 64 bits.
  int64_t sum = 0, squares = 0;
  for (int64_t y = 1; y + 1 < p.height; ++y) {
    for (int64_t x = 1; x + 1 < p.width; ++x) {
      const int64_t l = 4 * p.at(x, y) - p.at(x, y - 1) - p.at(x, y + 1) - p.at(x - 1, y) - p.at(x + 1, y);
      sum += l;
      squares += l * l;
    }
  }
  const double n = static_cast<double>((p.width - 2) * (p.height - 2));
  const double mean = static_cast<double>(sum) / n;
  return static_cast<double>(squares) / n - mean * mean;
}

std::vector<int32_t> rank_descending(const std::vector<double> &scores) {
  std::vector<size_t> order(scores.size());
  std::iota(order.begin(), order.end(), 0);
  std::stable_sort(order.begin(), order.end(), [&](size_t a, size_t b) {
    const bool ra = !std::isnan(scores[a]), rb = !std::isnan(scores[b]);
    return ra != rb ? ra : ra && scores[a] > scores[b];
  });
  std::vector<int32_t> ranks(scores.size(), 0);
  int32_t next = 1;
  for (size_t i : order)
    if (!std::isnan(scores[i])) ranks[i] = next++;
  return ranks;
}

double rank_agreement(const std::vector<int32_t> &a, const std::vector<int32_t> &b) {
  int64_t pairs = 0, alike = 0;
  for (size_t i = 0; i < a.size() && i < b.size(); ++i) {
    for (size_t j = i + 1; j < a.size() && j < b.size(); ++j) {
      if (a[i] <= 0 || a[j] <= 0 || b[i] <= 0 || b[j] <= 0) continue;
      ++pairs;
      alike += (a[i] < a[j]) == (b[i] < b[j]);
    }
  }
  return pairs > 0 ? static_cast<double>(alike) / static_cast<double>(pairs)
                   : std::numeric_limits<double>::quiet_NaN();
}

std::string agreement_text(const std::vector<int32_t> &reblur, const std::vector<int32_t> &peer,
                           const std::vector<int32_t> &truth) {
  const auto share = [](double v) {
    return std::isnan(v) ? std::string("n/a") : std::to_string(std::lround(100.0 * v)) + "%";
  };
  std::string text = "the re-blur score and the " + std::string(kPeerMeasureName) + " order " +
                     share(rank_agreement(reblur, peer)) + " of the pairs of frames alike";
  if (std::any_of(truth.begin(), truth.end(), [](int32_t t) { return t > 0; })) {
    text += "; against the ground truth, the re-blur score orders " + share(rank_agreement(reblur, truth)) +
            " of them rightly, the " + kPeerMeasureName + " " + share(rank_agreement(peer, truth));
  }
  return text;
}

}  // namespace qlis::tool
