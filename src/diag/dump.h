// Frame dumps for tuning: written only when a debug property asks for them.
#pragma once

#include <cstddef>
#include <cstdint>

namespace qlis {

// Size of the zeroed buffer the dump path is composed in.
inline constexpr size_t kDumpPathCapacity = 180;

// Composes the path save_to_file writes to into path (kDumpPathCapacity).
void compose_dump_path(char *path, int32_t height, int32_t width,
                       int32_t stride, int32_t format, int32_t index);

}  // namespace qlis
