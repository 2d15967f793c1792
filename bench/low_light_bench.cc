// The low-light frame driver on a full-resolution packed RAW10 frame,
// against a read pass over the cache lines of the rows it reads.
#include <benchmark/benchmark.h>

#include <vector>

#include "harness.h"
#include "ql_is/ql_is.h"

namespace {

using namespace qlis::bench;

// The blocks visit every second row pair: one frame row in four, over the
// bytes of the row's groups.
constexpr int32_t kRowStep = 4;
constexpr size_t kRowBytes = 5 * (kRawWidth / 4);

void run_driver(benchmark::State &state, Cache cache, uint32_t mode) {
  const uint8_t *frame = raw10_frame();
  BlockFeatureSet features;
  std::vector<DiffHistogram> hists(64);
  iterate(state, cache, [&] {
    benchmark::DoNotOptimize(calc_feature_quality_with_sub_low_light(
        &features, hists.data(), mode, frame, kRawHeight, kRawWidth, kRawStride));
    benchmark::ClobberMemory();
  });
}

// Statistics only: the mode the live path runs.
void BM_LowLightMode1(benchmark::State &state, Cache cache) { run_driver(state, cache, 1); }
// Statistics and difference histograms.
void BM_LowLightMode0(benchmark::State &state, Cache cache) { run_driver(state, cache, 0); }

void BM_LowLightFloor(benchmark::State &state, Cache cache) {
  const uint8_t *frame = raw10_frame();
  iterate(state, cache, [&] {
    benchmark::DoNotOptimize(touch_rows(frame, 0, kRawHeight, kRowStep, kRawStride, kRowBytes));
  });
}

QLIS_COLD(BM_LowLightFloor);
QLIS_COLD(BM_LowLightMode1);
QLIS_COLD(BM_LowLightMode0);
QLIS_WARM(BM_LowLightFloor);
QLIS_WARM(BM_LowLightMode1);

[[maybe_unused]] const bool kRegistered =
    (compare("BM_LowLightMode1/cold", "BM_LowLightFloor/cold", 2.0),
     compare("BM_LowLightMode0/cold", "BM_LowLightFloor/cold", 8.0),
     compare("BM_LowLightMode1/warm", "BM_LowLightFloor/warm", 0), true);

}  // namespace
