// Shared pieces of the benchmark suites: the standard frames, the memory
// floor of a kernel (a read pass over exactly the cache lines it must
// touch), and ratios printed against those floors after the run, so that a
// figure means something on a shared, noisy machine.
#pragma once

#include <cstddef>
#include <cstdint>

namespace qlis::bench {

inline constexpr int32_t kRawHeight = 3000;
inline constexpr int32_t kRawWidth = 4000;
inline constexpr int32_t kRawStride = 5000;
inline constexpr int32_t kYuvHeight = 1080;
inline constexpr int32_t kYuvWidth = 1920;
inline constexpr int32_t kYuvStride = 1920;

// Textured pseudo-random frames, made once: kRawHeight * kRawStride bytes
// of packed RAW10, and kYuvHeight * kYuvStride * 3 / 2 bytes of YUV.
const uint8_t *raw10_frame();
const uint8_t *yuv_frame();

// Reads one byte of every 64-byte line of bytes [0, row_bytes) of rows
// first_row, first_row + row_step, ... below row_end; returns a checksum
// so that the reads stay.
uint64_t touch_rows(const uint8_t *data, int32_t first_row, int32_t row_end,
                    int32_t row_step, size_t stride, size_t row_bytes);

// Whether a timed iteration finds its frame in the caches. On the phone a
// frame arrives by DMA and passes through the intake copy, far larger than
// its caches: kCold, the figure the targets are checked on, empties the
// caches before every iteration (outside the timed region). kWarm leaves
// the frame where the previous iteration left it, which on a desktop with
// a last-level cache larger than the frame means reading from that cache.
enum class Cache { kWarm, kCold };

// Writes a buffer twice the size of the last-level cache (at least 64 MB).
void evict_caches();

// Runs body once per timed iteration, evicting the caches first for kCold.
template <typename State, typename Body>
void iterate(State &state, Cache cache, Body body) {
  for (auto _ : state) {
    if (cache == Cache::kCold) {
      state.PauseTiming();
      evict_caches();
      state.ResumeTiming();
    }
    body();
  }
}

// After the run, prints mean real time of `kernel` / that of `floor`
// (benchmark names as registered) and whether it meets `target`
// (0: report only).
void compare(const char *kernel, const char *floor, double target);

}  // namespace qlis::bench

// Registers a benchmark taking a Cache argument twice, as "<fn>/cold" and
// "<fn>/warm", timed in milliseconds. Needs <benchmark/benchmark.h> and
// qlis::bench::Cache in scope.
#define QLIS_BOTH(fn)                                                          \
  BENCHMARK_CAPTURE(fn, cold, Cache::kCold)->Unit(benchmark::kMillisecond); \
  BENCHMARK_CAPTURE(fn, warm, Cache::kWarm)->Unit(benchmark::kMillisecond)

