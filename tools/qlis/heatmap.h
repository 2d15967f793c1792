// The 8 x 8 block grid of a RAW10 frame drawn over a grey preview of it:
// each block is tinted by its gradient energy (what the normal-light
// judgement sums: the block extractor at neighbour distance 1 on the
// driver's rectangles), from blue for the flattest block to red for the
// sharpest, and the energy is stamped into it with the library's own
// watermark font.
#pragma once

#include <array>
#include <cstdint>
#include <vector>

#include "frame_file.h"
#include "png_image.h"

namespace qlis::tool {

// The preview is the byte the library samples (byte 4 of each five-byte
// group) on every fourth row from row 3, a quarter of the frame's width and
// height, enlarged by a whole factor to at least this width.
inline constexpr int32_t kHeatmapMinWidth = 800;

// Gradient energy of each block, row-major (block (r, c) at 8 r + c), as
// the extractor returns it (32 bits, wrapping).
std::array<uint32_t, 64> block_energies(const FrameDesc &desc,
                                        const std::vector<uint8_t> &bytes);

// Throws ToolError for frames that are not RAW10, hold fewer than
// height x stride bytes or are too small for a preview (fewer than 32
// pixels either way).
RgbImage render_heatmap(const FrameDesc &desc, const std::vector<uint8_t> &bytes);

}  // namespace qlis::tool
