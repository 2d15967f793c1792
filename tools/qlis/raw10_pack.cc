#include "raw10_pack.h"

namespace qlis::tool {

void pack_raw10(const uint16_t *pixels, size_t groups, uint8_t *packed,
                Raw10Packing packing) {
  const int high = packing == Raw10Packing::kMipi ? 0 : 1;
  const int low_at = packing == Raw10Packing::kMipi ? 4 : 0;
  for (size_t g = 0; g < groups;
       ++g, pixels += kRaw10GroupPixels, packed += kRaw10GroupBytes) {
    unsigned low = 0;
    for (int i = 0; i < kRaw10GroupPixels; ++i) {
      const unsigned value = pixels[i] & 0x3FFu;
      low |= (value & 0x3u) << (2 * i);
      packed[high + i] = static_cast<uint8_t>(value >> 2);
    }
    packed[low_at] = static_cast<uint8_t>(low);
  }
}

void unpack_raw10(const uint8_t *packed, size_t groups, uint16_t *pixels) {
  for (size_t g = 0; g < groups;
       ++g, pixels += kRaw10GroupPixels, packed += kRaw10GroupBytes) {
    for (int i = 0; i < kRaw10GroupPixels; ++i) {
      const unsigned high = packed[1 + i];
      const unsigned low = (static_cast<unsigned>(packed[0]) >> (2 * i)) & 0x3u;
      pixels[i] = static_cast<uint16_t>(high << 2 | low);
    }
  }
}

}  // namespace qlis::tool
