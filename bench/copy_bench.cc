// zs_memcpy against the C library's memcpy on a frame-sized copy.
#include <benchmark/benchmark.h>

#include <cstring>
#include <vector>

#include "harness.h"
#include "ql_is/ql_is.h"

namespace {

constexpr uint32_t kCopyBytes = 15000000;  // one 4000x3000 packed RAW10 frame

struct CopyBuffers {
  std::vector<uint8_t> src = std::vector<uint8_t>(kCopyBytes, 1);
  std::vector<uint8_t> dst = std::vector<uint8_t>(kCopyBytes, 2);
};

CopyBuffers &buffers() {
  static CopyBuffers b;
  return b;
}

void BM_Memcpy15MB(benchmark::State &state) {
  CopyBuffers &b = buffers();
  for (auto _ : state) {
    std::memcpy(b.dst.data(), b.src.data(), kCopyBytes);
    benchmark::ClobberMemory();
  }
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) * kCopyBytes);
}

void BM_ZsMemcpy15MB(benchmark::State &state) {
  CopyBuffers &b = buffers();
  for (auto _ : state) {
    zs_memcpy(b.dst.data(), b.src.data(), kCopyBytes);
    benchmark::ClobberMemory();
  }
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) * kCopyBytes);
}

BENCHMARK(BM_Memcpy15MB)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_ZsMemcpy15MB)->Unit(benchmark::kMillisecond);

[[maybe_unused]] const bool kRegistered =
    (qlis::bench::compare("BM_ZsMemcpy15MB", "BM_Memcpy15MB", 1.10), true);

}  // namespace
