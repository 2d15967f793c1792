// Frame driver for 8-bit planes: the 8 x 8 block grid, block sums on the
// checkerboard and the frame's sharpness value from the weighted block
// gradient energies. The YUV and YUYV entry points share it.
#pragma once

#include <cstdint>

#include "feature/yuv_block.h"
#include "platform/simd_dispatch.h"
#include "ql_is/ql_is.h"

namespace qlis {

using YuvBlockExtractor = uint64_t (*)(uint64_t *sum_out, uint64_t *aux_out,
                                       YuvBlockArgs args);

// Fills field 0 of every record and returns the frame value. The extractor
// is a parameter so that tests can run the driver over either twin.
uint64_t yuv_frame_features(
    BlockFeatureSet *features, const uint8_t *data, int32_t height,
    int32_t width, int32_t stride,
    YuvBlockExtractor extractor = kernels::yuv_block_features);

}  // namespace qlis
