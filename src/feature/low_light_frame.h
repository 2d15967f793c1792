// Frame driver for packed RAW10 frames in low light: the 8 x 8 block grid,
// the block records and the 64 difference histograms, and the frame value.
#pragma once

#include <cstdint>

#include "feature/low_light_block.h"
#include "platform/simd_dispatch.h"
#include "ql_is/ql_is.h"

namespace qlis {

using LowLightBlockExtractor = int64_t (*)(const LowLightBlockOutputs &out,
                                           const LowLightBlockArgs &args);

// Fills all 64 records, adds to diff_hists[8 r + c] (never cleared here) and
// returns the frame value. The extractor is a parameter so that tests can
// run the driver over either twin.
uint64_t low_light_frame_features(
    BlockFeatureSet *features, DiffHistogram *diff_hists, uint32_t mode,
    const uint8_t *data, int32_t height, int32_t width, int32_t stride,
    LowLightBlockExtractor extractor = kernels::low_light_block_features);

}  // namespace qlis
