// The classifier's frame features on a full 4000x3000 frame, against a read
// pass over the cache lines of exactly the lines it samples.
#include <benchmark/benchmark.h>

#include <vector>

#include "harness.h"
#include "ql_is/ql_is.h"

namespace {

using namespace qlis::bench;

// Byte 4 of every group on lines 3, 7, 11, ...: all the groups of a line
// span its first 5 * (width / 4) bytes.
constexpr int32_t kFirstLine = 3;
constexpr int32_t kLineStep = 4;
constexpr size_t kRowBytes = 5 * (kRawWidth / 4);
constexpr size_t kScratchBytes =
    static_cast<size_t>(kRawHeight / 4) * static_cast<size_t>(kRawWidth / 4);

void BM_ClassifierFeatures(benchmark::State &state, Cache cache) {
  const uint8_t *frame = raw10_frame();
  std::vector<uint8_t> scratch(kScratchBytes);
  double features[320];
  iterate(state, cache, [&] {
    benchmark::DoNotOptimize(get_feature_raw_10bitX5_(
        frame, kRawHeight, kRawWidth, kRawStride, 0, 0, features,
        scratch.data()));
    benchmark::ClobberMemory();
  });
}

void BM_ClassifierLinesFloor(benchmark::State &state, Cache cache) {
  const uint8_t *frame = raw10_frame();
  iterate(state, cache, [&] {
    benchmark::DoNotOptimize(touch_rows(frame, kFirstLine, kRawHeight,
                                        kLineStep, kRawStride, kRowBytes));
  });
}

QLIS_BOTH(BM_ClassifierLinesFloor);
QLIS_BOTH(BM_ClassifierFeatures);

[[maybe_unused]] const bool kRegistered =
    (compare("BM_ClassifierFeatures/cold", "BM_ClassifierLinesFloor/cold", 0),
     compare("BM_ClassifierFeatures/warm", "BM_ClassifierLinesFloor/warm", 0), true);

}  // namespace
