// The re-blur comparison and the scratch arena it takes its planes from.
// The arena starts part-used, holds the documented size or less, and ends
// on a page boundary. Both kernels give the same score, bit for bit,
// however full of junk the arena is, and neither writes below its used
// count; a frame too small for the box scores NaN. AssignMemSpace hands out
// the next aligned piece for as long as it fits in the block, and refuses
// (leaving the arena unchanged) only when it does not.
#include <algorithm>
#include <bit>
#include <cmath>
#include <cstring>

#include "compare/reblur.h"
#include "fuzz_target.h"
#include "ql_is/ql_is.h"
#include "support/page_end_buffer.h"

QLIS_FUZZ_TARGET(reblur) {
  qlis::fuzz::Input in(data, size);
  const int32_t radius = in.range(0, 15) == 15 ? in.range(0, INT32_MAX) : in.range(0, 9);
  const uint32_t used = in.range(0, 200), share = in.range(0, 511);
  const int32_t slack[3] = {in.range(-300, 70), in.range(-300, 70), in.range(-300, 70)};
  // Now and then a frame larger than any random one: enough vector steps
  // for the 16-bit accumulators to need their flushes.
  const bool large = in.range(0, 31) == 0;
  const int32_t w4 = in.range(0, large ? 400 : 90), h4 = in.range(0, large ? 130 : 40);
  const int32_t height = 4 * h4 + in.range(0, 3), width = 4 * w4 + in.range(0, 3), stride = 5 * w4 + in.range(0, 63);
  qlis::test::PageEndBuffer frame(static_cast<size_t>(height) * static_cast<size_t>(stride));
  in.fill(frame.data(), frame.size());
  const uint32_t need = 2 * w4 * h4 + 4 * (w4 + 1) * (h4 + 1) + 189;
  const uint32_t total = used + (share >= 256 ? need : need * share / 256);
  qlis::test::PageEndBuffer block(total);
  ScratchArena arena{block.data(), total, used};
  std::memset(block.data(), 0xA5, total);
  const double exported =
      compare_reblue_with_luminance_compensation(frame.data(), height, width, stride, 0, radius, arena);
  std::memset(block.data() + used, 0x5A, total - used);
  const double portable =
      qlis::portable::reblur_with_luminance_compensation(frame.data(), height, width, stride, radius, arena);
  QLIS_FUZZ_CHECK(std::bit_cast<uint64_t>(exported) == std::bit_cast<uint64_t>(portable));
  QLIS_FUZZ_CHECK(std::isnan(exported) || (exported >= 0.0 && 2 * static_cast<int64_t>(radius) < std::min(w4, h4)));
  QLIS_FUZZ_CHECK(std::all_of(block.data(), block.data() + used, [](uint8_t b) { return b == 0xA5; }));

  // Requests around what is left of the block: some fill it exactly, some
  // overshoot, some wrap past 2^32.
  const uintptr_t base = reinterpret_cast<uintptr_t>(block.data());
  for (const int32_t s : slack) {
    const uint32_t length = arena.total - arena.used + static_cast<uint32_t>(s);
    const uint64_t next = (uint64_t{base} + arena.used + 63) / 64 * 64 - base;
    const bool fits = next + length <= total;
    const uint64_t used_after = fits ? next + length : arena.used;
    QLIS_FUZZ_CHECK(AssignMemSpace(&arena, length, s) == (fits ? block.data() + next : nullptr) &&
                    arena.used == used_after && arena.base == block.data() && arena.total == total);
  }
}
