#include "api/zs_copy.h"

#include <cstring>

#include "ql_is/ql_is.h"

namespace qlis::portable {

void copy_blocks(uint8_t *dst, const uint8_t *src, uint32_t n) {
  const uint32_t whole = n / kCopyBlock * kCopyBlock;
  std::memcpy(dst, src, whole);
  std::memcpy(dst + whole, src + whole, n % kCopyBlock);
}

void fill_blocks(uint8_t *dst, uint8_t value, uint32_t n) {
  const uint32_t whole = n / kCopyBlock * kCopyBlock;
  std::memset(dst, value, whole);
  std::memset(dst + whole, 0, n % kCopyBlock);
}

}  // namespace qlis::portable

extern "C" void zs_memcpy(void *dst, const void *src, uint32_t n) {
  if (n == 0) return;  // dst and src may then be null
  qlis::kernels::copy_blocks(static_cast<uint8_t *>(dst),
                             static_cast<const uint8_t *>(src), n);
}

extern "C" void zs_memset(void *dst, int32_t value, uint32_t n) {
  if (n == 0) return;
  qlis::kernels::fill_blocks(static_cast<uint8_t *>(dst),
                             static_cast<uint8_t>(value), n);
}
