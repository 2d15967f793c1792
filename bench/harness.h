// Shared pieces of the benchmark suites: the standard frames, the memory
// floor of a kernel (a read pass over exactly the cache lines it must
// touch), the registration of each case and ratios printed against those
// floors after the run, so that a figure means something on a shared,
// noisy machine.
//
// How long a case runs is chosen in one place (main, harness.cc), not by
// the suites. By default every case runs a bounded number of iterations,
// repeated and interleaved with the other cases, and each ratio is taken
// between the lower quartiles of single iterations: the whole suite takes
// about a minute on two shared cores. --qlis_long (or QLIS_BENCH_LONG=1 in
// the environment) leaves the iteration counts to the benchmark library,
// half a second of timed work per case or --benchmark_min_time, once
// unless --benchmark_repetitions; that takes about 25 minutes, most of
// them spent emptying the caches before cold iterations.
#pragma once

#include <benchmark/benchmark.h>

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <vector>

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

// Writes a buffer twice the size of the last-level cache (the larger of
// the figures the system reports, at least 64 MB).
void evict_caches();

// Hands the times of the timed iterations of one run of the current case
// (seconds) to the ratio report.
void record_run(const std::vector<double> &seconds);

// Runs body once per timed iteration, evicting the caches first for kCold.
// Each iteration is timed on its own: the report works on the lower
// quartile of single iterations, which a preemption or a burst of load
// from another process moves far less than a mean.
template <typename Body>
void iterate(benchmark::State &state, Cache cache, Body body) {
  std::vector<double> seconds;
  seconds.reserve(static_cast<size_t>(state.max_iterations));
  for (auto _ : state) {
    if (cache == Cache::kCold) {
      // Keeps the eviction out of the CPU time column as well.
      state.PauseTiming();
      evict_caches();
      state.ResumeTiming();
    }
    const auto start = std::chrono::steady_clock::now();
    body();
    const std::chrono::duration<double> took =
        std::chrono::steady_clock::now() - start;
    state.SetIterationTime(took.count());
    seconds.push_back(took.count());
  }
  record_run(seconds);
}

// After the run, prints the lower quartile of the times of single
// iterations of `kernel` over that of `floor` (benchmark names as
// registered), the range of that ratio over the repetitions, and whether
// it meets `target` (0: report only).
void compare(const char *kernel, const char *floor, double target);

// Registers fn(state, cache), which times its iterations with iterate(), as
// "<name>" in milliseconds; its iteration count is set once the command
// line is known. Use the macros below.
using CaseFunction = void (*)(benchmark::State &, Cache);
bool add_case(const char *name, CaseFunction fn, Cache cache);

}  // namespace qlis::bench

#define QLIS_CASE_JOIN2(a, b) a##b
#define QLIS_CASE_JOIN(a, b) QLIS_CASE_JOIN2(a, b)
#define QLIS_CASE(fn, tag, cache)                                              \
  [[maybe_unused]] static const bool QLIS_CASE_JOIN(qlis_case_, __COUNTER__) = \
      ::qlis::bench::add_case(#fn "/" tag, fn, cache)

// "<fn>/cold" and "<fn>/warm".
#define QLIS_COLD(fn) QLIS_CASE(fn, "cold", ::qlis::bench::Cache::kCold)
#define QLIS_WARM(fn) QLIS_CASE(fn, "warm", ::qlis::bench::Cache::kWarm)
#define QLIS_BOTH(fn) \
  QLIS_COLD(fn);      \
  QLIS_WARM(fn)
