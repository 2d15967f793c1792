// Frame driver for packed RAW10 frames in normal light: the 8 x 8 block
// grid, per-block brightness records and the frame's sharpness value from
// the weighted block gradient energies.
#pragma once

#include <cstdint>

#include "feature/raw10_block.h"
#include "ql_is/ql_is.h"

namespace qlis {

using Raw10BlockExtractor = int32_t (*)(const Raw10BlockOutputs &,
                                        const Raw10BlockArgs &);

// mode 1: statistics on the checkerboard only; 2: gradient only everywhere;
// anything else: statistics and gradient on the checkerboard, gradient
// only elsewhere. `extract` is the block extractor (the build's kernel;
// tests pass either twin).
uint64_t raw10_frame_features(BlockFeatureSet *features, uint32_t mode,
                              const uint8_t *data, int32_t height,
                              int32_t width, int32_t stride,
                              Raw10BlockExtractor extract);

}  // namespace qlis
