// Frames for the fuzz targets: geometry drawn from the input within what
// the kernels accept, pixels from the rest of the input, in a buffer whose
// last byte is the last of a readable page so that any read past the frame
// faults.
#pragma once

#include <cstdint>

#include "fuzz_target.h"
#include "support/page_end_buffer.h"

namespace qlis::fuzz {

struct Raw10Frame {
  int32_t width, height, stride;  // width a multiple of 4; stride >= 5 * width / 4
  test::PageEndBuffer bytes;      // height * stride bytes
};

// Width from 4 * min_groups to 4 * max_groups pixels, height from
// min_height to max_height rows, up to 15 bytes of padding per row.
inline Raw10Frame raw10_frame(Input &in, int32_t min_groups, int32_t max_groups, int32_t min_height,
                              int32_t max_height) {
  const int32_t groups = in.range(min_groups, max_groups), height = in.range(min_height, max_height);
  const int32_t stride = 5 * groups + in.range(0, 15);
  Raw10Frame f{4 * groups, height, stride,
               test::PageEndBuffer(static_cast<size_t>(height) * static_cast<size_t>(stride))};
  in.fill(f.bytes.data(), f.bytes.size());
  return f;
}

}  // namespace qlis::fuzz
