// Re-blur comparison with luminance compensation: how much a box blur
// changes the quarter-resolution sample plane of a packed RAW10 frame,
// relative to the plane's brightness. Larger means sharper.
#pragma once

#include <cstdint>

#include "ql_is/ql_is.h"

namespace qlis {

// Summed |sample - blurred sample| over summed samples of the blurred
// interior, or NaN (frame too small for the box, black interior, or an
// arena request that failed). The arena is a copy: the pieces the call
// takes are private to it and fall free on return.
// Caller guarantees: radius >= 0, and the frame geometry and arena
// capacity that ql_is.h documents.
namespace portable {
double reblur_with_luminance_compensation(const uint8_t *image, int32_t height,
                                          int32_t width, uint32_t stride,
                                          int32_t radius, ScratchArena arena);
}  // namespace portable

#if QLIS_HAVE_NEON
namespace neon {
double reblur_with_luminance_compensation(const uint8_t *image, int32_t height,
                                          int32_t width, uint32_t stride,
                                          int32_t radius, ScratchArena arena);
}  // namespace neon
#endif

}  // namespace qlis
