// The re-blur comparison on a 4000x3000 packed RAW10 frame against the
// memory floor: one read of every cache line of the sampled rows 3, 7, 11,
// ... that the comparison must read.
#include <benchmark/benchmark.h>

#include <cstdint>
#include <cstdlib>

#include "compare/reblur.h"
#include "compare/scratch_arena.h"
#include "harness.h"
#include "ql_is/ql_is.h"

namespace {

using namespace qlis::bench;

constexpr int32_t kRadius = 5;
constexpr uint32_t kMode = 1;
constexpr int32_t kFirstSampledRow = 3;
constexpr int32_t kSampledRowStep = 4;
constexpr size_t kSampledRowBytes = 5 * (kRawWidth / 4);

uint8_t *arena_block() {
  static uint8_t *block =
      static_cast<uint8_t *>(std::aligned_alloc(64, qlis::kScratchArenaBytes));
  return block;
}

void BM_Reblur(benchmark::State &state, Cache cache) {
  const uint8_t *frame = raw10_frame();
  const ScratchArena arena{arena_block(), qlis::kScratchArenaBytes, 0};
  iterate(state, cache, [&] {
    benchmark::DoNotOptimize(compare_reblue_with_luminance_compensation(
        frame, kRawHeight, kRawWidth, kRawStride, kMode, kRadius, arena));
  });
}

void BM_ReblurPortable(benchmark::State &state, Cache cache) {
  const uint8_t *frame = raw10_frame();
  const ScratchArena arena{arena_block(), qlis::kScratchArenaBytes, 0};
  iterate(state, cache, [&] {
    benchmark::DoNotOptimize(qlis::portable::reblur_with_luminance_compensation(
        frame, kRawHeight, kRawWidth, kRawStride, kRadius, arena));
  });
}

void BM_ReblurFloor(benchmark::State &state, Cache cache) {
  const uint8_t *frame = raw10_frame();
  iterate(state, cache, [&] {
    benchmark::DoNotOptimize(touch_rows(frame, kFirstSampledRow, kRawHeight, kSampledRowStep,
                                        kRawStride, kSampledRowBytes));
  });
}

QLIS_COLD(BM_ReblurFloor);
QLIS_COLD(BM_Reblur);
QLIS_COLD(BM_ReblurPortable);
QLIS_WARM(BM_ReblurFloor);
QLIS_WARM(BM_Reblur);

[[maybe_unused]] const bool kRegistered =
    (compare("BM_Reblur/cold", "BM_ReblurFloor/cold", 2.0),
     compare("BM_ReblurPortable/cold", "BM_ReblurFloor/cold", 0),
     compare("BM_Reblur/warm", "BM_ReblurFloor/warm", 0), true);

}  // namespace
