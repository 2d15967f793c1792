// The intake's block copies and the buffer-pair swap: zs_memcpy and the
// portable copy are memcpy, zs_memset the portable fill (whole blocks of the
// value's low byte, a zeroed tail), all staying inside buffers that end on
// a page boundary;
// swap_buf exchanges exactly the first n words of arrays apart, and on
// overlapping arrays the NEON and portable orders of loads and stores agree.
#include <algorithm>
#include <cstring>
#include <numeric>
#include <vector>

#include "api/zs_copy.h"
#include "fuzz_target.h"
#include "ql_is/ql_is.h"
#include "support/page_end_buffer.h"
#include "worker/swap_buf.h"

QLIS_FUZZ_TARGET(copy) {
  qlis::fuzz::Input in(data, size);
  const uint32_t n = static_cast<uint32_t>(in.range(0, 2100));
  const int32_t value = in.range(INT32_MIN, INT32_MAX);
  const int32_t words = in.range(-8, 40), offset = in.range(0, 9);
  qlis::test::PageEndBuffer src(n), kernel(n), portable(n);
  in.fill(src.data(), n);
  zs_memcpy(kernel.data(), src.data(), n);
  qlis::portable::copy_blocks(portable.data(), src.data(), n);
  QLIS_FUZZ_CHECK(n == 0 || (std::memcmp(kernel.data(), src.data(), n) == 0 &&
                             std::memcmp(portable.data(), src.data(), n) == 0));
  zs_memset(kernel.data(), value, n);
  qlis::portable::fill_blocks(portable.data(), static_cast<uint8_t>(value), n);
  QLIS_FUZZ_CHECK(n == 0 || std::memcmp(kernel.data(), portable.data(), n) == 0);

  std::vector<uintptr_t> a(48), b(48);
  in.fill(reinterpret_cast<uint8_t *>(a.data()), a.size() * sizeof(uintptr_t));
  std::iota(b.begin(), b.end(), uintptr_t{7});
  const std::vector<uintptr_t> a0 = a, b0 = b;
  swap_buf(a.data(), b.data(), words);
  const auto moved = static_cast<std::ptrdiff_t>(std::max(words, 0));
  QLIS_FUZZ_CHECK(std::equal(a.begin(), a.begin() + moved, b0.begin()) &&
                  std::equal(b.begin(), b.begin() + moved, a0.begin()) &&
                  std::equal(a.begin() + moved, a.end(), a0.begin() + moved) &&
                  std::equal(b.begin() + moved, b.end(), b0.begin() + moved));
  // Overlapping: the second array starts `offset` words into the first.
  std::vector<uintptr_t> p = a0, q = a0;
  auto *pb = reinterpret_cast<uint8_t *>(p.data()), *qb = reinterpret_cast<uint8_t *>(q.data());
  qlis::portable::swap_words(pb, pb + offset * sizeof(uintptr_t), std::min(words, 38));
  qlis::kernels::swap_words(qb, qb + offset * sizeof(uintptr_t), std::min(words, 38));
  QLIS_FUZZ_CHECK(p == q);
}
