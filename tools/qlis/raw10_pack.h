// Packed RAW10 as the tool writes it: four 10-bit pixels in five bytes,
// low bits first. Byte 0 holds the two low bits of pixels 0 to 3 (pixel 0
// in bits 0-1, pixel 3 in bits 6-7); bytes 1 to 4 hold the high eight bits
// of pixels 0 to 3. The library's feature code reads only byte 4 of each
// group as its 8-bit sample, so this packing puts image content (pixel 3's
// high bits) where it looks.
//
// Many sensors write the other common RAW10 packing instead, high bits
// first: bytes 0 to 3 hold the high eight bits of pixels 0 to 3 and byte 4
// the two low bits of each (pixel 0 in bits 0-1). There the sampled byte is
// sensor noise; synth can write it so that such frames can be made.
#pragma once

#include <cstddef>
#include <cstdint>

namespace qlis::tool {

inline constexpr const char *kRaw10Packing =
    "low bits first; byte 4 = high 8 bits of pixel 3";
inline constexpr int kRaw10GroupPixels = 4;
inline constexpr int kRaw10GroupBytes = 5;
inline constexpr const char *kRaw10MipiPacking =
    "high bits first; byte 4 = low 2 bits of pixels 0 to 3";

enum class Raw10Packing { kTool, kMipi };

// `groups` groups: 4 * groups pixels in, 5 * groups bytes out. Only the low
// ten bits of each pixel are stored.
void pack_raw10(const uint16_t *pixels, size_t groups, uint8_t *packed,
                Raw10Packing packing = Raw10Packing::kTool);
void unpack_raw10(const uint8_t *packed, size_t groups, uint16_t *pixels);

}  // namespace qlis::tool
