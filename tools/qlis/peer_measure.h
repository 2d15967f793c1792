// A common sharpness measure beside the library's re-blur score, so that a
// tuning engineer sees where the two disagree: the variance of the
// Laplacian, on the samples the library itself reads. Also the rankings
// both give a stream, and how often two rankings order a pair of frames
// alike.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "frame_file.h"

namespace qlis::tool {

inline constexpr const char *kPeerMeasureName = "variance of the Laplacian";

// Variance of the four-neighbour Laplacian (4 c - up - down - left - right)
// over the interior of the sample plane: for RAW10 byte 4 of each group on
// rows 3, 7, 11, ... (the quarter-resolution plane the re-blur score
// reads), for YUV the luma plane, for YUYV its luma bytes. Larger is
// sharper (or noisier). NaN for a plane under 3 x 3 samples or bytes short
// of the first plane.
double laplacian_variance(const FrameDesc &desc, const std::vector<uint8_t> &bytes);

// Rank of each score, 1 for the largest; equal scores by position. NaN
// scores are not ranked (0).
std::vector<int32_t> rank_descending(const std::vector<double> &scores);

// A rank as a table shows it: "-" when unranked.
inline std::string rank_text(int32_t rank) { return rank > 0 ? std::to_string(rank) : "-"; }

// Share of the pairs of frames ranked by both (rank > 0) that the two
// rankings put in the same order; NaN with no such pair.
double rank_agreement(const std::vector<int32_t> &a, const std::vector<int32_t> &b);

// The agreements of the re-blur ranking with the peer's and, where some
// frame's truth rank is known (> 0), of both with the truth, in a sentence.
std::string agreement_text(const std::vector<int32_t> &reblur, const std::vector<int32_t> &peer,
                           const std::vector<int32_t> &truth);

}  // namespace qlis::tool
